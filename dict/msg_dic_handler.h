// Turns the elements of a dictionary file into message and tag definitions.
#ifndef CALLORV_DICT_MSG_DIC_HANDLER_H
#define CALLORV_DICT_MSG_DIC_HANDLER_H

#include "callorv/dict/msg_dic.h"
#include "xml/xml_reader.h"

namespace callorv::detail {

// Handler base: reads a dictionary file, plain or encrypted.
class CDicFileHandler : public CXmlHandler {
 public:
  // Parses the file; see CMsgDic::InitDictionary. Throws CException.
  void Action(const char* p_szPath);

 protected:
  CDicFileHandler();
};

}    // namespace callorv::detail

// Serves one load.
class MsgDicHandler : public callorv::detail::CDicFileHandler {
 public:
  explicit MsgDicHandler(CMsgDic* p_pDic) : m_iMsgNum(0), m_pDic(p_pDic) {}    // borrowed

 private:
  const CString m_sSingle{"N"};    // what a tag without an "array" attribute has
  int m_iMsgNum;                   // of the latest "msg"
  CMsgDic* m_pDic;

  void OnStart(const char16_t* p_szName, callorv::detail::CXmlAttributes p_cAttrs, int p_iDepth) override;
};

#endif
