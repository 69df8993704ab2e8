// Texts and dates compared with each other and with C texts.
#include <doctest/doctest.h>

#include <string>
#include <type_traits>

#include "callorv/base/date.h"
#include "callorv/base/str.h"

namespace {

// All six operators say what the order of two values is: below 0, 0 or above 0.
template <class A, class B>
void CheckOrder(const A& p_A, const B& p_B, int p_iOrder) {
  CHECK((p_A == p_B) == (p_iOrder == 0));
  CHECK((p_A != p_B) == (p_iOrder != 0));
  CHECK((p_A < p_B) == (p_iOrder < 0));
  CHECK((p_A <= p_B) == (p_iOrder <= 0));
  CHECK((p_A > p_B) == (p_iOrder > 0));
  CHECK((p_A >= p_B) == (p_iOrder >= 0));
}
template <class A, class B>
void CheckBothWays(const A& p_A, const B& p_B, int p_iOrder) {
  CheckOrder(p_A, p_B, p_iOrder);
  CheckOrder(p_B, p_A, -p_iOrder);
}

template <class A, class B, class = void>
struct T_Compares : std::false_type {};
template <class A, class B>
struct T_Compares<A, B, decltype(void(std::declval<A>() == std::declval<B>()))> : std::true_type {};
static_assert(T_Compares<CString, CDate>::value && T_Compares<const char*, CDate>::value);
struct CConverts {    // a type of somebody else, which has its own ways
  operator const char*() const { return "abc"; }
};
static_assert(!T_Compares<CConverts, CDate>::value);
static_assert(!T_Compares<CString, int>::value && !T_Compares<CDate, double>::value && !T_Compares<CString, std::string>::value);

}    // namespace

TEST_CASE("texts compare by their bytes") {
  struct T_Row {
    const char* szOne;
    const char* szOther;
    int iOrder;
  };
  const T_Row s_atRow[] = {
      {"", "", 0},         {"abc", "abc", 0},        {"abc", "abd", -1},     {"b", "abc", 1},
      {"ab", "abc", -1},   {"", "a", -1},            {"\x7F", "\x80", -1},   {"a", "A", 1},
      {"a text of more than 15 bytes", "a text of more than 15 bytes", 0},
      {"a text of more than 15 bytes", "a text of more than 15 bites", 1},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szOne);
    CAPTURE(tRow.szOther);
    CheckBothWays(CString(tRow.szOne), CString(tRow.szOther), tRow.iOrder);
    CheckBothWays(CString(tRow.szOne), tRow.szOther, tRow.iOrder);
    CheckBothWays(tRow.szOne, CString(tRow.szOther), tRow.iOrder);
  }
  CheckBothWays(CString("abc"), "abc", 0);    // an array
  char szText[] = "abc";
  CheckBothWays(CString("abc"), static_cast<char*>(szText), 0);
}

TEST_CASE("texts that hold NULs are equal only as a whole") {
  CString sOne, sOther;
  sOne.Set("a\0b", 3);
  sOther.Set("a\0c", 3);
  CheckBothWays(sOne, sOther, -1);
  CheckBothWays(sOne, CString("a"), 1);
  char szText[] = "a";
  char* pText = szText;
  const char* pConst = szText;
  CheckBothWays(sOne, "a", 0);    // up to the first NUL
  CheckBothWays(sOne, pText, 0);
  CheckBothWays(sOne, pConst, 0);
}

TEST_CASE("null counts as an empty text") {
  const char* szNull = nullptr;
  CheckBothWays(szNull, CString(""), 0);
  CheckBothWays(CDate(), szNull, 0);
  CheckBothWays(szNull, CDate("2"), -1);
}

TEST_CASE("dates compare with dates, texts and C texts") {
  CheckBothWays(CDate("20260131"), CDate("20260131"), 0);
  CheckBothWays(CDate("20260131"), CDate("20260201"), -1);
  CheckBothWays(CDate("20260131"), "20260131", 0);
  CheckBothWays(CDate("20260131"), "202601312", -1);    // not cut before
  CheckBothWays(CDate("20260131"), CString("20251231"), 1);
  CheckBothWays(CDate("2026"), CString("2026"), 0);
  CheckBothWays(CDate(), CDate(), 0);
  CheckBothWays(CDate(), CDate("2"), -1);
  CheckBothWays(CDate(), "", 0);
}
