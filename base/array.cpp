// Growable arrays of values.
#include "callorv/base/array.h"

#include <utility>

#include "base/grow.h"

namespace {

// What an index outside the array gives.
template <class T>
const T s_NoElement = T();

}    // namespace

template <class T>
CArray<T>::~CArray() {
  delete[] m_pData;
}

template <class T>
void CArray<T>::Add(T p_Value) {
  if (m_iSize == m_iCapacity) callorv::detail::Grow(m_pData, m_iSize, m_iCapacity);
  m_pData[m_iSize++] = std::move(p_Value);
}

template <class T>
typename CArray<T>::Item CArray<T>::GetAt(int p_iIndex) const {
  return p_iIndex >= 0 && p_iIndex < m_iSize ? m_pData[p_iIndex] : s_NoElement<T>;
}

template <class T>
void CArray<T>::RemoveAll() {
  delete[] m_pData;
  m_pData = nullptr;
  m_iSize = m_iCapacity = 0;
}

template class CArray<CString>;
template class CArray<int>;
template class CArray<double>;
template class CArray<bool>;
template class CArray<CDate>;
