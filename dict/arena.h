// Memory of a message's cells and of the sub-messages that were read into it.
#ifndef CALLORV_DICT_ARENA_H
#define CALLORV_DICT_ARENA_H

#include <cstddef>
#include <utility>

namespace callorv::detail {

// Blocks that are freed together, so that a row of a reply costs no allocation of its own. The arena's own record
// stands in its first block.
class CArena {
  struct T_Block;

 public:
  // p_iExpected: what is likely to be asked for in all, in bytes. Null when there is no memory.
  static CArena* Make(size_t p_iExpected) noexcept;
  // Frees the arenas of a list that is linked by pNext.
  static void FreeList(CArena* p_pFirst) noexcept;
  // p_iSize bytes, aligned for pointers; null when there is no memory.
  void* Allocate(size_t p_iSize) noexcept {
    const size_t iSize = Rounded(p_iSize);
    if (m_pNewest->iSize - m_pNewest->iUsed < iSize && !Grow(iSize)) return nullptr;
    return reinterpret_cast<char*>(m_pNewest) + std::exchange(m_pNewest->iUsed, m_pNewest->iUsed + iSize);
  }

  // Makes all of it free again. Keeps its first blocks, up to p_iKept bytes, and gives the others back.
  void Reset(size_t p_iKept) noexcept;

  // How far it is filled. GoBack gives back all that was allocated since.
  struct T_Mark {
    T_Block* pNewest;
    size_t iUsed;
  };
  T_Mark Mark() const noexcept { return {m_pNewest, m_pNewest->iUsed}; }
  void GoBack(const T_Mark& p_tMark) noexcept;

  static constexpr size_t Rounded(size_t p_iSize) {
    return (p_iSize + sizeof(void*) - 1) / sizeof(void*) * sizeof(void*);
  }

  // Gives the kept blocks back.
  static void DropKept() noexcept;

  CArena* pNext = nullptr;

 private:
  struct T_Block {
    T_Block* pOlder;
    size_t iUsed, iSize;    // with this record
  };
  T_Block* m_pNewest;
  T_Block* m_pSpare = nullptr;    // kept by Reset and not in use yet, the oldest first

  // What stands at the beginning of the first block: its own record and the arena.
  static const size_t FIRST_RECORDS;

  explicit CArena(T_Block* p_pFirst) : m_pNewest(p_pFirst) {}
  static T_Block* NewBlock(size_t p_iSize, T_Block* p_pOlder) noexcept;
  static void FreeBlocks(T_Block* p_pNewest, const T_Block* p_pUntil) noexcept;
  bool Grow(size_t p_iSize) noexcept;
};

}    // namespace callorv::detail

#endif
