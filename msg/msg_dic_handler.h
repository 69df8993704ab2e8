// Turns the elements of a dictionary file into message and tag definitions.
#ifndef CALLORV_MSG_MSG_DIC_HANDLER_H
#define CALLORV_MSG_MSG_DIC_HANDLER_H

#include "callorv/msg/msg_dic.h"
#include "msg/xml_reader.h"

// Serves one load.
class MsgDicHandler : public callorv::detail::CXmlHandler {
 public:
  explicit MsgDicHandler(CMsgDic* p_pDic);    // borrowed
  // Parses the file; see CMsgDic::InitDictionary. Throws CException.
  void Action(const char* p_szPath);

  void startElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName,
                    const xercesc::Attributes& p_cAttrs) override;
  void endElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName) override;

 private:
  int m_iMsgNum;      // of the latest "msg"
  CMsgDic* m_pDic;
};

#endif
