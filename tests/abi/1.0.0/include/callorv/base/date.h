// A date text of up to eight characters.
#ifndef CALLORV_BASE_DATE_H
#define CALLORV_BASE_DATE_H

#include <cstddef>

#include "callorv/base/compare.h"
#include "callorv/export.h"

// The text is kept as it comes, by convention YYYYMMDD, and is not validated: a shorter one stays short, of a
// longer one the first eight characters are kept. Null and "" leave the date unset, an absent value. Dates compare by
// their texts, with each other, with a CString and with C texts; an unset one has the text "".
class CALLORV_API CDate {
 public:
  char m_szDate[9];    // the text, zero-filled behind it
  bool m_bSet;         // whether the date holds a value

  CDate() noexcept;    // unset
  CDate(const CDate& p_c) noexcept = default;
  CDate& operator=(const CDate& p_c) noexcept = default;
  CDate(const char* p_sz) noexcept;    // as Set
  ~CDate() = default;

  void Set(const char* p_sz) noexcept;    // replaces the text and the set flag
  bool IsSet() const { return m_bSet; }    // whether it holds a value
  const char* ToStr() const { return m_szDate; }    // never null
};
static_assert(offsetof(CDate, m_bSet) == 9 && sizeof(CDate) == 10, "programs know its layout");

namespace callorv {
namespace detail {
template <>
struct T_TextOf<CDate> {
  enum { IS_OURS = true, IS_TEXT = true };
  static const char* Begin(const CDate& p_c) { return p_c.m_szDate; }
  static std::size_t Size(const CDate& p_c) { return std::strlen(p_c.m_szDate); }
};
}    // namespace detail
}    // namespace callorv

#endif
