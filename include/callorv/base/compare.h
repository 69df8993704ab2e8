// Comparison of texts and dates, with each other and with C texts.
#ifndef CALLORV_BASE_COMPARE_H
#define CALLORV_BASE_COMPARE_H

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace callorv {
namespace detail {

// The bytes of a text. A class of ours has a T_TextOf of its own; what converts to a C text (null counts as "") has this one.
template <class T>
struct T_TextOf {
  enum { IS_OURS = false, IS_TEXT = std::is_convertible<T, const char*>::value };
  static const char* Begin(const char* p_sz) { return p_sz != nullptr ? p_sz : ""; }
  static std::size_t Size(const char* p_sz) { return p_sz != nullptr ? std::strlen(p_sz) : 0; }
};

template <class A, class B>
struct T_AreTexts : std::integral_constant<bool, (T_TextOf<A>::IS_OURS || T_TextOf<B>::IS_OURS) &&
                                                     T_TextOf<A>::IS_TEXT && T_TextOf<B>::IS_TEXT> {};
template <class A, class B>
using BoolIfTexts = typename std::enable_if<T_AreTexts<A, B>::value, bool>::type;

// Below 0, 0 or above 0, by the bytes as unsigned numbers; of two that begin alike the shorter is the smaller.
template <class A, class B>
int CompareTexts(const A& p_A, const B& p_B) {
  const std::size_t uA = T_TextOf<A>::Size(p_A), uB = T_TextOf<B>::Size(p_B);
  const int iBytes = std::memcmp(T_TextOf<A>::Begin(p_A), T_TextOf<B>::Begin(p_B), uA < uB ? uA : uB);
  return iBytes != 0 ? iBytes : uA < uB ? -1 : uA > uB ? 1 : 0;
}

}    // namespace detail
}    // namespace callorv

// At least one of the two is a CString or a CDate, the other one of these or a C text.
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
