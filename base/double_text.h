// A double as text, fast.
#ifndef CALLORV_BASE_DOUBLE_TEXT_H
#define CALLORV_BASE_DOUBLE_TEXT_H

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace callorv::detail {

enum { DOUBLE_CHARS = 24 };    // what FormatDouble may need

// The powers of ten by which a double becomes a number of 16 digits.
inline constexpr int MIN_POWER = 15 - 308, MAX_POWER = 15 + 308;
inline constexpr uint64_t DIGITS_16 = 10000000000000000u;

// A natural number, least limb first, long enough for 10^MAX_POWER and for 2^ONE with its quotients by powers of ten.
inline constexpr int LIMBS = 36, ONE = 32 * LIMBS - 1;
using CLimbs = std::array<uint32_t, LIMBS>;

constexpr uint64_t TopBits(const CLimbs& p_a) {    // the 64 bits from the highest one on
  int i = LIMBS - 1;
  while (p_a[static_cast<size_t>(i)] == 0) --i;
  const auto fnLimb = [&](int p_i) { return p_i >= 0 ? uint64_t{p_a[static_cast<size_t>(p_i)]} : uint64_t{0}; };
  uint64_t uTop = fnLimb(i) << 32 | fnLimb(i - 1);
  uint64_t uNext = fnLimb(i - 2);
  for (; (uTop >> 63) == 0; uNext = uNext << 1 & 0xFFFFFFFFu) uTop = uTop << 1 | uNext >> 31;
  return uTop;
}

// 10^n as 64 bits with the highest one set, cut off behind.
inline constexpr auto s_auPower = [] {
  std::array<uint64_t, MAX_POWER - MIN_POWER + 1> au{};
  CLimbs aPower{}, aPart{};
  aPower[0] = 1;
  for (int n = 0; n <= MAX_POWER; ++n) {
    au[static_cast<size_t>(n - MIN_POWER)] = TopBits(aPower);
    uint64_t uCarry = 0;
    for (uint32_t& u : aPower) {
      uCarry += uint64_t{u} * 10;
      u = static_cast<uint32_t>(uCarry);
      uCarry >>= 32;
    }
  }
  aPart[LIMBS - 1] = 0x80000000u;    // 2^ONE; cutting off after each division gives the same as once at the end
  for (int n = -1; n >= MIN_POWER; --n) {
    uint64_t uRest = 0;
    for (size_t i = LIMBS; i-- > 0;) {
      uRest = uRest << 32 | aPart[i];
      aPart[i] = static_cast<uint32_t>(uRest / 10);
      uRest %= 10;
    }
    au[static_cast<size_t>(n - MIN_POWER)] = TopBits(aPart);
  }
  return au;
}();

constexpr int FloorLog10Of2Power(int p_i) { return p_i * 78913 >> 18; }    // right beyond +-1100
constexpr int FloorLog2Of10Power(int p_i) { return p_i * 217706 >> 16; }    // right beyond +-325

inline uint64_t HighProduct(uint64_t p_u1, uint64_t p_u2) {
#if defined(__SIZEOF_INT128__)
  __extension__ using T_Wide = unsigned __int128;
  return static_cast<uint64_t>(T_Wide{p_u1} * p_u2 >> 64);
#else
  const uint64_t uLow1 = static_cast<uint32_t>(p_u1), uHigh1 = p_u1 >> 32;
  const uint64_t uLow2 = static_cast<uint32_t>(p_u2), uHigh2 = p_u2 >> 32;
  const uint64_t uMiddle = uHigh1 * uLow2 + (uLow1 * uLow2 >> 32);
  return uHigh1 * uHigh2 + (uMiddle >> 32) + ((uLow1 * uHigh2 + static_cast<uint32_t>(uMiddle)) >> 32);
#endif
}

// "00" to "99"
inline constexpr auto s_szPair = [] {
  std::array<char, 200> sz{};
  for (size_t i = 0; i < 100; ++i) {
    sz[2 * i] = static_cast<char>('0' + i / 10);
    sz[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return sz;
}();

inline char* PutTwo(char* p_p, uint32_t p_u) {
  memcpy(p_p, &s_szPair[2 * p_u], 2);
  return p_p + 2;
}
inline char* PutFour(char* p_p, uint32_t p_u) { return PutTwo(PutTwo(p_p, p_u / 100), p_u % 100); }
inline char* PutEight(char* p_p, uint32_t p_u) { return PutFour(PutFour(p_p, p_u / 10000), p_u % 10000); }

inline char* FormatExactly(char* p_p, double p_d) {
  return std::to_chars(p_p, p_p + DOUBLE_CHARS, p_d, std::chars_format::scientific, 15).ptr;
}

// "%.15e": at most 23 characters, no NUL; returns the end.
// The double times a power of ten, as a number of 16 digits before and some bits behind the point. It comes out less
// than two units of the last such bit too small, so only next to a half it may have to be rounded otherwise; that is
// left to the exact way, and so are zeros, subnormal numbers and what is no number.
inline char* FormatDouble(char* p_p, double p_d) {
  uint64_t uBits;
  static_assert(sizeof(uBits) == sizeof(p_d));
  memcpy(&uBits, &p_d, sizeof(uBits));
  const int iBiased = static_cast<int>(uBits >> 52 & 0x7FF);
  if (iBiased == 0 || iBiased == 0x7FF) return FormatExactly(p_p, p_d);
  const int iBinary = iBiased - 1023;
  const uint64_t uFraction = uBits << 11 | uint64_t{1} << 63;    // times 2^(iBinary - 63)

  int iDecimal = FloorLog10Of2Power(iBinary);    // or one more
  uint64_t uDigits = 0;
  for (;; ++iDecimal) {
    const int iPower = 15 - iDecimal;
    const uint64_t uProduct = HighProduct(uFraction, s_auPower[static_cast<size_t>(iPower - MIN_POWER)]);
    const int iBehind = 62 - iBinary - FloorLog2Of10Power(iPower);
    uDigits = uProduct >> iBehind;
    if (uDigits >= DIGITS_16) continue;
    const uint64_t uHalf = uint64_t{1} << (iBehind - 1), uBehind = uProduct & (2 * uHalf - 1);
    if (uBehind == uHalf - 1 || uBehind == uHalf) return FormatExactly(p_p, p_d);
    uDigits += uBehind > uHalf;
    break;
  }
  if (uDigits == DIGITS_16) {
    uDigits /= 10;
    ++iDecimal;
  }

  if ((uBits >> 63) != 0) *p_p++ = '-';
  char* pDigits = p_p + 1;    // the first digit then goes before the point
  PutEight(PutEight(pDigits, static_cast<uint32_t>(uDigits / 100000000)), static_cast<uint32_t>(uDigits % 100000000));
  p_p[0] = pDigits[0];
  pDigits[0] = '.';
  p_p += 17;
  *p_p++ = 'e';
  *p_p++ = iDecimal < 0 ? '-' : '+';
  const auto uExponent = static_cast<uint32_t>(iDecimal < 0 ? -iDecimal : iDecimal);
  if (uExponent >= 100) *p_p++ = static_cast<char>('0' + uExponent / 100);
  return PutTwo(p_p, uExponent % 100);
}

}    // namespace callorv::detail

#endif
