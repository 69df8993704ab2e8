// Memory of a message's cells and of the sub-messages that were read into it.
#include "msg/arena.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "msg/kept.h"

namespace callorv::detail {

namespace {

// A first block, without its records: room for the tags of a usual message, but not for all of one with hundreds that are
// mostly left unset. Later blocks double up to BIG_BLOCK.
constexpr size_t FIRST_MIN = 64, FIRST_MAX = 512, BIG_BLOCK = 256 * 1024;

// Up to 16 MB of blocks stay for the next long reply: to get pages from the kernel anew for each costs as much as half its
// parsing.
CKept<void, 64> s_cKept;

}    // namespace

CArena::T_Block* CArena::NewBlock(size_t p_iSize, T_Block* p_pOlder) noexcept {
  void* p = p_iSize == BIG_BLOCK ? s_cKept.Take() : nullptr;
  if (p == nullptr) p = malloc(p_iSize);
  return p != nullptr ? new (p) T_Block{p_pOlder, sizeof(T_Block), p_iSize} : nullptr;
}

CArena* CArena::Make(size_t p_iExpected) noexcept {
  const size_t iRecords = sizeof(T_Block) + Rounded(sizeof(CArena));
  T_Block* pFirst = NewBlock(iRecords + std::clamp(p_iExpected, FIRST_MIN, FIRST_MAX), nullptr);
  if (pFirst == nullptr) return nullptr;
  pFirst->iUsed = iRecords;
  return new (pFirst + 1) CArena(pFirst);
}

bool CArena::Grow(size_t p_iSize) noexcept {
  // a sub-message is to have room for its values behind it
  const size_t iUsual = std::min(2 * std::max(m_pNewest->iSize, p_iSize), BIG_BLOCK);
  T_Block* pNew = NewBlock(std::max(iUsual, p_iSize + sizeof(T_Block)), m_pNewest);
  if (pNew == nullptr) return false;
  m_pNewest = pNew;
  return true;
}

void CArena::FreeList(CArena* p_pFirst) noexcept {
  while (p_pFirst != nullptr) {
    T_Block* pBlock = p_pFirst->m_pNewest;
    p_pFirst = p_pFirst->pNext;    // the arena stands in its oldest block
    while (pBlock != nullptr) {
      T_Block* pFreed = std::exchange(pBlock, pBlock->pOlder);
      if (pFreed->iSize != BIG_BLOCK || !s_cKept.Put(pFreed)) free(pFreed);
    }
  }
}

void CArena::DropKept() noexcept {
  while (void* p = s_cKept.Take()) free(p);
}

}    // namespace callorv::detail
