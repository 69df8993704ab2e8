// Comparison of texts and dates, with each other and with C texts.
#ifndef CALLORV_BASE_COMPARE_H
#define CALLORV_BASE_COMPARE_H

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace callorv {
namespace detail {

// The bytes of a text: of a class of ours, which has a T_TextOf of its own, or of a C text, where null counts as "".
template <class T>
struct T_TextOf {
  enum { IS_OURS = false, IS_TEXT = false };
};
struct T_CTextOf {
  enum { IS_OURS = false, IS_TEXT = true };
  static const char* Begin(const char* p_sz) { return p_sz != nullptr ? p_sz : ""; }
};
template <> struct T_TextOf<const char*> : T_CTextOf {};
template <> struct T_TextOf<char*> : T_CTextOf {};
template <std::size_t SIZE> struct T_TextOf<char[SIZE]> : T_CTextOf {};

template <class A, class B>
using BoolIfTexts = typename std::enable_if<(T_TextOf<A>::IS_OURS || T_TextOf<B>::IS_OURS) && T_TextOf<A>::IS_TEXT &&
                                                T_TextOf<B>::IS_TEXT, bool>::type;

// The size of p_A where it is compared with a B: a text that holds NULs is compared with a C text up to the first.
template <class A, class B>
typename std::enable_if<T_TextOf<A>::IS_OURS && T_TextOf<B>::IS_OURS, std::size_t>::type TextSize(const A& p_A) {
  return T_TextOf<A>::Size(p_A);
}
template <class A, class B>
typename std::enable_if<!T_TextOf<A>::IS_OURS || !T_TextOf<B>::IS_OURS, std::size_t>::type TextSize(const A& p_A) {
  return std::strlen(T_TextOf<A>::Begin(p_A));
}

// Below 0, 0 or above 0, by the bytes as unsigned numbers; of two that begin alike the shorter is the smaller.
template <class A, class B>
int CompareTexts(const A& p_A, const B& p_B) {
  const std::size_t uA = TextSize<A, B>(p_A), uB = TextSize<B, A>(p_B);
  const int iBytes = std::memcmp(T_TextOf<A>::Begin(p_A), T_TextOf<B>::Begin(p_B), uA < uB ? uA : uB);
  return iBytes != 0 ? iBytes : uA < uB ? -1 : uA > uB ? 1 : 0;
}

}    // namespace detail
}    // namespace callorv

// At least one of the two is a CString or a CDate, the other one of these or a C text (a pointer to char or an array of
// it).
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator==(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) == 0;
}
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator!=(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) != 0;
}
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator<(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) < 0;
}
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator<=(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) <= 0;
}
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator>(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) > 0;
}
template <class A, class B>
callorv::detail::BoolIfTexts<A, B> operator>=(const A& p_A, const B& p_B) {
  return callorv::detail::CompareTexts(p_A, p_B) >= 0;
}

#endif
