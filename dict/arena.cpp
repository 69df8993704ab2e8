// Memory of a message's cells and of the sub-messages that were read into it.
#include "dict/arena.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "base/kept.h"

namespace callorv::detail {

namespace {

// A first block, without its records: room for the tags of a usual message, but not for all of one with hundreds that
// are mostly left unset. Later blocks double up to BIG_BLOCK.
constexpr size_t FIRST_MIN = 64, FIRST_MAX = 512, BIG_BLOCK = 256 * 1024;

// Up to 16 MB of blocks stay for the next long reply: to get pages from the kernel anew for each costs as much as half
// its parsing.
CKept<void, 64> s_cKept;

}    // namespace

constexpr size_t CArena::FIRST_RECORDS = sizeof(T_Block) + Rounded(sizeof(CArena));

CArena::T_Block* CArena::NewBlock(size_t p_iSize, T_Block* p_pOlder) noexcept {
  void* p = p_iSize == BIG_BLOCK ? s_cKept.Take() : nullptr;
  if (p == nullptr) p = malloc(p_iSize);
  return p != nullptr ? new (p) T_Block{p_pOlder, sizeof(T_Block), p_iSize} : nullptr;
}

CArena* CArena::Make(size_t p_iExpected) noexcept {
  T_Block* pFirst = NewBlock(FIRST_RECORDS + std::clamp(p_iExpected, FIRST_MIN, FIRST_MAX), nullptr);
  if (pFirst == nullptr) return nullptr;
  pFirst->iUsed = FIRST_RECORDS;
  return new (pFirst + 1) CArena(pFirst);
}

bool CArena::Grow(size_t p_iSize) noexcept {
  while (m_pSpare != nullptr) {
    T_Block* pUsed = std::exchange(m_pSpare, m_pSpare->pOlder);
    pUsed->pOlder = std::exchange(m_pNewest, pUsed);
    if (pUsed->iSize - pUsed->iUsed >= p_iSize) return true;
  }
  // a sub-message is to have room for its values behind it
  const size_t iUsual = std::min(2 * std::max(m_pNewest->iSize, p_iSize), BIG_BLOCK);
  T_Block* pNew = NewBlock(std::max(iUsual, p_iSize + sizeof(T_Block)), m_pNewest);
  if (pNew == nullptr) return false;
  m_pNewest = pNew;
  return true;
}

void CArena::FreeBlocks(T_Block* p_pNewest, const T_Block* p_pUntil) noexcept {
  while (p_pNewest != p_pUntil) {
    T_Block* pFreed = std::exchange(p_pNewest, p_pNewest->pOlder);
    if (pFreed->iSize != BIG_BLOCK || !s_cKept.Put(pFreed)) free(pFreed);
  }
}

void CArena::FreeList(CArena* p_pFirst) noexcept {
  while (p_pFirst != nullptr) {
    CArena* pFreed = std::exchange(p_pFirst, p_pFirst->pNext);
    FreeBlocks(pFreed->m_pSpare, nullptr);
    FreeBlocks(pFreed->m_pNewest, nullptr);    // the arena itself stands in the oldest
  }
}

void CArena::Reset(size_t p_iKept) noexcept {
  T_Block* pOldestFirst = std::exchange(m_pSpare, nullptr);
  // What was in use comes before what was not.
  while (m_pNewest->pOlder != nullptr) {
    T_Block* pBlock = std::exchange(m_pNewest, m_pNewest->pOlder);
    pBlock->pOlder = std::exchange(pOldestFirst, pBlock);
  }
  m_pNewest->iUsed = FIRST_RECORDS;
  size_t iAll = m_pNewest->iSize;
  T_Block** ppEnd = &m_pSpare;
  while (pOldestFirst != nullptr && iAll + pOldestFirst->iSize <= p_iKept) {
    iAll += pOldestFirst->iSize;
    *ppEnd = std::exchange(pOldestFirst, pOldestFirst->pOlder);
    (*ppEnd)->iUsed = sizeof(T_Block);
    ppEnd = &(*ppEnd)->pOlder;
  }
  *ppEnd = nullptr;
  FreeBlocks(pOldestFirst, nullptr);
}

void CArena::GoBack(const T_Mark& p_tMark) noexcept {
  FreeBlocks(std::exchange(m_pNewest, p_tMark.pNewest), p_tMark.pNewest);
  m_pNewest->iUsed = p_tMark.iUsed;
}

void CArena::DropKept() noexcept {
  while (void* p = s_cKept.Take()) free(p);
}

}    // namespace callorv::detail
