// An array of messages.
#include "callorv/msg/msg_array.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

#include "callorv/msg/msg.h"

CMsgArray::CMsgArray(bool p_bAdopt) noexcept : m_apMsg(nullptr), m_iSize(0), m_iCapacity(0), m_bAdopt(p_bAdopt) {}

CMsgArray::~CMsgArray() { RemoveAll(); }

CMsg* CMsgArray::GetAt(int p_iIndex) {
  if (p_iIndex >= 0 && p_iIndex < m_iSize) return m_apMsg[p_iIndex];
  SetLastError(MSG_INDEX, "<CMsgArray::GetAt:(0 <= %d < %d)>", p_iIndex, m_iSize);
  return nullptr;
}

int CMsgArray::SetAt(int p_iIndex, CMsg* p_pMsg) {
  if (p_iIndex < 0 || p_iIndex >= m_iSize) {
    return Fail(MSG_INDEX, "<CMsgArray::SetAt:(0 <= %d < %d)>", p_iIndex, m_iSize);
  }
  CMsg*& pOld = m_apMsg[p_iIndex];
  if (m_bAdopt && pOld != p_pMsg) delete pOld;
  pOld = p_pMsg;
  return 0;
}

int CMsgArray::Add(CMsg* p_pMsg) {
  if (p_pMsg == nullptr) return MSG_NULL;
  if (m_apMsg == nullptr) {
    m_apMsg = static_cast<CMsg**>(malloc(sizeof(CMsg*)));
    if (m_apMsg == nullptr) return MSG_MEMORY;
    m_iCapacity = 1;
  }
  if (m_iSize >= m_iCapacity) GrowBuffer(0);
  m_apMsg[m_iSize] = p_pMsg;
  return m_iSize++;
}

void CMsgArray::RemoveAll() {
  if (m_bAdopt) std::for_each(m_apMsg, m_apMsg + m_iSize, std::default_delete<CMsg>());
  free(m_apMsg);
  m_apMsg = nullptr;
  m_iSize = 0;
  m_iCapacity = 0;
}

void CMsgArray::GrowBuffer(int p_iSize) {
  if (p_iSize >= 1 && p_iSize <= m_iCapacity) return;
  const long long iStep = p_iSize >= 1 ? p_iSize : m_iSize / 8 <= 3 ? 4 : std::min(m_iSize / 8, 1024);
  const long long iCapacity = std::max<long long>(m_iCapacity + iStep, m_iSize + 1LL);
  if (iCapacity > INT_MAX / static_cast<int>(sizeof(CMsg*))) throw std::bad_alloc();
  // realloc moves the pages of a long array instead of copying it: growth by at most 1,024 slots stays cheap.
  auto* apNew = static_cast<CMsg**>(realloc(m_apMsg, static_cast<size_t>(iCapacity) * sizeof(CMsg*)));
  if (apNew == nullptr) throw std::bad_alloc();
  std::fill(apNew + m_iSize, apNew + iCapacity, nullptr);
  m_apMsg = apNew;
  m_iCapacity = static_cast<int>(iCapacity);
}

void CMsgArray::SetSize(int p_iSize) {
  const int iSize = std::max(p_iSize, 0);
  if (iSize == INT_MAX) throw std::bad_alloc();
  GrowBuffer(iSize + 1);
  m_iSize = iSize;
}
