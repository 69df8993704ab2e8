// What differs between the value types that setters take and getters give.
#ifndef CALLORV_MSG_VALUE_TRAITS_H
#define CALLORV_MSG_VALUE_TRAITS_H

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "base/number.h"
#include "dict/arena.h"
#include "dict/tag_types.h"
#include "msg/msg_value.h"

namespace callorv::detail {

// The numbers that the type-mismatch texts of an operation print. Callers compare these texts, so they never change.
struct T_Lines {
  int iSet, iGet, iGetArr, iGetAt;
};
template <class T>
inline constexpr T_Lines s_tLines{};    // by the type that callers pass; 0: there is no such operation
template <> inline constexpr T_Lines s_tLines<CString>{1178, 699, 943, 2355};
template <> inline constexpr T_Lines s_tLines<std::string_view> = s_tLines<CString>;
template <> inline constexpr T_Lines s_tLines<int>{1233, 740, 983, 2393};
template <> inline constexpr T_Lines s_tLines<double>{1280, 777, 1023, 2431};
template <> inline constexpr T_Lines s_tLines<bool>{1327, 814, 1063, 2469};
template <> inline constexpr T_Lines s_tLines<CDate>{1378, 850, 1103, 2506};
template <> inline constexpr T_Lines s_tLines<CMsg*>{1441, 891, 1144, 2544};
template <> inline constexpr T_Lines s_tLines<CInt>{2114, 1987, 0, 0};
template <> inline constexpr T_Lines s_tLines<CDbl>{2165, 2024, 0, 0};
template <> inline constexpr T_Lines s_tLines<CBool>{2216, 2061, 0, 0};

// The longest text that stands inside its CString and takes no memory of its own.
enum { MAX_NEAR_TEXT = 15 };
static_assert(sizeof(CString) == MAX_NEAR_TEXT + 1, "CString has room for a short text and its length");

// A text to be stored, not yet copied.
struct T_Text {
  const char* p;
  int iLen;
};
// What is stored of a piece of text that was read: a carriage return at its ends stays.
inline std::string_view Trimmed(std::string_view p_sv) {
  const auto fnIsBlank = [](char p_c) { return p_c == ' ' || p_c == '\t' || p_c == '\n'; };
  while (!p_sv.empty() && fnIsBlank(p_sv.front())) p_sv.remove_prefix(1);
  while (!p_sv.empty() && fnIsBlank(p_sv.back())) p_sv.remove_suffix(1);
  return p_sv;
}
// A length as texts have it. What is too long for one has INT_MAX, which is too long as well.
inline int TextLen(size_t p_uLen) { return static_cast<int>(std::min<size_t>(p_uLen, INT_MAX)); }

template <class T> void Assign(T& p_Out, const T& p_Value) { p_Out = p_Value; }
template <class T> void Assign(T_Nullable<T>& p_Out, T p_Value) { p_Out.Set(p_Value); }
inline void Assign(std::string_view& p_svOut, const CString& p_s) {
  p_svOut = {p_s.ToStr(), static_cast<size_t>(p_s.GetSize())};
}

// For each type: its tag type, its array and the text for no memory for that, and
//   Value   the value of a single cell; null when there is none
//   Parse   what is stored of a text, behind which there stands a byte that ends numbers and words; not of sub-messages
//   Clear   what a getter does to its output before any check
//   Store   keeps a value in a single cell, with memory of the arena; null, or the text why not (the cell's value is
//           then as it was)
// For a value kept in the cell itself:
template <class T, E_TagType TYPE, class ARRAY, T CMsgValue::*VALUE, ARRAY* CMsgValue::*ARRAY_OF>
struct T_InlineTraits {
  static_assert(TYPE < TAG_TYPES && !TagType(TYPE).bApart);
  using Type = T;
  using Array = ARRAY;
  static constexpr E_TagType eType = TYPE;
  static constexpr auto pArrayOf = ARRAY_OF;
  static const T* Value(const CMsgValue& p_cCell) { return &(p_cCell.*VALUE); }
  static void Clear(T& p_Out) { p_Out = T(); }
  static const char* Store(CArena&, CMsgValue& p_cCell, T p_Value) {
    p_cCell.*VALUE = p_Value;
    return nullptr;
  }
};
// For a value that the cell points to:
template <class T, E_TagType TYPE, class ARRAY, T* CMsgValue::*VALUE, ARRAY* CMsgValue::*ARRAY_OF>
struct T_OwnedTraits {
  static_assert(TYPE < TAG_TYPES && TagType(TYPE).bApart);
  using Type = T;
  using Array = ARRAY;
  static constexpr E_TagType eType = TYPE;
  static constexpr auto pArrayOf = ARRAY_OF;
  static const T* Value(const CMsgValue& p_cCell) { return p_cCell.*VALUE; }
  template <class OUT> static void Clear(OUT&) {}
};

template <class T> struct ValueTraits;
template <> struct ValueTraits<int>
    : T_InlineTraits<int, TAG_INTEGER, CIntArray, &CMsgValue::m_iVal, &CMsgValue::m_pIntArr> {
  static constexpr const char* szNewArray = "new CIntArray failed";
  static int Parse(const char* p_sz, int) { return ParseInt32(p_sz); }
};
template <> struct ValueTraits<double>
    : T_InlineTraits<double, TAG_DOUBLE, CDblArray, &CMsgValue::m_dVal, &CMsgValue::m_pDblArr> {
  static constexpr const char* szNewArray = "new CDblArray failed";
  static double Parse(const char* p_sz, int p_iLen) { return ParseDouble(p_sz, static_cast<size_t>(p_iLen)); }
};
template <> struct ValueTraits<bool>
    : T_InlineTraits<bool, TAG_BOOL, CBoolArray, &CMsgValue::m_bVal, &CMsgValue::m_pBoolArr> {
  static constexpr const char* szNewArray = "new CBoolArray failed";
  static bool Parse(const char* p_sz, int p_iLen) {
    return strncmp(p_sz, "true", static_cast<size_t>(std::max(p_iLen, 4))) == 0;
  }
};
template <> struct ValueTraits<CMsg*>
    : T_InlineTraits<CMsg*, TAG_SUBMSG, CMsgArray, &CMsgValue::m_pMsg, &CMsgValue::m_pMsgArr> {
  static constexpr const char* szNewArray = "new CMsgArray failed";
};
template <> struct ValueTraits<CString>
    : T_OwnedTraits<CString, TAG_STRING, CStrArray, &CMsgValue::m_pStr, &CMsgValue::m_pStrArr> {
  static constexpr const char* szNewArray = "new CStrArray failed";
  static T_Text Parse(const char* p_sz, int p_iLen) { return {p_sz, p_iLen}; }
  static const char* Store(CArena& p_cArena, CMsgValue& p_cCell, T_Text p_tText) try {
    CString*& pStr = p_cCell.m_pStr;
    if (pStr == nullptr) {
      void* p = p_cArena.Allocate(sizeof(CString));
      if (p == nullptr) return "new CString failed";
      pStr = new (p) CString;
    }
    pStr->Set(p_tText.p, p_tText.iLen);
    return nullptr;
  } catch (const std::bad_alloc&) {
    return "new CString failed";
  }
};
// A string that goes out as it stands in the message, with a NUL behind it: borrowed until the value changes.
template <> struct ValueTraits<std::string_view> : ValueTraits<CString> {};
template <> struct ValueTraits<CDate>
    : T_OwnedTraits<CDate, TAG_DATE, CDateArray, &CMsgValue::m_pDate, &CMsgValue::m_pDateArr> {
  static constexpr const char* szNewArray = "new CDateArray failed";
  static CDate Parse(const char* p_sz, int p_iLen) {    // there need be no NUL behind it
    char szDate[sizeof(CDate::m_szDate)] = "";
    std::string_view(p_sz, static_cast<size_t>(p_iLen)).copy(szDate, sizeof(szDate) - 1);
    return CDate(szDate);
  }
  static const char* Store(CArena& p_cArena, CMsgValue& p_cCell, const CDate& p_c) {
    CDate*& pDate = p_cCell.m_pDate;
    if (pDate == nullptr) {
      void* p = p_cArena.Allocate(sizeof(CDate));
      if (p == nullptr) return "new CDate failed";
      pDate = new (p) CDate;
    }
    *pDate = p_c;
    return nullptr;
  }
};
// Nullable values are kept as the plain ones; only what goes out differs.
template <class T> struct ValueTraits<T_Nullable<T>> : ValueTraits<T> {
  static void Clear(T_Nullable<T>& p_Out) { p_Out.Clear(); }
};

// Gives out the value of a single cell; false when there is none.
template <class T> bool Load(const CMsgValue& p_cCell, T& p_Out) {
  const auto* pValue = ValueTraits<T>::Value(p_cCell);
  if (pValue != nullptr) Assign(p_Out, *pValue);
  return pValue != nullptr;
}

// p_fn(the traits of a tag type whose values are no sub-messages); false: it is no such type.
template <class F>
[[gnu::always_inline]] inline bool WithPlainType(E_TagType p_eType, F p_fn) {
  switch (p_eType) {
    case TAG_STRING: p_fn(ValueTraits<CString>()); return true;
    case TAG_INTEGER: p_fn(ValueTraits<int>()); return true;
    case TAG_DOUBLE: p_fn(ValueTraits<double>()); return true;
    case TAG_BOOL: p_fn(ValueTraits<bool>()); return true;
    case TAG_DATE: p_fn(ValueTraits<CDate>()); return true;
    case TAG_SUBMSG:
    case TAG_UNKNOWN: break;
  }
  return false;
}
// The same for all types.
template <class F>
[[gnu::always_inline]] inline bool WithType(E_TagType p_eType, F p_fn) {
  if (p_eType != TAG_SUBMSG) return WithPlainType(p_eType, p_fn);
  p_fn(ValueTraits<CMsg*>());
  return true;
}

template <class ARRAY> ARRAY* NewArray() { return new ARRAY; }
template <> inline CMsgArray* NewArray() { return new CMsgArray(true); }
// A value as an array takes it, and an element of an array as the type that goes out.
template <class T> const T& ToElement(const T& p_Value) { return p_Value; }
inline CString ToElement(const T_Text& p_t) {
  CString s;
  s.Set(p_t.p, p_t.iLen);
  return s;
}
// Appends; throws std::bad_alloc.
template <class T> void AddTo(CArray<T>& p_aOut, T p_Value) { p_aOut.Add(std::move(p_Value)); }
inline void AddTo(CMsgArray& p_apOut, CMsg* p_pMsg) {
  if (p_pMsg == nullptr)
    return p_apOut.SetSize(p_apOut.GetSize() + 1);    // a row whose message is gone keeps its index
  if (p_apOut.Add(p_pMsg) == MSG_MEMORY) throw std::bad_alloc();
}

}    // namespace callorv::detail

#endif
