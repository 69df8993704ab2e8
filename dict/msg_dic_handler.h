// Turns the elements of a dictionary file into message and tag definitions.
#ifndef CALLORV_DICT_MSG_DIC_HANDLER_H
#define CALLORV_DICT_MSG_DIC_HANDLER_H

#include <xercesc/util/XMLString.hpp>

#include "callorv/dict/msg_dic.h"
#include "xml/xml_reader.h"

namespace callorv::detail {

// Text of the parser in UTF-8.
struct T_Transcoded {
  char* psz;
  explicit T_Transcoded(const XMLCh* p_sz) : psz(xercesc::XMLString::transcode(p_sz)) {}
  ~T_Transcoded() { xercesc::XMLString::release(&psz); }
  T_Transcoded(const T_Transcoded&) = delete;
  T_Transcoded& operator=(const T_Transcoded&) = delete;
};

// Handler base: reads a dictionary file, plain or encrypted.
class CDicFileHandler : public CXmlHandler {
 public:
  // Parses the file; see CMsgDic::InitDictionary. Throws CException.
  void Action(const char* p_szPath);

  void endElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName) override;

 protected:
  CDicFileHandler();
};

}    // namespace callorv::detail

// Serves one load.
class MsgDicHandler : public callorv::detail::CDicFileHandler {
 public:
  explicit MsgDicHandler(CMsgDic* p_pDic) : m_iMsgNum(0), m_pDic(p_pDic) {}    // borrowed

  void startElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName,
                    const xercesc::Attributes& p_cAttrs) override;

 private:
  const CString m_sSingle{"N"};    // what a tag without an "array" attribute has
  int m_iMsgNum;                   // of the latest "msg"
  CMsgDic* m_pDic;
};

#endif
