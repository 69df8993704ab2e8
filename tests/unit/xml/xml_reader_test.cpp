// The parser's failures as exceptions of ours, and its texts as 8-bit texts.
#include "xml/xml_reader.h"

#include <functional>
#include <new>
#include <stdexcept>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/internal/VecAttributesImpl.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>

#include "base/kept.h"
#include "support/test_dic.h"
#include "xml/sax.h"

using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tColon{" : ", " : ", "", "no source", true};     // as for dictionaries
constexpr T_XmlUse s_tNoColon{" ", ": ", "\n", "no source", false};    // as for messages

class CProbe : public CXmlHandler {
 public:
  explicit CProbe(const T_XmlUse& p_tUse) : CXmlHandler(p_tUse) {}
  using CXmlHandler::Parse;
  int m_iDepth = 0, m_iLine = 0, m_iColumn = 0;

  void OnStart(const char16_t*, CXmlAttributes, int p_iDepth) override { m_iDepth = p_iDepth; }
  void OnEnd(const char16_t*, int p_iDepth) override { m_iDepth = -p_iDepth; }
  void OnReport(int p_iLine, int p_iColumn) override { m_iLine = p_iLine, m_iColumn = p_iColumn; }
};

class CPlace : public xercesc::Locator {
 public:
  const XMLCh* getPublicId() const override { return nullptr; }
  const XMLCh* getSystemId() const override { return u"here"; }
  XMLFileLoc getLineNumber() const override { return 3; }
  XMLFileLoc getColumnNumber() const override { return 14; }
};

// Parses a document inside the parsing of another, as often as asked, and keeps every reader.
class CNested : public CXmlHandler {
 public:
  explicit CNested(int p_iLevels) : CXmlHandler(s_tNoColon), m_iLevels(p_iLevels) {}
  int Run() {
    const auto fnParse = [this] { return ParseText("<a/>", 4, u"nested", true); };
    Parse(std::ref(fnParse));
    return m_iParsed;
  }
  void OnStart(const char16_t*, CXmlAttributes, int) override {
    m_iParsed = m_iLevels > 1 ? 1 + CNested(m_iLevels - 1).Run() : 1;
  }

 private:
  int m_iLevels, m_iParsed = 0;
};

// An application's own memory for the parser.
class COwnMemory : public xercesc::MemoryManager {
 public:
  int m_iFailIn = 0;    // the n-th allocation from now on fails

  void* allocate(XMLSize_t p_iSize) override {
    if (m_iFailIn > 0 && --m_iFailIn == 0) throw std::bad_alloc();
    return ::operator new(p_iSize);
  }
  void deallocate(void* p_p) override { ::operator delete(p_p); }
  xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }
};

}    // namespace

TEST_CASE("what is kept is given out once") {
  CKept<int, 3> cKept;
  int aiThing[4] = {};
  CHECK(cKept.Take() == nullptr);
  for (int i = 0; i < 3; ++i) CHECK(cKept.Put(&aiThing[i]));
  CHECK_FALSE(cKept.Put(&aiThing[3]));
  CHECK(cKept.Take() == &aiThing[0]);
  CHECK(cKept.Put(&aiThing[3]));
  for (int i : {3, 1, 2}) CHECK(cKept.Take() == &aiThing[i]);
  CHECK(cKept.Take() == nullptr);
}

TEST_CASE("more documents at once than readers are kept") {    // the leak checker counts
  CLoadedDic cDic;
  CHECK(CNested(40).Run() == 40);
  CHECK(CNested(40).Run() == 40);
}

TEST_CASE("readers are kept until the last initialisation is given back") {
  const auto fnAllocations = [] {
    CFailAlloc cCount;
    cCount.Run([] { CNested(1).Run(); });
    return cCount.GetCount();
  };
  InitializeParser();
  InitializeParser();
  const int iMade = fnAllocations();
  const int iKept = fnAllocations();
  CHECK(iKept < iMade);
  TerminateParser();
  CHECK(fnAllocations() == iKept);
  TerminateParser();
  InitializeParser();
  CHECK(fnAllocations() == iMade);
  TerminateParser();
}

TEST_CASE("a parser that the application has initialised is used, but no reader outlives its use") {
  using xercesc::XMLPlatformUtils;
  XMLPlatformUtils::Initialize();
  {
    CTestDic cDic;
    CMsg cMsg(0, 0, 0, &cDic);
    CHECK(Load(cMsg, "<msg no='120'><t7>1</t7></msg>") == 0);
    CHECK(cMsg.GetArrSize(7) == 1);
  }
  XMLPlatformUtils::Terminate();
  CHECK(XMLPlatformUtils::fgMemoryManager == nullptr);
}

TEST_CASE("an application's own memory for the parser may run out, too") {
  using xercesc::XMLPlatformUtils;
  COwnMemory cMemory;
  XMLPlatformUtils::Initialize("en_US", nullptr, nullptr, &cMemory);
  {
    CTestDic cDic;
    CMsg cMsg(0, 0, 0, &cDic);
    std::string sXml = "<msg no='120'><t7>1</t7></msg>";
    cMemory.m_iFailIn = 1;
    CheckThrows(-11, "Out of memory 0", [&] { cMsg.LoadXml(&sXml[0]); });
    cMemory.m_iFailIn = 5;
    CheckThrows(-11, "XMLParser out of memory", [&] { cMsg.LoadXml(&sXml[0]); });
    CHECK(cMsg.LoadXml(&sXml[0]) == 0);
  }
  XMLPlatformUtils::Terminate();
}

TEST_CASE("what the parser throws becomes a code and a text") {
  CLoadedDic cDic;    // exceptions of the parser need it initialised
  struct T_Row {
    void (*fnThrow)();
    int iCode;
    const char *szColon, *szNoColon;
  };
  static const T_Row s_atRow[] = {
      {[] { throw xercesc::OutOfMemoryException(); }, -11, "XMLParser out of memory", "XMLParser out of memory"},
      {[] { throw std::bad_alloc(); }, -11, "XMLParser out of memory", "XMLParser out of memory"},
      {[] { ThrowXML(xercesc::RuntimeException, xercesc::XMLExcepts::CPtr_PointerIsZero); }, -21,
       "XMLParser internal error : NULL pointer", "XMLParser internal error: NULL pointer\n"},
      {[] { throw xercesc::SAXException("a feature"); }, -21, "XMLParser internal error : a feature",
       "XMLParser internal error: a feature\n"},
      {[] { throw CException(-18, "tagnum=%d", 7); }, -18, "Handler error : tagnum=7", "Handler error : tagnum=7"},
  };
  for (const T_Row& tRow : s_atRow) {
    const auto fnParse = [&tRow]() -> size_t {
      tRow.fnThrow();
      return 0;
    };
    CheckThrows(tRow.iCode, tRow.szColon, [&] { CProbe(s_tColon).Parse(fnParse); });
    CheckThrows(tRow.iCode, tRow.szNoColon, [&] { CProbe(s_tNoColon).Parse(fnParse); });
  }
}

TEST_CASE("errors that the parser only counted are an error") {
  CheckThrows(-21, "XMLParser internal error : 3", [] { CProbe(s_tColon).Parse([] { return 3; }); });
  CheckThrows(-21, "XMLParser internal error : 1", [] { CProbe(s_tNoColon).Parse([] { return 1; }); });
  CProbe(s_tColon).Parse([] { return 0; });
}

TEST_CASE("any other exception passes unchanged") {
  CHECK_THROWS_AS(CProbe(s_tColon).Parse([]() -> size_t { throw std::runtime_error("mine"); }), std::runtime_error);
}

TEST_CASE("a report of any kind is thrown with its place") {
  CLoadedDic cDic;
  const CPlace cPlace;
  const xercesc::SAXParseException cReport(u"what happened", cPlace);
  CProbe cColon(s_tColon), cNoColon(s_tNoColon);
  CSax cColonSax(cColon), cNoColonSax(cNoColon);
  CheckThrows(-21, "[W]here (L:3, C:14) : what happened", [&] { cColonSax.warning(cReport); });
  CHECK(cColon.m_iLine == 3);
  CHECK(cColon.m_iColumn == 14);
  CheckThrows(-21, "[E]here (L:3, C:14) : what happened", [&] { cColonSax.error(cReport); });
  CheckThrows(-21, "[F]here (L:3, C:14) : what happened", [&] { cColonSax.fatalError(cReport); });
  CheckThrows(-21, "[W]here (L:3, C:14) what happened", [&] { cNoColonSax.warning(cReport); });
  CheckThrows(-21, "[E]here (L:3, C:14) what happened", [&] { cNoColonSax.error(cReport); });
  CheckThrows(-21, "[F]here (L:3, C:14) what happened", [&] { cNoColonSax.fatalError(cReport); });
}

TEST_CASE("open elements are counted") {
  CLoadedDic cDic;
  const xercesc::VecAttributesImpl cNone;
  CProbe cProbe(s_tColon);
  CSax cSax(cProbe);
  for (int i = 1; i <= 1024; ++i) {
    cSax.startElement(u"", u"a", u"a", cNone);
    CHECK(cProbe.m_iDepth == i);
  }
  cSax.endElement(u"", u"a", u"a");
  CHECK(cProbe.m_iDepth == -1024);
  cSax.startElement(u"", u"a", u"a", cNone);
  CHECK(cProbe.m_iDepth == 1024);
  CheckThrows(-21, "More than 1024 open elements", [&] { cSax.startElement(u"", u"a", u"a", cNone); });
}

TEST_CASE("wide texts keep the low byte of each unit up to the first that is 0") {
  const auto fnNarrow = [](const std::u16string& p_s) { return std::string(CNarrow(p_s.c_str()).Text()); };
  CHECK(fnNarrow(u"") == "");
  CHECK(fnNarrow(u"abc") == "abc");
  CHECK(fnNarrow(u"\u00e9\u0141\uffff") == "\xe9" "A\xff");
  CHECK(fnNarrow(std::u16string(u"ab\0cd", 5)) == "ab");
  for (size_t iLen : {511u, 512u, 513u, 1024u, 1025u, 5000u}) {
    CHECK(fnNarrow(std::u16string(iLen, u'x')) == std::string(iLen, 'x'));
  }
  CHECK(CNarrow(u"ab\u0100c").View() == "ab");
  CHECK(CNarrow(u"abc", 2).View() == "ab");
}
