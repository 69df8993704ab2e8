// An array of pointers that may own what they point to.
#ifndef CALLORV_BASE_PTR_ARRAY_H
#define CALLORV_BASE_PTR_ARRAY_H

#include "callorv/export.h"

// Base of everything that is kept in a CPtrArray.
class CALLORV_API CPtrArrayItem {
 public:
  CPtrArrayItem() = default;
  CPtrArrayItem(const CPtrArrayItem&) = default;
  CPtrArrayItem& operator=(const CPtrArrayItem&) = default;
  virtual ~CPtrArrayItem();
};

// Pointers in the order in which they were added. Not copyable. Use from one thread at a time.
class CALLORV_API CPtrArray {
 public:
  explicit CPtrArray(bool p_bOwn) noexcept;    // true: the array deletes its items
  ~CPtrArray();
  CPtrArray(const CPtrArray&) = delete;
  CPtrArray& operator=(const CPtrArray&) = delete;

  // Appends; null is allowed. Throws std::bad_alloc, leaving the array as it was and p_pItem with the caller.
  void Add(CPtrArrayItem* p_pItem);
  CPtrArrayItem* GetAt(int p_iIndex) const;    // borrowed; null outside 0 to GetSize() - 1
  void RemoveLast();                           // deletes the item when owning; nothing on an empty array
  int GetSize() const { return m_iSize; }      // items, null ones included

 private:
  CPtrArrayItem** m_apItem;
  int m_iSize, m_iCapacity;
  bool m_bOwn;
};

#endif
