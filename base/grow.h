// Room for one more element in the arrays.
#ifndef CALLORV_BASE_GROW_H
#define CALLORV_BASE_GROW_H

#include <algorithm>
#include <climits>
#include <memory>
#include <new>

namespace callorv::detail {

// Makes p_pData, an array from new[] with p_iSize elements in use, hold more: half as many again, so that adding stays
// linear. Throws std::bad_alloc, leaving everything as it was.
template <class T>
void Grow(T*& p_pData, int p_iSize, int& p_iCapacity) {
  if (p_iSize == INT_MAX) throw std::bad_alloc();
  const int iCapacity = static_cast<int>(std::min<long long>(p_iSize + p_iSize / 2LL + 4, INT_MAX));
  std::unique_ptr<T[]> pData(new T[static_cast<size_t>(iCapacity)]);
  std::move(p_pData, p_pData + p_iSize, pData.get());
  delete[] p_pData;
  p_pData = pData.release();
  p_iCapacity = iCapacity;
}

}    // namespace callorv::detail

#endif
