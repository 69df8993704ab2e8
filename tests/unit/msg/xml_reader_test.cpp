// The parser's failures as exceptions of ours, and its texts as 8-bit texts.
#include "msg/xml_reader.h"

#include <new>
#include <stdexcept>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/RuntimeException.hpp>

#include "unit/msg/test_dic.h"

using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tColon{" : ", " : ", "", true};     // as for dictionaries
constexpr T_XmlUse s_tNoColon{" ", ": ", "\n", false};    // as for messages

class CProbe : public CXmlHandler {
 public:
  explicit CProbe(const T_XmlUse& p_tUse) : CXmlHandler(p_tUse) {}
  using CXmlHandler::Enter;
  using CXmlHandler::Leave;
  using CXmlHandler::Parse;
};

class CPlace : public xercesc::Locator {
 public:
  const XMLCh* getPublicId() const override { return nullptr; }
  const XMLCh* getSystemId() const override { return u"here"; }
  XMLFileLoc getLineNumber() const override { return 3; }
  XMLFileLoc getColumnNumber() const override { return 14; }
};

}    // namespace

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
    const auto fnParse = [&tRow]() -> XMLSize_t {
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
  CHECK_THROWS_AS(CProbe(s_tColon).Parse([]() -> XMLSize_t { throw std::runtime_error("mine"); }), std::runtime_error);
}

TEST_CASE("a report of any kind is thrown with its place") {
  CLoadedDic cDic;
  const CPlace cPlace;
  const xercesc::SAXParseException cReport(u"what happened", cPlace);
  CProbe cColon(s_tColon), cNoColon(s_tNoColon);
  CheckThrows(-21, "[W]here (L:3, C:14) : what happened", [&] { cColon.warning(cReport); });
  CheckThrows(-21, "[E]here (L:3, C:14) : what happened", [&] { cColon.error(cReport); });
  CheckThrows(-21, "[F]here (L:3, C:14) : what happened", [&] { cColon.fatalError(cReport); });
  CheckThrows(-21, "[W]here (L:3, C:14) what happened", [&] { cNoColon.warning(cReport); });
  CheckThrows(-21, "[E]here (L:3, C:14) what happened", [&] { cNoColon.error(cReport); });
  CheckThrows(-21, "[F]here (L:3, C:14) what happened", [&] { cNoColon.fatalError(cReport); });
}

TEST_CASE("open elements are counted") {
  CProbe cProbe(s_tColon);
  for (int i = 1; i <= 1024; ++i) CHECK(cProbe.Enter() == i);
  CHECK(cProbe.Leave() == 1024);
  CHECK(cProbe.Enter() == 1024);
  CheckThrows(-21, "More than 1024 open elements", [&] { cProbe.Enter(); });
}

TEST_CASE("wide texts keep the low byte of each unit up to the first zero") {
  const auto fnNarrow = [](const std::u16string& p_s) { return std::string(CNarrow(p_s.c_str()).Text()); };
  CHECK(fnNarrow(u"") == "");
  CHECK(fnNarrow(u"abc") == "abc");
  CHECK(fnNarrow(u"\u00e9\u0141\uffff") == "\xe9" "A\xff");
  CHECK(fnNarrow(std::u16string(u"ab\0cd", 5)) == "ab");
  for (size_t iLen : {511u, 512u, 513u, 1024u, 1025u, 5000u}) {
    CHECK(fnNarrow(std::u16string(iLen, u'x')) == std::string(iLen, 'x'));
  }
  const CNarrow cInner(u"a\u0100b");    // a low byte of 0 stays inside
  CHECK(std::string(cInner.Text(), 4) == std::string("a\0b\0", 4));
}
