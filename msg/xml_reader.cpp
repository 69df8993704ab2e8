// The only place that sets up the XML parser.
#include "msg/xml_reader.h"

#include <strings.h>

#include <algorithm>
#include <atomic>
#include <bitset>
#include <new>
#include <utility>
#include <xercesc/internal/VecAttributesImpl.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "base/cancel.h"
#include "base/number.h"
#include "callorv/base/exception.h"
#include "callorv/msg/error.h"
#include "msg/kept.h"
#include "msg/reader_memory.h"

namespace callorv::detail {

using namespace xercesc;

namespace {

// The parser's own panic handler ends the process; this one lets the application go on.
class CPanic : public PanicHandler {
 public:
  void panic(const PanicReasons p_eReason) override {
    throw CException(getPanicReasonString(p_eReason), MSG_XML_INIT);
  }
};
CPanic s_cPanic;

// The parser's reader, but
// - it tells of every DOCTYPE; the parser's own is silent about one that neither declares nor names anything;
// - elements that have no part in namespaces, and texts, go straight to the handler. The parser's own counts prefixes and looks
//   up URIs for each, a tenth of a long document, and no handler here asks for URIs: they get "";
// - the plain one refuses what does have a part in namespaces, as its scanner reads that in another way.
class CSaxReader : public SAX2XMLReaderImpl {
 public:
  CSaxReader(MemoryManager* p_pMemory, bool p_bPlain) : SAX2XMLReaderImpl(p_pMemory), m_bPlain(p_bPlain) {}

  void doctypeDecl(const DTDElementDecl& p_cRoot, const XMLCh* const p_szPublic, const XMLCh* const p_szSystem,
                   const bool p_bInternal, const bool p_bExternal) override {
    if (!p_bInternal && !p_bExternal) getLexicalHandler()->startDTD(p_cRoot.getFullName(), p_szPublic, p_szSystem);
    SAX2XMLReaderImpl::doctypeDecl(p_cRoot, p_szPublic, p_szSystem, p_bInternal, p_bExternal);
  }

  void XMLDecl(const XMLCh* const p_szVersion, const XMLCh* const p_szEncoding, const XMLCh* const p_szStandalone,
               const XMLCh* const p_szActualEncoding) override {
    if (!XMLString::equals(p_szVersion, XMLUni::fgVersion1_0)) m_bAsNew = false;
    SAX2XMLReaderImpl::XMLDecl(p_szVersion, p_szEncoding, p_szStandalone, p_szActualEncoding);
  }

  // Whether another document will be read as by a new reader: the parser goes on with XML 1.1 where the next one does not say
  // what it is in.
  bool IsAsNew() const { return m_bAsNew; }

  void startElement(const XMLElementDecl& p_cDecl, const unsigned int p_uUri, const XMLCh* const p_szPrefix,
                    const RefVectorOf<XMLAttr>& p_cAttrs, const XMLSize_t p_uAttrs, const bool p_bEmpty,
                    const bool p_bRoot) override {
    const bool bStraight = *p_szPrefix == 0 && ArePlain(p_cAttrs, p_uAttrs);
    if (m_bPlain && !bStraight) throw CException("No plain document", MSG_XML);
    m_cStraight[m_uDepth + 1] = bStraight;
    if (bStraight) {
      const XMLCh* szName = p_cDecl.getElementName()->getLocalPart();
      m_cAttrs.setVector(&p_cAttrs, p_uAttrs, nullptr);
      getContentHandler()->startElement(u"", szName, szName, m_cAttrs);
      if (p_bEmpty) getContentHandler()->endElement(u"", szName, szName);    // nobody else ends it
    } else {
      SAX2XMLReaderImpl::startElement(p_cDecl, p_uUri, p_szPrefix, p_cAttrs, p_uAttrs, p_bEmpty, p_bRoot);
    }
    if (!p_bEmpty) ++m_uDepth;
  }

  void endElement(const XMLElementDecl& p_cDecl, const unsigned int p_uUri, const bool p_bRoot,
                  const XMLCh* const p_szPrefix) override {
    if (!m_cStraight[m_uDepth--]) {
      SAX2XMLReaderImpl::endElement(p_cDecl, p_uUri, p_bRoot, p_szPrefix);
      return;
    }
    const XMLCh* szName = p_cDecl.getElementName()->getLocalPart();
    getContentHandler()->endElement(u"", szName, szName);
  }

  // Text outside the root element never comes here.
  void docCharacters(const XMLCh* const p_sz, const XMLSize_t p_uLen, const bool) override {
    getContentHandler()->characters(p_sz, p_uLen);
  }

 private:
  const bool m_bPlain;
  bool m_bAsNew = true;
  unsigned m_uDepth = 0;                                   // of the open elements
  std::bitset<CXmlHandler::MAX_DEPTH + 2> m_cStraight;     // by depth; handlers stop at the first one above MAX_DEPTH
  VecAttributesImpl m_cAttrs;

  static bool ArePlain(const RefVectorOf<XMLAttr>& p_cAttrs, XMLSize_t p_uAttrs) {
    for (XMLSize_t i = 0; i < p_uAttrs; ++i) {
      const XMLAttr& cAttr = *p_cAttrs.elementAt(i);
      const XMLCh* szName = cAttr.getName();
      if (*cAttr.getPrefix() != 0 || (*szName == u'x' && XMLString::equals(szName, XMLUni::fgXMLNSString))) return false;
    }
    return true;
  }
};

// Whether pieces of a document, in turn, may have an element of thousands of attributes: the plain scanner compares each with
// all before it, which in a megabyte takes half a minute. Between such attributes there is no '<' for long, but many a '='.
class CCrowding {
 public:
  bool IsSeenIn(const char* p_p, size_t p_uLen) {
    for (size_t i = 0; i < p_uLen; i += STEP) {
      const std::string_view svStep(p_p + i, std::min<size_t>(STEP, p_uLen - i));
      if (svStep.find('<') != std::string_view::npos) {
        m_iEquals = 0;
        continue;
      }
      for (size_t k = svStep.find('='); k != std::string_view::npos; k = svStep.find('=', k + 1)) {
        if (++m_iEquals > MOST) return true;
      }
    }
    return false;
  }

 private:
  enum { STEP = 4096, MOST = 512 };    // up to 1,900 attributes pass: 10 milliseconds
  int m_iEquals = 0;    // since the last step with a '<'
};

// A source whose stream stays its own: the parser loses one, and the file open in it, when it has no memory for its reader. So
// the parser gets a view of it, and deletes that without giving memory back. The view for the plain reader refuses a document
// that does not begin plainly or is crowded.
class COwningSource : public InputSource {
 public:
  COwningSource(const InputSource& p_cSource, bool p_bPlain) : m_cSource(p_cSource), m_bPlain(p_bPlain) {}
  const XMLCh* getSystemId() const override { return m_cSource.getSystemId(); }
  const XMLCh* getEncoding() const override { return m_cSource.getEncoding(); }
  BinInputStream* makeStream() const override {
    m_pStream.reset(m_cSource.makeStream());
    return m_pStream != nullptr ? ::new (m_aView) CView(*m_pStream, m_bPlain) : nullptr;
  }

 private:
  class CView : public BinInputStream {
   public:
    CView(BinInputStream& p_cStream, bool p_bPlain) : m_cStream(p_cStream), m_bPlain(p_bPlain) {}
    static void operator delete(void*) {}
    XMLFilePos curPos() const override { return m_cStream.curPos(); }
    XMLSize_t readBytes(XMLByte* const p_pOut, const XMLSize_t p_uMost) override {
      const XMLSize_t uLen = m_cStream.readBytes(p_pOut, p_uMost);
      const auto* pBytes = reinterpret_cast<const char*>(p_pOut);
      if (m_bPlain && ((std::exchange(m_bBegin, false) && !BeginsPlainly({pBytes, uLen})) ||
                       m_cCrowding.IsSeenIn(pBytes, uLen))) {
        throw CException("No plain document", MSG_XML);
      }
      return uLen;
    }
    const XMLCh* getContentType() const override { return m_cStream.getContentType(); }

   private:
    BinInputStream& m_cStream;
    const bool m_bPlain;
    bool m_bBegin = true;    // the next bytes are the document's first
    CCrowding m_cCrowding;
  };
  const InputSource& m_cSource;
  const bool m_bPlain;
  mutable std::unique_ptr<BinInputStream> m_pStream;
  alignas(CView) mutable unsigned char m_aView[sizeof(CView)] = {};
};

// Readers that take turns, made when first used, with the memory that they stand in.
struct T_Readers {
  CReaderMemory cMemory;
  std::unique_ptr<CSaxReader> pFull, pPlain;
};
using CReadersPtr = std::unique_ptr<T_Readers>;

std::unique_ptr<CSaxReader> NewReader(CReaderMemory& p_cMemory, bool p_bPlain) {
  static const std::pair<const XMLCh*, bool> s_atFeature[] = {
      {XMLUni::fgSAX2CoreValidation, false},        {XMLUni::fgXercesDynamic, false},
      {XMLUni::fgXercesSchema, false},              {XMLUni::fgXercesSchemaFullChecking, false},
      {XMLUni::fgSAX2CoreNameSpaces, true},         {XMLUni::fgSAX2CoreNameSpacePrefixes, false},
      // nothing outside the document is ever opened
      {XMLUni::fgXercesLoadExternalDTD, false},     {XMLUni::fgXercesDisableDefaultEntityResolution, true},
  };
  std::unique_ptr<CSaxReader> pSax(new (&p_cMemory) CSaxReader(&p_cMemory, p_bPlain));
  for (const auto& tFeature : s_atFeature) pSax->setFeature(tFeature.first, tFeature.second);
  if (p_bPlain) pSax->setProperty(XMLUni::fgXercesScannerName, const_cast<XMLCh*>(XMLUni::fgWFXMLScanner));
  return pSax;
}

// Readers between two documents: making one costs twice as much as parsing a short reply. Kept only while this library holds
// an initialisation of the parser, so that no reader outlives the parser's tables, and unless a long text has left it with
// long buffers; a pair without such holds 320 KB.
CKept<T_Readers, 16> s_cKept;
constexpr XMLSize_t KEEP_READERS_MAX = 1024 * 1024;    // bytes
std::atomic<int> s_iInits{0};

CReadersPtr TakeReaders() {
  CReadersPtr pReaders(s_cKept.Take());
  return pReaders != nullptr ? std::move(pReaders) : std::make_unique<T_Readers>();
}

void KeepReaders(CReadersPtr p_pReaders) {
  if (p_pReaders->cMemory.Held() > KEEP_READERS_MAX) return;
  if (s_iInits.load(std::memory_order_relaxed) > 0 && s_cKept.Put(p_pReaders.get())) (void)p_pReaders.release();
}

// The parser counts a failed initialisation like any other and so takes itself to be ready from then on, but can neither be
// used nor be terminated: both crash. Nothing is asked of it any more.
std::atomic<bool> s_bBroken{false};

[[noreturn]] void ThrowBroken(const char* p_szText) {
  s_bBroken = true;
  throw CException(p_szText, MSG_XML_INIT);
}

}    // namespace

void InitializeParser() {
  if (s_bBroken) throw CException("XMLPlatformUtils::Initialize() has failed before", MSG_XML_INIT);
  const CNoCancel cWhole;
  try {
    XMLPlatformUtils::Initialize(XMLUni::fgXercescDefaultLocale, nullptr, &s_cPanic);
  } catch (const XMLException& cError) {
    ThrowBroken(CNarrow(cError.getMessage()).Text());
  } catch (const OutOfMemoryException&) {
    ThrowBroken("XMLParser out of memory");
  } catch (const std::bad_alloc&) {
    ThrowBroken("XMLParser out of memory");
  } catch (const CException& cError) {    // thrown by CPanic
    ThrowBroken(cError.GetText());
  }
  ++s_iInits;
}

bool IsParserReady() { return XMLPlatformUtils::fgMemoryManager != nullptr && !s_bBroken; }

void TerminateParser() {
  if (--s_iInits == 0) {
    while (T_Readers* pReaders = s_cKept.Take()) delete pReaders;
  }
  XMLPlatformUtils::Terminate();
}

namespace {

// Whether, by an XML declaration, a byte that looks like an ASCII character is one, and every such character is that byte: which
// CCrowding needs to see anything, and UTF-7, say, does not give.
bool KeepsAscii(std::string_view p_svDeclaration) {
  const size_t uKey = p_svDeclaration.find("encoding");
  if (uKey == std::string_view::npos) return true;
  const size_t uQuote = p_svDeclaration.find_first_of("\"'", uKey);
  if (uQuote == std::string_view::npos) return false;
  const std::string_view svName = p_svDeclaration.substr(uQuote + 1);
  const auto fnBegins = [&](std::string_view p_sv) {
    return svName.size() > p_sv.size() && strncasecmp(svName.data(), p_sv.data(), p_sv.size()) == 0;
  };
  return fnBegins("UTF-8") || fnBegins("ISO-8859-") || fnBegins("US-ASCII") || fnBegins("EUC-KR");
}

bool BeginsWithRoot(std::string_view p_svXml) {
  while (!p_svXml.empty() && IsWhite(p_svXml.front())) p_svXml.remove_prefix(1);
  return p_svXml.size() > 1 && p_svXml[0] == '<' && (p_svXml[1] | 0x20) >= 'a' && (p_svXml[1] | 0x20) <= 'z';
}

}    // namespace

bool TakeDeclaration(std::string_view& p_svXml) {
  constexpr size_t MOST = 1000000;    // where the parser divides longer texts depends on what stands before them
  const size_t uLen = strlen(XML_DECLARATION);
  if (p_svXml.size() > MOST || p_svXml.substr(0, uLen) != XML_DECLARATION || !BeginsWithRoot(p_svXml.substr(uLen))) return false;
  p_svXml.remove_prefix(uLen);
  return true;
}

bool BeginsPlainly(std::string_view p_svXml) {
  p_svXml = p_svXml.substr(0, 256);    // a declaration is shorter
  if (TakeDeclaration(p_svXml)) return true;
  const std::string_view svBegin = p_svXml.substr(0, strlen("<?xml version='1.0'"));
  if (svBegin == "<?xml version=\"1.0\"" || svBegin == "<?xml version='1.0'") {
    const size_t uEnd = std::min(p_svXml.find("?>"), p_svXml.size() - 2);
    if (!KeepsAscii(p_svXml.substr(0, uEnd))) return false;
    p_svXml.remove_prefix(uEnd + 2);
  }
  return BeginsWithRoot(p_svXml);
}

int CXmlHandler::Enter() {
  if (++m_iDepth > MAX_DEPTH) throw CException(MSG_XML, "More than %d open elements", static_cast<int>(MAX_DEPTH));
  return m_iDepth;
}

void CXmlHandler::Report(char p_cKind, const SAXParseException& p_c) const {
  throw CException(MSG_XML, "[%c]%s (L:%d, C:%d)%s%s", p_cKind, CNarrow(p_c.getSystemId()).Text(),
                   static_cast<int>(p_c.getLineNumber()), static_cast<int>(p_c.getColumnNumber()), m_tUse.szReportColon,
                   CNarrow(p_c.getMessage()).Text());
}

void CXmlHandler::ThrowInternal(const XMLCh* p_szMessage) const {
  throw CException(MSG_XML, "XMLParser internal error%s%s%s", m_tUse.szErrorColon, CNarrow(p_szMessage).Text(),
                   m_tUse.szErrorEnd);
}

void CXmlHandler::startDTD(const XMLCh* const, const XMLCh* const, const XMLCh* const) {
  if (!m_tUse.bDoctype) throw CException("DOCTYPE is not allowed", MSG_XML);
}

// The parser bounds how many entity references are expanded, but neither how long each is nor parameter entities.
void CXmlHandler::internalEntityDecl(const XMLCh* const p_szName, const XMLCh* const p_szValue) {
  if (*p_szName == '%') throw CException(MSG_XML, "Parameter entity is not allowed(%s)", CNarrow(p_szName).Text());
  if (XMLString::stringLen(p_szValue) > MAX_ENTITY_SIZE) {
    throw CException(MSG_XML, "Entity is too long(%s)", CNarrow(p_szName).Text());
  }
}

// Every element gets the defaults of all its attributes, so a few bytes each could ask for megabytes; those without a default
// take only time.
void CXmlHandler::attributeDecl(const XMLCh* const, const XMLCh* const p_szName, const XMLCh* const, const XMLCh* const,
                                const XMLCh* const p_szDefault) {
  if (++m_iDeclared > MAX_DECLARED) throw CException(MSG_XML, "Too many attributes are declared(%s)", CNarrow(p_szName).Text());
  if (p_szDefault == nullptr) return;
  m_iDefaults += XMLString::stringLen(p_szName) + XMLString::stringLen(p_szDefault);
  if (m_iDefaults > MAX_DEFAULTS) throw CException(MSG_XML, "Attribute defaults are too long(%s)", CNarrow(p_szName).Text());
}

XMLSize_t CXmlHandler::ParseSource(const InputSource& p_cSource, E_Reader p_eReader) {
  SecurityManager cBounds;
  const bool bPlain = p_eReader == READER_PLAIN;
  const COwningSource cSource(p_cSource, bPlain);    // outlives the reader
  CReadersPtr pReaders = p_eReader != READER_FRESH ? TakeReaders() : std::make_unique<T_Readers>();
  std::unique_ptr<CSaxReader>& pSax = bPlain ? pReaders->pPlain : pReaders->pFull;
  if (pSax == nullptr) pSax = NewReader(pReaders->cMemory, bPlain);
  pSax->setContentHandler(this);
  pSax->setErrorHandler(this);
  pSax->setLexicalHandler(this);
  pSax->setDeclarationHandler(this);
  if (m_tUse.bDoctype && !bPlain) {
    cBounds.setEntityExpansionLimit(MAX_EXPANSIONS);
    pSax->setProperty(XMLUni::fgXercesSecurityManager, &cBounds);
  }
  pSax->parse(cSource);
  const XMLSize_t iErrors = pSax->getErrorCount();
  // A reader forgets no prefix and no URI that it ever met; with new ones in every document it would grow without end.
  if (p_eReader != READER_FRESH && iErrors == 0 && !m_bPrefixes && pSax->IsAsNew()) KeepReaders(std::move(pReaders));
  return iErrors;
}

void CXmlHandler::Parse(const std::function<XMLSize_t()>& p_fnParse) const try {
  const CNoCancel cWhole;    // the parser catches everything, and a cancellation that is caught ends the process
  XMLSize_t iErrors = 0;
  try {
    iErrors = p_fnParse();
  } catch (const OutOfMemoryException&) {
    throw CException("XMLParser out of memory", MSG_MEMORY);
  } catch (const XMLException& cError) {
    ThrowInternal(cError.getMessage());
  } catch (const SAXException& cError) {
    ThrowInternal(cError.getMessage());
  } catch (const CException& cError) {
    throw CException(cError.GetCode(), "Handler error : %s", cError.GetText());
  }
  if (iErrors > 0) throw CException(MSG_XML, "XMLParser internal error : %d", static_cast<int>(iErrors));
} catch (const std::bad_alloc&) {    // also for the text of an error
  throw CException("XMLParser out of memory", MSG_MEMORY);
}

}    // namespace callorv::detail
