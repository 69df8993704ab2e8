// The three text forms of a message.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <thread>
#include <vector>

#include "msg/cells.h"
#include "support/comma_locale.h"
#include "support/test_dic.h"

namespace {

// Message 1201 and its row 1300.
class CQuoteDic : public CMsgDic {
 public:
  CQuoteDic() {
    SetMsgInfo(1201, "Quote", "1.0", "16");
    SetMsgDetail(1201, 1, "code", "string", "N");
    SetMsgDetail(1201, 2, "qty", "integer", "N");
    SetMsgDetail(1201, 3, "rate", "double", "N");
    SetMsgDetail(1201, 4, "flag", "bool", "N");
    SetMsgDetail(1201, 5, "day", "date", "N");
    SetMsgDetail(1201, 6, "list", "integer", "Y");
    SetMsgDetail(1201, 7, "rows", "m1300", "Y");
    SetMsgInfo(1300, "Row", "", "");
    SetMsgDetail(1300, 1, "text", "string", "N");
  }
};

void FillQuote(CMsg& p_cMsg, CMsgDic& p_cDic, bool p_bRows) {
  p_cMsg.SetVer("1.0");
  p_cMsg.SetValue(1, "ABC");
  p_cMsg.SetValue(2, 7);
  p_cMsg.SetValue(3, 2.5);
  p_cMsg.SetValue(4, true);
  p_cMsg.SetValue(6, 10);
  p_cMsg.SetValue(6, 20);
  for (const char* szText : {"row one", "row two"}) {
    if (!p_bRows) break;
    CMsg* pRow = new CMsg(1300, 0, 0, &p_cDic);
    pRow->SetValue(1, szText);
    p_cMsg.SetValue(7, pRow);
  }
}

std::string DumpXml(const CMsg& p_cMsg, bool p_bByName = false, int p_iDepth = 1) {
  CStream stOut(0, 512);
  p_cMsg.DumpXml(&stOut, p_bByName, p_iDepth);
  return Text(stOut);
}
std::string Dump(const CMsg& p_cMsg, bool p_bByName = false, int p_iDepth = 1) {
  CStream stOut(0, 512);
  p_cMsg.Dump(&stOut, p_bByName, p_iDepth);
  return Text(stOut);
}

// What stands between the head and the tail of the wire form of message 120.
std::string Body(const CMsg& p_cMsg) {
  const std::string sHead = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\">";
  const std::string sXml = ToXml(p_cMsg);
  REQUIRE(sXml.compare(0, sHead.size(), sHead) == 0);
  REQUIRE(sXml.compare(sXml.size() - 6, 6, "</msg>") == 0);
  return sXml.substr(sHead.size(), sXml.size() - sHead.size() - 6);
}

CString WithNul(const std::string& p_s) {
  CString sText;
  sText.Set(p_s.data(), static_cast<int>(p_s.size()));
  return sText;
}

// Whether another parser takes the document to be well-formed.
bool WellFormed(const std::string& p_sXml) {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("doc.xml", p_sXml),
                    sProgram = "import sys, xml.etree.ElementTree as e; e.parse(sys.argv[1])";
  return system((std::string(TEST_PYTHON) + " -c '" + sProgram + "' " + sPath + " 2>/dev/null").c_str()) == 0;
}

}    // namespace

TEST_CASE("the wire form by number") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  CHECK(
      ToXml(cMsg) ==
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"1201\" ver=\"1.0\"><t1><![CDATA[ABC]]></t1><t2>7</t2>"
      "<t3>2.500000000000000e+00</t3><t4>true</t4><t6>10</t6><t6>20</t6><t7><t1><![CDATA[row one]]></t1></t7><t7><t1>"
      "<![CDATA[row two]]></t1></t7></msg>");
}

TEST_CASE("the wire form with the letter for arrays") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  CHECK(
      ToXml(cMsg, true) ==
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"1201\" ver=\"1.0\"><t1><![CDATA[ABC]]></t1><t2>7</t2>"
      "<t3>2.500000000000000e+00</t3><t4>true</t4><a6>10</a6><a6>20</a6><a7><t1><![CDATA[row one]]></t1></a7><a7><t1>"
      "<![CDATA[row two]]></t1></a7></msg>");
}

TEST_CASE("the wire form by name, with and without the letter for arrays") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  for (bool bArrayPrefix : {false, true}) {
    CHECK(ToXml(cMsg, bArrayPrefix, true) ==
          "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"1201\" type=\"name\" ver=\"1.0\">"
          "<code><![CDATA[ABC]]></code><qty>7</qty><rate>2.500000000000000e+00</rate><flag>true</flag>"
          "<list>10</list><list>20</list><rows><text>"
          "<![CDATA[row one]]></text></rows><rows><text><![CDATA[row two]]></text></rows></msg>");
  }
}

TEST_CASE("the readable form by number") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, false);
  CHECK(DumpXml(cMsg) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n"
        "<msg no='1201' type='index' ver='1.0'>\n"
        "  <t1><![CDATA[ABC]]></t1>\n"
        "  <t2>7</t2>\n"
        "  <t3>2.500000000000000e+00</t3>\n"
        "  <t4>true</t4>\n"
        "  <t6>10</t6>\n"
        "  <t6>20</t6>\n"
        "</msg>\n");
}

TEST_CASE("the readable form by name, with rows") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  cMsg.SetValue(5, CDate("20240131"));
  CHECK(DumpXml(cMsg, true) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n"
        "<msg no='1201' type='name' ver='1.0'>\n"
        "  <code><![CDATA[ABC]]></code>\n"
        "  <qty>7</qty>\n"
        "  <rate>2.500000000000000e+00</rate>\n"
        "  <flag>true</flag>\n"
        "  <day>20240131</day>\n"
        "  <list>10</list>\n"
        "  <list>20</list>\n"
        "  <rows>\n"
        "    <text><![CDATA[row one]]></text>\n"
        "  </rows>\n"
        "  <rows>\n"
        "    <text><![CDATA[row two]]></text>\n"
        "  </rows>\n"
        "</msg>\n");
}

TEST_CASE("the listing") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  const std::string sBody =
      "     Ver : 1.0\n"
      "    [1](code) ABC\n"
      "    [2](qty) 7\n"
      "    [3](rate) 2.500000000000000e+00\n"
      "    [4](flag) true\n"
      "    [6](list) 10 20\n"
      "    [7](rows) SUBMSG(1300) row 0\n"
      "      [1](text) row one\n"
      "    [7](rows) SUBMSG(1300) row 1\n"
      "      [1](text) row two\n"
      "===============================================\n";
  CHECK(Dump(cMsg) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 1201\n"
        "    Type : index\n" + sBody);
  CHECK(Dump(cMsg, true) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 1201\n"
        "    Type : name\n" + sBody);
}

TEST_CASE("a message without values has a head and a tail only") {
  CTestMsg cMsg(120), cNoDef(0);
  CHECK(ToXml(*cMsg) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"></msg>");
  CHECK(ToXml(*cMsg, true, true) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" type=\"name\" ver=\"\"></msg>");
  CHECK(DumpXml(*cMsg) == "<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='120' type='index' ver=''>\n</msg>\n");
  CHECK(Dump(*cMsg) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 120\n"
        "    Type : index\n"
        "     Ver : \n"
        "===============================================\n");
  CHECK(ToXml(*cNoDef) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"0\" ver=\"\"></msg>");
  CHECK(DumpXml(*cNoDef, true) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='0' type='name' ver=''>\n</msg>\n");
}

TEST_CASE("the head of the wire form is 44 bytes and everything is on one line") {
  CTestMsg cMsg(120);
  cMsg->SetValue(1, "text");
  const std::string sXml = ToXml(*cMsg);
  CHECK(sXml.substr(0, 44) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>");
  CHECK(sXml.substr(44, 5) == "<msg ");
  CHECK(sXml.find('\n') == std::string::npos);
}

TEST_CASE("every type, single and repeated, in all forms") {
  CTestMsg cMsg(120);
  for (int iTag : {0, 10}) {
    cMsg->SetValue(iTag + 6, NewRow(cMsg.Dic(), "row"));
    cMsg->SetValue(iTag + 5, CDate("20240131"));
    cMsg->SetValue(iTag + 4, false);
    cMsg->SetValue(iTag + 3, -1.0);
    cMsg->SetValue(iTag + 7, -7);
    cMsg->SetValue(iTag + 1, "abc");
  }
  cMsg->SetValue(16, NewRow(cMsg.Dic(), "row 1"));
  cMsg->SetValue(15, CDate("2024"));
  cMsg->SetValue(14, true);
  cMsg->SetValue(13, 0.0);
  cMsg->SetValue(17, 0);
  cMsg->SetValue(11, "def");
  // In the order of the dictionary, whatever the order in which they were set.
  CHECK(ToXml(*cMsg, true) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"><t1><![CDATA[abc]]></t1><t7>-7</t7>"
        "<t3>-1.000000000000000e+00</t3><t4>false</t4><t5>20240131</t5><t6><t1><![CDATA[row]]></t1></t6>"
        "<a11><![CDATA[abc]]></a11><a11><![CDATA[def]]></a11><a17>-7</a17><a17>0</a17>"
        "<a13>-1.000000000000000e+00</a13><a13>0.000000000000000e+00</a13><a14>false</a14><a14>true</a14>"
        "<a15>20240131</a15><a15>2024</a15><a16><t1><![CDATA[row]]></t1></a16>"
        "<a16><t1><![CDATA[row 1]]></t1></a16></msg>");
  CHECK(
      ToXml(*cMsg, false, true) ==
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" type=\"name\" ver=\"\">"
      "<text><![CDATA[abc]]></text>"
      "<number>-7</number><price>-1.000000000000000e+00</price><flag>false</flag><day>20240131</day><row><text>"
      "<![CDATA[row]]></text></row><texts><![CDATA[abc]]></texts><texts><![CDATA[def]]></texts><numbers>-7</numbers>"
      "<numbers>0</numbers><prices>-1.000000000000000e+00</prices><prices>0.000000000000000e+00</prices>"
      "<flags>false</flags><flags>true</flags><days>20240131</days><days>2024</days><rows><text><![CDATA[row]]></text>"
      "</rows><rows><text><![CDATA[row 1]]></text></rows></msg>");
  CHECK(DumpXml(*cMsg) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n"
        "<msg no='120' type='index' ver=''>\n"
        "  <t1><![CDATA[abc]]></t1>\n"
        "  <t7>-7</t7>\n"
        "  <t3>-1.000000000000000e+00</t3>\n"
        "  <t4>false</t4>\n"
        "  <t5>20240131</t5>\n"
        "  <t6>\n"
        "    <t1><![CDATA[row]]></t1>\n"
        "  </t6>\n"
        "  <t11><![CDATA[abc]]></t11>\n"
        "  <t11><![CDATA[def]]></t11>\n"
        "  <t17>-7</t17>\n"
        "  <t17>0</t17>\n"
        "  <t13>-1.000000000000000e+00</t13>\n"
        "  <t13>0.000000000000000e+00</t13>\n"
        "  <t14>false</t14>\n"
        "  <t14>true</t14>\n"
        "  <t15>20240131</t15>\n"
        "  <t15>2024</t15>\n"
        "  <t16>\n"
        "    <t1><![CDATA[row]]></t1>\n"
        "  </t16>\n"
        "  <t16>\n"
        "    <t1><![CDATA[row 1]]></t1>\n"
        "  </t16>\n"
        "</msg>\n");
  CHECK(Dump(*cMsg) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 120\n"
        "    Type : index\n"
        "     Ver : \n"
        "    [1](text) abc\n"
        "    [7](number) -7\n"
        "    [3](price) -1.000000000000000e+00\n"
        "    [4](flag) false\n"
        "    [5](day) 20240131\n"
        "    [6](row) SUBMSG(121)\n"
        "      [1](text) row\n"
        "    [11](texts) abc def\n"
        "    [17](numbers) -7 0\n"
        "    [13](prices) -1.000000000000000e+00 0.000000000000000e+00\n"
        "    [14](flags) false true\n"
        "    [15](days) 20240131 2024\n"
        "    [16](rows) SUBMSG(121) row 0\n"
        "      [1](text) row\n"
        "    [16](rows) SUBMSG(121) row 1\n"
        "      [1](text) row 1\n"
        "===============================================\n");
}

TEST_CASE("numbers as printf prints them") {
  struct T_Row {
    double dValue;
    const char* szText;
  };
  using CLimits = std::numeric_limits<double>;
  static const T_Row s_atRow[] = {{2.5, "2.500000000000000e+00"},
                                  {0.0, "0.000000000000000e+00"},
                                  {-0.0, "-0.000000000000000e+00"},
                                  {0.1, "1.000000000000000e-01"},
                                  {1.0 / 3, "3.333333333333333e-01"},
                                  {-123456789.125, "-1.234567891250000e+08"},
                                  {1e100, "1.000000000000000e+100"},
                                  {CLimits::max(), "1.797693134862316e+308"},
                                  {CLimits::lowest(), "-1.797693134862316e+308"},
                                  {CLimits::min(), "2.225073858507201e-308"},
                                  {CLimits::denorm_min(), "4.940656458412465e-324"},
                                  {CLimits::infinity(), "inf"},
                                  {-CLimits::infinity(), "-inf"}};
  for (const T_Row& tRow : s_atRow) {
    CTestMsg cMsg(120);
    cMsg->SetValue(3, tRow.dValue);
    CHECK(Body(*cMsg) == std::string("<t3>") + tRow.szText + "</t3>");
  }
  for (int i : {0, 1, -1, INT_MAX, INT_MIN}) {
    CTestMsg cMsg(120);
    cMsg->SetValue(7, i);
    CHECK(Body(*cMsg) == "<t7>" + std::to_string(i) + "</t7>");
  }
}

TEST_CASE("numbers are written and read without the locale") {
  CTestMsg cMsg(120);
  cMsg->SetValue(3, 1234567.5);
  cMsg->SetValue(7, 1234567);
  const CCommaLocale cLocale;
  REQUIRE(CFormat("%.1f", 1.5) == "1,5");
  CHECK(Body(*cMsg) == "<t7>1234567</t7><t3>1.234567500000000e+06</t3>");
  CHECK(DumpXml(*cMsg).find("  <t3>1.234567500000000e+06</t3>\n") != std::string::npos);
  CHECK(Dump(*cMsg).find("    [3](price) 1.234567500000000e+06\n") != std::string::npos);
  CLoadedDic cDic;
  CMsg cRead(0, 0, 0, &cDic);
  double dOut = 0;
  CHECK(Load(cRead, ToXml(*cMsg)) == 0);
  CHECK(cRead.GetValue(3, &dOut) == 0);
  CHECK(dOut == 1234567.5);
  for (const char* szText : {"1.5", "0x1.8p0", "+1.5", "1.5e0"}) {    // every way that a number takes through the code
    cRead.SetParsedData(13, szText);
    CHECK(cRead.GetValueAt(13, cRead.GetArrSize(13) - 1, &dOut) == 0);
    CHECK(dOut == 1.5);
  }
}

TEST_CASE("nothing is escaped") {
  CTestMsg cMsg(120);
  cMsg->SetValue(1, "a<b>&\"']]>c");
  cMsg->SetValue(5, CDate("<&>\"'"));
  cMsg->SetVer("\"<'&");
  CHECK(ToXml(*cMsg) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"<'&\">"
        "<t1><![CDATA[a<b>&\"']]>c]]></t1><t5><&>\"'</t5></msg>");
  CHECK(DumpXml(*cMsg) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='120' type='index' ver='\"<'&'>\n"
        "  <t1><![CDATA[a<b>&\"']]>c]]></t1>\n  <t5><&>\"'</t5>\n</msg>\n");
}

TEST_CASE("percent signs are data") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, 1, "%s%n", "string", "N");
  CMsg cMsg(5, 0, 0, &cDic);
  cMsg.SetVer("%d%s");
  cMsg.SetValue(1, "%s%n%999999d");
  CHECK(ToXml(cMsg, false, true) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"5\" type=\"name\" ver=\"%d%s\">"
        "<%s%n><![CDATA[%s%n%999999d]]></%s%n></msg>");
  CHECK(Dump(cMsg).find("    [1](%s%n) %s%n%999999d\n") != std::string::npos);
}

TEST_CASE("strings of 899 and 900 bytes look alike") {
  for (size_t iLen : {898u, 899u, 900u, 901u, 1023u, 1024u, 100000u}) {
    CAPTURE(iLen);
    const std::string sText(iLen, 'x');
    CTestMsg cMsg(120);
    cMsg->SetValue(1, sText.c_str());
    cMsg->SetValue(11, sText.c_str());
    CHECK(Body(*cMsg) == "<t1><![CDATA[" + sText + "]]></t1><t11><![CDATA[" + sText + "]]></t11>");
    CHECK(ToXml(*cMsg, true).find("<a11><![CDATA[" + sText + "]]></a11>") != std::string::npos);
    CHECK(ToXml(*cMsg, true, true).find("<texts><![CDATA[" + sText + "]]></texts>") != std::string::npos);
    CHECK(DumpXml(*cMsg).find("  <t1><![CDATA[" + sText + "]]></t1>\n") != std::string::npos);
  }
}

TEST_CASE("a string of 900 bytes is written by its size, a shorter one up to its first NUL") {
  const std::string sShort = "head" + std::string(1, '\0') + std::string(894, 's');
  const std::string sLong = "head" + std::string(1, '\0') + std::string(895, 'l');
  REQUIRE(sShort.size() == 899);
  REQUIRE(sLong.size() == 900);
  CTestMsg cMsg(120);
  cMsg->SetParsedData(1, WithNul(sShort));
  cMsg->SetParsedData(11, WithNul(sLong));
  cMsg->SetParsedData(11, WithNul(sShort));
  CHECK(Body(*cMsg) ==
        "<t1><![CDATA[head]]></t1><t11><![CDATA[" + sLong + "]]></t11><t11><![CDATA[head]]></t11>");
  // The other forms print texts as "%s" does.
  CHECK(DumpXml(*cMsg).find("  <t11><![CDATA[head]]></t11>\n  <t11><![CDATA[head]]></t11>\n") != std::string::npos);
  CHECK(Dump(*cMsg).find("    [1](text) head\n    [11](texts) head head\n") != std::string::npos);
}

TEST_CASE("an empty string is an empty section") {
  CTestMsg cMsg(120);
  cMsg->SetParsedData(1, "");
  cMsg->SetParsedData(11, "");
  cMsg->SetParsedData(5, "");
  CHECK(Body(*cMsg) == "<t1><![CDATA[]]></t1><t5></t5><t11><![CDATA[]]></t11>");
  CHECK(Dump(*cMsg).find("    [1](text) \n    [5](day) \n    [11](texts) \n") != std::string::npos);
}

TEST_CASE("long names") {
  const std::string sName(3000, 'n'), sText(899, 't');
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, INT_MAX, sName.c_str(), "string", "Y");
  CMsg cMsg(5, 0, 0, &cDic);
  cMsg.SetValue(INT_MAX, sText.c_str());
  CHECK(ToXml(cMsg, false, true) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"5\" type=\"name\" ver=\"\"><" + sName +
            "><![CDATA[" + sText + "]]></" + sName + "></msg>");
  CHECK(ToXml(cMsg, true).find("<a2147483647><![CDATA[" + sText + "]]></a2147483647>") != std::string::npos);
}

TEST_CASE("arrays inside rows have the prefix, too") {
  CTestMsg cMsg(120);
  cMsg->SetValue(16, NewRow(cMsg.Dic(), "outer"));
  CMsg* pRow = cMsg->GetValue(16);
  pRow->SetValue(3, NewRow(cMsg.Dic(), "single"));
  for (const char* szText : {"one", "two"}) pRow->SetValue(4, NewRow(cMsg.Dic(), szText));
  const std::string sHead = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\">";
  CHECK(ToXml(*cMsg, true) == sHead + "<a16><t1><![CDATA[outer]]></t1><t3><t1><![CDATA[single]]></t1></t3>"
                                      "<a4><t1><![CDATA[one]]></t1></a4><a4><t1><![CDATA[two]]></t1></a4></a16></msg>");
  CHECK(ToXml(*cMsg, false) == sHead + "<t16><t1><![CDATA[outer]]></t1><t3><t1><![CDATA[single]]></t1></t3>"
                                       "<t4><t1><![CDATA[one]]></t1></t4><t4><t1><![CDATA[two]]></t1></t4></t16></msg>");
}

TEST_CASE("rows that are missing are not written, and rows keep their numbers") {
  CTestMsg cMsg(120);
  for (const char* szText : {"zero", "one", "two"}) cMsg->SetValue(16, NewRow(cMsg.Dic(), szText));
  for (int i = 0; i < 20; ++i) cMsg->SetValue(16, NewRow(cMsg.Dic(), "missing"));
  CMsgArray& apRow = *callorv::detail::CCells::GetHashBag(*cMsg, 16)->m_pMsgArr;
  for (int i = 3; i < 23; ++i) apRow.SetAt(i, nullptr);
  apRow.SetAt(1, nullptr);
  CHECK(Body(*cMsg) == "<t16><t1><![CDATA[zero]]></t1></t16><t16><t1><![CDATA[two]]></t1></t16>");
  CHECK(Dump(*cMsg).find("    [16](rows) SUBMSG(121) row 0\n      [1](text) zero\n"
                         "    [16](rows) SUBMSG(121) row 2\n      [1](text) two\n===") != std::string::npos);
  apRow.SetAt(0, nullptr);
  apRow.SetAt(2, nullptr);
  CHECK(Body(*cMsg).empty());
  CHECK(DumpXml(*cMsg) == "<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='120' type='index' ver=''>\n</msg>\n");
  CHECK(Dump(*cMsg).find("     Ver : \n===") != std::string::npos);
}

TEST_CASE("an empty array is nothing in XML and an empty line in the listing") {
  CTestMsg cMsg(120);
  cMsg->SetValue(17, 1);
  cMsg->SetValue(16, NewRow(cMsg.Dic(), "row"));
  callorv::detail::CCells::GetHashBag(*cMsg, 17)->m_pIntArr->RemoveAll();
  callorv::detail::CCells::GetHashBag(*cMsg, 16)->m_pMsgArr->RemoveAll();
  CHECK(Body(*cMsg).empty());
  CHECK(DumpXml(*cMsg).find("ver=''>\n</msg>") != std::string::npos);
  CHECK(Dump(*cMsg).find("     Ver : \n\n===") != std::string::npos);
}

TEST_CASE("every row is an element, also an empty one") {
  CTestMsg cMsg(120);
  cMsg->MakeSubMsgEntry(16);
  cMsg->MakeSubMsgEntry(6);
  CHECK(Body(*cMsg) == "<t6></t6><t16></t16>");
  CHECK(DumpXml(*cMsg).find("  <t6>\n  </t6>\n  <t16>\n  </t16>\n") != std::string::npos);
  CHECK(Dump(*cMsg).find("    [6](row) SUBMSG(121)\n    [16](rows) SUBMSG(121) row 0\n===") != std::string::npos);
}

TEST_CASE("depth indents and leaves out head and tail") {
  CTestMsg cMsg(120);
  cMsg->SetValue(7, 5);
  cMsg->SetValue(6, NewRow(cMsg.Dic(), "row"));
  cMsg->GetValue(6)->SetValue(3, NewRow(cMsg.Dic(), "next"));
  struct T_Row {
    int iDepth;
    const char *szXml, *szList;
  };
  static const T_Row s_atRow[] = {
      {2,
       "    <t7>5</t7>\n    <t6>\n      <t1><![CDATA[row]]></t1>\n      <t3>\n        <t1><![CDATA[next]]></t1>\n"
       "      </t3>\n"
       "    </t6>\n",
       "      [7](number) 5\n      [6](row) SUBMSG(121)\n        [1](text) row\n        [3](next) SUBMSG(121)\n"
       "          [1](text) next\n"},
      {3,
       "      <t7>5</t7>\n      <t6>\n        <t1><![CDATA[row]]></t1>\n        <t3>\n"
       "          <t1><![CDATA[next]]></t1>\n"
       "        </t3>\n      </t6>\n",
       "        [7](number) 5\n        [6](row) SUBMSG(121)\n          [1](text) row\n          [3](next) SUBMSG(121)\n"
       "            [1](text) next\n"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iDepth);
    CHECK(DumpXml(*cMsg, false, tRow.iDepth) == tRow.szXml);
    CHECK(Dump(*cMsg, false, tRow.iDepth) == tRow.szList);
  }
  // No indentation is less than two blanks, whatever the depth.
  CMsg cFlat(120, 0, 0, &cMsg.Dic());
  cFlat.SetValue(7, 5);
  CHECK(DumpXml(cFlat, false, 0) == "  <t7>5</t7>\n");
  CHECK(Dump(cFlat, false, 0) == "    [7](number) 5\n");
  CHECK(DumpXml(cFlat, false, -2) == "    <t7>5</t7>\n");
  CStream stOut(0, 512);
  CHECK(cMsg->ToXml(&stOut, false, false, 2) == 0);
  CHECK(Text(stOut) == "<t7>5</t7><t6><t1><![CDATA[row]]></t1><t3><t1><![CDATA[next]]></t1></t3></t6>");
}

TEST_CASE("the wire form empties the stream at depth 1, everything else is appended") {
  CTestMsg cMsg(120);
  cMsg->SetValue(7, 5);
  CStream stOut(0, 512);
  stOut.AppendData("before", 6);
  CHECK(cMsg->ToXml(&stOut, false, false, 2) == 0);
  CHECK(Text(stOut) == "before<t7>5</t7>");
  CHECK(cMsg->ToXml(&stOut, false, false, 1) == 0);
  CHECK(Text(stOut) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"><t7>5</t7></msg>");
  CHECK(cMsg->ToXml(&stOut, false, false, 1) == 0);
  CHECK(Text(stOut) == ToXml(*cMsg));
  cMsg->DumpXml(&stOut, false, 1);
  CHECK(Text(stOut) == ToXml(*cMsg) + DumpXml(*cMsg));
  stOut.Clear();
  stOut.AppendData("before", 6);
  cMsg->Dump(&stOut, false, 1);
  CHECK(Text(stOut) == "before" + Dump(*cMsg));
}

TEST_CASE("a sub-message can be written on its own") {
  CTestMsg cMsg(120);
  cMsg->SetValue(6, NewRow(cMsg.Dic(), "row"));
  CHECK(ToXml(*cMsg->GetValue(6)) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"121\" ver=\"\"><t1><![CDATA[row]]></t1></msg>");
}

TEST_CASE("a sub-message shows its own number in the listing and its own tags") {
  CTestMsg cMsg(120);
  auto pOther = std::make_unique<CMsg>(120, 0, 0, &cMsg.Dic());
  pOther->SetVer("not shown");
  pOther->SetValue("price", 1.0);
  cMsg->SetValue(6, pOther.release());
  CHECK(Dump(*cMsg) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 120\n"
        "    Type : index\n"
        "     Ver : \n"
        "    [6](row) SUBMSG(120)\n"
        "      [3](price) 1.000000000000000e+00\n"
        "===============================================\n");
  CHECK(ToXml(*cMsg, false, true).find("<row><price>1.000000000000000e+00</price></row>") != std::string::npos);
}

TEST_CASE("negative tag numbers are reported by the readable forms and written like others") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  CMsgInfo& cInfo = *cDic.GetMsgInfo(5);
  cInfo.SetTagInfo(1, "one", TAG_INTEGER, 0, false);
  cInfo.SetTagInfo(-2, "two", TAG_INTEGER, 0, false);
  cInfo.SetTagInfo(-3, "three", TAG_INTEGER, 0, false);
  CMsg cMsg(5, 0, 0, &cDic);
  cMsg.SetValue(1, 10);
  cMsg.SetParsedData(-3, "30");
  CHECK(ToXml(cMsg) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"5\" ver=\"\"><t1>10</t1><t-3>30</t-3></msg>");
  CHECK(DumpXml(cMsg) ==
        "<?xml version='1.0' encoding='ISO-8859-1' ?>\n"
        "<msg no='5' type='index' ver=''>\n"
        "  <t1>10</t1>\n"
        "Error: (m_pMsgInfo->GetTagNumAt) failed(-2)\n"
        "Error: (m_pMsgInfo->GetTagNumAt) failed(-3)\n"
        "  <t-3>30</t-3>\n"
        "</msg>\n");
  CHECK(Dump(cMsg) ==
        "Msg Dump ======================================\n"
        "  MsgNum : 5\n"
        "    Type : index\n"
        "     Ver : \n"
        "    [1](one) 10\n"
        "Error: (m_pMsgInfo->GetTagNumAt) failed(-2)"
        "Error: (m_pMsgInfo->GetTagNumAt) failed(-3)"
        "    [-3](three) 30\n"
        "===============================================\n");
}

TEST_CASE("a tag defined twice is written twice") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, 7, "first", "integer", "N");
  cDic.SetMsgDetail(5, 8, "between", "integer", "N");
  cDic.SetMsgDetail(5, 7, "second", "string", "Y");
  CMsg cMsg(5, 0, 0, &cDic);
  cMsg.SetValue(7, 1);
  cMsg.SetValue(8, 2);
  CHECK(ToXml(cMsg, false, true) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"5\" type=\"name\" ver=\"\">"
        "<first>1</first><between>2</between><first>1</first></msg>");
}

TEST_CASE("writing changes no message") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  const std::string sFirst = ToXml(cMsg);
  DumpXml(cMsg);
  Dump(cMsg);
  CHECK(ToXml(cMsg) == sFirst);
  CHECK(cMsg.GetLastError() == std::string());
}

TEST_CASE("without memory the forms throw and leave whole bytes behind") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  const std::string sLong(3000, 'x');
  cMsg.SetValue(1, sLong.c_str());
  struct T_Row {
    std::string sAll;
    void (*fnWrite)(const CMsg&, CStream&);
  };
  const T_Row s_atRow[] = {
      {ToXml(cMsg), [](const CMsg& m, CStream& st) { m.ToXml(&st, false, false, 1); }},
      {DumpXml(cMsg), [](const CMsg& m, CStream& st) { m.DumpXml(&st, false, 1); }},
      {Dump(cMsg), [](const CMsg& m, CStream& st) { m.Dump(&st, false, 1); }},
  };
  for (const T_Row& tRow : s_atRow) {
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CStream stOut(0, 16);
      const bool bThrew = p_cFail.Run([&] { tRow.fnWrite(cMsg, stOut); });
      CHECK(bThrew == p_cFail.HasFailed());
      CHECK(Text(stOut) == tRow.sAll.substr(0, static_cast<size_t>(stOut.GetSize())));
      CHECK((Text(stOut) == tRow.sAll) == !bThrew);
      CHECK(ToXml(cMsg) == s_atRow[0].sAll);
    });
    CHECK(iFailures >= 3);
  }
}

TEST_CASE("a tag that lost its value is in no form") {
  CTestMsg cPlain(120), cMsg(120);
  for (CTestMsg* pMsg : {&cPlain, &cMsg}) (*pMsg)->SetValue(7, 5);
  std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "gone"));
  REQUIRE(cMsg->SetValue(6, pRow.get()) == 0);
  CHECK(Dump(*cMsg) != Dump(*cPlain));
  pRow.reset();    // takes itself out; the tag's cell stays
  CHECK(ToXml(*cMsg) == ToXml(*cPlain));
  CHECK(DumpXml(*cMsg) == DumpXml(*cPlain));
  CHECK(Dump(*cMsg) == Dump(*cPlain));
}

#if __SIZEOF_POINTER__ == 8 && !defined(__SANITIZE_THREAD__)
TEST_CASE("a stream cannot become longer than an int counts") {
  CTestMsg cMsg(120);
  cMsg->SetValue(1, std::string(1000, 'x').c_str());
  CStream stOut(0, 512);
  stOut.GetBuffer(INT_MAX - 200);    // which nothing but the last byte is written of
  stOut.ReleaseBuffer(INT_MAX - 200);
  CHECK_THROWS_AS(cMsg->Dump(&stOut, false, 1), std::bad_alloc);
  CHECK(stOut.GetSize() >= INT_MAX - 200);
  CHECK(cMsg->ToXml(&stOut, false, false, 1) == 0);
  CHECK(Text(stOut) == ToXml(*cMsg));
}
#endif

TEST_CASE("what is written is well-formed to another parser, and comes back") {
  CLoadedDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  cMsg.SetVer("1.0");
  std::string sLatin;
  for (int i = 0x20; i < 0x100; ++i) sLatin += static_cast<char>(i);
  for (int iTag : {0, 10}) {
    cMsg.SetValue(iTag + 1, ("x" + sLatin + "x").c_str());
    cMsg.SetValue(iTag + 7, INT_MIN);
    cMsg.SetValue(iTag + 3, -0.1);
    cMsg.SetValue(iTag + 4, true);
    cMsg.SetValue(iTag + 5, CDate("20240131"));
    CMsg* pRow = NewRow(cDic, "<&>");
    pRow->SetValue(4, NewRow(cDic, "inner"));
    cMsg.SetValue(iTag + 6, pRow);
  }
  cMsg.SetValue(11, "second");
  for (bool bArrayPrefix : {false, true}) {
    for (bool bByName : {false, true}) {
      const std::string sXml = ToXml(cMsg, bArrayPrefix, bByName);
      CHECK(WellFormed(sXml));
      CMsg cRead(0, 0, 0, &cDic);
      CHECK(Load(cRead, sXml) == 0);
      CHECK(ToXml(cRead, bArrayPrefix, bByName) == sXml);
      CHECK(Dump(cRead) == Dump(cMsg));
    }
  }
  CHECK(WellFormed(DumpXml(cMsg)));
  CMsg cRead(0, 0, 0, &cDic);
  CHECK(Load(cRead, DumpXml(cMsg)) == 0);    // the readable form can be read, too
  CHECK(ToXml(cRead) == ToXml(cMsg));
  CHECK(Load(cRead, DumpXml(cMsg, true)) == 0);
  CHECK(ToXml(cRead) == ToXml(cMsg));
  cMsg.SetValue(1, "]]>");
  CHECK_FALSE(WellFormed(ToXml(cMsg)));
}

TEST_CASE("what does not come back: blank ends, blank texts, digits beyond 16") {
  CLoadedDic cDic;
  CMsg cMsg(120, 0, 0, &cDic), cRead(0, 0, 0, &cDic);
  cMsg.SetValue(1, " \t\n");
  for (const char* szText : {" \t\na b\n\t ", "  ", "c"}) cMsg.SetValue(11, szText);
  cMsg.SetValue(5, CDate(" 2024\t"));
  cMsg.SetValue(3, 0.1 + 0.2);
  CHECK(Body(cMsg) ==
        "<t1><![CDATA[ \t\n]]></t1><t3>3.000000000000000e-01</t3><t5> 2024\t</t5><t11><![CDATA[ \t\na b\n\t ]]></t11>"
        "<t11><![CDATA[  ]]></t11><t11><![CDATA[c]]></t11>");
  CHECK(Load(cRead, ToXml(cMsg)) == 0);
  CHECK(Body(cRead) ==
        "<t3>3.000000000000000e-01</t3><t5>2024</t5><t11><![CDATA[a b]]></t11><t11><![CDATA[c]]></t11>");
  double dOut = 0;
  CHECK(cRead.GetValue(3, &dOut) == 0);
  CHECK(dOut == 0.3);
}

TEST_CASE("threads may write messages of one dictionary at once") {
  CQuoteDic cDic;
  CMsg cMsg(1201, 0, 0, &cDic);
  FillQuote(cMsg, cDic, true);
  const std::string sWanted = ToXml(cMsg);
  std::vector<std::thread> acThread;
  std::vector<int> aiGood(4, 0);
  for (int& iGood : aiGood) {
    acThread.emplace_back([&cDic, &sWanted, &iGood] {
      for (int i = 0; i < 200; ++i) {
        CMsg cMine(1201, 0, 0, &cDic);
        FillQuote(cMine, cDic, true);
        iGood += ToXml(cMine) == sWanted ? 1 : 0;
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  for (int iGood : aiGood) CHECK(iGood == 200);
}

TEST_CASE("elements have their own names, however long and whichever tags share a number's last bits") {
  CMsgDic cDic;
  cDic.SetMsgInfo(1, "Names", "", "16");
  std::string sByName, sByNumber;
  CMsg cMsg(0, 0, 0, &cDic);
  int iTag = 1;
  for (const int iLen : {1, 15, 16, 17, 33, 500}) {
    const std::string sName(static_cast<size_t>(iLen), static_cast<char>('a' + iTag % 26)), sTag = std::to_string(iTag);
    cDic.SetMsgDetail(1, iTag, sName.c_str(), "integer", "Y");
    for (const char* szValue : {"7", "-2147483648"}) {
      sByName += "<" + sName + ">" + szValue + "</" + sName + ">";
      sByNumber += "<a" + sTag + ">" + szValue + "</a" + sTag + ">";
    }
    iTag += 16;
  }
  cMsg.Init(1, 0, 0);
  for (int i = 1; i < iTag; i += 16) {
    CHECK(cMsg.SetValue(i, 7) == 0);
    CHECK(cMsg.SetValue(i, INT_MIN) == 0);
  }
  CStream stXml(0, 512);
  cMsg.ToXml(&stXml, false, true, 2);    // the tags alone
  CHECK(stXml.GetData() == sByName);
  stXml.Clear();
  cMsg.ToXml(&stXml, true, false, 2);
  CHECK(stXml.GetData() == sByNumber);
}
