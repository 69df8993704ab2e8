// The cells of a message: the slots in which they are found, and the memory in which they stand.
#include "msg/cells.h"

#include <utility>

namespace callorv::detail {

T_MsgExtra& CCells::Extra(CMsg& p_cMsg) {
  if (p_cMsg.m_pExtra == nullptr) p_cMsg.m_pExtra = new T_MsgExtra;
  return *p_cMsg.m_pExtra;
}

CMsgValue* CCells::NewCell(CMsg& p_cMsg, const CTagInfo& p_cTag) {
  CArena*& pArena = p_cMsg.m_pArena;
  if (pArena == nullptr) {    // with room for every tag
    const CMsgInfo& cInfo = *p_cMsg.m_pMsgInfo;
    pArena = CArena::Make(static_cast<size_t>(cInfo.GetNoTags()) * CArena::Rounded(sizeof(CMsgValue)) +
                          cInfo.m_iApart * CArena::Rounded(sizeof(CString)));
  }
  void* p = pArena != nullptr ? pArena->Allocate(sizeof(CMsgValue)) : nullptr;
  if (p == nullptr) return nullptr;
  ++p_cMsg.m_iCells;
  if (p_cTag.m_eType == TAG_SUBMSG) p_cMsg.m_bHasSubs = true;
  if (p_cTag.m_bArray || p_cTag.m_eType == TAG_SUBMSG) p_cMsg.m_bHolds = true;
  auto* pNew = new (p) CMsgValue;
  pNew->m_iTagNum = p_cTag.m_iTagNum;
  pNew->m_eType = p_cTag.m_eType;
  pNew->m_bMulti = p_cTag.m_bArray;
  return pNew;
}

CMsgValue* CCells::SetHashBag(CMsg& p_cMsg, const CTagInfo& p_cTag) {
  if (CMsgValue* pFound = GetHashBag(p_cMsg, p_cTag.m_iTagNum)) return pFound;
  CMsgValue*& pHead = p_cMsg.m_apSlot[ChainOf(p_cTag.m_iTagNum, p_cMsg.m_pMsgInfo->GetHashKey())];
  if (Seldom(pHead != nullptr || p_cMsg.m_pExtra != nullptr)) return ChainCell(p_cMsg, p_cTag);
  return pHead = NewCell(p_cMsg, p_cTag);
}

CMsgValue* CCells::ChainCell(CMsg& p_cMsg, const CTagInfo& p_cTag) {
  CChainIndex<CMsgValue>* pNew = nullptr;
  CChainIndex<CMsgValue>*& pIndex = p_cMsg.m_pExtra != nullptr ? p_cMsg.m_pExtra->pIndex : pNew;
  CMsgValue* pCell = AddToChain(p_cMsg.m_apSlot, pIndex, p_cMsg.m_pMsgInfo->GetHashKey(), p_cTag.m_iTagNum,
                                [&] { return NewCell(p_cMsg, p_cTag); });
  if (pNew != nullptr) {
    try {
      Extra(p_cMsg).pIndex = pNew;
    } catch (const std::bad_alloc&) {
      delete pNew;    // only a short cut
    }
  }
  return pCell;
}

// The messages that offered this one its place hold something now, too, unless it cannot be reached from them any more.
void CCells::FillUp(CMsg& p_cMsg) {
  CMsg* p = &p_cMsg;
  p->m_bEmpty = false;
  while (std::exchange(p->m_bVacant, false) && GetHashBag(*p->m_pOwner, p->m_pCell->m_iTagNum) == p->m_pCell) {
    p = p->m_pOwner;
    p->m_bEmpty = false;
  }
}

}    // namespace callorv::detail
