// Numbers of JSON as the types of a message.
#include "common/json_number.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>

namespace {

// That every double keeps, that go over the wire, and that tell every double from the next.
enum { SURE_DIGITS = 15, WIRE_DIGITS = 16, MOST_DIGITS = 17 };

// digits * 10^exponent, the digits without zeroes at either end; of zero there are none.
struct T_Decimal {
  bool bMinus = false;
  std::string sDigits;
  long long iExponent = 0;

  bool operator==(const T_Decimal& p_t) const {
    return bMinus == p_t.bMinus && sDigits == p_t.sDigits && (sDigits.empty() || iExponent == p_t.iExponent);
  }
};

T_Decimal ParseDecimal(std::string_view p_sNumber) {
  constexpr long long FAR = 1000000000;    // a text has fewer digits
  T_Decimal t;
  t.bMinus = p_sNumber.substr(0, 1) == "-";
  const size_t iE = std::min(p_sNumber.find_first_of("eE"), p_sNumber.size());
  if (iE < p_sNumber.size()) {
    std::string_view sExponent = p_sNumber.substr(iE + 1);
    if (sExponent.substr(0, 1) == "+") sExponent.remove_prefix(1);
    const auto tRead = std::from_chars(sExponent.data(), sExponent.data() + sExponent.size(), t.iExponent);
    if (tRead.ec != std::errc()) t.iExponent = sExponent[0] == '-' ? -FAR : FAR;
    t.iExponent = std::clamp(t.iExponent, -FAR, FAR);
  }
  bool bFraction = false;
  for (const char c : p_sNumber.substr(0, iE)) {
    bFraction = bFraction || c == '.';
    if (c < '0' || c > '9') continue;
    if (c != '0' || !t.sDigits.empty()) t.sDigits += c;
    if (bFraction) --t.iExponent;
  }
  const size_t iLast = t.sDigits.find_last_not_of('0');
  const size_t iDigits = iLast == std::string::npos ? 0 : iLast + 1;
  t.iExponent += static_cast<long long>(t.sDigits.size() - iDigits);
  t.sDigits.resize(iDigits);
  return t;
}

// Whether p_d, with p_iDigits digits, is that number.
bool IsWritten(double p_d, int p_iDigits, const T_Decimal& p_t) {
  char sz[MOST_DIGITS + 16];
  std::snprintf(sz, sizeof sz, "%.*e", p_iDigits - 1, p_d);
  return ParseDecimal(sz) == p_t;
}

}    // namespace

bool ToInt(std::string_view p_sNumber, int& p_iOut) {
  const T_Decimal t = ParseDecimal(p_sNumber);
  if (t.sDigits.empty()) {
    p_iOut = 0;
    return true;
  }
  constexpr long long MOST_ZEROES = 10;
  if (t.iExponent < 0 || t.iExponent > MOST_ZEROES) return false;
  const std::string sWhole = (t.bMinus ? "-" : "") + t.sDigits + std::string(static_cast<size_t>(t.iExponent), '0');
  const auto [pEnd, eError] = std::from_chars(sWhole.data(), sWhole.data() + sWhole.size(), p_iOut);
  return eError == std::errc();
}

E_DoubleFit ToDouble(std::string_view p_sNumber, double& p_dOut) {
  const auto [pEnd, eError] = std::from_chars(p_sNumber.data(), p_sNumber.data() + p_sNumber.size(), p_dOut);
  const T_Decimal t = ParseDecimal(p_sNumber);
  if (t.sDigits.empty()) {
    p_dOut = t.bMinus ? -0.0 : 0.0;
    return FIT_WHOLE;
  }
  if (eError != std::errc() || t.sDigits.size() > MOST_DIGITS) return FIT_NOT;
  const int iDigits = static_cast<int>(t.sDigits.size());
  if (iDigits <= SURE_DIGITS && std::fabs(p_dOut) > 1e-300) return FIT_WHOLE;
  if (!IsWritten(p_dOut, iDigits, t)) return FIT_NOT;
  return iDigits <= WIRE_DIGITS ? FIT_WHOLE : FIT_SHORTER;
}
