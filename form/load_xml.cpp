// Which of its two readers reads a message's XML.
#include "callorv/msg/msg.h"
#include "form/msg_handler.h"
#include "form/own_form_reader.h"

using namespace callorv::detail;

int CMsg::LoadXml(char* p_szXml) {
  if (p_szXml == nullptr) return MSG_NULL;
  if (IsParserReady() && ReadOwnForm(*this, p_szXml)) return 0;
  MsgHandler cHandler(this, m_pMsgDic);
  cHandler.Action(p_szXml);
  return 0;
}
