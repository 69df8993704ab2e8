// Shows the elements of a dictionary file to whoever asks.
#include "callorv/dict/dic_reader.h"

#include <vector>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>

#include "callorv/base/exception.h"
#include "dict/msg_dic_handler.h"

using namespace xercesc;

namespace callorv::detail {

class CDicReaderHandler : public CDicFileHandler {
 public:
  explicit CDicReaderHandler(CDicReader& p_cReader) : m_cReader(p_cReader) {}

  void setDocumentLocator(const Locator* const p_pLocator) override { m_pLocator = p_pLocator; }
  void startElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName,
                    const Attributes& p_cAttrs) override;
  void warning(const SAXParseException& p_c) override {
    KeepPlace(p_c);
    CDicFileHandler::warning(p_c);
  }
  void error(const SAXParseException& p_c) override {
    KeepPlace(p_c);
    CDicFileHandler::error(p_c);
  }
  void fatalError(const SAXParseException& p_c) override {
    KeepPlace(p_c);
    CDicFileHandler::fatalError(p_c);
  }

 private:
  CDicReader& m_cReader;
  const Locator* m_pLocator = nullptr;    // the parser's, while it parses
  std::vector<CDicReader::T_Attribute> m_atAttr;

  template <class PLACE>
  void KeepPlace(const PLACE& p_cPlace) {
    m_cReader.m_iLine = static_cast<int>(p_cPlace.getLineNumber());
    m_cReader.m_iColumn = static_cast<int>(p_cPlace.getColumnNumber());
  }
};

namespace {

bool IsCut(const XMLCh* p_sz) {
  for (; *p_sz != 0; ++p_sz) {
    if (*p_sz > 0xff) return true;
  }
  return false;
}

// One initialisation of the parser.
struct T_Parser {
  T_Parser() { InitializeParser(); }
  ~T_Parser() { TerminateParser(); }
  T_Parser(const T_Parser&) = delete;
  T_Parser& operator=(const T_Parser&) = delete;
};

}    // namespace

void CDicReaderHandler::startElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const,
                                     const Attributes& p_cAttrs) {
  const int iDepth = Enter();
  KeepPlace(*m_pLocator);
  m_atAttr.resize(p_cAttrs.getLength());
  for (XMLSize_t i = 0; i < p_cAttrs.getLength(); ++i) {
    m_atAttr[i].sName = CNarrow(p_cAttrs.getLocalName(i)).Text();
    m_atAttr[i].sValue = CNarrow(p_cAttrs.getValue(i)).Text();
    m_atAttr[i].bCut = IsCut(p_cAttrs.getLocalName(i)) || IsCut(p_cAttrs.getValue(i));
  }
  m_cReader.OnElement(iDepth, T_Transcoded(p_szLocalName).psz, m_atAttr.data(), static_cast<int>(m_atAttr.size()));
}

}    // namespace callorv::detail

CDicReader::CDicReader() : m_iLine(0), m_iColumn(0) {}

CDicReader::~CDicReader() = default;

void CDicReader::Read(const char* p_szPath) {
  m_iLine = m_iColumn = 0;
  if (p_szPath == nullptr) throw CException("MsgDic Path", MSG_NULL);
  const callorv::detail::T_Parser tParser;
  callorv::detail::CDicReaderHandler cHandler(*this);
  cHandler.Action(p_szPath);
}
