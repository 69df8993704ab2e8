// The only place that sets up and calls the XML parser.
#include "xml/xml_reader.h"

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>
#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/BinFileInputStream.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/Janitor.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "base/cancel.h"
#include "base/kept.h"
#include "callorv/base/exception.h"
#include "callorv/error/error.h"
#include "xml/reader_memory.h"
#include "xml/sax.h"

namespace callorv::detail {

using namespace xercesc;

static_assert(std::is_same_v<XMLCh, char16_t>);

namespace {

// The parser's own panic handler ends the process; this one lets the application go on.
class CPanic : public PanicHandler {
 public:
  void panic(const PanicReasons p_eReason) override {
    throw CException(getPanicReasonString(p_eReason), MSG_XML_INIT);
  }
};
CPanic s_cPanic;

// The parser's reader, but it tells of every DOCTYPE; the parser's own is silent about one that neither declares nor
// names anything.
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

  // Whether another document will be read as by a new reader: the parser goes on with XML 1.1 where the next one does
  // not say what it is in.
  bool IsAsNew() const { return m_bAsNew; }

 private:
  bool m_bAsNew = true;
};

// A text, not copied.
class CTextSource : public MemBufInputSource {
 public:
  CTextSource(const char* p_pText, size_t p_uLen, const char16_t* p_szName)
      : MemBufInputSource(reinterpret_cast<const XMLByte*>(p_pText), p_uLen, p_szName, false) {
    setCopyBufToStream(false);
  }
};

// A local file, opened by the bytes of its name: nothing that looks like a URL reaches the network, and a name that the
// locale cannot express still opens. Its base loses memory when it finds too little, hence one that knows its blocks.
struct T_SourceMemory {
  CReaderMemory cMemory;
};
class CFileSource : private T_SourceMemory, public LocalFileInputSource {
 public:
  explicit CFileSource(const char* p_szPath)
      : LocalFileInputSource(
            ArrayJanitor<XMLCh>(XMLString::transcode(p_szPath), XMLPlatformUtils::fgMemoryManager).get(), &cMemory),
        m_szPath(p_szPath) {}
  BinInputStream* makeStream() const override {
    auto pFile = std::make_unique<BinFileInputStream>(m_szPath);
    return pFile->getIsOpen() ? pFile.release() : nullptr;
  }

 private:
  const char* m_szPath;
};

// A source whose stream stays its own: the parser loses one, and the file open in it, when it has no memory for its
// reader. So the parser gets a view of it, and deletes that without giving memory back.
class COwningSource : public InputSource {
 public:
  explicit COwningSource(const InputSource& p_cSource) : m_cSource(p_cSource) {}
  const XMLCh* getSystemId() const override { return m_cSource.getSystemId(); }
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

// Readers between two documents: making one costs twice as much as parsing a short reply. Kept only while this library
// holds an initialisation of the parser, so that no reader outlives the parser's tables, and unless a long text has
// left it with long buffers; one without such holds 320 KB.
CKept<T_Reader, 16> s_cKept;
constexpr XMLSize_t KEEP_READER_MAX = 1024 * 1024;    // bytes
std::atomic<int> s_iInits{0};

void KeepReader(CReaderPtr p_pReader) {
  if (p_pReader->cMemory.Held() > KEEP_READER_MAX) return;
  if (s_iInits.load(std::memory_order_relaxed) > 0 && s_cKept.Put(p_pReader.get())) (void)p_pReader.release();
}

// The parser counts a failed initialisation like any other and so takes itself to be ready from then on, but can
// neither be used nor be terminated: both crash. Nothing is asked of it any more.
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
    ThrowBroken(s_szNoMemory);
  } catch (const std::bad_alloc&) {
    ThrowBroken(s_szNoMemory);
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

CTranscoded::CTranscoded(const char16_t* p_sz) : m_sz(XMLString::transcode(p_sz)) {}

CTranscoded::~CTranscoded() { XMLString::release(&m_sz); }

size_t CXmlAttributes::GetCount() const { return static_cast<const Attributes*>(m_pParsers)->getLength(); }

const char16_t* CXmlAttributes::GetName(size_t p_uAt) const {
  return static_cast<const Attributes*>(m_pParsers)->getLocalName(p_uAt);
}

const char16_t* CXmlAttributes::GetValue(size_t p_uAt) const {
  return static_cast<const Attributes*>(m_pParsers)->getValue(p_uAt);
}

void CXmlHandler::GetPlace(int& p_iLine, int& p_iColumn) const {
  p_iLine = static_cast<int>(m_pSax->Place().getLineNumber());
  p_iColumn = static_cast<int>(m_pSax->Place().getColumnNumber());
}

void CXmlHandler::ThrowInternal(const XMLCh* p_szMessage) const {
  throw CException(MSG_XML, "XMLParser internal error%s%s%s", m_tUse.szErrorColon, CNarrow(p_szMessage).Text(),
                   m_tUse.szErrorEnd);
}

template <class SOURCE, class... ARGS>
size_t CXmlHandler::ParseNew(bool p_bKept, const ARGS&... p_args) {
  m_bMakesSource = true;
  const SOURCE cNamed(p_args...);
  m_bMakesSource = false;
  SecurityManager cBounds;
  const COwningSource cSource(cNamed);      // outlives the reader
  CSax cCallbacks(*this);                   // and so do these
  CReaderPtr pReader(p_bKept ? s_cKept.Take() : nullptr);
  if (pReader == nullptr) pReader = std::make_unique<T_Reader>();
  CSaxReader& cReader = *pReader->pSax;
  cReader.setContentHandler(&cCallbacks);
  cReader.setErrorHandler(&cCallbacks);
  cReader.setLexicalHandler(&cCallbacks);
  cReader.setDeclarationHandler(&cCallbacks);
  if (m_tUse.bDoctype) {
    cBounds.setEntityExpansionLimit(MAX_EXPANSIONS);
    cReader.setProperty(XMLUni::fgXercesSecurityManager, &cBounds);
  }
  cReader.parse(cSource);
  const size_t uErrors = cReader.getErrorCount();
  // A reader forgets no prefix and no URI that it ever met; with new ones in every document it would grow without end.
  if (p_bKept && uErrors == 0 && !cCallbacks.HasPrefixes() && cReader.IsAsNew()) KeepReader(std::move(pReader));
  return uErrors;
}

size_t CXmlHandler::ParseText(const char* p_pText, size_t p_uLen, const char16_t* p_szName, bool p_bKept) {
  return ParseNew<CTextSource>(p_bKept, p_pText, p_uLen, p_szName);
}

size_t CXmlHandler::ParseFile(const char* p_szPath) { return ParseNew<CFileSource>(false, p_szPath); }

void CXmlHandler::Parse(const std::function<size_t()>& p_fnParse) const {
  bool bNoMemory = false;
  try {
    const CNoCancel cWhole;    // the parser catches everything, and a cancellation that is caught ends the process
    size_t uErrors = 0;
    try {
      uErrors = p_fnParse();
    } catch (const XMLException& cError) {
      ThrowInternal(cError.getMessage());
    } catch (const SAXException& cError) {
      ThrowInternal(cError.getMessage());
    } catch (const CException& cError) {
      throw CException(cError.GetCode(), "Handler error : %s", cError.GetText());
    }
    if (uErrors > 0) throw CException(MSG_XML, "XMLParser internal error : %d", static_cast<int>(uErrors));
  } catch (const OutOfMemoryException&) {
    bNoMemory = true;
  } catch (const std::bad_alloc&) {    // also for the text of an error
    bNoMemory = true;
  }
  // Only when the others are gone: without memory exceptions stand in the C++ library's reserve of some kilobytes,
  // which loses pieces when they go in another order than they came.
  if (bNoMemory) throw CException(m_bMakesSource ? m_tUse.szNoSource : s_szNoMemory, MSG_MEMORY);
}

}    // namespace callorv::detail
