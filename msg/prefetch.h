// Memory of rows, asked for ahead of its use.
#ifndef CALLORV_MSG_PREFETCH_H
#define CALLORV_MSG_PREFETCH_H

#include <cstdint>

#include "base/chain_index.h"
#include "callorv/msg/msg.h"

namespace callorv::detail {

// A row's message is long and few of its lines are touched, so no processor foresees which ones come next, and 10,000
// rows are more than its caches hold.
struct CPrefetch {
  enum { ROWS_AHEAD = 4, CACHE_LINE = 64 };
  // A row's own lines. Nothing for a row behind the last.
  static void Row(CMsgArray& p_cRows, int p_iRow) {
    if (p_iRow >= p_cRows.GetSize()) return;
    const auto uRow = reinterpret_cast<uintptr_t>(p_cRows.GetAt(p_iRow));
    Lines(uRow, 2);                                  // with the first slots
    Lines(uRow + sizeof(CMsg) - CACHE_LINE, 2);      // what stands behind the slots
  }
  // Its cells, once its own lines are there.
  static void Cells(CMsgArray& p_cRows, int p_iRow) {
    if (p_iRow >= p_cRows.GetSize()) return;
    const CMsg* pRow = p_cRows.GetAt(p_iRow);
    if (pRow == nullptr || pRow->m_pMsgInfo == nullptr) return;
    const int iFirstTag = pRow->m_pMsgInfo->GetTagNumAt(0);
    const unsigned uSlot = ChainOf(iFirstTag, pRow->m_pMsgInfo->GetHashKey());
    Lines(reinterpret_cast<uintptr_t>(pRow->m_apSlot[uSlot]), 4);
  }
  // Where the row after p_pThis, which is to be appended, will be made: as far behind it as it is behind the last.
  static void Next(const CMsgValue& p_cCell, const CMsg* p_pThis) {
    const int iRows = p_cCell.m_pMsgArr != nullptr ? p_cCell.m_pMsgArr->GetSize() : 0;
    if (iRows == 0) return;
    const auto uThis = reinterpret_cast<uintptr_t>(p_pThis);
    const uintptr_t uNext = 2 * uThis - reinterpret_cast<uintptr_t>(p_cCell.m_pMsgArr->GetAt(iRows - 1));
    Lines(uNext, 3);
    Lines(uNext + sizeof(CMsg) - CACHE_LINE, 5);    // and its cells
  }

 private:
  static void Lines(uintptr_t p_uFirst, unsigned p_uLines) {
    for (unsigned u = 0; u < p_uLines; ++u) Line(p_uFirst + u * CACHE_LINE);
  }
  // Asks for the cache line of an address, which may be any. Not by the compiler's builtin: that is nothing on i686,
  // though every i686 takes the instruction, if only as a hint to ignore, and functions that only prefetch count as
  // doing nothing, so that their calls are dropped.
  static void Line(uintptr_t p_uAddress) {
#if defined(__i386__) || defined(__x86_64__)
    asm volatile("prefetcht0 (%0)" : : "r"(p_uAddress));
#else
    __builtin_prefetch(reinterpret_cast<const void*>(p_uAddress));
#endif
  }
};

}    // namespace callorv::detail

#endif
