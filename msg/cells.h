// The cells of a message: the slots in which they are found, and the memory in which they stand.
#ifndef CALLORV_MSG_CELLS_H
#define CALLORV_MSG_CELLS_H

#include "base/chain_index.h"
#include "dict/arena.h"
#include "msg/msg_value.h"

namespace callorv::detail {

// What few messages need.
struct T_MsgExtra {
  CMsgValue* pAbandoned = nullptr;    // cells in no slot any more, chained by m_pNext: those from before an Init, and
                                      // one for each sub-message that this message made and that was replaced
  CChainIndex<CMsgValue>* pIndex = nullptr;    // made once a slot's chain grows long
};

// Finds and makes cells. A friend of CMsg, as the other classes of its parts.
struct CCells {
  // The tag's definition; null when there is none or the message has none: FailTag says which.
  static const CTagInfo* FindTag(const CMsg& p_cMsg, int p_iTag) {
    const CMsgInfo* pMsgInfo = p_cMsg.m_pMsgInfo;
    if (pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    return FindInChain(pMsgInfo->m_apBucket[ChainOf(p_iTag, pMsgInfo->m_iHashKey)], pMsgInfo->m_pIndex, p_iTag);
  }
  // As a rule the tag's cell: the first one of its slot, if it is that tag's and of this type. Such a tag is defined,
  // and so it need not be looked up.
  static CMsgValue* FirstCell(const CMsg& p_cMsg, int p_iTag, E_TagType p_eType) {
    if (p_cMsg.m_pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    CMsgValue* pCell = p_cMsg.m_apSlot[ChainOf(p_iTag, p_cMsg.m_pMsgInfo->GetHashKey())];
    return pCell != nullptr && pCell->m_iTagNum == p_iTag && pCell->m_eType == p_eType ? pCell : nullptr;
  }
  // For getters: the tag's cell, which has a value of this type; null when there is no such cell: FailGet says why.
  static CMsgValue* FindSet(const CMsg& p_cMsg, int p_iTag, E_TagType p_eType) {
    if (p_cMsg.m_pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    CMsgValue* pCell = GetHashBag(p_cMsg, p_iTag);
    return pCell != nullptr && pCell->m_eType == p_eType && pCell->m_bSet ? pCell : nullptr;
  }

  // The tag's cell, or null.
  static CMsgValue* GetHashBag(const CMsg& p_cMsg, int p_iTag) {
    return FindInChain(p_cMsg.m_apSlot[ChainOf(p_iTag, p_cMsg.m_pMsgInfo->GetHashKey())],
                       Seldom(p_cMsg.m_pExtra != nullptr) ? p_cMsg.m_pExtra->pIndex : nullptr, p_iTag);
  }
  // The tag's cell; a new one, of the tag's type, when there was none. Null when there is no memory for it.
  static CMsgValue* SetHashBag(CMsg& p_cMsg, const CTagInfo& p_cTag);
  static CMsgValue* NewCell(CMsg& p_cMsg, const CTagInfo& p_cTag);    // in no slot yet
  static T_MsgExtra& Extra(CMsg& p_cMsg);    // made on first use; throws std::bad_alloc
  static bool IsVacant(const CMsg& p_cMsg) { return p_cMsg.m_bVacant; }
  // To be called once something was stored: the message is not empty any more.
  static void Fill(CMsg& p_cMsg) {
    if (Seldom(p_cMsg.m_bEmpty)) FillUp(p_cMsg);
  }

 private:
  [[gnu::noinline]] static CMsgValue* ChainCell(CMsg& p_cMsg, const CTagInfo& p_cTag);    // not the first of its slot
  [[gnu::noinline]] static void FillUp(CMsg& p_cMsg);
};

}    // namespace callorv::detail

#endif
