// Growable arrays of values.
#ifndef CALLORV_BASE_ARRAY_H
#define CALLORV_BASE_ARRAY_H

#include "callorv/base/date.h"
#include "callorv/base/str.h"
#include "callorv/export.h"

// What CArray::GetAt hands out: a copy, but a reference where a copy would need memory.
template <class T>
struct T_ArrayItem {
  typedef T Type;
};
template <>
struct T_ArrayItem<CString> {
  typedef const CString& Type;    // borrowed: valid until the array is next changed or destroyed
};

// Values in the order in which they were added. Owns copies of its elements. Not copyable.
// Use from one thread at a time.
template <class T>
class CALLORV_API CArray {
 public:
  typedef typename T_ArrayItem<T>::Type Item;

  CArray() noexcept : m_pData(nullptr), m_iSize(0), m_iCapacity(0) {}
  ~CArray();
  CArray(const CArray&) = delete;
  CArray& operator=(const CArray&) = delete;

  // Appends. Throws std::bad_alloc, leaving the array as it was.
  void Add(T p_Value);
  // The element; outside 0 to GetSize() - 1: a zero, false, empty or unset one.
  Item GetAt(int p_iIndex) const;
  Item operator[](int p_iIndex) const { return GetAt(p_iIndex); }
  int GetSize() const { return m_iSize; }    // elements
  void RemoveAll();    // empties the array and gives its memory back

 private:
  T* m_pData;
  int m_iSize;
  int m_iCapacity;
};

typedef CArray<CString> CStrArray;
typedef CArray<int> CIntArray;
typedef CArray<double> CDblArray;
typedef CArray<bool> CBoolArray;
typedef CArray<CDate> CDateArray;

extern template class CArray<CString>;
extern template class CArray<int>;
extern template class CArray<double>;
extern template class CArray<bool>;
extern template class CArray<CDate>;

#endif
