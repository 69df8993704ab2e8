// Messages read from their XML.
#include <climits>
#include <thread>
#include <vector>

#include "support/silent_port.h"
#include "support/test_dic.h"

namespace {

// Loaded messages 120 and 121, 1 with a lone string tag 1, and some oddities.
class CReaderDic : public CLoadedDic {
 public:
  CReaderDic() {
    SetMsgInfo(1, "One", "", "");
    SetMsgDetail(1, 1, "text", "string", "N");
    SetMsgInfo(2, "Zero", "", "");
    SetMsgDetail(2, 0, "zeros", "string", "Y");
    SetMsgInfo(3, "Odd", "", "");
    SetMsgDetail(3, 1, "single", "m77", "N");
    SetMsgDetail(3, 2, "rows", "m77", "Y");
    GetMsgInfo(3)->SetTagInfo(3, "none", TAG_SUBMSG, 0, true);
    GetMsgInfo(3)->SetTagInfo(4, "nothing", TAG_SUBMSG, 0, false);
    GetMsgInfo(3)->SetTagInfo(-5, "negative", TAG_STRING, 0, false);
    GetMsgInfo(3)->SetTagInfo(6, "unknown", TAG_UNKNOWN, 0, false);
  }
};

// A message that a document is read into.
class CRead {
 public:
  explicit CRead(const std::string& p_sXml) : m_cMsg(0, 0, 0, &m_cDic) {
    m_tThrown = Caught([&] { m_iRet = Load(m_cMsg, p_sXml); });
  }
  CMsg* operator->() { return &m_cMsg; }
  CMsg& operator*() { return m_cMsg; }
  CMsgDic& Dic() { return m_cDic; }
  int Ret() const { return m_iRet; }
  const T_Thrown& Thrown() const { return m_tThrown; }

 private:
  CReaderDic m_cDic;
  CMsg m_cMsg;
  T_Thrown m_tThrown;
  int m_iRet = 99;
};

// The strings of a multi tag, each followed by "|".
std::string Texts(CMsg& p_cMsg, int p_iTag) {
  CStrArray asText;
  p_cMsg.GetValue(p_iTag, &asText);
  std::string sAll;
  for (int i = 0; i < asText.GetSize(); ++i) {
    sAll.append(asText.GetAt(i).ToStr(), static_cast<size_t>(asText.GetAt(i).GetSize())) += "|";
  }
  return sAll;
}

// What ToXml gives behind the declaration.
std::string Xml(CMsg& p_cMsg) { return ToXml(p_cMsg).substr(44); }

}    // namespace

TEST_CASE("a message without tags") {
  CRead cRead("<msg no=\"1\" ver=\"1\"></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(cRead->GetMsgNum() == 1);
  CHECK(cRead->GetRootNum() == 1);
  CHECK(cRead->GetVer() == std::string("1"));
  CHECK(cRead->GetMsgInfo() == cRead.Dic().GetMsgInfo(1));
  CHECK(cRead->IsEmpty());
  CHECK(cRead->GetArrSize(1) == -1);
}

TEST_CASE("every type, single and repeated, by number") {
  CRead cRead(
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"1.0\"><t1><![CDATA[abc]]></t1><t7>-7</t7>"
      "<t3>2.500000000000000e+00</t3><t4>true</t4><t5>20240131</t5><t6><t1>row</t1></t6><a11>one</a11><t11>two</t11>"
      "<t17>1</t17><a17>2</a17><t13>1.5</t13><t14>false</t14><t14>true</t14><t15>2024</t15>"
      "<t16><t2>1</t2></t16><a16><a2>2</a2></a16></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) ==
        "<msg no=\"120\" ver=\"1.0\"><t1><![CDATA[abc]]></t1><t7>-7</t7><t3>2.500000000000000e+00</t3><t4>true</t4>"
        "<t5>20240131</t5><t6><t1><![CDATA[row]]></t1></t6><t11><![CDATA[one]]></t11><t11><![CDATA[two]]></t11>"
        "<t17>1</t17><t17>2</t17><t13>1.500000000000000e+00</t13><t14>false</t14><t14>true</t14><t15>2024</t15>"
        "<t16><t2>1</t2></t16><t16><t2>2</t2></t16></msg>");
  CHECK_FALSE(cRead->IsEmpty());
  CHECK(cRead->GetLastError() == std::string());
}

TEST_CASE("every type by name") {
  CRead cRead(
      "<msg no='120' type='name' ver='2'><text>abc</text><number>-7</number><price>2.5</price><flag>true</flag>"
      "<day>20240131</day><row><text>r</text><count>3</count></row><texts>one</texts><texts>two</texts>"
      "<rows><nexts><text>deep</text></nexts></rows></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) ==
        "<msg no=\"120\" ver=\"2\"><t1><![CDATA[abc]]></t1><t7>-7</t7><t3>2.500000000000000e+00</t3><t4>true</t4>"
        "<t5>20240131</t5><t6><t1><![CDATA[r]]></t1><t2>3</t2></t6><t11><![CDATA[one]]></t11><t11><![CDATA[two]]></t11>"
        "<t16><t4><t1><![CDATA[deep]]></t1></t4></t16></msg>");
}

TEST_CASE("only type=\"name\" means names") {
  for (const char* szType : {"", " type='index'", " type='NAME'", " type='name '", " type=''", " type='names'"}) {
    CAPTURE(szType);
    CRead cRead(std::string("<msg no='120'") + szType + "><t7>5</t7></msg>");
    CHECK(cRead.Ret() == 0);
    CHECK(cRead->GetArrSize(7) == 1);
  }
  CRead cByName("<msg no='120' type='name'><t7>5</t7></msg>");
  CHECK(cByName.Thrown().iCode == -21);
  CHECK(cByName.Thrown().sText == "Handler error : Unknown start tagname(t7)");
}

TEST_CASE("sub-messages know their parent, tag and root") {
  CRead cRead("<msg no='120'><t6><t3><t1>x</t1></t3></t6><t16><t1>y</t1></t16></msg>");
  CMsg* pSingle = cRead->GetValue(6);
  CMsg* pRow = cRead->GetValue(16);
  REQUIRE(pSingle != nullptr);
  REQUIRE(pRow != nullptr);
  CHECK(pSingle->GetParent() == &*cRead);
  CHECK(pSingle->GetParentTag() == 6);
  CHECK(pSingle->GetMsgNum() == 121);
  CHECK(pSingle->GetRootNum() == 120);
  CHECK(pSingle->GetVer() == std::string());
  CHECK(pRow->GetParentTag() == 16);
  CMsg* pNext = pSingle->GetValue(3);
  REQUIRE(pNext != nullptr);
  CHECK(pNext->GetParent() == pSingle);
  CHECK(pNext->GetRootNum() == 121);    // the number of the message that it was made by
}

TEST_CASE("of a scalar that comes twice the first value stays") {
  CRead cRead("<msg no='120'><t7>1</t7><t7>2</t7><t1>a</t1><t1>b</t1><t4>true</t4><t4>false</t4></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t1><![CDATA[a]]></t1><t7>1</t7><t4>true</t4></msg>");
}

TEST_CASE("a single sub-message that comes twice is filled further") {
  CRead cRead("<msg no='120'><t6><t1>a</t1></t6><t6><t1>b</t1><t2>5</t2></t6></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t6><t1><![CDATA[a]]></t1><t2>5</t2></t6></msg>");
}

TEST_CASE("the letter of a tag says nothing about arrays") {
  CRead cRead("<msg no='120'><a7>5</a7><t17>6</t17><a17>7</a17></msg>");
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t7>5</t7><t17>6</t17><t17>7</t17></msg>");
}

TEST_CASE("the number of a tag is what strtol reads") {
  CRead cRead("<msg no='120'><t7x9>5</t7x9><t0017>6</t0017><t17.5>7</t17.5></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t7>5</t7><t17>6</t17><t17>7</t17></msg>");
  CRead cZero("<msg no='2'><t>a</t><tx>b</tx><t0>c</t0></msg>");
  CHECK(cZero.Ret() == 0);
  CHECK(Texts(*cZero, 0) == "a|b|c|");
}

TEST_CASE("what a document may not say") {
  struct T_Row {
    const char* szXml;
    int iCode;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {"<dictionary/>", -21, "Handler error : Unknown root element(dictionary)"},
      {"<MSG no='1'/>", -21, "Handler error : Unknown root element(MSG)"},
      {"<msg1 no='1'/>", -21, "Handler error : Unknown root element(msg1)"},
      {"<msg/>", -21, "Handler error : Unknown msgno(0)"},
      {"<msg no=''/>", -21, "Handler error : Unknown msgno(0)"},
      {"<msg no='x'/>", -21, "Handler error : Unknown msgno(0)"},
      {"<msg no='99'/>", -21, "Handler error : Unknown msgno(99)"},
      {"<msg no='-1'/>", -21, "Handler error : Unknown msgno(-1)"},
      {"<msg no='10000'/>", -21, "Handler error : Unknown msgno(10000)"},
      {"<msg no='99999999999'/>", -21, "Handler error : Unknown msgno(2147483647)"},
      {"<msg NO='1'/>", -21, "Handler error : Unknown msgno(0)"},
      {"<msg no='120' type='name'><zzz/></msg>", -21, "Handler error : Unknown start tagname(zzz)"},
      {"<msg no='120' type='name'><Number/></msg>", -21, "Handler error : Unknown start tagname(Number)"},
      {"<msg no='120' type='name'><row><zzz/></row></msg>", -21, "Handler error : Unknown start tagname(zzz)"},
      {"<msg no='120' type='name'><number><number/></number></msg>", -21,
       "Handler error : Unknown start tagname(number)"},
      {"<msg no='120'><x7>1</x7></msg>", -21, "Handler error : Unknown start tagnum(x7)"},
      {"<msg no='120'><T7>1</T7></msg>", -21, "Handler error : Unknown start tagnum(T7)"},
      {"<msg no='120'><_t7>1</_t7></msg>", -21, "Handler error : Unknown start tagnum(_t7)"},
      {"<msg no='120'><t99/></msg>", -21, "Handler error : Unknown start tag element(t99, 99)"},
      {"<msg no='120'><a99/></msg>", -21, "Handler error : Unknown start tag element(a99, 99)"},
      {"<msg no='120'><t/></msg>", -21, "Handler error : Unknown start tag element(t, 0)"},
      {"<msg no='120'><tag/></msg>", -21, "Handler error : Unknown start tag element(tag, 0)"},
      {"<msg no='120'><t-5/></msg>", -21, "Handler error : Unknown start tag element(t-5, -5)"},
      {"<msg no='120'><t99999999999/></msg>", -21,
       "Handler error : Unknown start tag element(t99999999999, 2147483647)"},
      {"<msg no='120'><t16><t7/></t16></msg>", -21, "Handler error : Unknown start tag element(t7, 7)"},
      {"<msg no='120'><t7><t7>1</t7></t7></msg>", -21, "Handler error : Unknown start tag element(t7, 7)"},
      {"<msg no='120'><t16><t2><t2/></t2></t16></msg>", -21, "Handler error : Unknown start tag element(t2, 2)"},
      {"<msg no='120'>text</msg>", -18, "Handler error : tagnum=0"},
      {"<msg no='120'><t16>text</t16></msg>", -18, "Handler error : tagnum=16"},
      {"<msg no='120'><t6>text</t6></msg>", -18, "Handler error : tagnum=6"},
      {"<msg no='120'><t16><t2>5</t2></t16>text</msg>", -18, "Handler error : tagnum=2"},
      {"<msg no='120'><t6/>text</msg>", -17, "Handler error : tagnum=6,type=6"},
      {"<msg no='3'><t1/></msg>", -19, "Handler error : 3.msgnum=77"},
      {"<msg no='3'><t2/></msg>", -19, "Handler error : 3.msgnum=77"},
      {"<msg no='3'><t3/></msg>", -21, "Handler error : Unknown submsg(0)"},
      {"<msg no='3'><t4/></msg>", -15, "Handler error : 1.msgnum=0"},
      {"<msg no='3'><t6>text</t6></msg>", -17, "Handler error : tagnum=6,type=0"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szXml);
    CRead cRead(tRow.szXml);
    CHECK(cRead.Thrown().iCode == tRow.iCode);
    CHECK(cRead.Thrown().sText == tRow.szText);
    CHECK(cRead->GetLastError() == std::string());
  }
}

TEST_CASE("what the parser reports stops the reading, with its place") {
  struct T_Row {
    const char *szXml, *szText;
  };
  static const T_Row s_atRow[] = {
      {"", "Handler error : [F]MemData (L:1, C:1) invalid document structure"},
      {"hello", "Handler error : [F]MemData (L:1, C:1) invalid document structure"},
      {"<msg no=\"1\"><t1>abc",
       "Handler error : [F]MemData (L:1, C:20) input ended before all started tags were ended; "
       "last tag started is 't1'"},
      {"<msg no=\"1\">\n<t1>abc</t2>", "Handler error : [F]MemData (L:2, C:10) expected end of tag 't1'"},
      {"<msg no=\"1\"></msg>garbage",
       "Handler error : [F]MemData (L:1, C:19) comment or processing instruction expected"},
      {"<msg no=\"1\"/><msg/>", "Handler error : [F]MemData (L:1, C:14) comment or processing instruction expected"},
      {"<msg no=\"1\"><t1>]]></t1></msg>",
       "Handler error : [F]MemData (L:1, C:20) ']]>' sequence is not allowed in character data"},
      {"<msg no=\"1\"><t1><![CDATA[abc</t1></msg>",
       "Handler error : [F]MemData (L:1, C:40) unterminated CDATA section"},
      {"<msg no=\"1\" no=\"2\"/>",
       "Handler error : [F]MemData (L:1, C:21) attribute 'no' is already specified for element 'msg'"},
      {"<msg no=1/>", "Handler error : [F]MemData (L:1, C:9) attribute value expected"},
      {"<msg no=\"1\">&foo;</msg>", "Handler error : [F]MemData (L:1, C:18) entity 'foo' not found"},
      {"<msg no=\"1\"><t1>a & b</t1></msg>",
       "Handler error : [F]MemData (L:1, C:20) expected entity name for reference"},
      {"<msg no=\"1\"><1t/></msg>", "Handler error : [F]MemData (L:1, C:14) element name expected"},
      {"<msg no=\"1\"><t1>\x01</t1></msg>", "Handler error : [F]MemData (L:1, C:18) invalid character 0x1"},
      {"<msg no=\"1\"><p:t1/></msg>",
       "Handler error : [F]MemData (L:1, C:20) prefix 'p' can not be resolved to namespace URI"},
      {" <?xml version=\"1.0\"?><msg no=\"1\"/>",
       "Handler error : [F]MemData (L:1, C:8) XML or TEXT declaration must start at line 1, column 1"},
      {"<?xml version=\"1.0\" encoding=\"FOO-99\"?><msg no=\"1\"/>",
       "Handler error : [F]MemData (L:1, C:40) unable to create converter for 'FOO-99' encoding"},
      {"<msg no=\"1\"><t1>\xe9<</t1></msg>",
       "Handler error : [F]MemData (L:1, C:1) invalid byte '<' at position 2 of a 3-byte sequence"},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><msg no=\"1\"/>",
       "Handler error : [W]MemData (L:1, C:40) encoding 'UTF-16' from XML declaration or manually set contradicts the "
       "auto-sensed encoding; ignoring"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szXml);
    CRead cRead(tRow.szXml);
    CHECK(cRead.Thrown().iCode == -21);
    CHECK(cRead.Thrown().sText == tRow.szText);
  }
}

TEST_CASE("a failure keeps what was stored before it") {
  CReaderDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  cMsg.SetVer("old");
  cMsg.SetValue(7, 9);
  CHECK(Caught([&] { Load(cMsg, "<msg no='121' ver='new'><t1>kept</t1><t2>5</t2><t99/>"); }).iCode == -21);
  CHECK(Xml(cMsg) == "<msg no=\"121\" ver=\"new\"><t1><![CDATA[kept]]></t1><t2>5</t2></msg>");
  // Before the root is understood, nothing changes.
  CHECK(Caught([&] { Load(cMsg, "<msg no='99' ver='never'/>"); }).iCode == -21);
  CHECK(Caught([&] { Load(cMsg, "<wrong no='1'/>"); }).iCode == -21);
  CHECK(Xml(cMsg) == "<msg no=\"121\" ver=\"new\"><t1><![CDATA[kept]]></t1><t2>5</t2></msg>");
}

TEST_CASE("a string that ends its section early is stored up to there, and fails") {
  CRead cRead("<msg no=\"1\" ver=\"\"><t1><![CDATA[abc]]>d]]></t1></msg>");
  CHECK(cRead.Thrown().iCode == -21);
  CHECK(cRead.Thrown().sText ==
        "Handler error : [F]MemData (L:1, C:43) ']]>' sequence is not allowed in character data");
  CHECK(Xml(*cRead) == "<msg no=\"1\" ver=\"\"><t1><![CDATA[abc]]></t1></msg>");
}

TEST_CASE("every piece of text that the parser delivers is stored by itself") {
  struct T_Row {
    const char *szText, *szStored;
  };
  static const T_Row s_atRow[] = {
      {"abc", "abc|"},
      {"ab<![CDATA[cd]]>ef", "ab|cd|ef|"},
      {"<![CDATA[cd]]><![CDATA[ef]]>", "cd|ef|"},
      {"ab<!-- no text -->cd", "ab|cd|"},
      {"ab<?no text?>cd", "ab|cd|"},
      {"a&amp;b&lt;c&gt;d&apos;e&quot;f", "a|&b|<c|>d|'e|\"f|"},
      {"a&#65;b&#x42;c", "a|Ab|Bc|"},
      {"<![CDATA[]]>", ""},
      {"", ""},
      {"<![CDATA[a&amp;<b>]]>", "a&amp;<b>|"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CRead cRead(std::string("<msg no='120'><t11>") + tRow.szText + "</t11><t1>" + tRow.szText + "</t1></msg>");
    CHECK(cRead.Ret() == 0);
    CHECK(Texts(*cRead, 11) == tRow.szStored);
    const std::string sFirst = std::string(tRow.szStored).substr(0, std::string(tRow.szStored).find('|') + 1);
    CHECK(Texts(*cRead, 1) == sFirst);    // of a scalar the first piece stays
  }
}

TEST_CASE("blanks, tabs and line feeds are dropped at both ends, carriage returns are not") {
  struct T_Row {
    const char *szText, *szStored;
  };
  static const T_Row s_atRow[] = {
      {"  a b  ", "a b|"},
      {"\t\n a\tb\nc \n\t", "a\tb\nc|"},
      {"<![CDATA[  a  ]]>", "a|"},
      {"   ", ""},
      {"\n\t ", ""},
      {"<![CDATA[ \n ]]>", ""},
      {"a\r\nb\rc", "a\nb\nc|"},             // the parser turns line ends into line feeds
      {"<![CDATA[a\r\nb\r]]>", "a\nb|"},
      {"&#13;", "\r|"},
      {"&#13; a &#13;", "\r a|\r|"},
      {"&#9;a&#10;", "a|"},
      {"\xc2\xa0", "\xa0|"},                  // a no-break space is a character like others
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CRead cRead(std::string("<msg no='120'><t11>") + tRow.szText + "</t11></msg>");
    CHECK(cRead.Ret() == 0);
    CHECK(Texts(*cRead, 11) == tRow.szStored);
  }
  CRead cRead("<msg no='120'><t7> 5 </t7><t4> true\n</t4><t5>\t20240131 </t5><t1>  </t1></msg>");
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t7>5</t7><t4>true</t4><t5>20240131</t5></msg>");
  CHECK(cRead->GetArrSize(1) == -1);
}

TEST_CASE("text behind a closing tag goes to the last tag again") {
  CRead cRead("<msg no='120'><t11>a</t11>b<t7>5</t7>6<t17/>7\n</msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Texts(*cRead, 11) == "a|b|");
  CHECK(Xml(*cRead).find("<t7>5</t7>") != std::string::npos);
  CHECK(Xml(*cRead).find("<t17>7</t17>") != std::string::npos);
  // Behind a row, the tag number that was last inside it counts for the message around it.
  CRead cRow("<msg no='120'><t16><t1>a</t1>b</t16>c</msg>");
  CHECK(cRow.Ret() == 0);
  CHECK(Xml(*cRow) == "<msg no=\"120\" ver=\"\"><t1><![CDATA[c]]></t1><t16><t1><![CDATA[a]]></t1></t16></msg>");
  // Text in front of any tag goes to tag 0.
  CRead cZero("<msg no='2'>a<t0>b</t0>c</msg>");
  CHECK(cZero.Ret() == 0);
  CHECK(Texts(*cZero, 0) == "a|b|c|");
}

TEST_CASE("text of a negative tag is dropped") {
  CRead cRead("<msg no='3'><t-5>text</t-5></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(cRead->IsEmpty());
}

TEST_CASE("of every character the low byte is kept") {
  std::string sLatin, sLatinXml;
  for (int i = 0x20; i < 0x100; ++i) sLatin += static_cast<char>(i);
  CRead cLatin("<?xml version='1.0' encoding='ISO-8859-1'?><msg no='1'><t1><![CDATA[x" + sLatin + "x]]></t1></msg>");
  CHECK(cLatin.Ret() == 0);
  CHECK(Texts(*cLatin, 1) == "x" + sLatin + "x|");

  struct T_Row {
    const char *szText, *szStored;
  };
  static const T_Row s_atRow[] = {
      {"\xc3\xa9", "\xe9|"},               // U+00E9
      {"x\xc5\x81y", "xAy|"},              // U+0141
      {"x\xc4\x80y", "x|"},                // U+0100: its low byte ends the piece
      {"x&#256;y&#321;z", "x|Az|"},
      {"\xe3\x80\x80y", ""},               // U+3000, too
      {"\xe2\x82\xac", "\xac|"},           // U+20AC
      {"\xf0\x9f\x98\x80", "=|"},          // U+1F600 is two units, of which the second ends the piece
      {"\xc4\xa0x\xc4\xa0", "x|"},         // U+0120 is a blank at both ends
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CRead cRead(std::string("<msg no='120'><t11>") + tRow.szText + "</t11></msg>");
    CHECK(cRead.Ret() == 0);
    CHECK(Texts(*cRead, 11) == tRow.szStored);
  }
  // Names and attributes likewise.
  CRead cNames("<m\xc5\xb3g n\xc5\xaf='\xc4\xb1'><\xc5\xb4" "1>x</\xc5\xb4" "1></m\xc5\xb3g>");
  CHECK(cNames.Ret() == 0);
  CHECK(cNames->GetMsgNum() == 1);
  CHECK(Texts(*cNames, 1) == "x|");
  CRead cDigit("<msg no='1'><t\xc4\xb1>x</t\xc4\xb1></msg>");    // U+0131 ends in the byte of 1
  CHECK(cDigit.Ret() == 0);
  CHECK(Texts(*cDigit, 1) == "x|");
  CRead cLetter("<msg no='1'><\xc5\xb4""1>x</\xc5\xb4""1></msg>");    // U+0174 in that of t
  CHECK(cLetter.Ret() == 0);
  CHECK(Texts(*cLetter, 1) == "x|");
  CRead cEnd("<msg no='1'><t1\xc4\x80""5>x</t1\xc4\x80""5></msg>");    // U+0100 in 0, which ends the number
  CHECK(cEnd.Ret() == 0);
  CHECK(Texts(*cEnd, 1) == "x|");
}

TEST_CASE("other encodings") {
  struct T_Row {
    const char* szWhat;
    std::string sXml;
  };
  const std::string sUtf16 = std::string("\xff\xfe", 2);
  static const T_Row s_atRow[] = {
      {"UTF-8", "<?xml version='1.0' encoding='UTF-8'?><msg no='1'><t1>\xc3\xa9</t1></msg>"},
      {"UTF-8 with a mark", "\xef\xbb\xbf<msg no='1'><t1>\xc3\xa9</t1></msg>"},
      {"US-ASCII", "<?xml version='1.0' encoding='US-ASCII'?><msg no='1'><t1>&#233;</t1></msg>"},
      {"windows-1252", "<?xml version='1.0' encoding='windows-1252'?><msg no='1'><t1>\xe9</t1></msg>"},
      {"XML 1.1", "<?xml version='1.1'?><msg no='1'><t1>\xc3\xa9</t1></msg>"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szWhat);
    CRead cRead(tRow.sXml);
    CHECK(cRead.Ret() == 0);
    CHECK(Texts(*cRead, 1) == "\xe9|");
  }
  CRead cKorean("<?xml version='1.0' encoding='EUC-KR'?><msg no='1'><t1>\xb0\xa2</t1></msg>");    // U+AC01
  CHECK(cKorean.Ret() == 0);
  CHECK(Texts(*cKorean, 1) == "\x01|");
}

TEST_CASE("rows of a tag that names no message have no definition and nothing to write") {
  CRead cRead("<msg no='3'><t1/></msg>");
  for (int i = 0; i < 20; ++i) CHECK(cRead->MakeSubMsgEntry(3)->GetMsgInfo() == nullptr);
  std::string sRows;
  for (int i = 0; i < 20; ++i) sRows += "<t3></t3>";
  CStream stXml(0, 512);
  cRead->ToXml(&stXml, false, false, 1);
  CHECK(stXml.GetData() == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"3\" ver=\"\">" + sRows + "</msg>");
}

TEST_CASE("names may have a prefix") {
  CRead cRead("<p:msg xmlns:p='u' p:no='1' p:ver='3'><p:t1>x</p:t1></p:msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(cRead->GetVer() == std::string("3"));
  CHECK(Texts(*cRead, 1) == "x|");
}

TEST_CASE("attributes that mean nothing are ignored") {
  CRead cRead("<msg xml:lang='ko' no='1' other='2' ver='1'><t1 type='name' no='7'>x</t1></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Texts(*cRead, 1) == "x|");
}

TEST_CASE("of attributes that differ in their prefix the last one counts") {
  CRead cRead("<msg xmlns:p='u' p:no='120' no='1' type='name' p:type='index' ver='1' p:ver='2'><t1>x</t1></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Xml(*cRead) == "<msg no=\"1\" ver=\"2\"><t1><![CDATA[x]]></t1></msg>");
}

TEST_CASE("the version keeps 16 characters") {
  CRead cLong("<msg no='1' ver='" + std::string(10000, 'v') + "'/>");
  CHECK(cLong.Ret() == 0);
  CHECK(cLong->GetVer() == std::string("vvvvvvvvvvvvvvvv"));
  CRead cNone("<msg no='1'/>");
  CHECK(cNone->GetVer() == std::string());
}

TEST_CASE("a missing version replaces an old one") {
  CReaderDic cDic;
  CMsg cMsg(1, 0, 0, &cDic);
  cMsg.SetVer("old");
  CHECK(Load(cMsg, "<msg no='1'/>") == 0);
  CHECK(cMsg.GetVer() == std::string());
}

TEST_CASE("long texts, names and values") {
  for (size_t iLen : {511u, 512u, 513u, 1024u, 100000u}) {
    CAPTURE(iLen);
    const std::string sText(iLen, 'x');
    CRead cRead("<msg no='120' other='" + sText + "'><t1>" + sText + "</t1><t11><![CDATA[" + sText + "]]></t11></msg>");
    CHECK(cRead.Ret() == 0);
    CHECK(Texts(*cRead, 1) == sText + "|");
    CHECK(Texts(*cRead, 11) == sText + "|");
    CRead cName("<msg no='120'><t" + sText + "/></msg>");
    CHECK(cName.Thrown().sText == "Handler error : Unknown start tag element(t" + sText + ", 0)");
  }
}

TEST_CASE("a string of megabytes in a section comes in one piece") {
  const std::string sText(3000000, 'x');
  CRead cRead("<?xml version='1.0' encoding='ISO-8859-1'?><msg no='120'><t11><![CDATA[" + sText + "]]></t11></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK(Texts(*cRead, 11) == sText + "|");
}

TEST_CASE("no text is an error of its own, without an exception") {
  CReaderDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  cMsg.SetValue(7, 5);
  CHECK(cMsg.LoadXml(nullptr) == -12);
  CHECK(cMsg.GetLastError() == std::string());
  CHECK(cMsg.GetArrSize(7) == 1);
}

TEST_CASE("a document type is refused and nothing that it names is opened") {
  const CTempDir cDir;
  const CSilentPort cPort;
  const std::string sFile = "file://" + cDir.Write("secret.txt", "<!ENTITY e 'secret'>secret");
  const std::string asDoctype[] = {
      "<!DOCTYPE msg>",
      "<!DOCTYPE msg []>",
      "<!DOCTYPE msg SYSTEM '" + sFile + "'>",
      "<!DOCTYPE msg SYSTEM '" + cPort.Url() + "'>",
      "<!DOCTYPE msg PUBLIC 'id' '" + cPort.Url() + "'>",
      "<!DOCTYPE msg [<!ENTITY e 'text'>]>",
      "<!DOCTYPE msg [<!ENTITY e SYSTEM '" + sFile + "'>]>",
      "<!DOCTYPE msg [<!ENTITY e SYSTEM '" + cPort.Url() + "'>]>",
      "<!DOCTYPE msg [<!ENTITY % e SYSTEM '" + cPort.Url() + "'> %e;]>",
      "<!DOCTYPE msg [<!ENTITY a 'x'><!ENTITY e '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>]>",
      "<!DOCTYPE msg [<!ATTLIST msg no CDATA '1'>]>",
  };
  for (const std::string& sDoctype : asDoctype) {
    CAPTURE(sDoctype);
    CRead cRead("<?xml version='1.0'?>" + sDoctype + "<msg no='1'><t1>&e;</t1></msg>");
    CHECK(cRead.Thrown().iCode == -21);
    CHECK(cRead.Thrown().sText == "Handler error : DOCTYPE is not allowed");
    CHECK(cRead->GetMsgNum() == 0);
    CHECK_FALSE(cPort.WasCalled());
  }
}

TEST_CASE("names of other documents in a message are never opened") {
  const CSilentPort cPort;
  CRead cRead("<?xml-stylesheet href='" + cPort.Url() +
              "'?><msg no='1' xmlns:x='http://www.w3.org/2001/XMLSchema-instance' x:schemaLocation='u " +
              cPort.Url() + "' x:noNamespaceSchemaLocation='" + cPort.Url() + "'><t1>x</t1></msg>");
  CHECK(cRead.Ret() == 0);
  CHECK_FALSE(cPort.WasCalled());
}

TEST_CASE("1,024 open elements are read, one more is refused") {
  std::string sOpen = "<msg no='121'>", sClose = "</msg>";
  for (int i = 0; i < 1023; ++i) {
    sOpen += "<t3>";
    sClose = "</t3>" + sClose;
  }
  CRead cRead(sOpen + sClose);
  CHECK(cRead.Ret() == 0);
  int iDepth = 0;
  for (CMsg* p = &*cRead; p != nullptr; p = p->GetValue(3)) ++iDepth;
  CHECK(iDepth == 1024);

  CRead cDeep(sOpen + "<t3/>" + sClose);
  CHECK(cDeep.Thrown().iCode == -21);
  CHECK(cDeep.Thrown().sText == "Handler error : More than 1024 open elements");
}

TEST_CASE("a message can be read into again and again") {
  CReaderDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  CHECK(Load(cMsg, "<msg no='120'><t7>1</t7><t6><t1>first</t1></t6><t16><t1>row</t1></t16></msg>") == 0);
  CMsg* pSingle = cMsg.GetValue(6);
  CMsg* pRow = cMsg.GetValue(16);
  CHECK(Load(cMsg, "<msg no='120'><t6><t1>second</t1></t6></msg>") == 0);
  CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t6><t1><![CDATA[second]]></t1></t6></msg>");
  CString sText;
  CHECK(pSingle->GetValue(1, &sText) == 0);    // still there for whoever holds it
  CHECK(sText == "first");
  CHECK(pRow->GetValue(1, &sText) == 0);
  CHECK(sText == "row");
  CHECK(pSingle != cMsg.GetValue(6));
  for (int i = 0; i < 100; ++i) {
    CHECK(Load(cMsg, i % 2 == 0 ? "<msg no='121'><t4><t1>x</t1></t4></msg>" : "<msg no='120'><t17>5</t17></msg>") == 0);
  }
  CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t17>5</t17></msg>");
}

TEST_CASE("values set before reading are gone afterwards") {
  CReaderDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  cMsg.SetValue(7, 9);
  cMsg.SetValue(16, NewRow(cDic, "row"));
  CHECK(Load(cMsg, "<msg no='120'><t17>1</t17></msg>") == 0);
  CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t17>1</t17></msg>");
  CHECK(cMsg.SetValue(7, 5) == 0);
  CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t7>5</t7><t17>1</t17></msg>");
}

TEST_CASE("a read message takes values, rows and sub-messages like any other") {
  CRead cRead("<msg no='120'><t16><t1>one</t1></t16><t6><t1>single</t1></t6><t1>short</t1></msg>");
  CHECK(cRead->SetValue(16, NewRow(cRead.Dic(), "two")) == 0);
  CHECK(cRead->GetValue(16)->SetValue(4, NewRow(cRead.Dic(), "inner")) == 0);
  CHECK(cRead->SetValue(6, NewRow(cRead.Dic(), "new single")) == 0);
  CHECK(cRead->SetValue(1, "a text that is too long to be stored in place") == 0);
  CHECK(Xml(*cRead) ==
        "<msg no=\"120\" ver=\"\"><t1><![CDATA[a text that is too long to be stored in place]]></t1>"
        "<t6><t1><![CDATA[new single]]></t1></t6><t16><t1><![CDATA[one]]></t1><t4><t1><![CDATA[inner]]></t1></t4></t16>"
        "<t16><t1><![CDATA[two]]></t1></t16></msg>");
  CMsg cOther(120, 0, 0, &cRead.Dic());
  CHECK(cOther.SetValue(16, cRead->GetValue(16)) == -28);    // it has a parent
}

TEST_CASE("a read message may be handed to a parent") {
  CReaderDic cDic;
  auto pRow = std::make_unique<CMsg>(0, 0, 0, &cDic);
  CHECK(Load(*pRow, "<msg no='121'><t1>row</t1><t4><t1>inner</t1></t4></msg>") == 0);
  CMsg cMsg(120, 0, 0, &cDic);
  CHECK(cMsg.SetValue(16, pRow.release()) == 0);
  CHECK(Xml(cMsg) ==
        "<msg no=\"120\" ver=\"\"><t16><t1><![CDATA[row]]></t1><t4><t1><![CDATA[inner]]></t1></t4></t16></msg>");
}

TEST_CASE("a sub-message can be read into on its own") {
  CRead cRead("<msg no='120'><t16><t1>row</t1></t16></msg>");
  CMsg* pRow = cRead->GetValue(16);
  CHECK(Load(*pRow, "<msg no='121'><t2>9</t2><t4><t1>inner</t1></t4></msg>") == 0);
  CHECK(pRow->GetParent() == nullptr);
  CHECK(Xml(*cRead) == "<msg no=\"120\" ver=\"\"><t16><t2>9</t2><t4><t1><![CDATA[inner]]></t1></t4></t16></msg>");
  MA_FreeMsg(pRow);    // still its parent's
  CHECK(cRead->GetArrSize(16) == 1);
}

TEST_CASE("reading goes on after any failure") {
  CReaderDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  const char* const aszBad[] = {"",
                                "<msg no='120'><t7>1",
                                "<msg no='120'><t99/></msg>",
                                "<msg no='120'>text</msg>",
                                "<x/>",
                                "<!DOCTYPE msg []><msg no='120'/>",
                                "<msg no='120'><t16><t1>]]></t1></t16></msg>",
                                "<?xml version='1.0' encoding='UTF-16'?><msg no='1'/>"};
  for (int i = 0; i < 3; ++i) {
    for (const char* szBad : aszBad) {
      CAPTURE(szBad);
      CHECK(Caught([&] { Load(cMsg, szBad); }).iCode < 0);
      CHECK(Load(cMsg, "<?xml version='1.0' encoding='ISO-8859-1'?><msg no='120'><t1>\xe9</t1></msg>") == 0);
      CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t1><![CDATA[\xe9]]></t1></msg>");
    }
  }
}

TEST_CASE("a document that begins as a written one is read as any other") {
  CReaderDic cDic;
  const std::string asRest[] = {
      "no=\"120\" ver=\"2\"><t1>\xe9</t1><t7>42</t7><t16><t1><![CDATA[<&>]]></t1></t16><t16/></msg>",
      "no='120' type='name'><text>a</text>\n<numbers>1</numbers><!-- c --><numbers>2</numbers><?pi?></msg>\n<!-- c -->",
      "no='120'><t1>&lt;&#65;&amp;</t1></msg>",
      "no='120' xmlns='urn:a' xmlns:p='urn:b'><p:t1 p:x='1'>a</p:t1><t7 xmlns='urn:c'>1</t7></msg>",
      "no='120'><t1 xml:space='preserve'>a</t1></msg>",
      "no='120'><t17>1</t17><t17>2</t17><p:t17>3</p:t17></msg>",
      "no='120'><t17>1</t17><t17>2</t17><t17>3</t16></msg>",
      "no='120'><t17>1</t17><t99/></msg>",
      "no='120'><t17>1</t17><b/></msg>",
      "no='120'><t17 a='1' a='2'/></msg>",
      "no='120' <!DOCTYPE msg><t7>1</t7></msg>",
      "no='120'><!DOCTYPE msg><t7>1</t7></msg>",
      "no='120'><t1>]]></t1></msg>",
      "no='120'><t1>\x01</t1></msg>",
      "no='120'><t17>1</t17>",
      "no='120'/>text",
      "no='120'/><msg no='121'/>",
      "no='1201'/>",
      "/>",
      "",
  };
  for (const std::string& sRest : asRest) {
    CAPTURE(sRest);
    std::string asSeen[2];
    for (int i = 0; i < 2; ++i) {    // the second is as long, so that positions are the same
      CMsg cMsg(0, 0, 0, &cDic);
      const T_Thrown tThrown = Caught([&] {
        Load(cMsg, (i == 0 ? "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg "
                           : "<?xml  version=\"1.0\" encoding=\"ISO-8859-1\"?><msg ") + sRest);    // not plain
      });
      asSeen[i] = std::to_string(tThrown.iCode) + " " + tThrown.sText + "|" + (cMsg.GetMsgNum() > 0 ? Xml(cMsg) : "");
    }
    CHECK(asSeen[0] == asSeen[1]);
    CHECK(asSeen[0].size() > 10);
  }
}

// U+0085 ends a line in XML 1.1 and is a character like others in 1.0, which also knows no U+0001.
TEST_CASE("a document without a declaration is read as XML 1.0, whatever was read before") {
  CReaderDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  const char* const szComment = "<!-- not plain --><msg no='120'><t1>a\xc2\x85</t1></msg>";
  const char* const aszBefore[] = {
      "<?xml version='1.1'?><msg no='120'><t1>b\xc2\x85</t1></msg>",
      "<?xml version='1.1' encoding='UTF-8'?><!-- c --><msg no='120'><t1>b</t1></msg>",
      "<?xml version='1.1'?><msg no='120'><t1>b</t1><t99/></msg>",    // fails
      "<?xml version='1.1'?><msg no='120'><t1>b</t1>",
  };
  for (const char* szBefore : aszBefore) {
    CAPTURE(szBefore);
    CHECK(Load(cMsg, szComment) == 0);    // its reader is kept
    Caught([&] { Load(cMsg, szBefore); });
    CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t1><![CDATA[b]]></t1></msg>");
    CHECK(Load(cMsg, szComment) == 0);
    CHECK(Xml(cMsg) == "<msg no=\"120\" ver=\"\"><t1><![CDATA[a\x85]]></t1></msg>");
    Caught([&] { Load(cMsg, szBefore); });
    CheckThrows(-21, "Handler error : [F]MemData (L:1, C:42) invalid character reference",
                [&] { Load(cMsg, "<!-- not plain --><msg no='120'><t1>a&#1;</t1></msg>"); });
  }
}

TEST_CASE("a reading leaves its parser for the next one, unless that would cost memory") {
  CReaderDic cDic;
  const auto fnAllocations = [&cDic](std::string p_sXml) {
    CMsg cMsg(0, 0, 0, &cDic);
    CFailAlloc cCount;
    cCount.Run([&] { cMsg.LoadXml(&p_sXml[0]); });
    return cCount.GetCount();
  };
  for (const char* szBegin : {"", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>"}) {
    CAPTURE(szBegin);
    CHECK(Caught([&] { fnAllocations("<x/>"); }).iCode == -21);    // leaves none
    const std::string sShort = szBegin + std::string("<msg no='120'><t7>1</t7></msg>");
    const int iNew = fnAllocations(sShort), iKept = fnAllocations(sShort);
    CHECK(iKept < iNew / 2);
    CHECK(fnAllocations(sShort) == iKept);
    struct T_Row {
      const char* szWhat;
      std::string sXml;
      int iNext;    // allocations of the reading after it
    };
    const T_Row s_atRow[] = {
        {"a usual one", "<msg no='120'><t1>" + std::string(100000, 'x') + "</t1></msg>", iKept},
        {"a long one", "<msg no='120'><t1>" + std::string(300000, 'x') + "</t1></msg>", iNew},
        {"one that failed", "<msg no='120'><t99/></msg>", iNew},
        {"one with a namespace", "<msg no='120' xmlns='u'/>", iNew},
        {"one with a prefix", "<p:msg xmlns:p='u' no='120'/>", iNew},
        {"one with a prefix that is not used", "<msg no='120'><t7 xmlns:p='u'/></msg>", iNew},
    };
    for (const T_Row& tRow : s_atRow) {
      CAPTURE(std::string(tRow.szWhat));
      CHECK(Caught([&] { fnAllocations("<x/>"); }).iCode == -21);
      CHECK(Caught([&] { fnAllocations(szBegin + tRow.sXml); }).iCode <= 0);
      CHECK(fnAllocations(sShort) == tRow.iNext);
      CHECK(fnAllocations(sShort) == iKept);
    }
  }
}

TEST_CASE("without an initialised parser nothing can be read") {
  const std::string sXml = "<msg no='120'><t7>1</t7></msg>";
  CTestDic cDic;    // not loaded from a file
  CMsg cMsg(0, 0, 0, &cDic);
  CheckThrows(-26, "XMLPlatformUtils::Initialize() was not called", [&] { Load(cMsg, sXml); });
  {
    const CReaderDic cOther;
    CHECK(Load(cMsg, sXml) == 0);
  }
  CheckThrows(-26, "XMLPlatformUtils::Initialize() was not called", [&] { Load(cMsg, sXml); });    // terminated again
}

TEST_CASE("threads may read messages of one dictionary at once") {
  CReaderDic cDic;
  const std::string sXml = "<msg no='120' ver=''><t7>1</t7><t16><t1>row</t1></t16></msg>";
  std::vector<std::thread> acThread;
  std::vector<int> aiGood(20, 0);    // more than there are kept readers
  for (int& iGood : aiGood) {
    acThread.emplace_back([&cDic, &sXml, &iGood] {
      for (int i = 0; i < 50; ++i) {
        CMsg cMsg(0, 0, 0, &cDic);
        if (i % 5 == 4) {
          iGood += Caught([&] { Load(cMsg, "<msg no='120'><t99/></msg>"); }).iCode == -21 ? 1 : 0;
        } else {
          iGood += Load(cMsg, sXml) == 0 && cMsg.GetArrSize(16) == 1 ? 1 : 0;
        }
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  for (int iGood : aiGood) CHECK(iGood == 50);
}
