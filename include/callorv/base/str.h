// An owned 8-bit text.
#ifndef CALLORV_BASE_STR_H
#define CALLORV_BASE_STR_H

#include "callorv/base/compare.h"
#include "callorv/export.h"

template <class T>
class CArray;
class CString;
typedef CArray<CString> CStrArray;

// A NUL-terminated text with its length. Copies are deep; texts of up to 15 bytes need no allocation.
// Wherever a `const char*` goes in, a null pointer counts as "". Operations that need memory throw
// std::bad_alloc when there is none and then leave the text as it was.
// Use an object from one thread at a time; distinct objects are independent.
class CALLORV_API CString {
 public:
  CString() noexcept { SetInline(0); }
  CString(const char* p_sz);          // a copy of the text
  CString(const CString& p_s);
  CString(CString&& p_s) noexcept;    // p_s becomes empty
  ~CString() {
    if (IsHeap()) FreeHeap();
  }

  // A copy of the text, which may be, or lie inside, this one.
  void Set(const char* p_sz);
  void Set(const CString& p_s);
  // The p_iLen bytes from p_p on, NULs among them included; p_iLen below 1 gives "". p_p may lie inside this text;
  // it is not null unless p_iLen is below 1.
  void Set(const char* p_p, int p_iLen);
  CString& operator=(const CString& p_s);
  CString& operator=(CString&& p_s) noexcept;
  CString& operator=(const char* p_sz);    // as Set

  // The C text, never null. Borrowed: valid until the text is next changed or destroyed.
  const char* ToStr() const { return IsHeap() ? m_u.tHeap.pData : m_u.szInline; }
  // Length in bytes without the terminator.
  int GetSize() const { return IsHeap() ? m_u.tHeap.iSize : INLINE_MAX - m_u.szInline[INLINE_MAX]; }
  bool IsEmpty() const { return GetSize() == 0; }    // whether it is ""

  void Empty();    // make the text empty
  void Clear();    // the same

  // Replaces the text with the printf-style formatting of the arguments, of any length that a text can have; arguments
  // may point into the old text. A format that cannot be printed (an invalid wide character, say) gives "".
  void Format(const char* p_szFmt, ...) CALLORV_PRINTF(2, 3);

  void Trim();                        // removes blanks, tabs, CRs and LFs at both ends
  void Trim(const char* p_szSet);     // removes every character of p_szSet at both ends

  // Exact and case-sensitive; "" is a prefix and a suffix of every text.
  bool StartsWith(const char* p_sz) const;
  bool EndsWith(const char* p_sz) const;

  // p_iCount bytes from p_iStart (0-based) on; -1 (any negative count) means the rest. What lies outside
  // the text is left out, so a start outside 0 to GetSize() gives "".
  CString Mid(int p_iStart, int p_iCount) const;

  // The leading decimal number, after white space and an optional sign; 0 when there is none. Beyond 32 bits it
  // stops at 2147483647 or -2147483648, on every platform.
  int ToInt() const;
  // The leading number as strtod reads it in the "C" locale, whatever locale the application has set; 0 when none.
  double ToDbl() const;

  // Fills p_pOut (emptied first) with the pieces between separators and returns their count.
  //   p_bTrim  true: pieces are trimmed as by Trim() and empty ones are dropped;
  //            false: pieces come as they are, empty ones too ("" gives one empty piece)
  // A null p_pOut gives 0.
  int Split(char p_cSep, CStrArray* p_pOut, bool p_bTrim) const;

 private:
  // 16 bytes on 32-bit and 64-bit. A short text lives in szInline, whose last byte holds INLINE_MAX - length
  // (and so is the terminator of a full one); a long one has HEAP_FLAG in the same byte, the top one of uCapacity.
  enum { INLINE_MAX = 15 };
  static const unsigned HEAP_FLAG = 0x80000000u;
  struct T_Heap {
    char* pData;
    int iSize;
#if __SIZEOF_POINTER__ == 4
    int iUnused;
#endif
    unsigned uCapacity;    // bytes at pData, terminator included, | HEAP_FLAG
  };
  union {
    T_Heap tHeap;
    char szInline[INLINE_MAX + 1];
  } m_u;

  bool IsHeap() const { return (m_u.szInline[INLINE_MAX] & 0x80) != 0; }    // whether or not char is signed
  void SetInline(int p_iSize) {
    m_u.szInline[INLINE_MAX] = static_cast<char>(INLINE_MAX - p_iSize);
    m_u.szInline[p_iSize] = 0;
  }
  void FreeHeap() noexcept;
  char* Reserve(int p_iSize);      // room for p_iSize bytes and the terminator; the old text is lost
  char* NewHeap(int p_iSize);      // the same, always on the heap
  void SetSize(int p_iSize);       // after writing into Reserve()'s room
};
static_assert(sizeof(CString) == 16, "programs know its size, which is the same on 32-bit and 64-bit");

namespace callorv {
namespace detail {
template <>
struct T_TextOf<CString> {
  enum { IS_OURS = true, IS_TEXT = true };
  static const char* Begin(const CString& p_s) { return p_s.ToStr(); }
  static std::size_t Size(const CString& p_s) { return static_cast<std::size_t>(p_s.GetSize()); }
};
}    // namespace detail
}    // namespace callorv

// All comparisons are exact, by bytes (base/compare.h), and with a C text up to p_s's first NUL if it holds one.
CALLORV_API bool operator==(const CString& p_s, const char* p_sz);
CALLORV_API bool operator!=(const CString& p_s, const char* p_sz);

// A new text holding the printf-style formatting of the arguments; see CString::Format.
CALLORV_API CString CFormat(const char* p_szFmt, ...) CALLORV_PRINTF(1, 2);

#endif
