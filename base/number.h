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

// The leading decimal number, as strtol reads it where long has 32 bits: it stops at INT_MAX and INT_MIN. Of wider
// units the low bytes are read.
template <class CHAR>
int ParseInt32(const CHAR* p_sz) {
  const auto fnChar = [&] { return static_cast<char>(*p_sz); };
  while (IsSpace(fnChar())) ++p_sz;
  const bool bNegative = fnChar() == '-';
  if (bNegative || fnChar() == '+') ++p_sz;
  int iValue = 0;
  for (; IsDigit(fnChar()); ++p_sz) {
    if (__builtin_mul_overflow(iValue, 10, &iValue) || __builtin_add_overflow(iValue, fnChar() - '0', &iValue)) {
      return bNegative ? INT_MIN : INT_MAX;    // INT_MIN itself comes out right, too
    }
  }
  return bNegative ? -iValue : iValue;
}

// A number in the form that "%.15e" has for magnitudes around 1, without its sign: a digit, a point, fifteen digits,
// "e" and a two-digit exponent. False for any other, and when its digits or the power of ten are not exact as doubles;
// otherwise the one operation on them rounds as it should. The x87 unit rounds twice, to 64 bits and then to 53, which
// differs only where the first leaves a tie to the second: false there, too.
inline bool ParsePlainDouble(const char* p_sz, size_t p_iLen, double& p_dOut) {
  static constexpr double s_adPower[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first digit is the lowest byte");
  const auto fnFour = [p_sz](int p_iAt, uint32_t& p_u) {    // digits, to their number
    memcpy(&p_u, p_sz + p_iAt, sizeof(p_u));
    if (((p_u & 0xF0F0F0F0u) | ((p_u + 0x06060606u) & 0xF0F0F0F0u) >> 4) != 0x33333333u) return false;
    p_u = ((p_u & 0x0F0F0F0Fu) * 2561) >> 8;
    p_u = ((p_u & 0x00FF00FFu) * 6553601) >> 16;
    return true;
  };
  uint32_t u2, u6, u10, u13;
  if (p_iLen != 21 || !IsDigit(p_sz[0]) || p_sz[1] != '.' || p_sz[17] != 'e' || (p_sz[18] != '+' && p_sz[18] != '-') ||
      !IsDigit(p_sz[19]) || !IsDigit(p_sz[20]) || !fnFour(2, u2) || !fnFour(6, u6) || !fnFour(10, u10) ||
      !fnFour(13, u13)) {
    return false;
  }
  const uint64_t uDigits = static_cast<uint64_t>(p_sz[0] - '0') * 1000000000000000u +
                           uint64_t{u2 * 10000 + u6} * 10000000u + u10 * 1000 + u13 % 1000;
  const int iExponent = (p_sz[19] - '0') * 10 + (p_sz[20] - '0');
  const int iPower = (p_sz[18] == '-' ? -iExponent : iExponent) - 15;
  if (uDigits > uint64_t{1} << 53 || iPower < -22 || iPower > 22) return false;
  const double_t dDigits = static_cast<double_t>(uDigits);
  const double_t dValue = iPower < 0 ? dDigits / s_adPower[-iPower] : dDigits * s_adPower[iPower];
  if constexpr (sizeof(dValue) > sizeof(p_dOut)) {
    uint64_t uBits;
    memcpy(&uBits, &dValue, sizeof(uBits));
    if ((uBits & 0x7FF) == 0x400) return false;
  }
  p_dOut = static_cast<double>(dValue);
  return true;
}

// strtod in the "C" locale. from_chars does the usual case. Not left to it: what it does not read at all (white space,
// "+", hexadecimal), results outside double's range, and on 32-bit magnitudes from 1e19 on, where the x87 unit
// rounds twice.
inline double ParseDouble(const char* p_sz, size_t p_iLen) {
  const char* p = p_sz + (*p_sz == '-');
  if (IsDigit(*p) && (p[0] != '0' || (p[1] | 0x20) != 'x')) {
    double dValue = 0;
    if (ParsePlainDouble(p, p_iLen - static_cast<size_t>(p - p_sz), dValue)) {
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
inline char* FormatInt(char* p_p, int p_i) {
  if (p_i < 0 || p_i > 9) return std::to_chars(p_p, p_p + INT_CHARS, p_i).ptr;
  *p_p = static_cast<char>('0' + p_i);
  return p_p + 1;
}

}    // namespace callorv::detail

#endif
