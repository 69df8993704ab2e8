// Maps from a text to a number or to several texts.
#ifndef CALLORV_BASE_HASH_H
#define CALLORV_BASE_HASH_H

#include "callorv/base/array.h"
#include "callorv/base/str.h"
#include "callorv/base/stream.h"
#include "callorv/export.h"

// A map from a C string to an int. Keys are copied; comparison is exact. Lookups only read, so several threads
// may look up at once in a map that nobody changes.
class CALLORV_API CIntHash {
 public:
  // p_iBuckets  without effect: a map takes no memory while it is empty and grows with its content alone, so that
  //             many small ones are as cheap as a large one is fast
  explicit CIntHash(int p_iBuckets) noexcept;
  ~CIntHash();
  CIntHash(const CIntHash&) = delete;
  CIntHash& operator=(const CIntHash&) = delete;

  // Stores p_iValue under p_szKey and returns 0; negative for a null key.
  //   p_bReplace  what becomes of a key that is already there: true: it gets the new value; false: it keeps its first
  // Throws std::bad_alloc, leaving the map as it was.
  int Set(const char* p_szKey, int p_iValue, bool p_bReplace);
  // 0 with *p_piOut (not null) filled when the key is there, -1 with it untouched when the key is absent or null.
  int Get(const char* p_szKey, int* p_piOut) const;
  // The key's value, p_iAbsent when the key is absent or null.
  int GetOr(const char* p_szKey, int p_iAbsent) const;

 private:
  unsigned* m_pSlot;      // where a key's entry begins, plus one; 0: free
  unsigned m_uSlots;      // a power of two; 0: no table yet
  unsigned m_uKeys;
  CStream m_stEntries;    // one entry a key, one after the other

  void Rehash(unsigned p_uSlots);
};

// A map from a C string to one or more strings. Keys and values are copied; comparison is exact.
class CALLORV_API CStrHash {
 public:
  explicit CStrHash(int p_iBuckets) noexcept;    // as for CIntHash
  ~CStrHash();
  CStrHash(const CStrHash&) = delete;
  CStrHash& operator=(const CStrHash&) = delete;

  // Stores p_szValue (null counts as "") under p_szKey and returns 0; negative for a null key.
  //   p_bReplace  true: it becomes the key's only value; false: it is added behind the values that are there
  // Throws std::bad_alloc, leaving the map as it was.
  int Set(const char* p_szKey, char* p_szValue, bool p_bReplace);
  // The first value of the key, or all of them in the order in which they were added (p_pOut, not null, is emptied
  // first). 0, or -1 with the output untouched when the key is absent or null.
  int Get(const char* p_szKey, CString* p_pOut) const;
  int Get(const char* p_szKey, CStrArray* p_pOut) const;

 private:
  CIntHash m_cIndex;          // key to place in m_apValues
  CStrArray** m_apValues;     // each key's values; owned
  int m_iSize, m_iCapacity;

  const CStrArray* Find(const char* p_szKey) const;
};

#endif
