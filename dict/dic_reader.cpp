// Shows the elements of a dictionary file to whoever asks.
#include "callorv/dict/dic_reader.h"

#include <vector>

#include "callorv/base/exception.h"
#include "dict/msg_dic_handler.h"

namespace callorv::detail {

namespace {

bool IsCut(const char16_t* p_sz) {
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

class CDicReaderHandler : public CDicFileHandler {
 public:
  explicit CDicReaderHandler(CDicReader& p_cReader) : m_cReader(p_cReader) {}

 private:
  CDicReader& m_cReader;
  std::vector<CDicReader::T_Attribute> m_atAttr;

  void OnStart(const char16_t* p_szName, CXmlAttributes p_cAttrs, int p_iDepth) override {
    GetPlace(m_cReader.m_iLine, m_cReader.m_iColumn);
    m_atAttr.resize(p_cAttrs.GetCount());
    for (size_t i = 0; i < m_atAttr.size(); ++i) {
      m_atAttr[i].sName = CNarrow(p_cAttrs.GetName(i)).Text();
      m_atAttr[i].sValue = CNarrow(p_cAttrs.GetValue(i)).Text();
      m_atAttr[i].bCut = IsCut(p_cAttrs.GetName(i)) || IsCut(p_cAttrs.GetValue(i));
    }
    m_cReader.OnElement(p_iDepth, CTranscoded(p_szName).Text(), m_atAttr.data(), static_cast<int>(m_atAttr.size()));
  }
  void OnReport(int p_iLine, int p_iColumn) override {
    m_cReader.m_iLine = p_iLine;
    m_cReader.m_iColumn = p_iColumn;
  }
};

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
