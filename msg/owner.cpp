// How a message begins and ends, and who frees what.
#include <algorithm>
#include <cstring>
#include <utility>

#include "callorv/base/exception.h"
#include "callorv/msg/msg.h"
#include "msg/cells.h"
#include "msg/owner.h"
#include "msg/prefetch.h"

using namespace callorv::detail;

static_assert(CMsg::SLOTS == CHAINS);

namespace {

// What a message that was cleared keeps for its next values, in bytes.
constexpr size_t KEPT_MEMORY = 256 * 1024;

}    // namespace

CMsg::CMsg(int p_iMsgNum, int p_iRootNum, int p_iParentTag, CMsgDic* p_pDic)
    : m_iRootNum(0), m_iMsgNum(0), m_iParentTag(0), m_bEmpty(true), m_szVer(), m_pParent(nullptr), m_pChildren(nullptr),
      m_pMsgDic(p_pDic), m_pMsgInfo(nullptr), m_pOwner(nullptr), m_pCell(nullptr), m_iRow(0), m_bMade(false),
      m_bLent(false), m_bVacant(false), m_bSharesArena(false), m_bHolds(false), m_bHasSubs(false), m_iCells(0),
      m_pArena(nullptr), m_pExtra(nullptr) {
  if (p_pDic == nullptr) throw CException("CMsg: Parameter is NULL", MSG_NULL);
  if (p_iMsgNum >= 1) Init(p_iMsgNum, p_iRootNum, p_iParentTag);
}

CMsg::~CMsg() {
  if (m_pOwner != nullptr) COwner::TakeOut(*this);    // freed by the application
  m_iRootNum = 0;
  m_iMsgNum = 0;
  m_pParent = nullptr;
  COwner::FreeContents(*this);
}

CMsgInfo* COwner::Definition(CMsgDic& p_cDic, int p_iMsgNum, int p_iRootNum) {
  if (p_iMsgNum < 1 || p_iMsgNum >= CMsgDic::SLOTS) throw CException(MSG_MSG_RANGE, "1.msgnum=%d", p_iMsgNum);
  if (p_iRootNum >= CMsgDic::SLOTS) throw CException(MSG_MSG_RANGE, "2.msgnum=%d", p_iRootNum);
  CMsgInfo* pMsgInfo = p_cDic.GetMsgInfo(p_iMsgNum);
  if (pMsgInfo == nullptr) throw CException(MSG_UNDEF_MSG, "3.msgnum=%d", p_iMsgNum);
  return pMsgInfo;
}

void CMsg::Init(int p_iMsgNum, int p_iRootNum, int p_iParentTag) {
  const int iRootNum = p_iRootNum > 0 ? p_iRootNum : p_iMsgNum;
  CMsgInfo* pMsgInfo = COwner::Definition(*m_pMsgDic, p_iMsgNum, iRootNum);
  COwner::Abandon(*this);
  m_iRootNum = iRootNum;
  m_iMsgNum = p_iMsgNum;
  m_iParentTag = p_iParentTag;
  m_pParent = nullptr;
  m_pMsgInfo = pMsgInfo;
  std::fill_n(m_apSlot, pMsgInfo->GetHashKey(), nullptr);    // no other slot is ever looked at
}

void CMsg::Clear() { COwner::Clear(*this); }

char* CMsg::SetVer(const CString& p_sVer) {
  strncpy(m_szVer, p_sVer.ToStr(), VER_SIZE - 1);    // the last byte stays the terminator
  return m_szVer;
}

CMsg* MA_NewMsg(int p_iMsgNum) {
  try {
    return new CMsg(p_iMsgNum > 0 ? p_iMsgNum : 0, 0, 0, MA_GetMsgDic());
  } catch (const CException&) {
    return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void MA_FreeMsg(CMsg* p_pMsg) { COwner::Free(p_pMsg); }

void COwner::Free(CMsg* p_pMsg) {
  if (p_pMsg != nullptr && !p_pMsg->m_bMade) delete p_pMsg;
}

void COwner::Destroy(CMsg& p_cMsg) {
  if (p_cMsg.m_bMade) {
    p_cMsg.~CMsg();
  } else {
    delete &p_cMsg;
  }
}

// p_fn(cell) for every cell in the slots, which are empty afterwards.
template <class F>
void COwner::TakeCells(CMsg& p_cMsg, F p_fn) {
  for (CMsgValue** ppHead = p_cMsg.m_apSlot; p_cMsg.m_iCells > 0; ++ppHead) {
    for (; *ppHead != nullptr; --p_cMsg.m_iCells) p_fn(std::exchange(*ppHead, (*ppHead)->m_pNext));
  }
}

void COwner::Abandon(CMsg& p_cMsg) {
  if (p_cMsg.m_iCells > 0) {
    T_MsgExtra& tExtra = CCells::Extra(p_cMsg);
    TakeCells(p_cMsg, [&](CMsgValue* p_pCell) { p_pCell->m_pNext = std::exchange(tExtra.pAbandoned, p_pCell); });
    delete std::exchange(tExtra.pIndex, nullptr);
  }
  delete std::exchange(p_cMsg.m_pChildren, nullptr);    // a list of borrowed pointers
}

void COwner::Release(CMsg& p_cMsg, CMsg*& p_pList, CArena*& p_pArenas) {
  const auto fnList = [&p_pList](CMsg* p_pSub) {
    if (p_pSub == nullptr) return;
    if (Seldom(p_pSub->m_bLent)) return TakeOut(*p_pSub);
    p_pSub->m_pOwner = nullptr;    // so that it does not take itself out
    if (!p_pSub->m_bHolds && p_pSub->m_pExtra == nullptr) {    // it has no sub-messages
      Destroy(*p_pSub);
    } else {
      p_pSub->m_pOwner = std::exchange(p_pList, p_pSub);
    }
  };
  const auto fnFree = [&](CMsgValue* p_pCell) {
    if (p_pCell->m_eType == TAG_SUBMSG) {
      if (!p_pCell->m_bMulti) {
        fnList(p_pCell->m_pMsg);
      } else if (p_pCell->m_pMsgArr != nullptr) {
        for (int i = 0; i < p_pCell->m_pMsgArr->GetSize(); ++i) {
          CPrefetch::Row(*p_pCell->m_pMsgArr, i + 2 * CPrefetch::ROWS_AHEAD);
          fnList(p_pCell->m_pMsgArr->GetAt(i));
        }
        p_pCell->m_pMsgArr->SetAdoptFlag(false);
      }
    }
    p_pCell->~CMsgValue();
  };
  delete std::exchange(p_cMsg.m_pChildren, nullptr);
  if (p_cMsg.m_bHolds) TakeCells(p_cMsg, fnFree);
  if (T_MsgExtra* pExtra = std::exchange(p_cMsg.m_pExtra, nullptr)) {
    for (CMsgValue* p = pExtra->pAbandoned; p != nullptr;) fnFree(std::exchange(p, p->m_pNext));
    delete pExtra->pIndex;
    delete pExtra;
  }
  CArena* pArena = std::exchange(p_cMsg.m_pArena, nullptr);
  if (pArena != nullptr && !p_cMsg.m_bSharesArena) pArena->pNext = std::exchange(p_pArenas, pArena);
}

void COwner::FreeContents(CMsg& p_cMsg) {
  CMsg* pList = nullptr;
  CArena* pArenas = nullptr;    // freed last: messages of the list may stand in them
  Release(p_cMsg, pList, pArenas);
  while (pList != nullptr) {    // not nested: the depth is the caller's choice, the stack is not
    CMsg* pSub = std::exchange(pList, pList->m_pOwner);
    pSub->m_pOwner = nullptr;
    Release(*pSub, pList, pArenas);
    Destroy(*pSub);
  }
  CArena::FreeList(pArenas);
}

void COwner::Clear(CMsg& p_cMsg) {
  // Memory that is the owner's cannot be given back alone, so that the message gets an arena of its own from here on.
  CArena* pKept = std::exchange(p_cMsg.m_bSharesArena, false) ? nullptr : p_cMsg.m_pArena;
  p_cMsg.m_pArena = nullptr;
  FreeContents(p_cMsg);
  if (pKept != nullptr) pKept->Reset(KEPT_MEMORY);
  p_cMsg.m_pArena = pKept;
  if (p_cMsg.m_pMsgInfo != nullptr) std::fill_n(p_cMsg.m_apSlot, p_cMsg.m_pMsgInfo->GetHashKey(), nullptr);
  p_cMsg.m_iCells = 0;
  p_cMsg.m_bHolds = false;
  p_cMsg.m_bHasSubs = false;
  p_cMsg.m_bEmpty = true;
  p_cMsg.m_bVacant = p_cMsg.m_pOwner != nullptr;
  memset(p_cMsg.m_szVer, 0, sizeof(p_cMsg.m_szVer));
  p_cMsg.DropLastError();
}

COwner::T_Trial COwner::BeginRead(CMsg& p_cMsg) {
  // While it does not count as empty, nothing that is stored makes its owners count as filled.
  return {std::exchange(p_cMsg.m_bEmpty, false), std::exchange(p_cMsg.m_bVacant, false),
          p_cMsg.m_pArena != nullptr ? p_cMsg.m_pArena->Mark() : CArena::T_Mark{}};
}

void COwner::EndRead(CMsg& p_cMsg, const T_Trial& p_tTrial, bool p_bGood) {
  p_cMsg.m_bEmpty = p_tTrial.bEmpty;
  p_cMsg.m_bVacant = p_tTrial.bVacant;
  if (p_bGood) {
    if (p_cMsg.m_iCells > 0) CCells::Fill(p_cMsg);
    return;
  }
  // All goes but what was there before: abandoned cells, and the arena.
  T_MsgExtra* pExtra = std::exchange(p_cMsg.m_pExtra, nullptr);
  if (pExtra != nullptr) delete std::exchange(pExtra->pIndex, nullptr);
  CArena* pArena = std::exchange(p_cMsg.m_pArena, nullptr);
  FreeContents(p_cMsg);
  std::fill_n(p_cMsg.m_apSlot, p_cMsg.m_pMsgInfo->GetHashKey(), nullptr);
  p_cMsg.m_iCells = 0;
  p_cMsg.m_pExtra = pExtra;
  if (p_tTrial.tMark.pNewest == nullptr) {
    CArena::FreeList(pArena);
  } else {
    pArena->GoBack(p_tTrial.tMark);
    p_cMsg.m_pArena = pArena;
  }
}
