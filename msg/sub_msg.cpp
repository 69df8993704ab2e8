// Messages inside messages: handing them over, making them, taking them out.
#include <new>
#include <utility>

#include "callorv/base/exception.h"
#include "callorv/msg/msg.h"
#include "msg/access.h"
#include "msg/cells.h"
#include "msg/owner.h"
#include "msg/prefetch.h"

using namespace callorv::detail;

namespace {

// What a message that is handed over is to its receiver.
enum E_Standing {
  STANDS_NOWHERE,    // free to be taken
  STANDS_HERE,       // in the very single tag already
  STANDS_ELSEWHERE,  // in another place, which would free it as well
  STANDS_AROUND      // the receiver is the message or stands in it
};

enum { NEAR_LEVELS = 64 };    // so many steps up take less time than one through a message with many freed rows

}    // namespace

// ---- places

void COwner::Put(CMsg& p_cSub, CMsg& p_cMsg, CMsgValue& p_cCell) {
  p_cSub.m_pOwner = p_cSub.m_pParent = &p_cMsg;
  p_cSub.m_pCell = &p_cCell;
  p_cSub.m_iRow = 0;
  if (p_cCell.m_bMulti) {
    p_cSub.m_iRow = p_cCell.m_pMsgArr->GetSize() - 1;    // it was appended
  } else {
    p_cCell.m_pMsg = &p_cSub;
    p_cCell.m_bSet = true;
  }
}

void COwner::TakeOut(CMsg& p_cMsg) {
  CMsgValue& cCell = *p_cMsg.m_pCell;
  if (cCell.m_bMulti) {
    cCell.m_pMsgArr->m_apMsg[p_cMsg.m_iRow] = nullptr;
  } else {
    cCell.m_pMsg = nullptr;
    cCell.m_bSet = false;
  }
  p_cMsg.m_pOwner = p_cMsg.m_pParent = nullptr;
  p_cMsg.m_pCell = nullptr;
  p_cMsg.m_bLent = p_cMsg.m_bVacant = false;
}

void COwner::DropLastRow(CMsgValue& p_cCell) {
  p_cCell.m_pMsgArr->m_apMsg[--p_cCell.m_pMsgArr->m_iSize] = nullptr;
  p_cCell.m_bSet = p_cCell.m_pMsgArr->m_iSize > 0;
}

// ---- what stands in a message

// The cell behind p_pCell, the first for null: those in the slots, then those in none. Null behind the last.
const CMsgValue* COwner::NextCell(const CMsg& p_cMsg, const CMsgValue* p_pCell) {
  if (p_pCell != nullptr && p_pCell->m_pNext != nullptr) return p_pCell->m_pNext;
  if (p_pCell == nullptr || CCells::GetHashBag(p_cMsg, p_pCell->m_iTagNum) == p_pCell) {
    const int iSlots = p_cMsg.m_iCells > 0 ? p_cMsg.m_pMsgInfo->GetHashKey() : 0;
    unsigned uSlot = p_pCell != nullptr ? ChainOf(p_pCell->m_iTagNum, iSlots) + 1 : 0;
    for (; uSlot < static_cast<unsigned>(iSlots); ++uSlot) {
      if (p_cMsg.m_apSlot[uSlot] != nullptr) return p_cMsg.m_apSlot[uSlot];
    }
    return p_cMsg.m_pExtra != nullptr ? p_cMsg.m_pExtra->pAbandoned : nullptr;
  }
  return nullptr;
}

// The sub-message behind row p_iRow of p_pCell, or the message's first for a null cell; null behind the last.
const CMsg* COwner::NextSub(const CMsg& p_cMsg, const CMsgValue* p_pCell, int p_iRow) {
  if (!p_cMsg.m_bHasSubs) return nullptr;
  for (;;) {
    if (p_pCell != nullptr && p_pCell->m_eType == TAG_SUBMSG && p_pCell->m_bMulti && p_pCell->m_pMsgArr != nullptr) {
      while (++p_iRow < p_pCell->m_pMsgArr->GetSize()) {
        if (const CMsg* pSub = p_pCell->m_pMsgArr->GetAt(p_iRow)) return pSub;
      }
    }
    p_pCell = NextCell(p_cMsg, p_pCell);
    p_iRow = -1;
    if (p_pCell == nullptr) return nullptr;
    if (p_pCell->m_eType == TAG_SUBMSG && !p_pCell->m_bMulti && p_pCell->m_pMsg != nullptr) return p_pCell->m_pMsg;
  }
}

// The message behind p_pMsg among those within p_cTop, each before what stands in it; null behind the last.
const CMsg* COwner::NextBelow(const CMsg& p_cTop, const CMsg* p_pMsg) {
  const CMsg* pNext = NextSub(*p_pMsg, nullptr, -1);
  for (; pNext == nullptr && p_pMsg != &p_cTop; p_pMsg = p_pMsg->m_pOwner) {
    pNext = NextSub(*p_pMsg->m_pOwner, p_pMsg->m_pCell, p_pMsg->m_iRow);
  }
  return pNext;
}

// Goes up from the message. Where that is far, it also goes through all that stands in p_cTop, at the same pace: when
// nothing is left there, the message is further down than p_cTop goes, and so elsewhere. The shorter way decides: so a
// tree is built in about linear time whether it grows inwards or outwards.
bool COwner::IsWithin(const CMsg& p_cMsg, const CMsg& p_cTop) {
  if (!p_cTop.m_bHasSubs) return &p_cMsg == &p_cTop;
  const CMsg* pUp = &p_cMsg;
  const CMsg* pBelow = &p_cTop;
  for (int i = 0; pUp != nullptr && pUp != &p_cTop && pBelow != nullptr; ++i) {
    pUp = pUp->m_pOwner;
    if (i >= NEAR_LEVELS) pBelow = NextBelow(p_cTop, pBelow);
  }
  return pUp == &p_cTop;
}

// ---- storing

int COwner::SetSub(CMsg& p_cMsg, int p_iTag, CMsg* p_pSub) {
  if (p_pSub == nullptr) return p_cMsg.Fail(MSG_NULL, "%s", "");
  const CTagInfo* pTag = CCells::FindTag(p_cMsg, p_iTag);
  CMsgValue* pCell = pTag != nullptr ? CCells::GetHashBag(p_cMsg, p_iTag) : nullptr;
  const bool bHere = pCell != nullptr && pCell->m_eType == TAG_SUBMSG && !pCell->m_bMulti && pCell->m_pMsg == p_pSub;
  const E_Standing eStanding = bHere                         ? STANDS_HERE
                               : p_pSub->m_pOwner != nullptr ? STANDS_ELSEWHERE
                               : IsWithin(p_cMsg, *p_pSub)   ? STANDS_AROUND
                                                             : STANDS_NOWHERE;
  if (p_pSub->m_bEmpty && eStanding == STANDS_NOWHERE) {
    delete p_pSub;
    return 0;
  }
  if (const int iRet = CAccess::CheckSet(p_cMsg, p_iTag, pTag, TAG_SUBMSG, s_tLines<CMsg*>.iSet)) return iRet;
  if (eStanding == STANDS_ELSEWHERE || eStanding == STANDS_AROUND) {
    return p_cMsg.Fail(MSG_INPUT, "tagnum=%d,msgnum=%d", p_iTag, p_cMsg.m_iMsgNum);
  }

  // First whatever may fail: then nothing was handed over.
  if (pCell == nullptr) pCell = CCells::SetHashBag(p_cMsg, *pTag);
  if (pCell == nullptr) return CAccess::FailMemory(p_cMsg, "new CMsgValue failed");
  CMsg* pReplaced = pCell->m_bMulti || eStanding == STANDS_HERE ? nullptr : pCell->m_pMsg;
  CMsgValue* pAside = nullptr;    // for one that this message made, and so must free
  if (pCell->m_bMulti) {
    if (const char* szWhy = CAccess::Append<CMsg*>(*pCell, p_pSub)) return CAccess::FailMemory(p_cMsg, szWhy);
  } else if (pReplaced != nullptr && pReplaced->m_bMade) {
    pAside = SetAside(p_cMsg, *pTag);
    if (pAside == nullptr) return CAccess::FailMemory(p_cMsg, "new CMsgValue failed");
  }
  const int iListed = p_cMsg.AddChild(p_pSub);
  if (iListed != 0) {    // it is stored all the same, but the caller is told that it was not taken
    try {
      p_cMsg.Fail(iListed, "tagnum=%d,msgnum=%d", p_iTag, p_cMsg.m_iMsgNum);
    } catch (...) {
      if (pCell->m_bMulti) DropLastRow(*pCell);
      throw;
    }
  }
  if (pReplaced != nullptr) {
    TakeOut(*pReplaced);
    if (pAside != nullptr) {
      Put(*pReplaced, p_cMsg, *pAside);
      pReplaced->m_pParent = nullptr;
    }
  }
  Put(*p_pSub, p_cMsg, *pCell);
  p_pSub->m_iRootNum = p_cMsg.m_iRootNum;
  p_pSub->m_bLent = iListed != 0;
  if (iListed != 0) return iListed;
  if (!p_pSub->m_bVacant) CCells::Fill(p_cMsg);    // one that stood here may be
  return 0;
}

// A cell in no slot; null when there is no memory for it.
CMsgValue* COwner::SetAside(CMsg& p_cMsg, const CTagInfo& p_cTag) {
  try {
    T_MsgExtra& tExtra = CCells::Extra(p_cMsg);
    CMsgValue* pCell = CCells::NewCell(p_cMsg, p_cTag);
    if (pCell == nullptr) return nullptr;
    --p_cMsg.m_iCells;
    pCell->m_pNext = std::exchange(tExtra.pAbandoned, pCell);
    return pCell;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int CMsg::AddChild(CMsg* p_pSub) {
  try {
    if (m_pChildren == nullptr) m_pChildren = new CMsgArray(false);
    const int iRet = m_pChildren->Add(p_pSub);
    return iRet < 0 ? iRet : 0;
  } catch (const std::bad_alloc&) {
    return MSG_MEMORY;
  }
}

// ---- making

CMsg* COwner::Construct(CMsg& p_cMsg, int p_iMsgNum, int p_iRootNum, int p_iTag) {
  void* p = p_cMsg.m_pArena->Allocate(sizeof(CMsg));    // in which the tag's cell is already
  if (p == nullptr) return nullptr;
  CMsg* pSub = new (p) CMsg(p_iMsgNum, p_iRootNum, p_iTag, p_cMsg.m_pMsgDic);
  pSub->m_pArena = p_cMsg.m_pArena;
  pSub->m_bSharesArena = true;
  pSub->m_bMade = true;
  return pSub;
}

int COwner::NewSub(CMsg& p_cMsg, int p_iTag, CMsg*& p_pSub) {
  const CTagInfo* pTag = CCells::FindTag(p_cMsg, p_iTag);
  if (const int iRet = CAccess::CheckSet(p_cMsg, p_iTag, pTag, TAG_SUBMSG, s_tLines<CMsg*>.iSet)) return iRet;
  CMsgValue* pCell = CCells::GetHashBag(p_cMsg, p_iTag);
  if (pCell != nullptr && !pCell->m_bMulti && pCell->m_pMsg != nullptr) {
    p_pSub = pCell->m_pMsg;
    return 0;
  }
  try {
    Definition(*p_cMsg.m_pMsgDic, pTag->m_iSubMsg, p_cMsg.m_iRootNum);
  } catch (const CException& cError) {
    return p_cMsg.Fail(cError.GetCode(), "%s", cError.GetText());
  }
  if (pCell == nullptr) pCell = CCells::SetHashBag(p_cMsg, *pTag);
  if (pCell == nullptr) return CAccess::FailMemory(p_cMsg, "new CMsgValue failed");
  CMsg* pSub = Construct(p_cMsg, pTag->m_iSubMsg, p_cMsg.m_iRootNum, p_iTag);
  if (pSub == nullptr) return CAccess::FailMemory(p_cMsg, "new CMsg failed");
  if (pCell->m_bMulti) {
    CPrefetch::Next(*pCell, pSub);
    if (const char* szWhy = CAccess::Append<CMsg*>(*pCell, pSub)) return CAccess::FailMemory(p_cMsg, szWhy);
  }
  if (const int iListed = p_cMsg.AddChild(pSub)) {
    if (pCell->m_bMulti) DropLastRow(*pCell);
    return p_cMsg.Fail(iListed, "tagnum=%d,msgnum=%d", p_iTag, p_cMsg.m_iMsgNum);
  }
  Put(*pSub, p_cMsg, *pCell);
  pSub->m_bVacant = true;
  p_pSub = pSub;
  return 0;
}

CMsg* COwner::MakeSub(CMsg& p_cMsg, int p_iTag) {
  if (p_cMsg.m_pMsgInfo == nullptr) {
    throw CException(MSG_UNDEF_MSG, "tagnum=%d,submsgnum=%d", p_iTag, p_cMsg.m_iMsgNum);
  }
  const CTagInfo* pTag = p_cMsg.m_pMsgInfo->GetTagInfo(p_iTag);
  if (pTag == nullptr) throw CException(MSG_UNDEF_TAG, "tagnum=%d", p_iTag);
  if (pTag->m_eType != TAG_SUBMSG) {
    throw CException(MSG_TAG_TYPE, "tagnum=%d,type=%d", p_iTag, static_cast<int>(pTag->m_eType));
  }
  CMsgValue& cCell = CAccess::ParsedCell(p_cMsg, *pTag);
  if (cCell.m_bMulti && cCell.m_pMsgArr == nullptr) {    // there before its first row, which perhaps cannot be made
    cCell.m_pMsgArr = new (std::nothrow) CMsgArray(true);
    if (cCell.m_pMsgArr == nullptr) throw CException(ValueTraits<CMsg*>::szNewArray, MSG_MEMORY);
    cCell.m_bSet = true;
  }
  CMsg* pSub = cCell.m_bMulti ? nullptr : cCell.m_pMsg;
  if (pSub == nullptr) {
    pSub = Construct(p_cMsg, pTag->m_iSubMsg, p_cMsg.m_iMsgNum, p_iTag);
    if (pSub == nullptr) throw CException(cCell.m_bMulti ? "new CMsg1 failed" : "new CMsg2 failed", MSG_MEMORY);
    if (pSub->m_pMsgInfo == nullptr && !cCell.m_bMulti) pSub->Init(pTag->m_iSubMsg, 0, 0);    // says what is wrong
    if (cCell.m_bMulti) {
      CPrefetch::Next(cCell, pSub);
      if (const char* szWhy = CAccess::Append<CMsg*>(cCell, pSub)) throw CException(szWhy, MSG_MEMORY);
    }
    Put(*pSub, p_cMsg, cCell);
  }
  pSub->m_pParent = &p_cMsg;
  pSub->m_bVacant = false;    // what was read is written, though it be empty
  if (const int iRet = p_cMsg.AddChild(pSub)) {
    throw CException(iRet, "tagnum=%d,msgnum=%d", p_iTag, p_cMsg.m_iMsgNum);
  }
  CCells::Fill(p_cMsg);
  return pSub;
}

int CMsg::NewSub(int p_iTag, CMsg** p_ppOut) {
  if (p_ppOut == nullptr) return CAccess::FailOutput(*this);
  *p_ppOut = nullptr;
  return COwner::NewSub(*this, p_iTag, *p_ppOut);
}
CMsg* CMsg::NewSub(int p_iTag) {
  CMsg* pSub = nullptr;
  COwner::NewSub(*this, p_iTag, pSub);
  return pSub;
}
CMsg* CMsg::NewSub(const char* p_szName) {
  CMsg* pSub = nullptr;
  CAccess::ByName(*this, p_szName, [&](int p_iTag) { return COwner::NewSub(*this, p_iTag, pSub); });
  return pSub;
}
CMsg* CMsg::MakeSubMsgEntry(int p_iTag) { return COwner::MakeSub(*this, p_iTag); }
