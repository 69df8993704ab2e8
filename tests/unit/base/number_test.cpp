// Numbers to text and back.
#include "base/double_text.h"
#include "base/number.h"

#include <doctest/doctest.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "support/comma_locale.h"

using namespace callorv::detail;

namespace {

double Parse(const std::string& p_s) { return ParseDouble(p_s.c_str(), p_s.size()); }

uint64_t Bits(double p_d) {
  uint64_t uBits;
  memcpy(&uBits, &p_d, sizeof uBits);
  return uBits;
}

double FromBits(uint64_t p_uBits) {
  double d;
  memcpy(&d, &p_uBits, sizeof d);
  return d;
}

// The same number, the sign of zero included, or both no number with the same sign.
bool Same(double p_d1, double p_d2) {
  if (std::isnan(p_d1) || std::isnan(p_d2)) {
    return std::isnan(p_d1) && std::isnan(p_d2) && std::signbit(p_d1) == std::signbit(p_d2);
  }
  return Bits(p_d1) == Bits(p_d2);
}

// How many of p_iCount texts from p_fnText read differently than by strtod; the first of them goes into *p_psFirst.
template <class FN>
int CountDifferent(int p_iCount, FN p_fnText, std::string* p_psFirst) {
  int iDifferent = 0;
  for (int i = 0; i < p_iCount; ++i) {
    const std::string sText = p_fnText();
    if (Same(Parse(sText), strtod(sText.c_str(), nullptr))) continue;
    if (iDifferent++ == 0) *p_psFirst = sText;
  }
  return iDifferent;
}

// As printf's %.<precision><form>; a negative precision counts as none.
std::string Print(char p_cForm, int p_iPrecision, double p_d) {
  char sz[1500];
  switch (p_cForm) {
    case 'a': snprintf(sz, sizeof sz, "%.*a", p_iPrecision, p_d); break;
    case 'e': snprintf(sz, sizeof sz, "%.*e", p_iPrecision, p_d); break;
    case 'f': snprintf(sz, sizeof sz, "%.*f", p_iPrecision, p_d); break;
    default: snprintf(sz, sizeof sz, "%.*g", p_iPrecision, p_d); break;
  }
  return sz;
}

struct T_Form {
  char cForm;
  int iPrecision;
};

std::string Format(double p_d) {
  char ac[DOUBLE_CHARS];
  return std::string(ac, FormatDouble(ac, p_d));
}

}    // namespace

TEST_CASE("ParseInt32 reads the leading decimal number") {
  struct T_Row {
    std::string sText;
    int iValue;
  };
  static const T_Row s_atRow[] = {
      {"", 0},
      {"0", 0},
      {"7", 7},
      {"+7", 7},
      {"-7", -7},
      {"007", 7},
      {"123abc", 123},
      {"12 34", 12},
      {"1.9", 1},
      {"1e3", 1},
      {"0x10", 0},
      {"abc", 0},
      {"-", 0},
      {"+", 0},
      {"+-7", 0},
      {"-+7", 0},
      {"- 7", 0},
      {" \t\n\v\f\r42", 42},
      {"\xA0" "42", 0},
      {"2147483646", 2147483646},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"4294967296", 2147483647},
      {"4294967303", 2147483647},
      {"-2147483647", -2147483647},
      {"-2147483648", -2147483647 - 1},
      {"-2147483649", -2147483647 - 1},
      {"9223372036854775808", 2147483647},
      {"-9223372036854775809", -2147483647 - 1},
      {"99999999999999999999999999999999999999", 2147483647},
      {"-99999999999999999999999999999999999999", -2147483647 - 1},
      {"00000000000000000000000000000000000000000012", 12},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CHECK(ParseInt32(tRow.sText.c_str()) == tRow.iValue);
  }
}

TEST_CASE("ParseInt32 agrees with strtoll cut to 32 bits") {
  std::mt19937 cRandom(1);
  static const char s_szChars[] = "0123456789012345678901234567890123456789 \t-+.x";
  for (int i = 0; i < 200000; ++i) {
    std::string sText(cRandom() % 14, ' ');
    for (char& c : sText) c = s_szChars[cRandom() % (sizeof s_szChars - 1)];
    long long iExpected = strtoll(sText.c_str(), nullptr, 10);
    if (iExpected > INT_MAX) iExpected = INT_MAX;
    if (iExpected < INT_MIN) iExpected = INT_MIN;
    if (ParseInt32(sText.c_str()) != iExpected) FAIL(sText);
  }
}

TEST_CASE("ParseDouble reads the leading number") {
  const double dInf = std::numeric_limits<double>::infinity();
  struct T_Row {
    std::string sText;
    double dValue;
  };
  const T_Row atRow[] = {
      {"", 0.0},
      {"abc", 0.0},
      {"-", 0.0},
      {".", 0.0},
      {"-.", 0.0},
      {"e5", 0.0},
      {"0", 0.0},
      {"-0", -0.0},
      {"-0.0e7", -0.0},
      {"1", 1.0},
      {"+1", 1.0},
      {"+-1", 0.0},
      {"-+1", 0.0},
      {"--1", 0.0},
      {" \t\n\v\f\r-1.5", -1.5},
      {".5", 0.5},
      {"-.5", -0.5},
      {"5.", 5.0},
      {"5.e1", 50.0},
      {"1.5abc", 1.5},
      {"1,5", 1.0},
      {"1e", 1.0},
      {"1e+", 1.0},
      {"1e-x", 1.0},
      {"1E2", 100.0},
      {"1e+02", 100.0},
      {"1 e2", 1.0},
      {"1d2", 1.0},
      {"0x", 0.0},
      {"0x10", 16.0},
      {"0X1.8P1", 3.0},
      {"-0x1p-1074", -4.9406564584124654e-324},
      {"0xg", 0.0},
      {"00x10", 0.0},
      {"inf", dInf},
      {"-INFINITY", -dInf},
      {"+Inf", dInf},
      {"infi", dInf},
      {"in", 0.0},
      {"1e308", 1e308},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"1.797693134862316e+308", dInf},
      {"1e309", dInf},
      {"-1e309", -dInf},
      {"1e99999999999999999999", dInf},
      {"0e99999999999999999999", 0.0},
      {"1e-99999999999999999999", 0.0},
      {"2.2250738585072014e-308", 2.2250738585072014e-308},
      {"2.2250738585072011e-308", 2.2250738585072011e-308},
      {"4.9406564584124654e-324", 4.9406564584124654e-324},
      {"2.4703282292062327e-324", 0.0},
      {"2.4703282292062328e-324", 4.9406564584124654e-324},
      {"-1e-400", -0.0},
      {"9007199254740993", 9007199254740992.0},
      {"9007199254740993.00000000000000000000000000000000000001", 9007199254740994.0},
      {"10000000000000000000", 1e19},
      {"18446744073709551615", 18446744073709551616.0},
      // of the length that FormatDouble writes, but not quite of its form
      {"12.00000000000000e+00", 12.0},
      {"x.500000000000000e+00", 0.0},
      {"1.500000x00000000e+00", 1.5},
      {"1.5000000000000x0e+00", 1.5},
      {"1.500000000000000x+00", 1.5},
      {"1.500000000000000e 00", 1.5},
      {"1.500000000000000e+x0", 1.5},
      {"1.500000000000000e+0x", 1.5},
      {"1.500000000000000e-0 ", 1.5},
      {"9.007199254740993e+15", 9007199254740992.0},
      {"9.007199254740992e+37", 9.007199254740992e37},
      {"1.000000000000000e+38", 1e38},
      {"1.000000000000000e-07", 1e-7},
      {"-1.000000000000000e-8", -1e-8},
      // wrong, once up and once down, where the x87 unit's 64 bits are rounded again
      {"6.621502383317451e+09", 6621502383.3174505},
      {"5.347982651379862e+04", 53479.826513798624},
  };
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.sText);
    CHECK(Bits(Parse(tRow.sText)) == Bits(tRow.dValue));
    CHECK(Same(Parse(tRow.sText), strtod(tRow.sText.c_str(), nullptr)));
  }
  static const std::string s_asNan[] = {"nan", "-nan", "NAN", "nan(123)", "nan(", " +nanx"};
  for (const std::string& sText : s_asNan) {
    CAPTURE(sText);
    CHECK(std::isnan(Parse(sText)));
    CHECK(Same(Parse(sText), strtod(sText.c_str(), nullptr)));
  }
}

constexpr bool ROUNDS_ONCE = sizeof(double_t) == sizeof(double);    // not so on the x87 unit

TEST_CASE("ParsePlainDouble reads what FormatDouble prints as long as one operation on its digits is exact") {
  struct T_Row {
    const char* szText;
    bool bRead;
  };
  static const T_Row s_atRow[] = {
      {"1.234567890123456e+05", true},  {"9.876543210987654e-05", false}, {"0.000000000000000e+00", true},
      {"7.000000000000000e-07", true},  {"7.000000000000000e-08", false}, {"1.000000000000000e+37", true},
      {"1.000000000000000e+38", false}, {"9.007199254740992e+15", true},  {"9.007199254740993e+15", false},
      {"8.999999999999999e+00", true},
      // The x87 unit's 64 bits end in a tie, above the number and below it.
      {"6.621502383317451e+09", ROUNDS_ONCE},   {"5.347982651379862e+04", ROUNDS_ONCE},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    double dValue = -1;
    REQUIRE(ParsePlainDouble(tRow.szText, strlen(tRow.szText), dValue) == tRow.bRead);
    if (!tRow.bRead) {
      CHECK(dValue == -1);
    } else {
      CHECK(dValue == strtod(tRow.szText, nullptr));
    }
  }
}

TEST_CASE("ParsePlainDouble leaves every other form alone") {
  const std::string sPlain = "1.234567890123456e+05";
  double dValue = -1;
  for (size_t i = 0; i < sPlain.size(); ++i) {
    for (const char c : {'/', ':', '.', 'e', '+', '-', 'E', ',', ' ', '\0', '\xB1'}) {
      std::string sOther = sPlain;
      sOther[i] = c;
      CAPTURE(sOther);
      const bool bPlain = sOther == sPlain || (i == 18 && (c == '+' || c == '-'));
      CHECK(ParsePlainDouble(sOther.c_str(), sOther.size(), dValue) == bPlain);
    }
  }
  CHECK_FALSE(ParsePlainDouble(sPlain.c_str(), sPlain.size() - 1, dValue));
  CHECK_FALSE(ParsePlainDouble((sPlain + "0").c_str(), sPlain.size() + 1, dValue));
}

TEST_CASE("ParseDouble agrees with strtod on random texts") {
  std::mt19937_64 cRandom(2);
  std::string sFirst;
  SUBCASE("printed doubles of any bits") {
    static const T_Form s_atForm[] = {{'e', 15}, {'e', 16}, {'g', 17}, {'e', 3},  {'e', 30},
                                      {'g', 20}, {'a', -1}, {'f', -1}, {'e', 0},  {'e', 800}};
    for (const T_Form& tForm : s_atForm) {
      CAPTURE(tForm.cForm);
      CAPTURE(tForm.iPrecision);
      const int iDifferent = CountDifferent(
          40000, [&] { return Print(tForm.cForm, tForm.iPrecision, FromBits(cRandom())); }, &sFirst);
      CAPTURE(sFirst);
      CHECK(iDifferent == 0);
    }
  }
  SUBCASE("printed doubles of everyday size") {
    static const T_Form s_atForm[] = {{'e', 15}, {'g', 17}, {'g', -1}, {'f', 2}, {'f', 6}};
    for (const T_Form& tForm : s_atForm) {
      CAPTURE(tForm.cForm);
      CAPTURE(tForm.iPrecision);
      const int iDifferent = CountDifferent(
          40000,
          [&] {
            const double d = static_cast<double>(cRandom() >> (cRandom() % 64)) / 1000;
            return Print(tForm.cForm, tForm.iPrecision, cRandom() % 2 != 0 ? d : -d);
          },
          &sFirst);
      CAPTURE(sFirst);
      CHECK(iDifferent == 0);
    }
  }
  SUBCASE("digits, a point and an exponent") {
    const auto Digits = [&](unsigned p_uMax) {
      std::string s(cRandom() % (p_uMax + 1), '0');
      for (char& c : s) c = static_cast<char>('0' + cRandom() % 10);
      return s;
    };
    for (const unsigned uExponent : {3u, 30u, 400u}) {
      CAPTURE(uExponent);
      const int iDifferent = CountDifferent(
          100000,
          [&] {
            std::string s = cRandom() % 2 != 0 ? "-" : "";
            s += Digits(22);
            if (cRandom() % 3 != 0) s += "." + Digits(22);
            if (cRandom() % 3 != 0) {
              s += cRandom() % 2 != 0 ? "e-" : "e";
              s += std::to_string(cRandom() % uExponent);
            }
            return s;
          },
          &sFirst);
      CAPTURE(sFirst);
      CHECK(iDifferent == 0);
    }
  }
  SUBCASE("half way between two doubles, and next to it") {
    const int iDifferent = CountDifferent(
        100000,
        [&] {
          // An odd number of 54 bits is half way; times a power of two it has up to 23 digits.
          const uint64_t uHalf = (uint64_t{1} << 53) | (cRandom() >> 11) | 1;
          char sz[64];
          const int iTwos = static_cast<int>(cRandom() % 20);
          snprintf(sz, sizeof sz, "%.0Lf", std::ldexp(static_cast<long double>(uHalf), iTwos));
          const std::string s = sz;
          switch (cRandom() % 3) {
            case 0: return s;
            case 1: return s + ".0000000000000000000000000001";
            default: return s.substr(0, s.size() - 1) + static_cast<char>(s.back() - 1) + ".9999999999999999999999999";
          }
        },
        &sFirst);
    CAPTURE(sFirst);
    CHECK(iDifferent == 0);
  }
  SUBCASE("any characters that occur in numbers") {
    static const char s_szChars[] = "0123456789012345678900..--++eExXpPaAbBcCdDfFiInNtTyY \t\n()";
    const int iDifferent = CountDifferent(
        400000,
        [&] {
          std::string s(cRandom() % 16, ' ');
          for (char& c : s) c = s_szChars[cRandom() % (sizeof s_szChars - 1)];
          return s;
        },
        &sFirst);
    CAPTURE(sFirst);
    CHECK(iDifferent == 0);
  }
}

TEST_CASE("FormatInt prints like %d") {
  std::mt19937 cRandom(3);
  for (int i = 0; i < 10000; ++i) {
    static const int s_aiEdge[] = {0, 1, -1, 9, 10, -10, INT_MAX, INT_MIN, INT_MIN + 1};
    const int iValue = i < 9 ? s_aiEdge[i] : static_cast<int>(cRandom()) >> (cRandom() % 32);
    char ac[11];
    REQUIRE(std::string(ac, FormatInt(ac, iValue)) == std::to_string(iValue));
  }
  char ac[11];
  CHECK(std::string(ac, FormatInt(ac, INT_MIN)) == "-2147483648");
}

TEST_CASE("FormatDouble prints like %.15e") {
  const double dInf = std::numeric_limits<double>::infinity();
  struct T_Row {
    double dValue;
    const char* szText;
  };
  const T_Row atRow[] = {
      {0.0, "0.000000000000000e+00"},
      {-0.0, "-0.000000000000000e+00"},
      {1.5, "1.500000000000000e+00"},
      {-0.1, "-1.000000000000000e-01"},
      {1e100, "1.000000000000000e+100"},
      {1e-100, "1.000000000000000e-100"},
      {123456789.125, "1.234567891250000e+08"},
      {1.7976931348623157e308, "1.797693134862316e+308"},
      {-1.7976931348623157e308, "-1.797693134862316e+308"},
      {4.9406564584124654e-324, "4.940656458412465e-324"},
      {-4.9406564584124654e-324, "-4.940656458412465e-324"},
      {9007199254740993.0, "9.007199254740992e+15"},
      {9.9999999999999995e22, "9.999999999999999e+22"},
      {1e-6, "1.000000000000000e-06"},    // 9.99999999999999954...e-07, which rounds to one digit more
      {1e-7, "1.000000000000000e-07"},
      {-1e-6, "-1.000000000000000e-06"},
      {dInf, "inf"},
      {-dInf, "-inf"},
      {std::copysign(std::numeric_limits<double>::quiet_NaN(), 1.0), "nan"},
      {std::copysign(std::numeric_limits<double>::quiet_NaN(), -1.0), "-nan"},
  };
  for (const T_Row& tRow : atRow) CHECK(Format(tRow.dValue) == tRow.szText);

  std::mt19937_64 cRandom(4);
  for (int i = 0; i < 300000; ++i) {
    const double dBits = FromBits(cRandom());
    if (Format(dBits) != Print('e', 15, dBits)) FAIL(Print('a', -1, dBits));
    const double dTie = static_cast<double>(cRandom() >> (cRandom() % 64)) / 1024;
    if (Format(dTie) != Print('e', 15, dTie)) FAIL(Print('a', -1, dTie));
  }
}

TEST_CASE("the application's locale changes neither reading nor writing") {
  CCommaLocale cLocale;
  REQUIRE(Print('f', 1, 1.5) == "1,5");    // the locale is really in force
  CHECK(Parse("1.5") == 1.5);
  CHECK(Parse("1,5") == 1.0);
  CHECK(Parse(" +1.5") == 1.5);
  CHECK(Parse("0x1.8p0") == 1.5);
  CHECK(Parse("1.25e22") == 1.25e22);
  CHECK(Format(1.5) == "1.500000000000000e+00");
}
