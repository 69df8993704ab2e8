// An array of pointers that may own what they point to.
#include "callorv/base/ptr_array.h"

#include "base/grow.h"

CPtrArrayItem::~CPtrArrayItem() = default;

CPtrArray::CPtrArray(bool p_bOwn) noexcept : m_apItem(nullptr), m_iSize(0), m_iCapacity(0), m_bOwn(p_bOwn) {}

CPtrArray::~CPtrArray() {
  while (m_iSize > 0) RemoveLast();
  delete[] m_apItem;
}

void CPtrArray::Add(CPtrArrayItem* p_pItem) {
  if (m_iSize == m_iCapacity) callorv::detail::Grow(m_apItem, m_iSize, m_iCapacity);
  m_apItem[m_iSize++] = p_pItem;
}

CPtrArrayItem* CPtrArray::GetAt(int p_iIndex) const {
  return p_iIndex >= 0 && p_iIndex < m_iSize ? m_apItem[p_iIndex] : nullptr;
}

void CPtrArray::RemoveLast() {
  if (m_iSize == 0) return;
  --m_iSize;
  if (m_bOwn) delete m_apItem[m_iSize];
}
