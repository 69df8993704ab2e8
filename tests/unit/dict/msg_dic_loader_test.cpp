// Dictionaries loaded from files.
#include <callorv/crypt/crypt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "dict/msg_dic_handler.h"
#include "seed_key_value.h"
#include "support/silent_port.h"
#include "support/test_dic.h"

namespace {

std::string Dump(const CMsgDic& p_cDic) {
  CStream stOut(0, 512);
  p_cDic.Dump(&stOut);
  return Text(stOut);
}

// The current folder, until the end of a test.
class CWorkIn {
 public:
  explicit CWorkIn(const std::string& p_sPath) : m_cBefore(std::filesystem::current_path()) {
    std::filesystem::current_path(p_sPath);
  }
  ~CWorkIn() { std::filesystem::current_path(m_cBefore); }
  CWorkIn(const CWorkIn&) = delete;
  CWorkIn& operator=(const CWorkIn&) = delete;

 private:
  std::filesystem::path m_cBefore;
};

// A dictionary file that is loaded. What begins with its root element, which one scanner of the parser reads, is also
// loaded with a declaration in front, and with a comment, for which it takes the other one.
class CLoad {
 public:
  explicit CLoad(const std::string& p_sXml, const char* p_szName = s_szPlainName) {
    m_tThrown = LoadInto(m_cDic, p_szName, p_sXml);
    if (p_szName != s_szPlainName || !std::regex_search(p_sXml, std::regex("^<[a-z]"))) return;
    for (const char* szBefore : {"<?xml version='1.0' encoding='UTF-8'?>\n", "<!-- -->"}) {
      CMsgDic cOther;
      const T_Thrown tThrown = LoadInto(cOther, "other.xml", szBefore + p_sXml);
      CHECK(tThrown.iCode == m_tThrown.iCode);
      if (m_tThrown.sText.find("(L:") == std::string::npos) CHECK(tThrown.sText == m_tThrown.sText);    // else it has a place
      CHECK(Dump(cOther) == Dump(m_cDic));
    }
  }
  CMsgDic* operator->() { return &m_cDic; }
  CMsgDic& operator*() { return m_cDic; }
  const T_Thrown& Thrown() const { return m_tThrown; }
  std::string Path(const std::string& p_sName) const { return m_cDir.Path(p_sName); }

 private:
  static constexpr const char* s_szPlainName = "dic.xml";
  CTempDir m_cDir;
  CMsgDic m_cDic;
  T_Thrown m_tThrown;

  T_Thrown LoadInto(CMsgDic& p_cDic, const char* p_szName, const std::string& p_sXml) const {
    const std::string sPath = m_cDir.Write(p_szName, p_sXml);
    return Caught([&] { p_cDic.InitDictionary(sPath.c_str()); });
  }
};

T_Thrown LoadFile(const std::string& p_sPath) {
  CMsgDic cDic;
  return Caught([&] { cDic.InitDictionary(p_sPath.c_str()); });
}

std::string Encrypted(const std::string& p_sPlain) {
  CStream stIn(0, 512), stOut(0, 512);
  CString sErr;
  REQUIRE(stIn.AppendData(p_sPlain.data(), static_cast<int>(p_sPlain.size())) == 0);
  REQUIRE(CCrypt::EncryptStream(stIn, stOut, sErr) == 0);
  return Text(stOut);
}

const char* const s_szQuote =
    "<?xml version='1.0' encoding='ISO-8859-1' ?>\n"
    "<msg_dictionary>\n"
    "  <msg no='3' name='Quote' ver='1.0' hash='16'>\n"
    "    <tag no='1' name='code' type='string' />\n"
    "    <tag no='2' name='price' type='double' />\n"
    "    <tag no='3' name='open' type='bool' />\n"
    "    <tag no='4' name='rows' type='m4' array='Y' />\n"
    "    <constraint />\n"
    "  </msg>\n"
    "  <msg no='4' name='QuoteRow'>\n"
    "    <tag no='1' name='time' type='date' />\n"
    "    <tag no='2' name='volume' type='integer' array='Y' />\n"
    "  </msg>\n"
    "</msg_dictionary>\n";

const char* const s_szQuoteDump =
    "<msg no='3' name='Quote' hash='16'>\n"
    "\t<tag no='1' name='code' type='string' array='N' />\n"
    "\t<tag no='2' name='price' type='double' array='N' />\n"
    "\t<tag no='3' name='open' type='bool' array='N' />\n"
    "\t<tag no='4' name='rows' type='m0004' array='Y' />\n"
    "</msg>\n\n"
    "<msg no='4' name='QuoteRow' hash='128'>\n"
    "\t<tag no='1' name='time' type='date' array='N' />\n"
    "\t<tag no='2' name='volume' type='integer' array='Y' />\n"
    "</msg>\n\n";

}    // namespace

TEST_CASE("a dictionary file is loaded") {
  CLoad cLoad(s_szQuote);
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) == s_szQuoteDump);
  REQUIRE(cLoad->GetMsgInfo(3) != nullptr);
  CHECK(cLoad->GetMsgInfo(3)->GetVersion() == "1.0");
  CHECK(cLoad->GetMsgInfo(4)->GetVersion().IsEmpty());
  CHECK(cLoad->GetMsgInfo(3)->GetTagNumByName("rows") == 4);
  CHECK(cLoad->GetMsgInfo(3)->GetTagInfo(4)->m_iSubMsg == 4);
  CHECK(cLoad->GetLastError() == std::string());
}

TEST_CASE("a success is remembered, a failure changes nothing about it") {
  CMsgDic::m_bLoaded = false;
  CHECK(CLoad("<wrong/>").Thrown().iCode == -21);
  CHECK_FALSE(CMsgDic::m_bLoaded);
  CLoad cGood(s_szQuote);
  CHECK(CMsgDic::m_bLoaded);
  CHECK(CLoad("<wrong/>").Thrown().iCode == -21);
  CHECK(CMsgDic::m_bLoaded);
}

TEST_CASE("a path is needed") {
  CMsgDic cDic;
  CheckThrows(-12, "MsgDic Path", [&] { cDic.InitDictionary(nullptr); });
  MsgDicHandler cHandler(&cDic);
  CheckThrows(-12, "Parameter is NULL", [&] { cHandler.Action(nullptr); });
}

TEST_CASE("a second load fails at the first message and keeps what is there") {
  CLoad cLoad(s_szQuote);
  CheckThrows(-22, "InitDictionary(Handler error : msgnum=3,msgname=Quote)",
              [&] { cLoad->InitDictionary(cLoad.Path("dic.xml").c_str()); });
  CHECK(Dump(*cLoad) == s_szQuoteDump);
}

TEST_CASE("files may be loaded one after the other into one dictionary") {
  CLoad cLoad(s_szQuote);
  const CTempDir cDir;
  cLoad->InitDictionary(cDir.Write("more.xml", "<msg_dictionary><msg no='5' name='More'/></msg_dictionary>").c_str());
  CHECK(cLoad->GetMsgInfo(3) != nullptr);
  CHECK(cLoad->GetMsgInfo(5) != nullptr);
}

TEST_CASE("attributes that are missing have their defaults, others are ignored, in any order") {
  CLoad cLoad(
      "<msg_dictionary version='9' no='1'>"
      "<msg hash='7' other='x' no='12'><tag type='string'/><tag array='N' x='1' type='bool' name='b' no='2'/></msg>"
      "<msg no='007' xml:lang='ko' hash='' ver=''/><msg no='8x' hash='-3'/><msg no=' 9 ' name='' hash='129'/>"
      "</msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) ==
        "<msg no='7' name='' hash='128'>\n</msg>\n\n"
        "<msg no='8' name='' hash='128'>\n</msg>\n\n"
        "<msg no='9' name='' hash='128'>\n</msg>\n\n"
        "<msg no='12' name='' hash='7'>\n"
        "\t<tag no='0' name='' type='string' array='N' />\n"
        "\t<tag no='2' name='b' type='bool' array='N' />\n"
        "</msg>\n\n");
}

TEST_CASE("in a dictionary, names may have a prefix") {
  CLoad cLoad(
      "<d:msg_dictionary xmlns:d='u'><d:msg d:no='3' d:name='Quote'><d:tag d:no='1' d:type='string' d:array='Y'/>"
      "<d:constraint/></d:msg></d:msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) ==
        "<msg no='3' name='Quote' hash='128'>\n\t<tag no='1' name='' type='string' array='Y' />\n</msg>\n\n");
}

TEST_CASE("in a dictionary, of attributes that differ in their prefix the last one counts") {
  CLoad cLoad(
      "<msg_dictionary xmlns:p='u'><msg p:no='1' no='2' name='a' p:name='b'><tag no='3' p:no='4' name='c' p:name=''"
      " type='wrong' p:type='bool' array='Y' p:array='y'/></msg></msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) == "<msg no='2' name='b' hash='128'>\n\t<tag no='4' name='' type='bool' array='N' />\n</msg>\n\n");
}

TEST_CASE("text, comments, constraints and whatever stands inside a tag are ignored") {
  CLoad cLoad(
      "<!-- a comment --><?pi?><msg_dictionary>text<msg no='3'>text"
      "<constraint>text<anything><msg no='4'/><deeper no='5'>x</deeper></anything></constraint>"
      "<tag no='1' type='string'><tag no='2' type='wrong'/><msg_dictionary/><![CDATA[<x>]]></tag>"
      "<constraint/><tag no='3' type='bool'/><constraint no='7' type='wrong'/>"
      "text</msg>text</msg_dictionary><!-- end -->");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) ==
        "<msg no='3' name='' hash='128'>\n"
        "\t<tag no='1' name='' type='string' array='N' />\n"
        "\t<tag no='3' name='' type='bool' array='N' />\n"
        "</msg>\n\n");
}

TEST_CASE("sub-messages may be defined later or not at all") {
  CLoad cLoad(
      "<msg_dictionary><msg no='1'><tag no='1' type='m2'/><tag no='2' type='m0099'/></msg>"
      "<msg no='2'/></msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(cLoad->GetMsgInfo(1)->GetTagInfo(2)->m_iSubMsg == 99);
}

TEST_CASE("a message of 500 tags keeps their order") {
  std::string sXml = "<msg_dictionary><msg no='1' hash='3'>";
  for (int i = 0; i < 500; ++i) {
    const std::string sNo = std::to_string((i * 7) % 500);
    sXml += "<tag no='" + sNo + "' name='n" + sNo + "' type='integer'/>";
  }
  CLoad cLoad(sXml + "</msg></msg_dictionary>");
  const CMsgInfo* pInfo = cLoad->GetMsgInfo(1);
  REQUIRE(pInfo != nullptr);
  REQUIRE(pInfo->GetNoTags() == 500);
  for (int i = 0; i < 500; ++i) {
    CHECK(pInfo->GetTagNumAt(i) == (i * 7) % 500);
    CHECK(pInfo->GetTagNumByName(("n" + std::to_string(i)).c_str()) == i);
  }
}

TEST_CASE("what a dictionary file may not say") {
  struct T_Row {
    const char* szXml;
    int iCode;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {"<dictionary/>", -21, "InitDictionary(Handler error : Unknown root element - dictionary)"},
      {"<MSG_DICTIONARY/>", -21, "InitDictionary(Handler error : Unknown root element - MSG_DICTIONARY)"},
      {"<msg_dictionar/>", -21, "InitDictionary(Handler error : Unknown root element - msg_dictionar)"},
      {"<msg_dictionary1/>", -21, "InitDictionary(Handler error : Unknown root element - msg_dictionary1)"},
      {"<msg_dictionary><message/></msg_dictionary>", -21, "InitDictionary(Handler error : Unknown element - message)"},
      {"<msg_dictionary><tag/></msg_dictionary>", -21, "InitDictionary(Handler error : Unknown element - tag)"},
      {"<msg_dictionary><Msg no='1'/></msg_dictionary>", -21, "InitDictionary(Handler error : Unknown element - Msg)"},
      {"<msg_dictionary><constraint/></msg_dictionary>", -21,
       "InitDictionary(Handler error : Unknown element - constraint)"},
      {"<msg_dictionary><msg no='1'><field/></msg></msg_dictionary>", -21,
       "InitDictionary(Handler error : Unknown child element - field)"},
      {"<msg_dictionary><msg no='1'><msg no='2'/></msg></msg_dictionary>", -21,
       "InitDictionary(Handler error : Unknown child element - msg)"},
      {"<msg_dictionary><msg no='1'><Tag/></msg></msg_dictionary>", -21,
       "InitDictionary(Handler error : Unknown child element - Tag)"},
      {"<msg_dictionary><caf\xc3\xa9/></msg_dictionary>", -21,    // names are shown in UTF-8
       "InitDictionary(Handler error : Unknown element - caf\xc3\xa9)"},
      {"<msg_dictionary><msg/></msg_dictionary>", -15, "InitDictionary(Handler error : msgnum=0)"},
      {"<msg_dictionary><msg no='x'/></msg_dictionary>", -15, "InitDictionary(Handler error : msgnum=0)"},
      {"<msg_dictionary><msg no='-1'/></msg_dictionary>", -15, "InitDictionary(Handler error : msgnum=-1)"},
      {"<msg_dictionary><msg no='10000'/></msg_dictionary>", -15, "InitDictionary(Handler error : msgnum=10000)"},
      {"<msg_dictionary><msg no='12'/><msg no='12' name='Order'/></msg_dictionary>", -22,
       "InitDictionary(Handler error : msgnum=12,msgname=Order)"},
      {"<msg_dictionary><msg no='1'><tag no='-1' type='string'/></msg></msg_dictionary>", -14,
       "InitDictionary(Handler error : msgnum=1,tagnum=-1)"},
      {"<msg_dictionary><msg no='1'><tag/></msg></msg_dictionary>", -17, "InitDictionary(Handler error : tagtype=)"},
      {"<msg_dictionary><msg no='1'><tag type='%s%n'/></msg></msg_dictionary>", -17,
       "InitDictionary(Handler error : tagtype=%s%n)"},
      {"<msg_dictionary><msg no='1'><tag type='M4'/></msg></msg_dictionary>", -17,
       "InitDictionary(Handler error : tagtype=M4)"},
      {"<msg_dictionary><msg no='1'><tag type='m0'/></msg></msg_dictionary>", -16,
       "InitDictionary(Handler error : submsg=m0)"},
      {"<msg_dictionary><msg no='1'><tag type='m10000'/></msg></msg_dictionary>", -16,
       "InitDictionary(Handler error : submsg=m10000)"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szXml);
    CLoad cLoad(tRow.szXml);
    CHECK(cLoad.Thrown().iCode == tRow.iCode);
    CHECK(cLoad.Thrown().sText == tRow.szText);
    CHECK(cLoad->GetLastError() == std::string());
  }
}

TEST_CASE("what stands before a failure stays") {
  CLoad cLoad("<msg_dictionary><msg no='1' name='First'><tag no='1' type='string'/><tag no='2' type='bad'/></msg>"
              "<msg no='2'/></msg_dictionary>");
  CHECK(cLoad.Thrown().iCode == -17);
  CHECK(Dump(*cLoad) ==
        "<msg no='1' name='First' hash='128'>\n\t<tag no='1' name='' type='string' array='N' />\n</msg>\n\n");
  CLoad cCut("<msg_dictionary><msg no='1' name='First'>");
  CHECK(cCut.Thrown().iCode == -21);
  CHECK(cCut->GetMsgInfo(1) != nullptr);
}

TEST_CASE("what the parser reports stops the loading, with file and place") {
  struct T_Row {
    const char *szXml, *szBefore, *szAfter;
  };
  static const T_Row s_atRow[] = {
      {"", "[F]", " (L:1, C:1) : invalid document structure"},
      {"hello", "[F]", " (L:1, C:1) : invalid document structure"},
      {"<msg_dictionary>\n<msg no='1'>", "[F]",
       " (L:2, C:13) : input ended before all started tags were ended; last tag started is 'msg'"},
      {"<msg_dictionary></msg>", "[F]", " (L:1, C:19) : expected end of tag 'msg_dictionary'"},
      {"<msg_dictionary><msg no='1' no='2'/></msg_dictionary>", "[F]",
       " (L:1, C:37) : attribute 'no' is already specified for element 'msg'"},
      {"<msg_dictionary>&foo;</msg_dictionary>", "[F]", " (L:1, C:22) : entity 'foo' not found"},
      {"<?xml version='1.0' encoding='UTF-16'?><msg_dictionary/>", "[W]",
       " (L:1, C:40) : encoding 'UTF-16' from XML declaration or manually set contradicts the auto-sensed encoding; "
       "ignoring"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szXml);
    CLoad cLoad(tRow.szXml);
    CHECK(cLoad.Thrown().iCode == -21);
    CHECK(cLoad.Thrown().sText ==
          "InitDictionary(Handler error : " + (tRow.szBefore + cLoad.Path("dic.xml")) + tRow.szAfter + ")");
  }
}

TEST_CASE("files that cannot be read") {
  const CTempDir cDir;
  T_Thrown tThrown = LoadFile(cDir.Path("missing.xml"));
  CHECK(tThrown.iCode == -21);
  CHECK(tThrown.sText == "InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document entity '" +
                             cDir.Path("missing.xml") + "')");
  tThrown = LoadFile(cDir.Path());
  CHECK(tThrown.iCode == -21);
  CHECK(tThrown.sText ==
        "InitDictionary(Handler error : [F] (L:0, C:0) : unable to read data from file)");    // a folder
  tThrown = LoadFile("");
  CHECK(tThrown.iCode == -21);
  CHECK(tThrown.sText.find(
            "InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document entity '") == 0);
}

TEST_CASE("a path is taken as it is") {
  const CTempDir cDir;
  const CWorkIn cWorkIn(cDir.Path());
  for (const char* szName : {"dic.xml", "a name with blanks.xml", "%41.xml", "a#b?c.xml", "dic", ".xml", "x.exml.xml",
                             "caf\xc3\xa9.xml", "\xff\xfe.xml", "a&b<c>.xml", "..xml", "c:\\dic.xml"}) {
    CAPTURE(szName);
    const std::string sPath = cDir.Write(szName, s_szQuote);
    CHECK(LoadFile(sPath).sText == "");
    CHECK(LoadFile(szName).sText == "");    // in the current folder
    CHECK(LoadFile(std::string("./") + szName).sText == "");
  }
  // A relative path is shown in full.
  cDir.Write("bad.xml", "<x/");
  CHECK(LoadFile("bad.xml").sText.find("Handler error : [F]" + cDir.Path("bad.xml") + " (L:1") != std::string::npos);
}

TEST_CASE("a path that looks like a URL is a local file") {
  const CSilentPort cPort;
  const CTempDir cDir;
  const CWorkIn cWorkIn(cDir.Path());
  CHECK(LoadFile(cPort.Url()).iCode == -21);
  CHECK_FALSE(cPort.WasCalled());
  CHECK(LoadFile("file://" + cDir.Write("dic.xml", s_szQuote)).iCode == -21);
  const std::string sFolder = cPort.Url().substr(0, cPort.Url().rfind('/'));
  std::filesystem::create_directories(sFolder);
  cDir.Write(cPort.Url(), s_szQuote);
  CHECK(LoadFile(cPort.Url()).sText == "");
  CHECK_FALSE(cPort.WasCalled());
}

TEST_CASE("a file that has gone with its folder is an error like others") {
  auto pDir = std::make_unique<CTempDir>();
  const CWorkIn cWorkIn(pDir->Path());
  pDir.reset();
  const T_Thrown tThrown = LoadFile("dic.xml");
  CHECK(tThrown.iCode == -21);
  CHECK(tThrown.sText.find("InitDictionary(XMLParser internal error : ") == 0);
}

TEST_CASE("encodings that the parser knows") {
  const std::string sHead = "<?xml version='1.0' encoding='", sBody = "'?><msg_dictionary><msg no='3' name='";
  struct T_Row {
    const char *szEncoding, *szName, *szNarrowed;
  };
  static const T_Row s_atRow[] = {
      {"ISO-8859-1", "caf\xe9", "caf\xe9"}, {"UTF-8", "caf\xc3\xa9", "caf\xe9"},
      {"US-ASCII", "caf&#233;", "caf\xe9"}, {"windows-1252", "caf\xe9", "caf\xe9"},
      {"UTF-8", "\xea\xb0\x81", "\x01"},    // U+AC01: the low byte of every character is kept
      {"EUC-KR", "\xb0\xa2", "\x01"},       // the same character
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szEncoding);
    CLoad cLoad(sHead + tRow.szEncoding + sBody + tRow.szName + "'/></msg_dictionary>");
    CHECK(cLoad.Thrown().sText == "");
    REQUIRE(cLoad->GetMsgInfo(3) != nullptr);
    CHECK(cLoad->GetMsgInfo(3)->GetMsgName() == tRow.szNarrowed);
  }
  CLoad cMarked("\xef\xbb\xbf<msg_dictionary><msg no='3'/></msg_dictionary>");
  CHECK(cMarked.Thrown().sText == "");
  std::string sWide("\xff\xfe", 2);
  for (const char c : std::string("<msg_dictionary><msg no='3' name='wide'/></msg_dictionary>")) {
    sWide += c;
    sWide += '\0';
  }
  CLoad cWide(sWide);
  CHECK(cWide.Thrown().sText == "");
  CHECK(cWide->GetMsgInfo(3)->GetMsgName() == "wide");
}

TEST_CASE("long names and texts") {
  const std::string sName(100000, 'n');
  CLoad cLoad("<msg_dictionary><msg no='3' name='" + sName + "' ver='" + sName + "'><tag no='1' name='" + sName +
              "' type='string'/></msg></msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(cLoad->GetMsgInfo(3)->GetMsgName() == sName.c_str());
  CHECK(cLoad->GetMsgInfo(3)->GetTagNumByName(sName.c_str()) == 1);
  CLoad cUnknown("<msg_dictionary><" + sName + "/></msg_dictionary>");
  CHECK(cUnknown.Thrown().sText == "InitDictionary(Handler error : Unknown element - " + sName + ")");
}

TEST_CASE("an encrypted dictionary is loaded") {
  CLoad cLoad(Encrypted(s_szQuote), "dic.exml");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) == s_szQuoteDump);
  CLoad cBare(Encrypted(s_szQuote), ".exml");    // the whole name
  CHECK(cBare.Thrown().sText == "");
}

TEST_CASE("a dictionary that another program has encrypted is loaded") {
  const CTempDir cDir;
  const std::string sPlain = cDir.Write("dic.xml", s_szQuote), sPath = cDir.Path("dic.exml");
  REQUIRE(system(("openssl enc -seed-ecb -provider legacy -provider default -K " CALLORV_SEED_KEY " -e -in " + sPlain +
                  " -out " + sPath).c_str()) == 0);
  CMsgDic cDic;
  cDic.InitDictionary(sPath.c_str());
  CHECK(Dump(cDic) == s_szQuoteDump);
}

TEST_CASE("an encrypted dictionary that cannot be loaded") {
  CLoad cShort("fifteen bytes..", "dic.exml");
  CHECK(cShort.Thrown().iCode == -36);
  CHECK(cShort.Thrown().sText == "InitDictionary(Handler error : File may be corrupted)");

  const CTempDir cDir;
  const T_Thrown tMissing = LoadFile(cDir.Path("%s%n.exml"));
  CHECK(tMissing.iCode == -36);
  CHECK(tMissing.sText == "InitDictionary(Handler error : File not found(" + cDir.Path("%s%n.exml") + "))");

  CLoad cEmpty("", "dic.exml");
  CHECK(cEmpty.Thrown().iCode == -21);
  CHECK(cEmpty.Thrown().sText ==
        "InitDictionary(Handler error : [F]MsgDic.xml (L:1, C:1) : invalid document structure)");

  CLoad cPlain("<msg_dictionary/>                              ", "dic.exml");    // 47 bytes that are not encrypted
  CHECK(cPlain.Thrown().iCode == -36);

  CLoad cWrong(Encrypted("<msg_dictionary><wrong/></msg_dictionary>"), "dic.exml");
  CHECK(cWrong.Thrown().iCode == -21);
  CHECK(cWrong.Thrown().sText == "InitDictionary(Handler error : Unknown element - wrong)");

  CLoad cBroken(Encrypted("<msg_dictionary>"), "dic.exml");
  CHECK(cBroken.Thrown().sText ==
        "InitDictionary(Handler error : [F]MsgDic.xml (L:1, C:17) : input ended before all started tags were ended; "
        "last tag started is 'msg_dictionary')");
}

TEST_CASE("only .exml in lower case means encrypted") {
  for (const char* szName : {"dic.EXML", "dic.Exml", "dic.exml ", "exml", "dicexml", "dic.exml.xml"}) {
    CAPTURE(szName);
    CLoad cPlain(s_szQuote, szName);
    CHECK(cPlain.Thrown().sText == "");
    CLoad cEncrypted(Encrypted(s_szQuote), szName);
    CHECK(cEncrypted.Thrown().iCode == -21);
    CHECK(cEncrypted.Thrown().sText.find("InitDictionary(Handler error : [F]") == 0);
  }
}

TEST_CASE("a document type is accepted") {
  CLoad cLoad(
      "<!DOCTYPE msg_dictionary [<!ELEMENT msg_dictionary ANY><!ENTITY n 'Quote'><!ATTLIST tag array CDATA 'Y'>"
      "<!NOTATION x SYSTEM 'y'>]>"
      "<msg_dictionary><msg no='3' name='&n;'><tag no='1' type='string'/></msg></msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) ==
        "<msg no='3' name='Quote' hash='128'>\n\t<tag no='1' name='' type='string' array='Y' />\n</msg>\n\n");
  CLoad cBare("<!DOCTYPE msg_dictionary><msg_dictionary/>");
  CHECK(cBare.Thrown().sText == "");
  for (const char* szBefore : {"<?xml version='1.0'?>", "<?xml version='1.0'?>\n<!-- a -->", "<?xml version='1.0'?><?a b?>"}) {
    const std::string sXml = szBefore + std::string("<!DOCTYPE msg_dictionary [<!ATTLIST tag array CDATA 'Y'>]><msg_dictionary>"
                                                    "<msg no='3'><tag no='1' type='string'/></msg></msg_dictionary>");
    CLoad cBehind(sXml), cEncrypted(Encrypted(sXml), "dic.exml");
    CHECK(cBehind.Thrown().sText == "");
    CHECK(Dump(*cBehind) ==
          "<msg no='3' name='' hash='128'>\n\t<tag no='1' name='' type='string' array='Y' />\n</msg>\n\n");
    CHECK(cEncrypted.Thrown().sText == "");
    CHECK(Dump(*cEncrypted) == Dump(*cBehind));
  }
}

TEST_CASE("a declaration may be long, and references stand for what they name") {
  CLoad cLoad("<?xml version='1.0'" + std::string(1000, ' ') + "?>" + std::string(1000, '\n') +
              "<msg_dictionary><msg no='&#51;' name='&lt;&amp;'/></msg_dictionary>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK(Dump(*cLoad) == "<msg no='3' name='<&' hash='128'>\n</msg>\n\n");
  CLoad cShort("<?xml version='1.0'?><msg_dictionary><msg no='&#51;' name='&lt;&amp;'/></msg_dictionary>");
  CHECK(Dump(*cShort) == Dump(*cLoad));
}

TEST_CASE("a file that can be read only once is loaded") {
  const CTempDir cDir;
  const std::string sPath = cDir.Path("pipe");
  REQUIRE(mkfifo(sPath.c_str(), 0600) == 0);
  std::thread cWriter([&] { std::ofstream(sPath) << s_szQuote; });
  CMsgDic cDic;
  CHECK(Caught([&] { cDic.InitDictionary(sPath.c_str()); }).sText == "");
  cWriter.join();
  CHECK(Dump(cDic) == s_szQuoteDump);
}

TEST_CASE("nothing that a document type names is ever opened") {
  const CTempDir cDir;
  const CSilentPort cPort;
  const std::string sFile = "file://" + cDir.Write("secret.xml", "<msg no='66' name='secret'/>");
  const std::string sDtd = "file://" + cDir.Write("secret.dtd", "<!ENTITY e '<msg no=\"67\"/>'>");
  const std::string asTarget[] = {sFile, sDtd, cDir.Path("secret.xml"), cPort.Url(), "secret.xml"};
  const CWorkIn cWorkIn(cDir.Path());
  for (const std::string& sTarget : asTarget) {
    // Of a document type that stands elsewhere nothing is known, so nothing can be wrong about its entities.
    const std::string asDoctype[] = {
        "<!DOCTYPE msg_dictionary SYSTEM '" + sTarget + "'>",
        "<!DOCTYPE msg_dictionary PUBLIC 'id' '" + sTarget + "'>",
        "<!DOCTYPE msg_dictionary SYSTEM '" + sTarget + "' [<!ENTITY x 'y'>]>",
    };
    for (const std::string& sDoctype : asDoctype) {
      CAPTURE(sDoctype);
      CLoad cLoad("<?xml version='1.0'?>" + sDoctype + "<msg_dictionary><msg no='3' name='n'/>&e;</msg_dictionary>");
      CHECK(cLoad.Thrown().sText == "");
      CHECK(Dump(*cLoad) == "<msg no='3' name='n' hash='128'>\n</msg>\n\n");
      CHECK_FALSE(cPort.WasCalled());
    }
    const std::string asEntity[] = {
        "<!DOCTYPE msg_dictionary [<!ENTITY e SYSTEM '" + sTarget + "'>]>",
        "<!DOCTYPE msg_dictionary [<!ENTITY e PUBLIC 'id' '" + sTarget + "'>]>",
        "<!DOCTYPE msg_dictionary [<!ENTITY % p SYSTEM '" + sTarget + "'> %p;]>",
        "<!DOCTYPE msg_dictionary [<!ENTITY % p SYSTEM '" + sTarget + "'>]>",
        "<!DOCTYPE msg_dictionary [<!NOTATION n SYSTEM '" + sTarget + "'><!ENTITY u SYSTEM '" + sTarget +
            "' NDATA n>]>",
    };
    for (const std::string& sDoctype : asEntity) {
      CAPTURE(sDoctype);
      CLoad cPlain("<?xml version='1.0'?>" + sDoctype + "<msg_dictionary><msg no='3' name='n'/></msg_dictionary>");
      CLoad cUsed("<?xml version='1.0'?>" + sDoctype + "<msg_dictionary><msg no='3' name='n'/>&e;</msg_dictionary>");
      for (CLoad* pLoad : {&cPlain, &cUsed}) {
        CHECK((*pLoad)->GetMsgInfo(66) == nullptr);
        CHECK((*pLoad)->GetMsgInfo(67) == nullptr);
        CHECK(pLoad->Thrown().sText.find("secret'/") == std::string::npos);
      }
      CHECK(cUsed.Thrown().iCode == -21);
      CHECK_FALSE(cPort.WasCalled());
    }
  }
}

TEST_CASE("schema locations and style sheets are not opened, either") {
  const CSilentPort cPort;
  CLoad cLoad("<?xml-stylesheet href='" + cPort.Url() +
              "'?><msg_dictionary xmlns:x='http://www.w3.org/2001/XMLSchema-instance' x:schemaLocation='u " +
              cPort.Url() + "' x:noNamespaceSchemaLocation='" + cPort.Url() + "'/>");
  CHECK(cLoad.Thrown().sText == "");
  CHECK_FALSE(cPort.WasCalled());
}

TEST_CASE("entities cannot be made to fill the memory") {
  std::string sBomb = "<!DOCTYPE msg_dictionary [<!ENTITY a0 'lol'>";
  for (int i = 1; i < 30; ++i) {
    sBomb += "<!ENTITY a" + std::to_string(i) + " '";
    for (int k = 0; k < 10; ++k) sBomb += "&a" + std::to_string(i - 1) + ";";
    sBomb += "'>";
  }
  sBomb += "]>";
  SUBCASE("nested, in text") {
    CLoad cLoad(sBomb + "<msg_dictionary>&a29;</msg_dictionary>");
    CHECK(cLoad.Thrown().iCode == -21);
  }
  SUBCASE("nested, in an attribute") {
    CLoad cLoad(sBomb + "<msg_dictionary x='&a29;'/>");
    CHECK(cLoad.Thrown().iCode == -21);
  }
  SUBCASE("many references to a long one") {
    std::string sXml = "<!DOCTYPE msg_dictionary [<!ENTITY a '" + std::string(1024, 'x') + "'>]><msg_dictionary>";
    for (int i = 0; i < 20000; ++i) sXml += "&a;";
    CLoad cLoad(sXml + "</msg_dictionary>");
    CHECK(cLoad.Thrown().iCode == -21);
  }
  SUBCASE("one that is too long") {
    CLoad cLoad("<!DOCTYPE msg_dictionary [<!ENTITY a '" + std::string(1025, 'x') + "'>]><msg_dictionary/>");
    CHECK(cLoad.Thrown().iCode == -21);
    CHECK(cLoad.Thrown().sText == "InitDictionary(Handler error : Entity is too long(a))");
  }
  SUBCASE("parameter entities") {
    CLoad cLoad("<!DOCTYPE msg_dictionary [<!ENTITY % p '<!ENTITY a \"x\">'> %p;]><msg_dictionary/>");
    CHECK(cLoad.Thrown().iCode == -21);
    CHECK(cLoad.Thrown().sText == "InitDictionary(Handler error : Parameter entity is not allowed(%p))");
  }
  SUBCASE("attribute defaults, which every element gets") {
    const auto fnDoctype = [](size_t p_iLen) {
      return "<!DOCTYPE msg_dictionary [<!ATTLIST x a CDATA #IMPLIED b CDATA '" + std::string(p_iLen, 'x') +
             "'><!ATTLIST y c CDATA '12345'>]><msg_dictionary/>";
    };
    CLoad cAllowed(fnDoctype(1024 - 7));
    CHECK(cAllowed.Thrown().sText == "");
    CLoad cLoad(fnDoctype(1024 - 6));
    CHECK(cLoad.Thrown().iCode == -21);
    CHECK(cLoad.Thrown().sText == "InitDictionary(Handler error : Attribute defaults are too long(c))");
  }
  SUBCASE("attributes, which the parser goes through at every element") {
    const auto fnDoctype = [](int p_iCount) {
      std::string sXml = "<!DOCTYPE msg_dictionary [<!ATTLIST tag";
      for (int i = 1; i <= p_iCount; ++i) sXml += " a" + std::to_string(i) + " CDATA #IMPLIED";
      return sXml + ">]><msg_dictionary/>";
    };
    CLoad cAllowed(fnDoctype(1024));
    CHECK(cAllowed.Thrown().sText == "");
    CLoad cLoad(fnDoctype(1025));
    CHECK(cLoad.Thrown().iCode == -21);
    CHECK(cLoad.Thrown().sText == "InitDictionary(Handler error : Too many attributes are declared(a1025))");
  }
  SUBCASE("what is allowed") {
    std::string sXml = "<!DOCTYPE msg_dictionary [<!ENTITY a '" + std::string(1024, 'x') + "'>]><msg_dictionary>";
    for (int i = 0; i < 10000; ++i) sXml += "&a;";
    CLoad cLoad(sXml + "&lt;&#65;</msg_dictionary>");
    CHECK(cLoad.Thrown().sText == "");
    CLoad cOneMore(sXml + "&a;</msg_dictionary>");
    CHECK(cOneMore.Thrown().iCode == -21);
  }
  SUBCASE("an entity inside itself") {
    CLoad cLoad("<!DOCTYPE msg_dictionary [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><msg_dictionary>&a;</msg_dictionary>");
    CHECK(cLoad.Thrown().iCode == -21);
  }
}

TEST_CASE("in a dictionary, 1,024 open elements are read, one more is refused") {
  std::string sOpen = "<msg_dictionary><msg no='1'>", sClose = "</msg></msg_dictionary>";
  for (int i = 2; i < 1024; ++i) {
    sOpen += "<constraint>";
    sClose = "</constraint>" + sClose;
  }
  CLoad cLoad(sOpen + sClose);
  CHECK(cLoad.Thrown().sText == "");
  CLoad cDeep(sOpen + "<x/>" + sClose);
  CHECK(cDeep.Thrown().iCode == -21);
  CHECK(cDeep.Thrown().sText == "InitDictionary(Handler error : More than 1024 open elements)");
}

TEST_CASE("a dictionary gives back as many initialisations of the parser as it took") {
  using xercesc::XMLPlatformUtils;
  REQUIRE(XMLPlatformUtils::fgMemoryManager == nullptr);
  {
    CLoad cLoad(s_szQuote);
    Caught([&] { cLoad->InitDictionary(cLoad.Path("dic.xml").c_str()); });
    Caught([&] { cLoad->InitDictionary(cLoad.Path("missing.xml").c_str()); });
    CHECK(XMLPlatformUtils::fgMemoryManager != nullptr);
    {
      CLoad cOther(s_szQuote);
    }
    CHECK(XMLPlatformUtils::fgMemoryManager != nullptr);
  }
  CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
  // A path that is null takes none, and an application's own initialisation is left alone.
  XMLPlatformUtils::Initialize();
  {
    CMsgDic cDic;
    Caught([&] { cDic.InitDictionary(nullptr); });
    CLoad cLoad(s_szQuote);
  }
  CHECK(XMLPlatformUtils::fgMemoryManager != nullptr);
  XMLPlatformUtils::Terminate();
  CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
}

// The parser counts: it is ready until it was terminated as often as it was initialised.
TEST_CASE("every load of a dictionary takes an initialisation of the parser, whatever comes of it") {
  using xercesc::XMLPlatformUtils;
  REQUIRE(XMLPlatformUtils::fgMemoryManager == nullptr);
  const CTempDir cDir;
  {
    CMsgDic cDic;
    cDic.InitDictionary(cDir.Write("one.xml", "<msg_dictionary><msg no='1' name='one'/></msg_dictionary>").c_str());
    cDic.InitDictionary(cDir.Write("two.xml", "<msg_dictionary><msg no='2' name='two'/></msg_dictionary>").c_str());
    CHECK(Caught([&] { cDic.InitDictionary(cDir.Path("two.xml").c_str()); }).iCode == -22);
    CHECK(Caught([&] { cDic.InitDictionary(cDir.Path("missing.xml").c_str()); }).iCode == -21);
    CHECK(Caught([&] { cDic.InitDictionary(nullptr); }).iCode == -12);    // takes none
    for (int i = 1; i <= 4; ++i) {
      CAPTURE(i);
      CHECK(XMLPlatformUtils::fgMemoryManager != nullptr);
      XMLPlatformUtils::Terminate();
    }
    CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
    for (int i = 1; i <= 4; ++i) XMLPlatformUtils::Initialize();
  }
  CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
}

TEST_CASE("an application's own parser outlives every dictionary") {
  using namespace xercesc;
  XMLPlatformUtils::Initialize();
  {
    const std::unique_ptr<SAX2XMLReader> pReader(XMLReaderFactory::createXMLReader());
    class CCount : public DefaultHandler {
     public:
      int m_iElements = 0;
      void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const, const Attributes&) override {
        ++m_iElements;
      }
    } cCount;
    pReader->setContentHandler(&cCount);
    const auto fnParse = [&] {
      static const XMLByte s_abXml[] = {'<', 'a', '>', '<', 'b', '/', '>', '<', '/', 'a', '>'};
      pReader->parse(MemBufInputSource(s_abXml, sizeof(s_abXml), "own", false));
    };
    fnParse();
    {
      CLoad cLoad("<msg_dictionary/>");
      Caught([&] { cLoad->InitDictionary(cLoad.Path("missing.xml").c_str()); });
      fnParse();
    }
    fnParse();
    CHECK(cCount.m_iElements == 6);
  }
  CHECK(XMLPlatformUtils::fgMemoryManager != nullptr);
  XMLPlatformUtils::Terminate();
  CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
}
