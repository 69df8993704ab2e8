// The only place that sets up the XML parser.
#include "xml/xml_reader.h"

#include <atomic>
#include <new>
#include <utility>
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
#include "base/kept.h"
#include "base/number.h"
#include "callorv/base/exception.h"
#include "callorv/error/error.h"
#include "xml/reader_memory.h"

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

// The parser's reader, but it tells of every DOCTYPE; the parser's own is silent about one that neither declares nor names
// anything.
class CSaxReader : public SAX2XMLReaderImpl {
 public:
  using SAX2XMLReaderImpl::SAX2XMLReaderImpl;

  void doctypeDecl(const DTDElementDecl& p_cRoot, const XMLCh* const p_szPublic, const XMLCh* const p_szSystem,
                   const bool p_bInternal, const bool p_bExternal) override {
    getLexicalHandler()->startDTD(p_cRoot.getFullName(), p_szPublic, p_szSystem);
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

 private:
  bool m_bAsNew = true;
};

// A source whose stream stays its own: the parser loses one, and the file open in it, when it has no memory for its reader. So
// the parser gets a view of it, and deletes that without giving memory back.
class COwningSource : public InputSource {
 public:
  explicit COwningSource(const InputSource& p_cSource) : m_cSource(p_cSource) {}
  const XMLCh* getSystemId() const override { return m_cSource.getSystemId(); }
  const XMLCh* getEncoding() const override { return m_cSource.getEncoding(); }
  BinInputStream* makeStream() const override {
    m_pStream.reset(m_cSource.makeStream());
    return m_pStream != nullptr ? ::new (m_aView) CView(*m_pStream) : nullptr;
  }

 private:
  class CView : public BinInputStream {
   public:
    explicit CView(BinInputStream& p_cStream) : m_cStream(p_cStream) {}
    static void operator delete(void*) {}
    XMLFilePos curPos() const override { return m_cStream.curPos(); }
    XMLSize_t readBytes(XMLByte* const p_pOut, const XMLSize_t p_uMost) override {
      return m_cStream.readBytes(p_pOut, p_uMost);
    }
    const XMLCh* getContentType() const override { return m_cStream.getContentType(); }

   private:
    BinInputStream& m_cStream;
  };
  const InputSource& m_cSource;
  mutable std::unique_ptr<BinInputStream> m_pStream;
  alignas(CView) mutable unsigned char m_aView[sizeof(CView)] = {};
};

// A reader with the memory that it stands in.
struct T_Reader {
  CReaderMemory cMemory;
  std::unique_ptr<CSaxReader> pSax{new (&cMemory) CSaxReader(&cMemory)};

  T_Reader() {
    static const std::pair<const XMLCh*, bool> s_atFeature[] = {
        {XMLUni::fgSAX2CoreValidation, false},        {XMLUni::fgXercesDynamic, false},
        {XMLUni::fgXercesSchema, false},              {XMLUni::fgXercesSchemaFullChecking, false},
        {XMLUni::fgSAX2CoreNameSpaces, true},         {XMLUni::fgSAX2CoreNameSpacePrefixes, false},
        // nothing outside the document is ever opened
        {XMLUni::fgXercesLoadExternalDTD, false},     {XMLUni::fgXercesDisableDefaultEntityResolution, true},
    };
    for (const auto& tFeature : s_atFeature) pSax->setFeature(tFeature.first, tFeature.second);
  }
};
using CReaderPtr = std::unique_ptr<T_Reader>;

// Readers between two documents: making one costs twice as much as parsing a short reply. Kept only while this library holds
// an initialisation of the parser, so that no reader outlives the parser's tables, and unless a long text has left it with
// long buffers; one without such holds 320 KB.
CKept<T_Reader, 16> s_cKept;
constexpr XMLSize_t KEEP_READER_MAX = 1024 * 1024;    // bytes
std::atomic<int> s_iInits{0};

CReaderPtr TakeReader() {
  CReaderPtr pReader(s_cKept.Take());
  return pReader != nullptr ? std::move(pReader) : std::make_unique<T_Reader>();
}

void KeepReader(CReaderPtr p_pReader) {
  if (p_pReader->cMemory.Held() > KEEP_READER_MAX) return;
  if (s_iInits.load(std::memory_order_relaxed) > 0 && s_cKept.Put(p_pReader.get())) (void)p_pReader.release();
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
    while (T_Reader* pReader = s_cKept.Take()) delete pReader;
  }
  XMLPlatformUtils::Terminate();
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

XMLSize_t CXmlHandler::ParseSource(const InputSource& p_cSource, bool p_bKept) {
  SecurityManager cBounds;
  const COwningSource cSource(p_cSource);    // outlives the reader
  CReaderPtr pReader = p_bKept ? TakeReader() : std::make_unique<T_Reader>();
  CSaxReader& cSax = *pReader->pSax;
  cSax.setContentHandler(this);
  cSax.setErrorHandler(this);
  cSax.setLexicalHandler(this);
  cSax.setDeclarationHandler(this);
  if (m_tUse.bDoctype) {
    cBounds.setEntityExpansionLimit(MAX_EXPANSIONS);
    cSax.setProperty(XMLUni::fgXercesSecurityManager, &cBounds);
  }
  cSax.parse(cSource);
  const XMLSize_t iErrors = cSax.getErrorCount();
  // A reader forgets no prefix and no URI that it ever met; with new ones in every document it would grow without end.
  if (p_bKept && iErrors == 0 && !m_bPrefixes && cSax.IsAsNew()) KeepReader(std::move(pReader));
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
