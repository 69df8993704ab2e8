// Who owns a message, and what a message owns.
#ifndef CALLORV_MSG_OWNER_H
#define CALLORV_MSG_OWNER_H

#include "callorv/msg/msg.h"
#include "dict/arena.h"

namespace callorv::detail {

// Where a message stands (CMsg::m_pOwner, m_pCell, m_iRow), and all that makes, frees or moves messages.
struct COwner {
  // ---- life (owner.cpp)
  static void Free(CMsg* p_pMsg);         // unless null or made by its owner
  static void FreeContents(CMsg& p_cMsg); // all that it owns, however deep
  static void Clear(CMsg& p_cMsg);
  // Moves the cells to where only what frees them finds them.
  static void Abandon(CMsg& p_cMsg);
  // The definition for Init; throws what that throws.
  static CMsgInfo* Definition(CMsgDic& p_cDic, int p_iMsgNum, int p_iRootNum);
  // Between Init and EndRead a message may be read into on trial: where p_bGood is false, EndRead gives back what was
  // stored, with its memory, and nobody can tell.
  struct T_Trial {
    bool bEmpty, bVacant;
    CArena::T_Mark tMark;    // null: it has no arena yet
  };
  static T_Trial BeginRead(CMsg& p_cMsg);
  static void EndRead(CMsg& p_cMsg, const T_Trial& p_tTrial, bool p_bGood);

  // ---- sub-messages (sub_msg.cpp)
  // Stores, or makes in the message's own memory, as CMsg::SetValue, CMsg::NewSub and CMsg::MakeSubMsgEntry.
  static int SetSub(CMsg& p_cMsg, int p_iTag, CMsg* p_pSub);
  static int NewSub(CMsg& p_cMsg, int p_iTag, CMsg*& p_pSub);
  static CMsg* MakeSub(CMsg& p_cMsg, int p_iTag);
  // Out of the place where the message stands, which is left without it.
  static void TakeOut(CMsg& p_cMsg);

 private:
  static void Destroy(CMsg& p_cMsg);    // wherever its memory is
  // Frees what the message owns, but puts sub-messages that may own something themselves on p_pList, linked by
  // m_pOwner, and its arena on p_pArenas.
  static void Release(CMsg& p_cMsg, CMsg*& p_pList, CArena*& p_pArenas);
  template <class F>
  static void TakeCells(CMsg& p_cMsg, F p_fn);

  // Whether the message is p_cTop or stands in it, however deep.
  static bool IsWithin(const CMsg& p_cMsg, const CMsg& p_cTop);
  static const CMsg* NextBelow(const CMsg& p_cTop, const CMsg* p_pMsg);
  static const CMsg* NextSub(const CMsg& p_cMsg, const CMsgValue* p_pCell, int p_iRow);
  static const CMsgValue* NextCell(const CMsg& p_cMsg, const CMsgValue* p_pCell);
  // A new sub-message in the message's memory, which stands nowhere yet; null when there is none. Throws what Init
  // throws.
  static CMsg* Construct(CMsg& p_cMsg, int p_iMsgNum, int p_iRootNum, int p_iTag);
  static void Put(CMsg& p_cSub, CMsg& p_cMsg, CMsgValue& p_cCell);
  static void DropLastRow(CMsgValue& p_cCell);
  static CMsgValue* SetAside(CMsg& p_cMsg, const CTagInfo& p_cTag);
};

}    // namespace callorv::detail

#endif
