// The algorithms behind the operations of CMsg.
#ifndef CALLORV_MSG_MSG_OPS_H
#define CALLORV_MSG_MSG_OPS_H

#include <cstdint>

#include "base/chain_index.h"
#include "callorv/base/exception.h"
#include "dict/arena.h"
#include "msg/value_traits.h"

namespace callorv::detail {

// What few messages need.
struct T_MsgExtra {
  CMsgValue* pAbandoned = nullptr;             // cells in no slot any more, chained by m_pNext: those from before an Init, and
                                               // one for each sub-message that this message made and that was replaced
  CChainIndex<CMsgValue>* pIndex = nullptr;    // made once a slot's chain grows long
};

// Asks for the cache line of an address, which may be any. Not by the compiler's builtin: that is nothing on i686, though every
// i686 takes the instruction, if only as a hint to ignore, and functions that only prefetch count as doing nothing, so that
// their calls are dropped.
inline void Prefetch(uintptr_t p_uAddress) {
#if defined(__i386__) || defined(__x86_64__)
  asm volatile("prefetcht0 (%0)" : : "r"(p_uAddress));
#else
  __builtin_prefetch(reinterpret_cast<const void*>(p_uAddress));
#endif
}

}    // namespace callorv::detail

// A friend of CMsg, so that each check, text and step stands once and not once for every type.
struct CMsgOps {
  // ---- cells
  // The tag's cell, or null.
  static CMsgValue* GetHashBag(const CMsg& p_cMsg, int p_iTag) {
    return callorv::detail::FindInChain(
        p_cMsg.m_apSlot[callorv::detail::ChainOf(p_iTag, p_cMsg.m_pMsgInfo->GetHashKey())],
        callorv::detail::Seldom(p_cMsg.m_pExtra != nullptr) ? p_cMsg.m_pExtra->pIndex : nullptr, p_iTag);
  }
  // The tag's cell; a new one, of the tag's type, when there was none. Null when there is no memory for it.
  static CMsgValue* SetHashBag(CMsg& p_cMsg, const CTagInfo& p_cTag);
  static CMsgValue* NewCell(CMsg& p_cMsg, const CTagInfo& p_cTag);    // in no slot yet
  static callorv::detail::T_MsgExtra& Extra(CMsg& p_cMsg);    // made on first use; throws std::bad_alloc
  static size_t ExpectedBytes(const CMsgInfo& p_cInfo);
  static callorv::detail::CArena* Arena(CMsg& p_cMsg);    // made on first use; null when there is no memory
  static bool IsVacant(const CMsg& p_cMsg) { return p_cMsg.m_bVacant; }
  // To be called once something was stored: the message is not empty any more.
  static void Fill(CMsg& p_cMsg) {
    if (callorv::detail::Seldom(p_cMsg.m_bEmpty)) FillUp(p_cMsg);
  }

  // ---- life (msg_life.cpp)
  static void Free(CMsg* p_pMsg);         // unless null or made by its owner
  static void FreeContents(CMsg& p_cMsg); // all that it owns, however deep
  static void Clear(CMsg& p_cMsg);
  // Moves the cells to where only what frees them finds them.
  static void Abandon(CMsg& p_cMsg);
  // The definition for Init; throws what that throws.
  static CMsgInfo* Definition(CMsgDic& p_cDic, int p_iMsgNum, int p_iRootNum);

  // ---- sub-messages (sub_msg.cpp)
  // Stores, or makes in the message's own memory, as CMsg::SetValue, CMsg::NewSub and CMsg::MakeSubMsgEntry.
  static int SetSub(CMsg& p_cMsg, int p_iTag, CMsg* p_pSub);
  static int NewSub(CMsg& p_cMsg, int p_iTag, CMsg*& p_pSub);
  static CMsg* MakeSub(CMsg& p_cMsg, int p_iTag);
  // Out of the place where the message stands, which is left without it.
  static void TakeOut(CMsg& p_cMsg);

  // ---- memory of rows, asked for ahead of its use. A row's message is long and few of its lines are touched, so no processor
  // foresees which ones come next, and 10,000 rows are more than its caches hold.
  enum { ROWS_AHEAD = 4, CACHE_LINE = 64 };
  // A row's own lines. Nothing for a row behind the last.
  static void PrefetchRow(CMsgArray& p_cRows, int p_iRow) {
    if (p_iRow >= p_cRows.GetSize()) return;
    const auto uRow = reinterpret_cast<uintptr_t>(p_cRows.GetAt(p_iRow));
    PrefetchLines(uRow, 2);                                  // with the first slots
    PrefetchLines(uRow + sizeof(CMsg) - CACHE_LINE, 2);      // what stands behind the slots
  }
  // Its cells, once its own lines are there.
  static void PrefetchCells(CMsgArray& p_cRows, int p_iRow) {
    if (p_iRow >= p_cRows.GetSize()) return;
    const CMsg* pRow = p_cRows.GetAt(p_iRow);
    if (pRow == nullptr || pRow->m_pMsgInfo == nullptr) return;
    const int iFirstTag = pRow->m_pMsgInfo->GetTagNumAt(0);
    const unsigned uSlot = callorv::detail::ChainOf(iFirstTag, pRow->m_pMsgInfo->GetHashKey());
    PrefetchLines(reinterpret_cast<uintptr_t>(pRow->m_apSlot[uSlot]), 4);
  }
  // Where the row after p_pThis, which is to be appended, will be made: as far behind it as it is behind the last.
  static void PrefetchNext(const CMsgValue& p_cCell, const CMsg* p_pThis) {
    const int iRows = p_cCell.m_pMsgArr != nullptr ? p_cCell.m_pMsgArr->GetSize() : 0;
    if (iRows == 0) return;
    const auto uThis = reinterpret_cast<uintptr_t>(p_pThis);
    const uintptr_t uNext = 2 * uThis - reinterpret_cast<uintptr_t>(p_cCell.m_pMsgArr->GetAt(iRows - 1));
    PrefetchLines(uNext, 3);
    PrefetchLines(uNext + sizeof(CMsg) - CACHE_LINE, 5);    // and its cells
  }

  // ---- checks
  // The tag's definition; null when there is none or the message has none: FailTag says which.
  static const CTagInfo* FindTag(const CMsg& p_cMsg, int p_iTag) {
    const CMsgInfo* pMsgInfo = p_cMsg.m_pMsgInfo;
    if (pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    return callorv::detail::FindInChain(
        pMsgInfo->m_apBucket[callorv::detail::ChainOf(p_iTag, pMsgInfo->m_iHashKey)], pMsgInfo->m_pIndex, p_iTag);
  }
  // As a rule the tag's cell: the first one of its slot, if it is that tag's and of this type. Such a tag is defined, and so it
  // need not be looked up.
  static CMsgValue* FirstCell(const CMsg& p_cMsg, int p_iTag, E_TagType p_eType) {
    if (p_cMsg.m_pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    CMsgValue* pCell = p_cMsg.m_apSlot[callorv::detail::ChainOf(p_iTag, p_cMsg.m_pMsgInfo->GetHashKey())];
    return pCell != nullptr && pCell->m_iTagNum == p_iTag && pCell->m_eType == p_eType ? pCell : nullptr;
  }
  // For getters: the tag's cell, which has a value of this type; null when there is no such cell: FailGet says why.
  static CMsgValue* FindSet(const CMsg& p_cMsg, int p_iTag, E_TagType p_eType) {
    if (p_cMsg.m_pMsgInfo == nullptr || p_iTag < 0) return nullptr;
    CMsgValue* pCell = GetHashBag(p_cMsg, p_iTag);
    return pCell != nullptr && pCell->m_eType == p_eType && pCell->m_bSet ? pCell : nullptr;
  }
  // What went wrong, as code; its text is kept. Apart from the checks, which are on every value's way.
  [[gnu::cold]] static int FailTag(CMsg& p_cMsg, int p_iTag);
  [[gnu::cold]] static int FailType(CMsg& p_cMsg, int p_iTag, E_TagType p_eHas, E_TagType p_eWanted, int p_iLine);
  [[gnu::cold]] static int FailGet(CMsg& p_cMsg, int p_iTag, E_TagType p_eType, int p_iLine);
  [[gnu::cold]] static int FailUndefined(CMsg& p_cMsg);    // the message itself
  [[gnu::cold]] static int FailNull(CMsg& p_cMsg, int p_iTag);
  [[gnu::cold]] static int FailOutput(CMsg& p_cMsg);    // there is nowhere to put the value
  [[gnu::cold]] static int FailMemory(CMsg& p_cMsg, const char* p_szWhy);

  // ---- access
  // T: the type whose line number the texts print; VALUE: what is passed for it.
  template <class T, class VALUE>
  static int Set(CMsg& p_cMsg, int p_iTag, VALUE p_Value);
  template <class T>
  static int Get(CMsg& p_cMsg, int p_iTag, T* p_pOut);
  template <class T>
  static int GetAt(CMsg& p_cMsg, int p_iTag, int p_iIndex, T* p_pOut);
  template <class ARRAY>
  static int GetArray(CMsg& p_cMsg, int p_iTag, ARRAY* p_pOut);
  static int ArrSize(CMsg& p_cMsg, int p_iTag);
  // p_fnByTag(tag) for the tag of that name.
  template <class F>
  static int ByName(CMsg& p_cMsg, const char* p_szName, F p_fnByTag) {
    if (p_cMsg.m_pMsgInfo == nullptr) return FailUndefined(p_cMsg);
    return p_fnByTag(p_cMsg.m_pMsgInfo->m_cNameMap.GetOr(p_szName, -1));    // GetTagNumByName, one call less
  }

  // ---- reading: failures are thrown
  static bool IsDefined(const CMsg& p_cMsg, int p_iMsgNum) { return p_cMsg.m_pMsgDic->GetMsgInfo(p_iMsgNum) != nullptr; }
  // Between Init and EndRead a message may be read into on trial: where p_bGood is false, EndRead gives back what was stored, with
  // its memory, and nobody can tell.
  struct T_Trial {
    bool bEmpty, bVacant;
    callorv::detail::CArena::T_Mark tMark;    // null: it has no arena yet
  };
  static T_Trial BeginRead(CMsg& p_cMsg);
  static void EndRead(CMsg& p_cMsg, const T_Trial& p_tTrial, bool p_bGood);
  // The two steps of CMsg::SetParsedData. Behind the text there must stand a byte that ends numbers and words: a NUL, markup or a
  // blank.
  static const CTagInfo& ParsedTag(CMsg& p_cMsg, int p_iTag);
  static void StoreText(CMsg& p_cMsg, const CTagInfo& p_cTag, const char* p_sz, int p_iLen);
  static CMsgValue& ParsedCell(CMsg& p_cMsg, const CTagInfo& p_cTag);

 private:
  // ---- life
  static void Destroy(CMsg& p_cMsg);    // wherever its memory is
  // Frees what the message owns, but puts sub-messages that may own something themselves on p_pList, linked by m_pOwner,
  // and its arena on p_pArenas.
  static void Release(CMsg& p_cMsg, CMsg*& p_pList, callorv::detail::CArena*& p_pArenas);
  template <class F>
  static void TakeCells(CMsg& p_cMsg, F p_fn);

  // ---- sub-messages
  [[gnu::noinline]] static void FillUp(CMsg& p_cMsg);
  // Whether the message is p_cTop or stands in it, however deep.
  static bool IsWithin(const CMsg& p_cMsg, const CMsg& p_cTop);
  static const CMsg* NextBelow(const CMsg& p_cTop, const CMsg* p_pMsg);
  static const CMsg* NextSub(const CMsg& p_cMsg, const CMsgValue* p_pCell, int p_iRow);
  static const CMsgValue* NextCell(const CMsg& p_cMsg, const CMsgValue* p_pCell);
  // A new sub-message in the message's memory, which stands nowhere yet; null when there is none. Throws what Init throws.
  static CMsg* Construct(CMsg& p_cMsg, int p_iMsgNum, int p_iRootNum, int p_iTag);
  static void Put(CMsg& p_cSub, CMsg& p_cMsg, CMsgValue& p_cCell);
  static const char* AppendRow(CMsgValue& p_cCell, CMsg* p_pSub);    // null, or the text why not
  static void DropLastRow(CMsgValue& p_cCell);
  static CMsgValue* SetAside(CMsg& p_cMsg, const CTagInfo& p_cTag);

  // ---- values
  // Set and Get where FirstCell gives nothing; Get also for arrays. They go all the way, so that the usual way stays short.
  template <class T, class VALUE>
  [[gnu::noinline]] static int SetAny(CMsg& p_cMsg, int p_iTag, VALUE p_Value);
  template <class T>
  [[gnu::noinline]] static int GetAny(CMsg& p_cMsg, int p_iTag, T* p_pOut);
  template <class T, class VALUE>
  static int SetSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T, class VALUE>
  [[gnu::noinline]] static int SetElement(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T>
  static int GetSingle(CMsg& p_cMsg, const CMsgValue& p_cCell, T* p_pOut) {
    return callorv::detail::ValueTraits<T>::Load(p_cCell, *p_pOut) ? 0 : FailNull(p_cMsg, p_cCell.m_iTagNum);
  }
  // The element of the cell's array at p_iIndex, where a missing one is a failure if p_bChecked, else the type's zero.
  template <class T>
  [[gnu::noinline]] static int GetElement(CMsg& p_cMsg, CMsgValue& p_cCell, int p_iIndex, bool p_bChecked, T* p_pOut);
  static void PrefetchLines(uintptr_t p_uFirst, unsigned p_uLines) {
    for (unsigned u = 0; u < p_uLines; ++u) callorv::detail::Prefetch(p_uFirst + u * CACHE_LINE);
  }
  // Appends to the cell's array, which is made on first use; null, or the text why not. The cell is set once the
  // array has an element.
  template <class T, class VALUE>
  [[gnu::noinline]] static const char* Append(CMsgValue& p_cCell, VALUE p_Value);
  // Stores into a cell that is no array; as ValueTraits<T>::Store.
  template <class T, class VALUE>
  static const char* StoreSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T, class VALUE>
  static void StoreParsed(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
};

#endif
