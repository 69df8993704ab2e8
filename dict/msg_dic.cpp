// The message dictionary: every message definition of the process.
#include "callorv/dict/msg_dic.h"

#include <new>

#include "base/number.h"
#include "base/text_out.h"
#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "dict/arena.h"
#include "dict/msg_dic_handler.h"
#include "dict/tag_types.h"
#include "xml/xml_reader.h"

using namespace callorv::detail;

namespace {

CMsgDic s_cMsgDic;

void CheckMsgNum(int p_iMsgNum) {
  if (p_iMsgNum < 1 || p_iMsgNum >= CMsgDic::SLOTS) throw CException(MSG_MSG_RANGE, "msgnum=%d", p_iMsgNum);
}

// The type that a type word names; p_iSubMsg receives the sub-message's number, 0 for other types.
E_TagType ParseType(const CString& p_sType, int& p_iSubMsg) {
  p_iSubMsg = 0;
  const char* sz = p_sType.ToStr();
  for (const T_TagType& t : s_atTagType) {
    if (t.bPlain && *sz == *t.szWord && p_sType == t.szWord) return static_cast<E_TagType>(&t - s_atTagType);
  }
  if (!p_sType.StartsWith("m")) throw CException(MSG_TAG_TYPE, "tagtype=%s", sz);
  p_iSubMsg = ParseInt32(sz + 1);
  if (p_iSubMsg < 1 || p_iSubMsg >= CMsgDic::SLOTS) throw CException(MSG_SUBMSG_RANGE, "submsg=%s", sz);
  return TAG_SUBMSG;
}

}    // namespace

bool CMsgDic::m_bLoaded = false;

CMsgDic* MA_GetMsgDic() { return &s_cMsgDic; }

CMsgDic::~CMsgDic() {
  for (CMsgInfo* pMsg : m_apMsg) delete pMsg;
  CArena::FreeList(m_pArena);
  for (; m_iParserInits > 0; --m_iParserInits) TerminateParser();
  CArena::DropKept();
}

void CMsgDic::SetMsgInfo(int p_iMsgNum, const CString& p_sName, const CString& p_sVer, const CString& p_sHash) {
  CheckMsgNum(p_iMsgNum);
  CMsgInfo*& pMsg = m_apMsg[p_iMsgNum];
  if (pMsg != nullptr) throw CException(MSG_DUP_MSG, "msgnum=%d,msgname=%s", p_iMsgNum, p_sName.ToStr());
  try {
    if (m_pArena == nullptr) m_pArena = CArena::Make(0);
    if (m_pArena == nullptr) throw std::bad_alloc();
    pMsg = new CMsgInfo(p_iMsgNum, p_sName.ToStr(), p_sVer.ToStr(), p_sHash.ToInt());
    pMsg->m_pArena = m_pArena;
  } catch (const std::bad_alloc&) {
    throw CException("(CMsgInfo)", MSG_MEMORY);
  }
}

void CMsgDic::SetMsgDetail(int p_iMsgNum, int p_iTagNum, const CString& p_sName, const CString& p_sType,
                           const CString& p_sArray) {
  CheckMsgNum(p_iMsgNum);
  CMsgInfo* pMsg = m_apMsg[p_iMsgNum];
  if (pMsg == nullptr) throw CException(MSG_UNDEF_MSG, "msgnum=%d", p_iMsgNum);
  if (p_iTagNum < 0) throw CException(MSG_TAG_RANGE, "msgnum=%d,tagnum=%d", p_iMsgNum, p_iTagNum);
  int iSubMsg = 0;
  const E_TagType eType = ParseType(p_sType, iSubMsg);
  pMsg->SetTagInfo(p_iTagNum, p_sName.ToStr(), eType, iSubMsg, p_sArray == "Y");
}

void CMsgDic::Dump(CStream* p_pOut) const {
  for (const CMsgInfo* pMsg : m_apMsg) {
    if (pMsg == nullptr) continue;
    CTextOut(*p_pOut).Put(CFormat("<msg no='%d' name='%s' hash='%d'>\n", pMsg->GetMsgNum(), pMsg->GetMsgName().ToStr(),
                                  pMsg->GetHashKey()));
    pMsg->Dump(p_pOut);
    CTextOut(*p_pOut).Put("</msg>\n\n");
  }
}

void CMsgDic::InitDictionary(const char* p_szPath) {
  if (p_szPath == nullptr) throw CException("MsgDic Path", MSG_NULL);
  InitializeParser();
  ++m_iParserInits;
  try {
    MsgDicHandler(this).Action(p_szPath);
  } catch (const CException& cError) {
    throw CException(cError.GetCode(), "InitDictionary(%s)", cError.GetText());
  }
  m_bLoaded = true;
}
