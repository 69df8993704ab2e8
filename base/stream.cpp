// A growable byte buffer.
#include "callorv/base/stream.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

const int MAX_SIZE = INT_MAX - 1;    // the NUL behind the data must be countable, too
char s_szNoData[] = "";              // what a stream without room points at; never written

}    // namespace

CStream::CStream(int p_iInitialSize, int p_iGrowBy)
    : m_pData(s_szNoData), m_iSize(0), m_iCapacity(0), m_iGrowBy(p_iGrowBy) {
  if (p_iInitialSize > 0 && !Reallocate(p_iInitialSize)) throw std::bad_alloc();
}

CStream::~CStream() {
  if (m_iCapacity > 0) free(m_pData);
}

int CStream::AppendData(const char* p_pData, int p_iLen) {
  if (p_iLen < 1) return 0;
  if (p_iLen > m_iCapacity - m_iSize) {
    const uintptr_t iOffset = reinterpret_cast<uintptr_t>(p_pData) - reinterpret_cast<uintptr_t>(m_pData);
    if (!Grow(static_cast<long long>(m_iSize) + p_iLen)) return -1;
    if (iOffset < static_cast<uintptr_t>(m_iSize)) p_pData = m_pData + iOffset;
  }
  memcpy(m_pData + m_iSize, p_pData, static_cast<size_t>(p_iLen));
  m_iSize += p_iLen;
  m_pData[m_iSize] = 0;
  return 0;
}

void CStream::Clear() { ReleaseBuffer(0); }

char* CStream::GetBuffer(int p_iSize) {
  if (p_iSize > m_iCapacity && !Grow(p_iSize)) throw std::bad_alloc();
  return m_pData;
}

void CStream::ReleaseBuffer(int p_iLen) {
  if (m_iCapacity == 0) return;
  m_iSize = std::clamp(p_iLen, 0, m_iCapacity);
  m_pData[m_iSize] = 0;
}

// Makes room for p_iSize bytes, more than there is room for now.
bool CStream::Grow(long long p_iSize) {
  if (p_iSize > MAX_SIZE) return false;
  const long long iCapacity = static_cast<long long>(m_iCapacity) + std::max(m_iGrowBy, m_iCapacity / 2);
  return Reallocate(static_cast<int>(std::clamp<long long>(iCapacity, p_iSize, MAX_SIZE)));
}

bool CStream::Reallocate(int p_iCapacity) {
  if (p_iCapacity > MAX_SIZE) return false;
  void* pData = realloc(m_iCapacity > 0 ? m_pData : nullptr, static_cast<size_t>(p_iCapacity) + 1);
  if (pData == nullptr) return false;
  m_pData = static_cast<char*>(pData);
  m_pData[m_iSize] = 0;
  m_iCapacity = p_iCapacity;
  return true;
}
