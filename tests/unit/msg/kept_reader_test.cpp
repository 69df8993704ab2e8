// A reader that has served other documents must read the next one as a fresh reader would, whatever they were, and both as
// the parser's own reader does.
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "msg/xml_reader.h"
#include "support/valgrind.h"
#include "unit/msg/test_dic.h"

using namespace callorv::detail;

namespace {

#ifdef __SANITIZE_THREAD__    // its record of calls grows by each exception that passes through the parser, to gigabytes
const int MUTANTS = 200;
#else
const int MUTANTS = IsUnderValgrind() ? 200 : 20000;    // there they take more than eight minutes
#endif

constexpr T_XmlUse s_tUse{" ", ": ", "\n", false};

std::string Narrow(const XMLCh* p_sz, XMLSize_t p_uLen) {    // low and high bytes: nothing is lost
  std::string s;
  for (XMLSize_t i = 0; i < p_uLen; ++i) s += {static_cast<char>(p_sz[i]), static_cast<char>(p_sz[i] >> 8)};
  return s;
}
std::string Narrow(const XMLCh* p_sz) { return Narrow(p_sz, std::char_traits<XMLCh>::length(p_sz)); }

// Everything that the parser says about a document, with the place where it says it; but not the URIs of namespaces, which
// no handler asks for.
class CRecorder : public CXmlHandler {
 public:
  CRecorder() : CXmlHandler(s_tUse) {}

  // What happened, and the error that ended it.
  std::string Record(const std::string& p_sXml, E_Reader p_eReader) {
    std::string_view svXml = p_sXml;
    const bool bDeclared = p_eReader == READER_PLAIN && TakeDeclaration(svXml);
    m_uTaken = p_sXml.size() - svXml.size();
    CSource cSource(svXml);
    if (bDeclared) cSource.setEncoding(xercesc::XMLUni::fgISO88591EncodingString);
    return Run([&] { return ParseSource(cSource, p_eReader); });
  }
  // The same with the parser's own reader.
  std::string RecordBare(const std::string& p_sXml) {
    return Run([&] {
      const std::unique_ptr<xercesc::SAX2XMLReader> pReader(xercesc::XMLReaderFactory::createXMLReader());
      pReader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
      pReader->setFeature(xercesc::XMLUni::fgXercesDynamic, false);
      pReader->setFeature(xercesc::XMLUni::fgXercesSchema, false);
      pReader->setContentHandler(this);
      pReader->setErrorHandler(this);
      pReader->parse(CSource(p_sXml));
      return pReader->getErrorCount();
    });
  }
  bool IsWellFormed() const { return m_bWellFormed; }

  void fatalError(const xercesc::SAXParseException& p_c) override {
    CXmlHandler::fatalError({p_c.getMessage(), p_c.getPublicId(), p_c.getSystemId(), p_c.getLineNumber(),
                             p_c.getColumnNumber() + Taken(p_c.getLineNumber())});
  }
  void setDocumentLocator(const xercesc::Locator* const p_pLocator) override { m_pLocator = p_pLocator; }
  void startElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName,
                    const xercesc::Attributes& p_cAttrs) override {
    Enter();
    Event('<', Narrow(p_szLocalName) + '|' + Narrow(p_szQName));
    for (XMLSize_t i = 0; i < p_cAttrs.getLength(); ++i) {
      Event('@', Narrow(p_cAttrs.getLocalName(i)) + '|' + Narrow(p_cAttrs.getQName(i)) + '|' +
                     Narrow(p_cAttrs.getType(i)) + '=' + Narrow(p_cAttrs.getValue(i)));
    }
  }
  void endElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName) override {
    Leave();
    Event('>', Narrow(p_szLocalName) + '|' + Narrow(p_szQName));
  }
  void characters(const XMLCh* const p_sz, const XMLSize_t p_uLen) override { Event('c', Narrow(p_sz, p_uLen)); }
  void ignorableWhitespace(const XMLCh* const p_sz, const XMLSize_t p_uLen) override {
    Event('i', Narrow(p_sz, p_uLen));
  }
  void processingInstruction(const XMLCh* const p_szTarget, const XMLCh* const p_szData) override {
    Event('?', Narrow(p_szTarget) + '|' + Narrow(p_szData));
  }

 private:
  struct CSource : xercesc::MemBufInputSource {
    explicit CSource(std::string_view p_sv)
        : MemBufInputSource(reinterpret_cast<const XMLByte*>(p_sv.data()), p_sv.size(), "MemData", false) {}
  };
  const xercesc::Locator* m_pLocator = nullptr;
  XMLFileLoc m_uTaken = 0;    // characters at the beginning of the first line that the locator does not know of
  std::string m_sEvents;
  bool m_bWellFormed = false;

  template <class F>
  std::string Run(F p_fnParse) {
    try {
      Parse(std::ref(p_fnParse));
      m_bWellFormed = true;
    } catch (const CException& cError) {
      m_sEvents += '!' + std::to_string(cError.GetCode()) + cError.GetText();
    }
    return m_sEvents;
  }
  void Event(char p_cKind, const std::string& p_sText) {
    const XMLFileLoc uLine = m_pLocator->getLineNumber();
    m_sEvents += p_cKind + std::to_string(uLine) + ',' +
                 std::to_string(m_pLocator->getColumnNumber() + Taken(uLine)) + ':' + p_sText + '\n';
  }
  XMLFileLoc Taken(XMLFileLoc p_uLine) const { return p_uLine == 1 ? m_uTaken : 0; }
};

// What documents are made from: the wire form, and what else XML has.
const std::vector<std::string> s_asSeed = {
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"100\" ver=\"1.0\"><t1><![CDATA[text]]></t1>"
    "<t2>42</t2><t3>1.500000000000000e+00</t3><t4>true</t4><t16><t1><![CDATA[a]]></t1></t16></msg>",
    "<?xml version='1.0' encoding='UTF-8'?>\n<msg no='1'>\n  <t1>&lt;&#65;&amp;\xc3\xa4</t1>\n</msg>\n",
    "<msg xmlns='urn:a' xmlns:p='urn:b' no='1'><p:t1 p:x='1' y='2'/><!-- c --><?pi data?></msg>",
    "<msg no='1'><t16><t1 xmlns:p='u'>a</t1><t1 x='1'/><p:t1 xmlns:p='v'/><t2 xmlns=''>b</t2></t16><t1></t1></msg>",
    "<?xml version=\"1.0\" encoding=\"UTF-16LE\"?><msg/>",
    std::string(XML_DECLARATION) + "\n<?xml version='1.0'?><msg/>",
    "<?xml version='1.1' standalone='yes'?><msg no='1'><t1>a&#1;\xc2\x85</t1></msg>",    // not for XML 1.0, as the next not for 1.1
    "<!-- no declaration --><msg no='1'><t1>a\xc2\x86</t1></msg>",
};
const std::vector<std::string> s_asPiece = {
    "<", ">", "</", "/>", "&", "&amp;", "&#0;", "&#x110000;", "<![CDATA[", "]]>", "<!--", "--", "-->", "<?", "?>",
    "<!DOCTYPE msg>", "<!ELEMENT a ANY>", "<?xml version=\"1.0\"?>", " xmlns:q='urn:c'", "q:", "xml:", " no='2'", " xmlns:q=''", "&#1;",
    "\"", "'", "=", "\r\n", "\n", "\t", "<t1>", "</t1>", "</msg>", "<msg>", "encoding='UTF-8'", "\xff\xfe",
    "\xc3", "\x80", "\x01", std::string(1, '\0'), "1.1", "standalone='yes'", std::string(300, 'x')};

template <class T>
const T& OneOf(const std::vector<T>& p_a, std::mt19937& p_cRandom) {
  return p_a[p_cRandom() % p_a.size()];
}

std::string Mutant(std::mt19937& p_cRandom) {
  std::string s = OneOf(s_asSeed, p_cRandom);
  for (unsigned u = p_cRandom() % 4; u > 0; --u) {
    const size_t uAt = p_cRandom() % (s.size() + 1);
    switch (p_cRandom() % 4) {
      case 0: s.insert(uAt, OneOf(s_asPiece, p_cRandom)); break;
      case 1: s.erase(uAt, p_cRandom() % 8); break;
      case 2: s.insert(uAt, s.substr(p_cRandom() % (s.size() + 1), p_cRandom() % 24)); break;
      default: if (uAt < s.size()) s[uAt] = static_cast<char>(p_cRandom());
    }
  }
  return s;
}

}    // namespace

TEST_CASE("a reader that has served other documents, a fresh one and the parser's own read the same") {
  const CLoadedDic cDic;    // readers are kept while the parser is initialised
  std::mt19937 cRandom(20240628);
  int iWellFormed = 0, iPlain = 0, iDifferent = 0;
  for (int i = 0; i < MUTANTS; ++i) {
    const std::string sXml = Mutant(cRandom);
    CRecorder cKept, cFresh, cBare, cPlain;
    const std::string sFresh = cFresh.Record(sXml, READER_FRESH);
    bool bSame = cKept.Record(sXml, READER_KEPT) == sFresh;
    // a DOCTYPE, which is refused, the parser's own reader lets pass
    if (sXml.find("<!DOCTYPE") == std::string::npos) bSame = bSame && cBare.RecordBare(sXml) == sFresh;
    // what fails with the plain reader is read again; what does not fail is read once
    const std::string sPlain = cPlain.Record(sXml, READER_PLAIN);
    if (cPlain.IsWellFormed()) bSame = bSame && sPlain == sFresh;
    iPlain += cPlain.IsWellFormed();
    if (!bSame) {
      ++iDifferent;
      CHECK_MESSAGE(false, sXml);
    }
    iWellFormed += cFresh.IsWellFormed();
  }
  CHECK(iDifferent == 0);
  CHECK(iWellFormed > MUTANTS / 10);    // readers were kept, and
  CHECK(iPlain > MUTANTS / 50);         // plain ones as well, and
  CHECK(iWellFormed < MUTANTS / 2);     // errors were compared
}

TEST_CASE("long documents are read the same by the plain reader") {
  const CLoadedDic cDic;
  const std::string sBegin = s_asSeed[0].substr(0, s_asSeed[0].find('>', 44) + 1);
  const auto fnRepeat = [](int p_iTimes, const std::function<std::string(int)>& p_fnPart) {
    std::string s;
    for (int i = 0; i < p_iTimes; ++i) s += p_fnPart(i);
    return s;
  };
  const auto fnName = [](int p_i) { return "t" + std::to_string(p_i); };
  std::mt19937 cRandom(1);
  const std::string asInside[] = {
      "<t1>" + fnRepeat(300000, [](int) { return "abc \xe4\r\n]] >"; }) + "</t1>",
      "<t1>" + fnRepeat(100000, [](int i) { return (i % 7 != 0 ? "abcdefghi&lt;" : "&#65;") + std::string(i % 3, 'x'); }) + "</t1>",
      "<t1 a='" + fnRepeat(100000, [](int) { return "abc&amp;&#x41;"; }) + "'/>",
      "<t1><![CDATA[" + fnRepeat(300000, [](int) { return "<a>\r\n]] >]>"; }) + "]]></t1>",
      fnRepeat(4000, [&](int i) { return "<" + fnName(i % 2000) + ">x</" + fnName(i % 2000) + ">"; }),
      "<t1" + fnRepeat(300, [&](int i) { return " " + fnName(i) + "='" + std::string(cRandom() % 50, 'v') + "'"; }) + "/>",
      fnRepeat(1000, [&](int i) { return "<" + fnName(i) + ">\n"; }) +
          fnRepeat(1000, [&](int i) { return "</" + fnName(999 - i) + ">"; }),
      // where one part of the parser's buffers ends and the next begins
      fnRepeat(20000, [&](int) {
        const std::string sText(cRandom() % 60, 'x');
        static const char* const s_aszForm[][2] = {{"<t1>", "</t1>"}, {"<t2><![CDATA[", "]]></t2>\r\n"}, {"<!-- ", " -->"},
                                                   {"<?pi ", "?>"},   {"<t3 a='", "'/>"},                {"<t4\t>\r", "</t4 >"}};
        const auto& aszForm = s_aszForm[cRandom() % 6];
        return aszForm[0] + sText + aszForm[1];
      }),
  };
  for (const std::string& sInside : asInside) {
    for (const char* szEnd : {"</msg>", "</msg>\n<!-- end -->", "</msg>x", ""}) {
      CRecorder cFresh, cPlain;
      const std::string sFresh = cFresh.Record(sBegin + sInside + szEnd, READER_FRESH);
      CHECK((cPlain.Record(sBegin + sInside + szEnd, READER_PLAIN) == sFresh));
      CHECK(cPlain.IsWellFormed() == (szEnd[0] != 0 && szEnd[6] != 'x'));
    }
  }
}
