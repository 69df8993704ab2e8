// Numbers to text and back: the same on 32-bit and 64-bit, and in every locale.
#ifndef CALLORV_BASE_NUMBER_H
#define CALLORV_BASE_NUMBER_H

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace callorv::detail {

inline bool IsSpace(char p_c) { return p_c == ' ' || (p_c >= '\t' && p_c <= '\r'); }
inline bool IsWhite(char p_c) { return p_c == ' ' || p_c == '\t' || p_c == '\r' || p_c == '\n'; }    // as XML has it
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

// A number in the form that "%.15e" has for magnitudes around 1, without its sign: a digit, a point, fifteen digits,
// "e" and a two-digit exponent. False for any other, and when its digits or the power of ten are not exact as doubles;
// otherwise the one operation on them rounds as it should, once. Not for the x87 unit, which rounds twice.
inline bool ParsePlainDouble(const char* p_sz, size_t p_iLen, double& p_dOut) {
  static constexpr double s_adPower[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first digit is the lowest byte");
  const auto fnDigits = [](uint64_t p_u) {    // eight of them
    const uint64_t uHigh = 0xF0F0F0F0F0F0F0F0u;
    return ((p_u & uHigh) | ((p_u + 0x0606060606060606u) & uHigh) >> 4) == 0x3333333333333333u;
  };
  const auto fnValue = [](uint64_t p_u) {
    p_u = ((p_u & 0x0F0F0F0F0F0F0F0Fu) * 2561) >> 8;
    p_u = ((p_u & 0x00FF00FF00FF00FFu) * 6553601) >> 16;
    return ((p_u & 0x0000FFFF0000FFFFu) * 42949672960001u) >> 32;
  };
  if (p_iLen != 21 || !IsDigit(p_sz[0]) || p_sz[1] != '.' || p_sz[17] != 'e' || (p_sz[18] != '+' && p_sz[18] != '-') ||
      !IsDigit(p_sz[19]) || !IsDigit(p_sz[20])) {
    return false;
  }
  uint64_t uFirst, uLast;    // digits 2 to 9 and 9 to 16
  memcpy(&uFirst, p_sz + 2, sizeof(uFirst));
  memcpy(&uLast, p_sz + 9, sizeof(uLast));
  if (!fnDigits(uFirst) || !fnDigits(uLast)) return false;
  const uint64_t uDigits = static_cast<uint64_t>(p_sz[0] - '0') * 1000000000000000u + fnValue(uFirst) * 10000000u +
                           fnValue(uLast) % 10000000u;
  const int iExponent = (p_sz[19] - '0') * 10 + (p_sz[20] - '0');
  const int iPower = (p_sz[18] == '-' ? -iExponent : iExponent) - 15;
  if (uDigits > uint64_t{1} << 53 || iPower < -22 || iPower > 22) return false;
  const double dDigits = static_cast<double>(uDigits);
  p_dOut = iPower < 0 ? dDigits / s_adPower[-iPower] : dDigits * s_adPower[iPower];
  return true;
}

// strtod in the "C" locale. from_chars does the usual case. Not left to it: what it does not read at all (white space,
// "+", hexadecimal), results outside double's range, and on 32-bit magnitudes from 1e19 on, where the x87 unit
// rounds twice.
inline double ParseDouble(const char* p_sz, size_t p_iLen) {
  const char* p = p_sz + (*p_sz == '-');
  if (IsDigit(*p) && (p[0] != '0' || (p[1] | 0x20) != 'x')) {
    double dValue = 0;
    if (sizeof(void*) > 4 && ParsePlainDouble(p, p_iLen - static_cast<size_t>(p - p_sz), dValue)) {
      return p == p_sz ? dValue : -dValue;
    }
    if (std::from_chars(p_sz, p_sz + p_iLen, dValue).ec == std::errc() &&
        (sizeof(void*) > 4 || std::fabs(dValue) < 1e19)) {
      return dValue;
    }
  }
  static const locale_t s_tC = newlocale(LC_ALL_MASK, "C", nullptr);    // cannot fail: "C" is built in
  return strtod_l(p_sz, nullptr, s_tC);
}

enum { INT_CHARS = 11 };    // what FormatInt may need

// "%d", without a NUL; returns the end.
inline char* FormatInt(char* p_p, int p_i) { return std::to_chars(p_p, p_p + INT_CHARS, p_i).ptr; }

}    // namespace callorv::detail

#endif
