// Texts that ToXml wrote are read without the parser, and nobody can tell: whatever is changed in them, code, error
// text and message are those of the parser alone.
#include <malloc.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <climits>
#include <functional>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

#include "dict/arena.h"
#include "support/both_ways.h"
#include "support/cancelled.h"
#include "support/test_dic.h"
#include "support/valgrind.h"

namespace {

#if defined(__SANITIZE_THREAD__)    // its record of calls grows by each exception that passes through the parser, to gigabytes
const int MUTANTS = 1000;
#elif defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)    // a minute and more otherwise, in builds for coverage, too
const int MUTANTS = 10000;
#else
const int MUTANTS = IsUnderValgrind() ? 10000 : 100000;
#endif

const std::string s_sHead = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>";

// The test messages, 123 with what a dictionary may have though it makes little sense, and 124 with names that XML has
// its own mind about.
class COddDic : public CLoadedDic {
 public:
  COddDic() {
    SetMsgInfo(123, "Odd", "", "1");
    CMsgInfo& cOdd = *GetMsgInfo(123);
    cOdd.SetTagInfo(0, "zero", TAG_STRING, 0, true);
    cOdd.SetTagInfo(1, "twice", TAG_INTEGER, 0, true);
    cOdd.SetTagInfo(1, "again", TAG_STRING, 0, false);      // a number defined twice
    cOdd.SetTagInfo(2, "twice", TAG_STRING, 0, true);       // a name defined twice
    cOdd.SetTagInfo(3, "nowhere", TAG_SUBMSG, 99, false);
    cOdd.SetTagInfo(4, "nowheres", TAG_SUBMSG, 99, true);
    cOdd.SetTagInfo(5, "none", TAG_SUBMSG, 0, false);
    cOdd.SetTagInfo(6, "nones", TAG_SUBMSG, 0, true);
    cOdd.SetTagInfo(7, "typeless", TAG_UNKNOWN, 0, false);
    cOdd.SetTagInfo(-5, "negative", TAG_STRING, 0, false);
    cOdd.SetTagInfo(9, "self", TAG_SUBMSG, 123, true);
    SetMsgInfo(124, "Names", "", "16");
    int iTag = 0;
    for (const char* szName : s_aszName) GetMsgInfo(124)->SetTagInfo(++iTag, szName, TAG_STRING, 0, true);
    GetMsgInfo(124)->SetTagInfo(++iTag, std::string(63, 'n').c_str(), TAG_STRING, 0, true);
    GetMsgInfo(124)->SetTagInfo(++iTag, std::string(64, 'n').c_str(), TAG_STRING, 0, true);
    SetMsgInfo(125, "Chained", "", "1");    // all in one chain, which is long enough for an index
    for (int i = 1; i <= 40; ++i) GetMsgInfo(125)->SetTagInfo(i, ("tag" + std::to_string(i)).c_str(), TAG_INTEGER, 0, false);
    SetMsgInfo(9999, "Last", "", "");
    SetMsgDetail(9999, 999999999, "most", "double", "Y");
    SetMsgDetail(9999, 2147483647, "beyond", "integer", "Y");
  }

  static constexpr const char* s_aszName[] = {"a", "_b-c.d", "Z9", "xml", "xmlns", "XMLx", "t1", "msg", "1st", "-x", ".x",
                                              "a b", "a:b", ":a", "a:", "xmlns:a", "a&b", "a<b", "a>b", "a/", "\xe9t\xe9",
                                              "\xd7", "a\xb7", "", "a=''", "a\tb", "!--", "![CDATA[", "?a"};
};

// Messages of any content that ToXml gives back as it was put in.
class CReplies {
 public:
  explicit CReplies(CMsgDic& p_cDic) : m_cDic(p_cDic) {}

  // A document as a server sends it. Every sixteenth or so has a text that cannot be written.
  std::string Next() {
    static const int s_aiMsg[] = {120, 120, 120, 120, 121, 123, 124, 9999};
    CMsg cMsg(s_aiMsg[Upto(8)], 0, 0, &m_cDic);
    Fill(cMsg, 3);
    cMsg.SetVer(Upto(4) == 0 ? "" : Upto(32) == 0 ? Text(20).c_str() : "1.0");
    return ToXml(cMsg, Upto(2) == 0, Upto(2) == 0);
  }
  // The same with, most likely, one thing wrong. Four have the same origin, as making one takes as long as reading two.
  std::string NextMutant() {
    if (m_uMutants++ % 4 == 0) m_sOrigin = Next();
    std::string s = m_sOrigin;
    for (unsigned u = Upto(8), uOddities = u == 0 ? 0 : u == 1 ? 2 : 1; uOddities > 0; --uOddities) Spoil(s);
    return s;
  }
  unsigned Upto(size_t p_uEnd) { return static_cast<unsigned>(m_cRandom() % p_uEnd); }

 private:
  CMsgDic& m_cDic;
  std::mt19937 m_cRandom{20240628};
  unsigned m_uMutants = 0;
  std::string m_sOrigin;

  std::string Text(unsigned p_uMost) {
    static const std::string s_asPiece[] = {"a", "text ", "\t", "\n", "]", "]]", ">", "&amp;", "<t1>", "\xe9", "\xff", "\x7f",
                                            "\x85", "\"", "'", " ", "true", "12", "-1.5e3", "<![CDATA[", "abcdefghijklmnop"};
    std::string s;
    for (unsigned u = Upto(p_uMost); u > 0; --u) s += s_asPiece[Upto(std::size(s_asPiece))];
    return s;
  }
  void Fill(CMsg& p_cMsg, int p_iDepth) {
    const CMsgInfo& cInfo = *p_cMsg.GetMsgInfo();
    const bool bFew = cInfo.GetNoTags() > 20;    // most names of message 124 are errors, and only the first one counts
    for (int i = 0; i < cInfo.GetNoTags(); ++i) {
      if (bFew && Upto(16) != 0) continue;
      const int iTag = cInfo.GetTagNumAt(i);
      for (unsigned u = Upto(cInfo.IsMultiTag(iTag) ? 4 : 2); u > 0; --u) Set(p_cMsg, cInfo, iTag, p_iDepth);
    }
  }
  void Set(CMsg& p_cMsg, const CMsgInfo& p_cInfo, int p_iTag, int p_iDepth) {
    static const double s_adValue[] = {0, -1.5, 1e300, 4.9e-324, 2.5, 1e22, 1 / 0.0, -1 / 0.0, 123456789.123456789};
    static const char* const s_aszDate[] = {"20240131", "2024", "a<b", "a&b", " 1 ", "\t\n", "\xe9", "]]>", "]]"};
    static const int s_aiValue[] = {0, 7, -7, 2147483647, -2147483647 - 1};
    switch (p_cInfo.GetTagType(p_iTag)) {
      case TAG_STRING: p_cMsg.SetValue(p_iTag, Text(Upto(64) == 0 ? 200 : 6).c_str()); break;
      case TAG_INTEGER: p_cMsg.SetValue(p_iTag, s_aiValue[Upto(5)]); break;
      case TAG_DOUBLE: p_cMsg.SetValue(p_iTag, s_adValue[Upto(9)]); break;
      case TAG_BOOL: p_cMsg.SetValue(p_iTag, Upto(2) == 0); break;
      case TAG_DATE: p_cMsg.SetValue(p_iTag, CDate(s_aszDate[Upto(8) != 0 ? Upto(2) : Upto(9)])); break;
      case TAG_SUBMSG: {
        const CTagInfo& cTag = *p_cInfo.GetTagInfo(p_iTag);
        if (p_iDepth == 0 || m_cDic.GetMsgInfo(cTag.m_iSubMsg) == nullptr) break;
        auto pSub = std::make_unique<CMsg>(cTag.m_iSubMsg, 0, 0, &m_cDic);
        Fill(*pSub, p_iDepth - 1);
        if (p_cMsg.SetValue(p_iTag, pSub.get()) == 0) (void)pSub.release();
        break;
      }
      default: break;
    }
  }
  // The next element, at both its ends or only where it starts.
  void Rename(std::string& p_s, size_t p_uAt, const std::string& p_sName) {
    size_t uOpen = p_s.find('<', p_uAt);
    if (uOpen >= p_s.size() || p_s[uOpen + 1] == '/') return;
    const std::string sOld = p_s.substr(uOpen + 1, p_s.find('>', uOpen) - uOpen - 1);
    const size_t uClose = p_s.find("</" + sOld + ">", uOpen);
    if (uClose < p_s.size() && Upto(8) != 0) p_s.replace(uClose + 2, sOld.size(), p_sName);
    p_s.replace(uOpen + 1, sOld.size(), p_sName);
  }
  void Spoil(std::string& p_s) {
    static const std::string s_asName[] = {"t", "a", "tx", "t1x", "t01", "t00000000007", "t4294967297", "t4294967303", "t0", "a7", "x7",
                                           "T7", "t-5", "t+1", "t 1", "t1 ", "p:t1", "1", "t3", "t4", "t5", "t6", "t7", "t9", "t999999999",
                                           "t2147483647", "t2147483648", "zero", "twice", "again", "nones", "none", "negative", "typeless",
                                           "text", "texts", "xml", "xmlns", "a:b", "1st", "\xe9t\xe9", "msg", ""};
    static const std::pair<std::string, std::string> s_asWord[] = {
        {"\"name\"", "\"index\""}, {"\"name\"", "'name'"}, {" type=\"name\"", ""},        {"\" ver", "\" type=\"index\" ver"},
        {"\" ver", "\" type=\"name\" ver"}, {"ver=", "vers="}, {"1.0\"", "1.0\t\""},   {"1.0\"", "1.0 \" "},
        {"\"1.0\"", "'1.0'"},       {"no=\"", "no=\"0"},     {"no=\"", "no=\" "},          {"no=\"", "no=\"1"},
        {"no=\"", "no=\"-"},        {"no=", "No="},          {"msg", "Msg"},               {"ISO-8859-1", "UTF-8"},
        {"ISO-8859-1", "iso-8859-1"}, {"ISO-8859-1", "US-ASCII"}, {" ?>", "?>"},             {"?>", "?>\n"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>", ""}, {"true", "True"},         {"true", "truex"},
        {"false", "true"},          {"</msg>", "</msg>\n"},  {"</msg>", "</msg >"},         {"</msg>", "</ msg>"},
        {"e+00", "e+400"},          {"e+00", ""},            {"e+00", " e"},               {"><", "> <"},
        {"[CDATA[", "[CDATA[\n"},   {"[CDATA[", "[cdata["},  {"[CDATA[", "[CDATA"},         {"]]>", "]]]>"},
        {"]]>", " \t]]>"},          {"]]>", "] ]>"},         {"]]></", "]]>]]></"},         {"]]></", "]]>x</"},
        {"]]></", "]]> </"},        {"<![CDATA[", "x<![CDATA["}, {"<![CDATA[", "]"},       {"/t16>", "/t16>5"},
        {"/rows>", "/rows>5"},      {"/t16>", "/t16><t6></t6>"}, {"20240131", "202401311"}, {"20240131", "\t20240131\n"}};
    static const std::string s_asPiece[] = {
        "<", ">", "</", "/>", "&", "&lt;", "&#65;", "&#0;", "<![CDATA[", "<![CDATA[x]]>", "]]>", "]]", "]", "<!---->", "<!--",
        "<?pi?>", "<!DOCTYPE msg>", " ", "\t", "\n", "\r", "\r\n", "\v", "\x01", "\x1f", "\x7f", "\x85", "\xa0", "\xff", "x", "0", "1", "-",
        "+", ".", "t", "a", "t1", "text", "<t1>", "</t1>", "<t1/>", "<t1></t1>", "<t16>", "</t16>", "<t3><t2>5</t2></t3>", "</msg>",
        "<msg>", " x='1'", " no=\"120\"", " type=\"name\"", " type=\"index\"", " xmlns='u'", " xmlns:p='u'", "p:", "\"", "'", "=",
        "4294967296", "99999999999", "true", "nan", "inf", "0x1p3", "1e999", "UTF-8", "1.1", std::string(1, '\0'),
        std::string(600, 'x')};
    // where the form has its joints, or anywhere
    size_t uAt = Upto(p_s.size() + 1);
    if (Upto(4) != 0) uAt = std::min(p_s.find_first_of("<>/\"[]= ", uAt), p_s.size());
    switch (Upto(10)) {
      case 0: p_s.erase(uAt, 1 + Upto(4)); break;
      case 1: p_s.insert(uAt, p_s.substr(Upto(p_s.size() + 1), Upto(40))); break;
      case 2: if (uAt < p_s.size()) p_s[uAt] = static_cast<char>(Upto(256)); break;
      case 3: p_s.resize(uAt); break;
      case 4: Rename(p_s, uAt, p_s.substr(std::min(p_s.find('<', Upto(p_s.size() + 1)), p_s.size()), 1 + Upto(4)).erase(0, 1)); break;
      case 5: Rename(p_s, uAt, s_asName[Upto(std::size(s_asName))]); break;
      case 6: {
        const auto& [sWord, sOther] = s_asWord[Upto(std::size(s_asWord))];
        const size_t uWord = p_s.find(sWord, Upto(2) == 0 ? 0 : uAt);
        if (uWord < p_s.size()) p_s.replace(uWord, sWord.size(), sOther);
        break;
      }
      default: p_s.insert(uAt, s_asPiece[Upto(std::size(s_asPiece))]);
    }
  }
};

}    // namespace

TEST_CASE("whatever is changed in a reply, it is read as by the parser alone") {
  COddDic cDic;
  CReplies cReplies(cDic);
  int iShort = 0, iFailed = 0, iDifferent = 0;
  for (int i = 0; i < MUTANTS; ++i) {
    const std::string sXml = cReplies.NextMutant();
    CMsg cLoaded(0, 0, 0, &cDic), cParsed(0, 0, 0, &cDic);
    if (i % 16 == 0) {    // into messages that have values already
      for (CMsg* pMsg : {&cLoaded, &cParsed}) {
        pMsg->Init(120, 0, 0);
        pMsg->SetVer("old");
        pMsg->SetValue(1, "an old text that is too long to be stored in place");
        pMsg->SetValue(16, NewRow(cDic, "old row"));
      }
    }
    const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, cDic, sXml);
    iShort += tWays.bShort;
    iFailed += tWays.sParsed.compare(0, 2, "0\n") != 0;
    if (tWays.sLoaded == tWays.sParsed) continue;
    ++iDifferent;
    CAPTURE(sXml);
    CHECK(tWays.sLoaded == tWays.sParsed);
  }
  CHECK(iDifferent == 0);
  CHECK(iShort > MUTANTS / 8);     // the short way was taken, and
  CHECK(iFailed > MUTANTS / 4);    // errors were compared
}

namespace {

// Which way a text goes.
enum E_Way { BY_PARSER, SHORT };

struct T_Case {
  const char* szWhat;
  std::string sXml;
  E_Way eWay;
};
// CHECKs the way, and that the outcome is the parser's.
void CheckWay(CMsgDic& p_cDic, const T_Case& p_tCase) {
  CAPTURE(std::string(p_tCase.szWhat));
  CMsg cLoaded(0, 0, 0, &p_cDic), cParsed(0, 0, 0, &p_cDic);
  const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, p_cDic, p_tCase.sXml);
  CHECK((tWays.sLoaded == tWays.sParsed));    // they may be long
  CHECK(tWays.bShort == (p_tCase.eWay == SHORT));
}

// As message 120, in the form that is read the short way.
std::string Doc(const std::string& p_sInside, const std::string& p_sAttributes = "no=\"120\" ver=\"1.0\"") {
  return s_sHead + "<msg " + p_sAttributes + ">" + p_sInside + "</msg>";
}
std::string Odd(const std::string& p_sInside) { return Doc(p_sInside, "no=\"123\" ver=\"\""); }
std::string Named(const std::string& p_sInside) { return Doc(p_sInside, "no=\"124\" type=\"name\" ver=\"\""); }

std::string Nested(int p_iDepth) {
  std::string s = "<t1>x</t1>";
  for (int i = 0; i < p_iDepth; ++i) s = "<t3>" + s + "</t3>";
  return Doc(s, "no=\"121\" ver=\"\"");
}

}    // namespace

TEST_CASE("what is read without the parser, and what is not") {
  COddDic cDic;
  const T_Case s_atCase[] = {
      {"nothing", Doc(""), SHORT},
      {"text behind a sub-message, for the parent's tag of the number", Doc("<t16><t1>a</t1></t16>c"), BY_PARSER},
      {"text behind a value", Doc("<t11>a</t11>b"), BY_PARSER},
      {"text in front of any tag", Odd("a<t0>b</t0>"), BY_PARSER},
      {"blanks between elements", Doc(" <t7>1</t7>"), BY_PARSER},
      {"the end of a section in plain text", Doc("<t1>a]]>b</t1>"), BY_PARSER},
      {"brackets in plain text", Doc("<t1>]]</t1>"), BY_PARSER},
      {"brackets in a section", Doc("<t1><![CDATA[]] ]> ]]]></t1>"), SHORT},
      {"more than a section", Doc("<t11><![CDATA[a]]>b</t11>"), BY_PARSER},
      {"two sections", Doc("<t11><![CDATA[a]]><![CDATA[b]]></t11>"), BY_PARSER},
      {"a section that does not end", s_sHead + "<msg no=\"120\" ver=\"\"><t1><![CDATA[a]]", BY_PARSER},
      {"a section, and no more", s_sHead + "<msg no=\"120\" ver=\"\"><t1><![CDATA[", BY_PARSER},
      {"4,294,967,297 is not 1", Odd("<t4294967297>1</t4294967297>"), BY_PARSER},
      {"the largest number of a tag", Doc("<t999999999>1.5</t999999999>", "no=\"9999\" ver=\"\""), SHORT},
      {"a number beyond nine digits", Doc("<t2147483647>1</t2147483647>", "no=\"9999\" ver=\"\""), BY_PARSER},
      {"t1x is tag 1", Doc("<t1x>a</t1x>"), BY_PARSER},
      {"t01 is tag 1", Doc("<t01>a</t01>"), SHORT},
      {"t01 closed by t1", Doc("<t01>a</t1>"), BY_PARSER},
      {"t1 closed by t11", Doc("<t1>a</t11>"), BY_PARSER},
      {"t16 closed by t6", Doc("<t16></t6>"), BY_PARSER},
      {"t without digits is tag 0", Odd("<t>a</t>"), BY_PARSER},
      {"letters a and t", Doc("<a11>a</a11><t11>b</t11><a7>1</a7><a16><a2>1</a2></a16>"), SHORT},
      {"another letter", Doc("<x7>1</x7>"), BY_PARSER},
      {"a negative tag", Odd("<t-5>a</t-5>"), BY_PARSER},
      {"a tag that is not defined", Doc("<t99>1</t99>"), BY_PARSER},
      {"a value inside a value", Doc("<t7><t7>1</t7></t7>"), BY_PARSER},
      {"an element that ends where it begins", Doc("<t7/>"), BY_PARSER},
      {"a name with a blank", Doc("<t7 >1</t7>"), BY_PARSER},
      {"an attribute", Doc("<t7 x=\"\">1</t7>"), BY_PARSER},
      {"a reference", Doc("<t1>&amp;</t1>"), BY_PARSER},
      {"what would be one outside a section", Doc("<t1><![CDATA[&amp;<t1>]]></t1>"), SHORT},
      {"a comment", Doc("<!-- -->"), BY_PARSER},
      {"a carriage return in a section", Doc("<t1><![CDATA[a\r\nb]]></t1>"), BY_PARSER},
      {"a carriage return in plain text", Doc("<t1>a\rb</t1>"), BY_PARSER},
      {"a control character in a section", Doc("<t1><![CDATA[a\x1f]]></t1>"), BY_PARSER},
      {"a control character in plain text", Doc("<t1>a\x01</t1>"), BY_PARSER},
      {"tabs and line feeds", Doc("<t1><![CDATA[\ta\tb\nc\n]]></t1><t5>\n20240131 </t5><t7>\t7\t</t7>"), SHORT},
      {"blank values", Doc("<t1><![CDATA[ \t\n]]></t1><t7> </t7><t5></t5><t11><![CDATA[]]></t11>"), SHORT},
      {"characters beyond ASCII", Doc("<t1><![CDATA[\x7f\x80\x85\xa0\xff]]></t1><t5>\xe9</t5>", "no=\"120\" ver=\"\x85\xff\""), SHORT},
      {"bools", Doc("<t14>true</t14><t14>false</t14><t14>truex</t14><t14>tru</t14><t14> true </t14><t14>TRUE</t14>"), SHORT},
      {"dates", Doc("<t15>20240131</t15><t15>202401311</t15><t15>2024</t15><t15>2024 01</t15>"), SHORT},
      {"integers", Doc("<t17>2147483648</t17><t17>-2147483649</t17><t17>+5</t17><t17>5x</t17><t17>x</t17><t17>- 5</t17>"), SHORT},
      {"doubles", Doc("<t13>1e999</t13><t13>nan</t13><t13>nan(1)</t13><t13>-inf</t13><t13>0x1p3</t13><t13>1e</t13><t13>.5</t13>"
                      "<t13>2.500000000000000e+00</t13><t13>1.0e5 </t13><t13>4.9e-324</t13><t13><![CDATA[infinity]]></t13>"), SHORT},
      {"a scalar twice", Doc("<t7>1</t7><t7>2</t7><t1>a</t1><t1>b</t1>"), SHORT},
      {"a single sub-message twice", Doc("<t6><t1>a</t1></t6><t6><t1>b</t1><t2>5</t2></t6>"), SHORT},
      {"64 sub-messages inside each other", Nested(64), SHORT},
      {"65 sub-messages inside each other", Nested(65), BY_PARSER},
      {"1,025 open elements", Nested(1024), BY_PARSER},
      {"a sub-message that is not defined", Odd("<t3></t3>"), BY_PARSER},
      {"rows that are not defined", Odd("<t4></t4>"), BY_PARSER},
      {"a sub-message without a number", Odd("<t5></t5>"), BY_PARSER},
      {"rows without a number, of which one is made", Odd("<t6></t6>"), BY_PARSER},
      {"a type that is none", Odd("<t7>a</t7>"), BY_PARSER},
      {"a number defined twice", Odd("<t1>5</t1><t1>a</t1>"), SHORT},
      {"a name defined twice, a number with two names", Doc("<twice>5</twice><again>6</again>", "no=\"123\" type=\"name\" ver=\"\""), SHORT},
      {"the name of a negative tag", Doc("<negative>a</negative>", "no=\"123\" type=\"name\" ver=\"\""), BY_PARSER},
      {"no message of that number", Doc("", "no=\"119\" ver=\"\""), BY_PARSER},
      {"message 0", Doc("", "no=\"0\" ver=\"\""), BY_PARSER},
      {"a message's number beyond nine digits", Doc("", "no=\"0000000120\" ver=\"\""), BY_PARSER},
      {"no number", Doc("", "no=\"\" ver=\"\""), BY_PARSER},
      {"no version", Doc("", "no=\"120\""), BY_PARSER},
      {"a tab in the version is a blank", Doc("", "no=\"120\" ver=\"1\t0\""), BY_PARSER},
      {"a line feed in the version", Doc("", "no=\"120\" ver=\"1\n0\""), BY_PARSER},
      {"a reference in the version", Doc("", "no=\"120\" ver=\"&lt;\""), BY_PARSER},
      {"a version of many characters", Doc("", "no=\"120\" ver=\" >']12345678901234567890\""), SHORT},
      {"another order of attributes", Doc("", "ver=\"1.0\" no=\"120\""), BY_PARSER},
      {"by number, and said so", Doc("<t7>1</t7>", "no=\"120\" type=\"index\" ver=\"\""), BY_PARSER},
      {"another attribute", Doc("", "no=\"120\" ver=\"\" x=\"\""), BY_PARSER},
      {"other quotes", Doc("", "no='120' ver=''"), BY_PARSER},
      {"no declaration means UTF-8", "<msg no=\"120\" ver=\"\"><t1>\xc3\xa9</t1></msg>", BY_PARSER},
      {"no declaration, and bytes that are not UTF-8", "<msg no=\"120\" ver=\"\"><t1>\xe9</t1></msg>", BY_PARSER},
      {"UTF-8, and said so", "<?xml version=\"1.0\" encoding=\"UTF-8\" ?><msg no=\"120\" ver=\"\"><t1>\xc3\xa9</t1></msg>", BY_PARSER},
      {"two declarations", s_sHead + Doc(""), BY_PARSER},
      {"a DOCTYPE", s_sHead + "<!DOCTYPE msg><msg no=\"120\" ver=\"\"></msg>", BY_PARSER},
      {"another root", s_sHead + "<msh no=\"120\" ver=\"\"></msh>", BY_PARSER},
      {"another end", s_sHead + "<msg no=\"120\" ver=\"\"></msh>", BY_PARSER},
      {"a line feed behind the end", Doc("") + "\n", BY_PARSER},
      {"something behind the end", Doc("") + "x", BY_PARSER},
      {"a second root", Doc("") + "<msg no=\"120\" ver=\"\"></msg>", BY_PARSER},
      {"nothing but a declaration", s_sHead, BY_PARSER},
      {"no text at all", "", BY_PARSER},
  };
  for (const T_Case& tCase : s_atCase) CheckWay(cDic, tCase);
  const std::string sWhole = Doc("<t1><![CDATA[a]]></t1><t16><t2>1</t2></t16>");
  for (size_t u = 0; u < sWhole.size(); ++u) CheckWay(cDic, {"a beginning only", sWhole.substr(0, u), BY_PARSER});
}

TEST_CASE("names that the dictionary has, but XML does not allow, are the parser's to refuse") {
  COddDic cDic;
  for (const std::string sName : COddDic::s_aszName) {
    CAPTURE(sName);
    const bool bShort = std::string("a _b-c.d Z9 xml xmlns XMLx t1 msg ").find(sName + " ") != std::string::npos && !sName.empty();
    CheckWay(cDic, {"a name", Named("<" + sName + ">x</" + sName + ">"), bShort ? SHORT : BY_PARSER});
  }
  for (int iLen : {63, 64}) {
    const std::string sName(static_cast<size_t>(iLen), 'n');
    CheckWay(cDic, {"a long name", Named("<" + sName + ">x</" + sName + ">"), iLen == 63 ? SHORT : BY_PARSER});
  }
}

TEST_CASE("long texts are divided where the parser divides them") {
  COddDic cDic;
  for (size_t uLen : {999999u, 1000000u, 1000001u, 1048575u, 1048576u, 1048577u, 3000000u}) {
    CAPTURE(uLen);
    for (size_t uBefore : {0u, 1u, 44u, 16383u}) {
      const std::string sBefore = "<t11><![CDATA[" + std::string(uBefore, 'y') + "]]></t11>", sText(uLen, 'x');
      CheckWay(cDic, {"plain", Doc(sBefore + "<t11>" + sText + "</t11>"), uLen <= 1000000 ? SHORT : BY_PARSER});
      CheckWay(cDic, {"section", Doc(sBefore + "<t11><![CDATA[" + sText + "]]></t11>"), SHORT});
    }
  }
}

TEST_CASE("what ToXml writes is read without the parser, but for these") {
  COddDic cDic;
  const auto fnWay = [&cDic](const CMsg& p_cMsg, bool p_bArrayPrefix, bool p_bByName) {
    CMsg cLoaded(0, 0, 0, &cDic), cParsed(0, 0, 0, &cDic);
    const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, cDic, ToXml(p_cMsg, p_bArrayPrefix, p_bByName));
    CHECK(tWays.sLoaded == tWays.sParsed);
    return tWays.bShort ? SHORT : BY_PARSER;
  };
  const std::string sAll = Doc("<t1>a</t1><t7>7</t7><t3>1.5</t3><t4>true</t4><t5>20240131</t5><t6><t3><t2>1</t2></t3></t6><t11>a</t11>"
                               "<t11>b</t11><t17>1</t17><t13>2</t13><t14>false</t14><t15>2024</t15><t16><t1>r</t1></t16><t16></t16>");
  CMsg cMsg(0, 0, 0, &cDic);
  REQUIRE(Load(cMsg, sAll) == 0);
  for (bool bArrayPrefix : {false, true}) {
    for (bool bByName : {false, true}) CHECK(fnWay(cMsg, bArrayPrefix, bByName) == SHORT);
  }
  std::string sEveryText;
  for (int i = 1; i < 256; ++i) {
    if (i >= ' ' || i == '\t' || i == '\n') sEveryText += static_cast<char>(i);
  }
  CHECK(cMsg.SetValue(1, sEveryText.c_str()) == 0);
  CHECK(fnWay(cMsg, false, false) == SHORT);

  struct T_Row {
    const char* szWhat;
    std::function<void(CMsg&)> fnSpoil;
  };
  const T_Row s_atRow[] = {
      {"a string with a carriage return", [](CMsg& m) { m.SetValue(1, "a\rb"); }},
      {"a string with a control character", [](CMsg& m) { m.SetValue(1, "a\x01"); }},
      {"a string with the end of a section", [](CMsg& m) { m.SetValue(1, "a]]>b"); }},
      {"a date with markup", [](CMsg& m) { m.SetValue(5, CDate("<")); }},
      {"a date with a reference", [](CMsg& m) { m.SetValue(5, CDate("&lt;")); }},
      {"a date with a bracket", [](CMsg& m) { m.SetValue(5, CDate("]")); }},
      {"a version with a quote", [](CMsg& m) { m.SetVer("\""); }},
      {"a version with markup", [](CMsg& m) { m.SetVer("<"); }},
      {"a version with a reference", [](CMsg& m) { m.SetVer("&lt;"); }},
      {"a version with a tab", [](CMsg& m) { m.SetVer("\t"); }},
      {"65 sub-messages inside each other", [](CMsg& m) { Load(m, Nested(65)); }},
      {"a tag's number of ten digits", [](CMsg& m) { Load(m, Doc("<t2147483647>1</t2147483647>", "no=\"9999\" ver=\"\"")); }},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(std::string(tRow.szWhat));
    CMsg cSpoilt(0, 0, 0, &cDic);
    REQUIRE(Load(cSpoilt, sAll) == 0);
    tRow.fnSpoil(cSpoilt);
    CHECK(fnWay(cSpoilt, false, false) == BY_PARSER);
  }
}

TEST_CASE("stepping back leaves the message as the parser finds any other") {
  COddDic cDic;
  std::string sRows;
  for (int i = 0; i < 2000; ++i) sRows += "<t16><t1>a text that is too long to be stored in place</t1><t4><t2>1</t2></t4></t16>";
  std::string sBroken = Doc("<t1>x</t1><t6><t1>x</t1></t6>" + sRows);
  sBroken.pop_back();
  for (bool bFilled : {false, true}) {    // before
    CAPTURE(bFilled);
    CMsg cLoaded(0, 0, 0, &cDic), cParsed(0, 0, 0, &cDic);
    CMsg* apOld[2] = {};
    int i = 0;
    for (CMsg* pMsg : {&cLoaded, &cParsed}) {
      if (!bFilled) continue;
      REQUIRE(Load(*pMsg, Doc("<t6><t1>old</t1></t6>")) == 0);
      apOld[i++] = pMsg->GetValue(6);
    }
    const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, cDic, sBroken);
    CHECK((tWays.sLoaded == tWays.sParsed));
    CHECK_FALSE(tWays.bShort);
    CHECK(cLoaded.GetArrSize(16) == 2000);
    for (CMsg* pOld : apOld) {    // whoever holds it still can
      CString sText;
      if (pOld != nullptr) CHECK((pOld->GetValue(1, &sText) == 0 && sText == "old"));
    }
    CHECK(Load(cLoaded, Doc("<t7>1</t7>")) == 0);
    CHECK(ToXml(cLoaded) == Doc("<t7>1</t7>"));
  }
}

TEST_CASE("stepping back forgets where the values stood") {
  COddDic cDic;
  std::string sBroken = s_sHead + "<msg no=\"125\" ver=\"\">";
  for (int i = 1; i <= 40; ++i) sBroken += "<t" + std::to_string(i) + ">7</t" + std::to_string(i) + ">";
  for (bool bFilled : {false, true}) {    // before, so that there is more to keep than the index
    CMsg cLoaded(0, 0, 0, &cDic), cParsed(0, 0, 0, &cDic);
    for (CMsg* pMsg : {&cLoaded, &cParsed}) {
      if (bFilled) REQUIRE(Load(*pMsg, sBroken + "</msg>") == 0);
    }
    const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, cDic, sBroken);
    CHECK(tWays.sLoaded == tWays.sParsed);
    CHECK_FALSE(tWays.bShort);
    CHECK(ToXml(cLoaded) == sBroken + "</msg>");
  }
}

TEST_CASE("a sub-message that is read into steps back to its own beginning only") {
  COddDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  REQUIRE(Load(cMsg, Doc("<t6><t1>single</t1></t6><t16><t1>row</t1></t16><t16><t1>next</t1></t16>")) == 0);
  CMsg* pRow = cMsg.GetValue(16);
  CheckThrows(-21, "Handler error : Unknown start tag element(t99, 99)", [&] {
    Load(*pRow, s_sHead + "<msg no=\"121\" ver=\"\"><t4><t1>inner</t1></t4><t99>");
  });
  CHECK(ToXml(cMsg) == Doc("<t6><t1><![CDATA[single]]></t1></t6><t16><t4><t1><![CDATA[inner]]></t1></t4></t16>"
                           "<t16><t1><![CDATA[next]]></t1></t16>"));
}

TEST_CASE("a sub-message that was offered counts as filled once something in it is read") {
  COddDic cDic;
  const std::string sHead = s_sHead + "<msg no=\"121\" ver=\"1\">";
  const std::pair<std::string, bool> s_atText[] = {
      {sHead + "</msg>", true},          {sHead + "<t2>1</t2></msg>", false},   {sHead + "<t1> </t1></msg>", true},
      {sHead + "<t3></t3></msg>", false}, {sHead + "<t99>1</t99></msg>", true},  {sHead + "<t2>1</t2><t99>1</t99></msg>", false},
  };
  for (const auto& [sXml, bEmpty] : s_atText) {
    CAPTURE(sXml);
    for (bool bParser : {false, true}) {
      CMsg cMsg(120, 0, 0, &cDic);
      CMsg* pSub = cMsg.NewSub(6);
      REQUIRE(pSub != nullptr);
      Outcome(*pSub, [&] {
        if (!bParser) return Load(*pSub, sXml);
        MsgHandler(pSub, &cDic).Action(sXml.c_str());
        return 0;
      });
      CHECK(pSub->IsEmpty() == bEmpty);
      CHECK(cMsg.IsEmpty() == bEmpty);
    }
  }
}

// Bytes of the heap, those included that the kernel gave for a single block.
static size_t InUse() {
  callorv::detail::CArena::DropKept();
  const struct mallinfo2 tInfo = mallinfo2();
  return tInfo.uordblks + tInfo.hblkhd;
}

TEST_CASE("a text that breaks off takes no more memory than by the parser alone") {
  COddDic cDic;
  std::string sBroken = s_sHead + "<msg no=\"120\" ver=\"1.0\">";
  for (int i = 0; i < 50; ++i) {
    sBroken += "<t16><t2>1</t2></t16><t17>5</t17><t11>a text that is too long to be stored in place</t11>";
  }
  struct T_Begin {
    const char* szWhat;
    std::function<CMsg*(CMsg&)> fnMake;    // gives the message to be read into
  };
  const T_Begin s_atBegin[] = {
      {"a new message", [](CMsg& m) { return &m; }},
      {"one with values",
       [](CMsg& m) {
         Load(m, Doc("<t7>1</t7><t16><t2>1</t2></t16>"));
         return &m;
       }},
      {"one that keeps memory for its next values",
       [](CMsg& m) {
         std::string sRows;
         for (int i = 0; i < 100; ++i) sRows += "<t16><t2>1</t2></t16>";
         Load(m, Doc(sRows));
         m.Clear();
         return &m;
       }},
      {"a sub-message in another one's memory",
       [](CMsg& m) {
         Load(m, Doc("<t6><t2>1</t2></t6><t7>1</t7>"));
         return m.GetValue(6);
       }},
      {"one that was cleared there",
       [](CMsg& m) {
         Load(m, Doc("<t6><t2>1</t2></t6><t7>1</t7>"));
         m.GetValue(6)->Clear();
         return m.GetValue(6);
       }},
  };
  for (const T_Begin& tBegin : s_atBegin) {
    CAPTURE(std::string(tBegin.szWhat));
    const auto fnTaken = [&](int p_iReadings, auto p_fnRead) {    // bytes that are in use afterwards and were not before
      long iTaken = 0;
      for (int i = 0; i < 2; ++i) {    // the second time counts: no reader is kept then
        CMsg cMsg(0, 0, 0, &cDic);
        CMsg& cRead = *tBegin.fnMake(cMsg);
        const size_t uBefore = InUse();
        for (int k = 0; k < p_iReadings; ++k) CHECK(Caught([&] { p_fnRead(cRead); }).iCode == -21);
        iTaken = static_cast<long>(InUse() - uBefore);
        CHECK(cRead.GetArrSize(16) == 50);
      }
      return iTaken;
    };
    for (int iReadings : {1, 20}) {
      CAPTURE(iReadings);
      const long iParsed = fnTaken(iReadings, [&](CMsg& m) { MsgHandler(&m, &cDic).Action(sBroken.c_str()); });
      const long iLoaded = fnTaken(iReadings, [&](CMsg& m) { m.LoadXml(&sBroken[0]); });
      CHECK(iLoaded <= iParsed + 8192 * iReadings);    // of 74 KB; blocks that were free before may be longer than what was asked for
    }
  }
}

TEST_CASE("without memory the parser has the last word, and the next reading works") {
  COddDic cDic;
  std::string sXml, sInside = std::string("<t1>a text that is too long to be stored in place</t1><t7>5</t7><t5>20240131</t5><t6><t2>1</t2></t6>");
  for (int i = 0; i < 6; ++i) {
    sInside += "<t11>a text that is too long to be stored in place</t11><t17>5</t17><t13>1.5</t13><t14>true</t14><t15>20240131</t15>"
               "<t16><t1>a text that is too long to be stored in place</t1><t4><t2>5</t2></t4></t16>";
  }
  sXml = Doc(sInside, "no=\"120\" ver=\"a version that is too long\"");
  CMsg cWanted(0, 0, 0, &cDic);
  REQUIRE(Load(cWanted, sXml) == 0);
  for (bool bFilled : {false, true}) {
    CAPTURE(bFilled);
    const auto fnFill = [&](CMsg& p_cMsg) {
      if (bFilled) REQUIRE(Load(p_cMsg, Doc("<t7>1</t7><t16><t1>old</t1></t16>")) == 0);
    };
    // A lone failure: the parser finds memory again.
    int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CMsg cMsg(0, 0, 0, &cDic);
      fnFill(cMsg);
      CHECK(CaughtFailing(p_cFail, [&] { cMsg.LoadXml(&sXml[0]); }).iCode == 0);
      CHECK(ToXml(cMsg) == ToXml(cWanted));
    });
    CHECK(iFailures > 20);
    // None any more from some allocation on: as by the parser alone without any.
    for (int iNth = 1; iNth <= iFailures; ++iNth) {
      CAPTURE(iNth);
      CMsg cMsg(0, 0, 0, &cDic);
      fnFill(cMsg);
      const std::string sBefore = cMsg.GetMsgNum() > 0 ? ToXml(cMsg) : "";
      CFailAlloc cFail(iNth, INT_MAX);
      const T_Thrown tThrown = CaughtFailing(cFail, [&] { cMsg.LoadXml(&sXml[0]); });
      CHECK((tThrown.iCode == -11 || tThrown.iCode == 1));    // 1: there was none for the exception's text either
      const std::string sAfter = cMsg.GetMsgNum() > 0 ? ToXml(cMsg) : "";    // either nothing has happened, or it has begun anew
      CHECK((sAfter == sBefore || sAfter == Doc("", "no=\"120\" ver=\"a version that i\"")));
      CHECK(Load(cMsg, sXml) == 0);
      CHECK(ToXml(cMsg) == ToXml(cWanted));
    }
  }
}

TEST_CASE("the short way needs no reader, and leaves those that are kept alone") {
  COddDic cDic;
  const auto fnAllocations = [&cDic](std::string p_sXml) {
    CMsg cMsg(0, 0, 0, &cDic);
    CFailAlloc cCount;
    cCount.Run([&] { cMsg.LoadXml(&p_sXml[0]); });
    return cCount.GetCount();
  };
  CHECK(fnAllocations(Doc("<t7>1</t7>")) == 1);    // the arena
  const std::string sOther = "<msg no='120'><t7>1</t7></msg>";
  fnAllocations(sOther);    // leaves a reader
  const int iKept = fnAllocations(sOther);
  CHECK(fnAllocations(Doc("<t7>1</t7>")) == 1);
  CHECK(fnAllocations(sOther) == iKept);
}

TEST_CASE("without an initialised parser the short way is closed, too") {
  CTestDic cDic;    // not loaded from a file
  CMsg cMsg(0, 0, 0, &cDic);
  CheckThrows(-26, "XMLPlatformUtils::Initialize() was not called", [&] { Load(cMsg, Doc("<t7>1</t7>")); });
  CHECK(cMsg.GetMsgNum() == 0);
}

TEST_CASE("a thread that is cancelled while it reads goes on until it has read") {
  COddDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  std::string sXml = Doc("<t7>1</t7>");
  std::promise<void> cReady;
  std::atomic<bool> bCancelled{false};
  int iOld = 0, iRet = 99;
  const auto fnRead = [&] {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &iOld);
    cReady.set_value();
    while (!bCancelled) sched_yield();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &iOld);
    iRet = cMsg.LoadXml(&sXml[0]);
    pthread_testcancel();
  };
  CHECK(IsCancelled(fnRead, cReady, [&] { bCancelled = true; }));
  CHECK(iRet == 0);
  CHECK(ToXml(cMsg) == sXml);
}
