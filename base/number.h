// Numbers to text and back: the same on 32-bit and 64-bit, and in every locale.
#ifndef CALLORV_BASE_NUMBER_H
#define CALLORV_BASE_NUMBER_H

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <climits>
#include <cmath>

namespace callorv::detail {

inline bool IsSpace(char p_c) { return p_c == ' ' || (p_c >= '\t' && p_c <= '\r'); }
inline bool IsDigit(char p_c) { return p_c >= '0' && p_c <= '9'; }

// The leading decimal number, as strtol reads it where long has 32 bits: it stops at INT_MAX and INT_MIN.
inline int ParseInt32(const char* p_sz) {
  while (IsSpace(*p_sz)) ++p_sz;
  const bool bNegative = *p_sz == '-';
  if (*p_sz == '-' || *p_sz == '+') ++p_sz;
  long long iValue = 0;
  for (; IsDigit(*p_sz); ++p_sz) {
    iValue = iValue * 10 + (*p_sz - '0');
    if (iValue > INT_MAX) return bNegative ? INT_MIN : INT_MAX;    // INT_MIN itself comes out right, too
  }
  return static_cast<int>(bNegative ? -iValue : iValue);
}

// strtod in the "C" locale. from_chars does the usual case. Not left to it: what it does not read at all (white space,
// "+", hexadecimal), results outside double's range, and on 32-bit magnitudes from 1e19 on, where the x87 unit
// rounds twice.
inline double ParseDouble(const char* p_sz, size_t p_iLen) {
  const char* p = p_sz + (*p_sz == '-');
  if (IsDigit(*p) && (p[0] != '0' || (p[1] | 0x20) != 'x')) {
    double dValue = 0;
    if (std::from_chars(p_sz, p_sz + p_iLen, dValue).ec == std::errc() &&
        (sizeof(void*) > 4 || std::fabs(dValue) < 1e19)) {
      return dValue;
    }
  }
  static const locale_t s_tC = newlocale(LC_ALL_MASK, "C", nullptr);    // cannot fail: "C" is built in
  return strtod_l(p_sz, nullptr, s_tC);
}

// "%d": at most 11 characters, no NUL; returns the end.
inline char* FormatInt(char* p_p, int p_i) { return std::to_chars(p_p, p_p + 11, p_i).ptr; }

}    // namespace callorv::detail

#endif
