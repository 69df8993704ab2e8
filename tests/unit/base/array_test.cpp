// Growable arrays of values.
#include "callorv/base/array.h"

#include <doctest/doctest.h>

#include <climits>
#include <cstring>
#include <string>
#include <type_traits>

#include "support/fail_alloc.h"

namespace {

const char LONG[] = "a text that is clearly too long to be kept inside the object";

// The p_i-th value of a type, and a value's text.
template <class T>
T Value(int p_i);
template <>
CString Value<CString>(int p_i) {
  return CFormat(p_i % 2 != 0 ? "%d" : "the text with the number %d", p_i);
}
template <>
int Value<int>(int p_i) {
  return INT_MIN + p_i;
}
template <>
double Value<double>(int p_i) {
  return p_i + 0.25;
}
template <>
bool Value<bool>(int p_i) {
  return p_i % 3 == 0;
}
template <>
CDate Value<CDate>(int p_i) {
  return CDate(CFormat("%08d", p_i).ToStr());
}

bool Same(const CString& p_s1, const CString& p_s2) { return p_s1 == p_s2.ToStr(); }
bool Same(const CDate& p_c1, const CDate& p_c2) { return memcmp(&p_c1, &p_c2, sizeof p_c1) == 0; }
template <class T>
bool Same(T p_1, T p_2) {
  return p_1 == p_2;
}

}    // namespace

static_assert(!std::is_copy_constructible<CIntArray>::value && !std::is_copy_assignable<CIntArray>::value, "");
static_assert(std::is_same<CDateArray::Item, CDate>::value, "a date comes back by value");

TEST_CASE_TEMPLATE("an array keeps its values in order", T, CString, int, double, bool, CDate) {
  CArray<T> aOut;
  CHECK(aOut.GetSize() == 0);
  for (int i = 0; i < 3000; ++i) {
    aOut.Add(Value<T>(i));
    REQUIRE(aOut.GetSize() == i + 1);
  }
  for (int i = 0; i < 3000; ++i) {
    REQUIRE(Same(aOut.GetAt(i), Value<T>(i)));
    REQUIRE(Same(aOut[i], Value<T>(i)));
  }
}

TEST_CASE_TEMPLATE("an index outside the array gives an empty value", T, CString, int, double, bool, CDate) {
  CArray<T> aOut;
  for (int iSize = 0; iSize < 2; ++iSize) {
    for (const int i : {INT_MIN, -1, iSize, iSize + 1, INT_MAX}) {
      CAPTURE(i);
      CHECK(Same(aOut.GetAt(i), T()));
      CHECK(Same(aOut[i], T()));
    }
    aOut.Add(Value<T>(3));
  }
}

TEST_CASE_TEMPLATE("RemoveAll empties the array, which can be used again", T, CString, int, double, bool, CDate) {
  CArray<T> aOut;
  aOut.RemoveAll();
  CHECK(aOut.GetSize() == 0);
  for (int i = 0; i < 100; ++i) aOut.Add(Value<T>(i));
  aOut.RemoveAll();
  CHECK(aOut.GetSize() == 0);
  CHECK(Same(aOut.GetAt(0), T()));
  aOut.Add(Value<T>(6));
  CHECK(aOut.GetSize() == 1);
  CHECK(Same(aOut.GetAt(0), Value<T>(6)));
}

TEST_CASE_TEMPLATE("without memory an array stays as it was", T, CString, int, double, bool, CDate) {
  const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
    CArray<T> aOut;
    const bool bThrew = p_cFail.Run([&aOut] {
      for (int i = 0; i < 40; ++i) aOut.Add(Value<T>(2 * i + 1));    // of the texts the short ones
    });
    CHECK(bThrew == p_cFail.HasFailed());
    for (int i = 0; i < aOut.GetSize(); ++i) CHECK(Same(aOut[i], Value<T>(2 * i + 1)));
    CHECK((aOut.GetSize() < 40) == bThrew);
    const int iSize = aOut.GetSize();
    aOut.Add(Value<T>(7));
    CHECK(aOut.GetSize() == iSize + 1);
    CHECK(Same(aOut[iSize], Value<T>(7)));
  });
  CHECK(iFailures >= 2);
  CHECK(iFailures <= 8);    // it grows by more than a few elements at a time
}

TEST_CASE("an empty array takes no memory") {
  CFailAlloc cCount;
  cCount.Run([] {
    CStrArray as;
    CIntArray ai;
    as.RemoveAll();
    ai.GetAt(0);
  });
  CHECK(cCount.GetCount() == 0);
}

TEST_CASE("adding is linear: a million elements take few allocations") {
  CIntArray ai;
  CFailAlloc cCount;
  cCount.Run([&ai] {
    for (int i = 0; i < 1000000; ++i) ai.Add(i);
  });
  CHECK(ai.GetSize() == 1000000);
  CHECK(ai[999999] == 999999);
  CHECK(cCount.GetCount() < 40);
}

TEST_CASE("CStrArray owns copies") {
  CStrArray as;
  char szText[] = "first";
  as.Add(szText);
  szText[0] = 'X';
  as.Add(LONG);
  as.Add(static_cast<const char*>(nullptr));
  as.Add("");
  CString s("text");
  as.Add(s);
  s = "changed";
  CString sNul;
  sNul.Set("a\0b", 3);
  as.Add(sNul);
  REQUIRE(as.GetSize() == 6);
  CHECK(as[0] == "first");
  CHECK(as[1] == LONG);
  CHECK(as[2] == "");
  CHECK(as[3].IsEmpty());
  CHECK(as[4] == "text");
  CHECK(as[5].GetSize() == 3);
}

TEST_CASE("CStrArray: an element may be added again") {
  CStrArray as;
  as.Add(LONG);
  for (int i = 0; i < 50; ++i) as.Add(as[i]);
  for (int i = 0; i < 50; ++i) as.Add(as[i].ToStr());
  for (int i = 0; i <= 100; ++i) CHECK(as[i] == LONG);
}

TEST_CASE("CStrArray: growing moves the texts, it does not copy them") {
  CStrArray as;
  as.Add(LONG);
  const char* szBefore = as[0].ToStr();
  for (int i = 0; i < 1000; ++i) as.Add("x");
  CHECK((as[0].ToStr() == szBefore));
}

TEST_CASE("CDateArray keeps the flag with the text") {
  CDateArray ac;
  CDate cUnset("20240315");
  cUnset.m_bSet = false;
  ac.Add(cUnset);
  ac.Add(CDate("20240316"));
  ac.Add(CDate());
  CHECK_FALSE(ac.GetAt(0).IsSet());
  CHECK(std::string(ac.GetAt(0).ToStr()) == "20240315");
  CHECK(ac.GetAt(1).IsSet());
  CHECK(std::string(ac.GetAt(2).ToStr()) == "");
  CHECK_FALSE(ac.GetAt(3).IsSet());
}
