// Memory of a message's cells.
#ifndef CALLORV_MSG_ARENA_H
#define CALLORV_MSG_ARENA_H

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace callorv::detail {

// Blocks that only grow and are freed together: a message of few tags then costs one allocation, not one for each cell and
// text. The newest block comes first.
struct T_ArenaBlock {
  T_ArenaBlock* pOlder;
  unsigned iUsed, iSize;    // bytes behind this record

  char* Bytes() { return reinterpret_cast<char*>(this + 1); }
};
static_assert(sizeof(T_ArenaBlock) % alignof(void*) == 0);

inline constexpr unsigned ARENA_MIN = 64, ARENA_FIRST = 512, ARENA_MAX = 8192;

constexpr unsigned ArenaSize(size_t p_iSize) {
  return static_cast<unsigned>((p_iSize + alignof(void*) - 1) / alignof(void*) * alignof(void*));
}

// p_iSize bytes (at most ARENA_MIN); null when there is no memory.
//   p_iExpected  what the whole arena is likely to hold
inline void* AllocateFrom(T_ArenaBlock*& p_pNewest, size_t p_iSize, unsigned p_iExpected) {
  const unsigned iBytes = ArenaSize(p_iSize);
  if (p_pNewest == nullptr || p_pNewest->iSize - p_pNewest->iUsed < iBytes) {
    const unsigned iSize = p_pNewest == nullptr ? std::clamp(p_iExpected, ARENA_MIN, ARENA_FIRST)
                                                : std::min(2 * p_pNewest->iSize, ARENA_MAX);
    auto* pBlock = static_cast<T_ArenaBlock*>(malloc(sizeof(T_ArenaBlock) + iSize));
    if (pBlock == nullptr) return nullptr;
    pBlock->iUsed = 0;
    pBlock->iSize = iSize;
    pBlock->pOlder = std::exchange(p_pNewest, pBlock);
  }
  return p_pNewest->Bytes() + std::exchange(p_pNewest->iUsed, p_pNewest->iUsed + iBytes);
}

inline void FreeArena(T_ArenaBlock*& p_pNewest) {
  while (p_pNewest != nullptr) free(std::exchange(p_pNewest, p_pNewest->pOlder));
}

}    // namespace callorv::detail

#endif
