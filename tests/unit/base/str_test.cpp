// An owned 8-bit text.
#include "callorv/base/str.h"

#include <doctest/doctest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "callorv/base/array.h"
#include "support/comma_locale.h"
#include "support/fail_alloc.h"
#include "support/huge_text.h"

namespace {

const char SHORT_MAX[] = "123456789012345";     // 15 bytes: the longest text that needs no allocation
const char HEAP_MIN[] = "1234567890123456";    // 16 bytes
const char LONG[] = "a text that is clearly too long to be kept inside the object";

std::string Text(const CString& p_s) { return std::string(p_s.ToStr(), static_cast<size_t>(p_s.GetSize())); }

CString Bytes(const std::string& p_s) {
  CString s;
  s.Set(p_s.data(), static_cast<int>(p_s.size()));
  return s;
}

// The text is p_sExpected, NUL-terminated, and its length is right.
void CheckText(const CString& p_s, const std::string& p_sExpected) {
  CHECK(Text(p_s) == p_sExpected);
  CHECK(p_s.GetSize() == static_cast<int>(p_sExpected.size()));
  CHECK(p_s.IsEmpty() == p_sExpected.empty());
  CHECK(p_s.ToStr()[p_s.GetSize()] == 0);
}

std::string Join(const CStrArray& p_as) {
  std::string s;
  for (int i = 0; i < p_as.GetSize(); ++i) s += "[" + Text(p_as[i]) + "]";
  return s;
}

}    // namespace

static_assert(sizeof(CString) == 16, "");
static_assert(std::is_nothrow_default_constructible<CString>::value, "");
static_assert(std::is_nothrow_move_constructible<CString>::value, "arrays grow by moving");
static_assert(std::is_nothrow_move_assignable<CString>::value, "");

TEST_CASE("CString: empty texts are \"\", never null") {
  CheckText(CString(), "");
  CheckText(CString(""), "");
  CheckText(CString(static_cast<const char*>(nullptr)), "");
  CString s(LONG);
  SUBCASE("Empty") { s.Empty(); }
  SUBCASE("Clear") { s.Clear(); }
  SUBCASE("Set null") { s.Set(static_cast<const char*>(nullptr)); }
  SUBCASE("Set \"\"") { s.Set(""); }
  SUBCASE("Set no bytes") { s.Set("abc", 0); }
  SUBCASE("Set a negative number of bytes") { s.Set("abc", INT_MIN); }
  SUBCASE("Set no bytes from null") { s.Set(nullptr, 0); }
  SUBCASE("assign null") { s = static_cast<const char*>(nullptr); }
  SUBCASE("assign an empty text") { s = CString(); }
  SUBCASE("move away") { CString sOther(std::move(s)); }
  CheckText(s, "");
  s.Set(SHORT_MAX);
  CheckText(s, SHORT_MAX);
}

TEST_CASE("CString: texts of every length around the inline limit") {
  for (int iLen = 0; iLen <= 40; ++iLen) {
    CAPTURE(iLen);
    const std::string sExpected(static_cast<size_t>(iLen), 'x');
    const CString s(sExpected.c_str());
    CheckText(s, sExpected);
    CString sCopy(s);
    CheckText(sCopy, sExpected);
    for (int iOther = 0; iOther <= 40; ++iOther) {
      const std::string sNext(static_cast<size_t>(iOther), 'y');
      CString sChanged(s);
      sChanged = sNext.c_str();
      REQUIRE(Text(sChanged) == sNext);
      sChanged = s;
      REQUIRE(Text(sChanged) == sExpected);
      CString sFrom(sNext.c_str());
      sChanged = std::move(sFrom);
      REQUIRE(Text(sChanged) == sNext);
      REQUIRE(sFrom.IsEmpty());
    }
    CString sMoved(std::move(sCopy));
    CheckText(sMoved, sExpected);
    CheckText(sCopy, "");
  }
}

TEST_CASE("CString: copies are deep") {
  for (const char* sz : {"short", LONG}) {
    CString s(sz);
    CString sCopy(s), sAssigned, sSet;
    sAssigned = s;
    sSet.Set(s);
    s.Set("changed");
    CheckText(sCopy, sz);
    CheckText(sAssigned, sz);
    CheckText(sSet, sz);
  }
}

TEST_CASE("CString: NULs inside the text are kept by everything that goes by length") {
  const std::string sExpected("ab\0cd\0efghijklmnopqrstuvwxyz", 28);
  const CString s = Bytes(sExpected);
  CheckText(s, sExpected);
  CheckText(CString(s), sExpected);
  CheckText(s.Mid(1, 3), std::string("b\0c", 3));
  CHECK(s.EndsWith("xyz"));
  CHECK(s.StartsWith("ab"));
  CHECK_FALSE(s.StartsWith("abcd"));
  CHECK(s == "ab");
  CheckText(CString(s.ToStr()), "ab");
  CString sTrimmed = Bytes(std::string("\0 a\0 ", 5));
  sTrimmed.Trim();    // a NUL is in no set
  CheckText(sTrimmed, std::string("\0 a\0", 4));
  CStrArray asOut;
  CHECK(Bytes(std::string("a\0b\0", 4)).Split('\0', &asOut, false) == 3);
  CHECK(Join(asOut) == "[a][b][]");
}

TEST_CASE("CString: a source inside the text itself") {
  for (const char* sz : {"  abcdef", SHORT_MAX, HEAP_MIN, LONG}) {
    CAPTURE(std::string(sz));
    const std::string sOld(sz);
    CString s(sz);
    s.Set(s.ToStr());
    CheckText(s, sOld);
    s.Set(s);
    CheckText(s, sOld);
    const CString& sSame = s;
    s = sSame;
    CheckText(s, sOld);
    CString& sMoved = s;
    s = std::move(sMoved);
    CheckText(s, sOld);
    s = s.ToStr();
    CheckText(s, sOld);
    s.Set(s.ToStr() + 2);
    CheckText(s, sOld.substr(2));
    s.Set(s.ToStr() + 1, 3);
    CheckText(s, sOld.substr(3, 3));
    s = sz;
    s.Format("%s", s.ToStr());
    CheckText(s, sOld);
    s.Format("<%s|%s>", s.ToStr() + 1, s.ToStr());
    CheckText(s, "<" + sOld.substr(1) + "|" + sOld + ">");
    s = sz;
    s.Trim(s.ToStr() + s.GetSize() - 1);
    CheckText(s, sOld.substr(0, sOld.size() - 1));
  }
}

TEST_CASE("CString: texts of up to 15 bytes need no allocation") {
  CFailAlloc cCount;
  cCount.Run([] {
    CString s(SHORT_MAX);
    CString sCopy(s), sMoved(std::move(s));
    s = "abc";
    s = sCopy;
    s.Format("%d", INT_MIN);
    s.Set(sCopy.Mid(3, -1));
    s.Trim();
    s.ToDbl();
  });
  CHECK(cCount.GetCount() == 0);
  CHECK_FALSE(cCount.Run([] { CString s(HEAP_MIN); }));
  CHECK(cCount.GetCount() == 1);
}

TEST_CASE("CString: a text gives back what it had allocated, and nothing else") {
  for (const int iLen : {0, 1, 14, 15, 16, 17, 40}) {
    CAPTURE(iLen);
    const std::string sText(static_cast<size_t>(iLen), 'x');
    const auto fnFreed = [&](auto p_fn) {
      CFailAlloc cCount;
      cCount.Run([&] { p_fn(CString(sText.c_str())); });
      return cCount.GetFreedArrays();
    };
    const int iOne = iLen > 15 ? 1 : 0;
    CHECK(fnFreed([](CString&&) {}) == iOne);
    CHECK(fnFreed([](CString&& p_s) { CString sMoved(std::move(p_s)); }) == iOne);
    CHECK(fnFreed([](CString&& p_s) { CString sCopy(p_s); }) == 2 * iOne);
    CHECK(fnFreed([](CString&& p_s) { p_s = CString(LONG); }) == iOne + 1);
    CHECK(fnFreed([](CString&& p_s) { p_s.Set(LONG); }) == iOne + 1);
    CHECK(fnFreed([](CString&& p_s) { p_s = CString(SHORT_MAX); }) == iOne);
  }
}

TEST_CASE("CString: a text that gets shorter keeps its room, one of the same length needs none") {
  CString s(LONG);
  CFailAlloc cCount;
  cCount.Run([&s] {
    s = "x";
    s = LONG;
    s.Empty();
    s = HEAP_MIN;
  });
  CHECK(cCount.GetCount() == 0);
  CheckText(s, HEAP_MIN);
}

TEST_CASE("CString: without memory a text stays as it was") {
  const char* const szLonger = "a text that is longer than every one of those that were there before it, by far";
  const CString sLonger(szLonger);
  struct T_Row {
    std::string sWhat;
    void (*fnChange)(CString& p_s, const CString& p_sLonger);
  };
  static const T_Row s_atRow[] = {
      {"Set(text)", [](CString& p_s, const CString& p_sLonger) { p_s.Set(p_sLonger.ToStr()); }},
      {"Set(CString)", [](CString& p_s, const CString& p_sLonger) { p_s.Set(p_sLonger); }},
      {"Set(bytes)",
       [](CString& p_s, const CString& p_sLonger) { p_s.Set(p_sLonger.ToStr(), p_sLonger.GetSize()); }},
      {"= text", [](CString& p_s, const CString& p_sLonger) { p_s = p_sLonger.ToStr(); }},
      {"= CString", [](CString& p_s, const CString& p_sLonger) { p_s = p_sLonger; }},
      {"Format",
       [](CString& p_s, const CString& p_sLonger) { p_s.Format("%s:%s", p_s.ToStr(), p_sLonger.ToStr()); }},
      {"Format beyond the first try's buffer",
       [](CString& p_s, const CString& p_sLonger) { p_s.Format("%600s", p_sLonger.ToStr()); }},
  };
  for (const T_Row& tRow : s_atRow) {
    for (const char* szOld : {"", "short", SHORT_MAX, LONG}) {
      CAPTURE(tRow.sWhat);
      CAPTURE(std::string(szOld));
      const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
        CString s(szOld);
        const bool bThrew = p_cFail.Run([&] { tRow.fnChange(s, sLonger); });
        CHECK(bThrew == p_cFail.HasFailed());
        if (bThrew) CheckText(s, szOld);
      });
      CHECK(iFailures >= 1);
    }
  }
  CHECK(ForEachFailure([&](CFailAlloc& p_cFail) {
          const bool bThrew = p_cFail.Run([&] { CString s(szLonger), sCopy(s); });
          CHECK(bThrew == p_cFail.HasFailed());
        }) == 2);
}

TEST_CASE("CString::Format fills in printf's conversions") {
  CString s(LONG);
  s.Format("%s=%d|%5.2f|%c|%%|%08x|%-4s|", "key", -42, 3.14159, 'z', 0xBEEFu, "ab");
  CheckText(s, "key=-42| 3.14|z|%|0000beef|ab  |");
  s.Format("%s", "");
  CheckText(s, "");
  s.Format("plain %s", "text");
  CheckText(s, "plain text");
  s.Format("%c%s", 0, "abc");
  CheckText(s, std::string("\0abc", 4));
}

TEST_CASE("CString::Format and CFormat have no length limit") {
  for (const int iLen : {1, 14, 15, 16, 510, 511, 512, 513, 1023, 4096, 65536, 3000000}) {
    CAPTURE(iLen);
    const std::string sLong(static_cast<size_t>(iLen), 'q');
    CString s;
    s.Format("%s", sLong.c_str());
    CHECK(Text(s) == sLong);
    s.Format("%s%d%s", s.ToStr(), 7, s.ToStr());
    CHECK(Text(s) == sLong + "7" + sLong);
    CHECK(Text(CFormat("%s", sLong.c_str())) == sLong);
  }
}

TEST_CASE("CString::Format: a format that cannot be printed gives \"\"") {
  const wchar_t awInvalid[] = {static_cast<wchar_t>(0x7FFFFFF0), 0};
  CString s(LONG);
  s.Format("%ls", awInvalid);
  CheckText(s, "");
  s = LONG;
  s.Format("%600s%ls", "", awInvalid);
  CheckText(s, "");
  s = LONG;
  s.Format(nullptr);
  CheckText(s, "");
  CheckText(CFormat(nullptr), "");
}

TEST_CASE("CString::Format and CFormat: a text that is too long for any CString") {
  const char* volatile szTooLong = "%99999999999d";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  CString s(LONG);
  CHECK_THROWS_AS(s.Format(szTooLong, 1), std::bad_alloc);
  CheckText(s, LONG);
  CHECK_THROWS_AS(CFormat(szTooLong, 1), std::bad_alloc);
#pragma GCC diagnostic pop
}

TEST_CASE("CFormat makes a new text") {
  const CString s = CFormat("%s(%d)(%s)", "Socket closed", -9, "OK");
  CheckText(s, "Socket closed(-9)(OK)");
  CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
          const bool bThrew = p_cFail.Run([] { CFormat("%s", LONG); });
          CHECK(bThrew == p_cFail.HasFailed());
        }) == 1);
}

TEST_CASE("CString::Trim") {
  struct T_Row {
    std::string sText, sExpected;
  };
  static const T_Row s_atRow[] = {
      {"", ""},
      {" ", ""},
      {" \t\r\n \n", ""},
      {"abc", "abc"},
      {" abc", "abc"},
      {"abc ", "abc"},
      {"\r\n\t abc \t\r\n", "abc"},
      {"a b\tc", "a b\tc"},
      {"\vabc\f", "\vabc\f"},
      {"  a text that is clearly too long to be kept inside  ", "a text that is clearly too long to be kept inside"},
      {"\xA0" "abc", "\xA0" "abc"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CString s(tRow.sText.c_str());
    s.Trim();
    CheckText(s, tRow.sExpected);
  }
}

TEST_CASE("CString::Trim(set)") {
  struct T_Row {
    std::string sText;
    const char* szSet;
    std::string sExpected;
  };
  static const T_Row s_atRow[] = {
      {"", "abc", ""},
      {"abc", "", "abc"},
      {" abc ", nullptr, " abc "},
      {"abc", "abc", ""},
      {"xxabcxx", "x", "abc"},
      {"xyabxycyx", "xy", "abxyc"},
      {" \t\nabc\r \t\n", " \t\n", "abc\r"},
      {"\xFF" "a\xFF", "\xFF", "a"},
      {"<<<a text that is clearly too long to be kept inside>>>", "<>",
       "a text that is clearly too long to be kept inside"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CString s(tRow.sText.c_str());
    s.Trim(tRow.szSet);
    CheckText(s, tRow.sExpected);
  }
}

TEST_CASE("CString::StartsWith and EndsWith are exact") {
  struct T_Row {
    std::string sText;
    const char* szPiece;
    bool bStarts, bEnds;
  };
  static const T_Row s_atRow[] = {
      {"", "", true, true},
      {"", nullptr, true, true},
      {"abc", "", true, true},
      {"abc", nullptr, true, true},
      {"", "a", false, false},
      {"abc", "abc", true, true},
      {"abc", "ab", true, false},
      {"abc", "bc", false, true},
      {"abc", "b", false, false},
      {"abc", "abcd", false, false},
      {"abc", "zabc", false, false},
      {"abc", "AB", false, false},
      {"abc", "BC", false, false},
      {"dic.exml", ".exml", false, true},
      {"dic.exml.xml", ".exml", false, false},
      {".exml", ".exml", true, true},
      {"a text that is clearly too long to be kept inside", "a text that is", true, false},
      {"a text that is clearly too long to be kept inside", "kept inside", false, true},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    const CString s(tRow.sText.c_str());
    CHECK(s.StartsWith(tRow.szPiece) == tRow.bStarts);
    CHECK(s.EndsWith(tRow.szPiece) == tRow.bEnds);
  }
}

TEST_CASE("CString::Mid") {
  struct T_Row {
    int iStart, iCount;
    std::string sExpected;
  };
  static const T_Row s_atRow[] = {
      {0, -1, "t120"},     {1, -1, "120"},      {3, -1, "0"},    {4, -1, ""},        {5, -1, ""},
      {0, 0, ""},          {0, 1, "t"},         {0, 4, "t120"},  {0, 5, "t120"},     {1, 2, "12"},
      {3, 1, "0"},         {3, 2, "0"},         {4, 1, ""},      {1, INT_MAX, "120"}, {-1, 2, ""},
      {-1, -1, ""},        {INT_MIN, 4, ""},    {INT_MAX, 1, ""}, {INT_MAX, INT_MAX, ""}, {1, INT_MIN, "120"},
  };
  const CString s("t120");
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iStart);
    CAPTURE(tRow.iCount);
    CheckText(s.Mid(tRow.iStart, tRow.iCount), tRow.sExpected);
  }
  CheckText(s, "t120");
  CheckText(CString().Mid(0, -1), "");
  CheckText(CString(LONG).Mid(2, 20), "text that is clearly");
}

TEST_CASE("CString::ToInt") {
  struct T_Row {
    std::string sText;
    int iValue;
  };
  static const T_Row s_atRow[] = {
      {"", 0},
      {"abc", 0},
      {"120", 120},
      {"120abc", 120},
      {" \t-12", -12},
      {"+7", 7},
      {"3.9", 3},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"-2147483648", -2147483647 - 1},
      {"-2147483649", -2147483647 - 1},
      {"99999999999999999999999999999999", 2147483647},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CHECK(CString(tRow.sText.c_str()).ToInt() == tRow.iValue);
  }
  CHECK(CString().ToInt() == 0);
}

TEST_CASE("CString::ToDbl") {
  struct T_Row {
    std::string sText;
    double dValue;
  };
  static const T_Row s_atRow[] = {
      {"", 0.0},       {"abc", 0.0},     {"1.5", 1.5},  {"1.5abc", 1.5},   {" \n-2.5e3x", -2500.0},
      {"+.5", 0.5},    {"1e400", HUGE_VAL}, {"0x1p4", 16.0}, {"-inf", -HUGE_VAL}, {"1,5", 1.0},
      {"1.234567891250000e+08", 123456789.125},
      {".1.234567890123456e+05", 0.1},    // what is written like a printed number begins behind a "-" only
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CHECK(CString(tRow.sText.c_str()).ToDbl() == tRow.dValue);
  }
  CHECK(std::isnan(CString("nan").ToDbl()));
  CHECK(Bytes(std::string("1\0" "5", 3)).ToDbl() == 1.0);
  CCommaLocale cLocale;
  CHECK(CString("1.5").ToDbl() == 1.5);
  CHECK(CString(" 1.5").ToDbl() == 1.5);
}

TEST_CASE("CString::Split") {
  struct T_Row {
    std::string sText;
    char cSep;
    bool bTrim;
    std::string sExpected;
  };
  static const T_Row s_atRow[] = {
      {"msg_dic = /etc/dic.xml", '=', true, "[msg_dic][/etc/dic.xml]"},
      {"  key\t=\tvalue \r\n", '=', true, "[key][value]"},
      {"key=", '=', true, "[key]"},
      {"=value", '=', true, "[value]"},
      {"key==value", '=', true, "[key][value]"},
      {"key= =value", '=', true, "[key][value]"},
      {"a=b=c", '=', true, "[a][b][c]"},
      {"10.1.2.3    9000", ' ', true, "[10.1.2.3][9000]"},
      {"  10.1.2.3 \t 9000  ", ' ', true, "[10.1.2.3][9000]"},
      {"10.1.2.3\t9000", ' ', true, "[10.1.2.3\t9000]"},
      {"", ' ', true, ""},
      {"   ", ' ', true, ""},
      {"===", '=', true, ""},
      {"one", '=', true, "[one]"},
      {"", ',', false, "[]"},
      {",", ',', false, "[][]"},
      {"a,b", ',', false, "[a][b]"},
      {" a , b ", ',', false, "[ a ][ b ]"},
      {",a,,b,", ',', false, "[][a][][b][]"},
      {"one", ',', false, "[one]"},
      {"\xFF" "a\xFF", '\xFF', false, "[][a][]"},
      {"a piece that is too long to be kept inside,b", ',', false, "[a piece that is too long to be kept inside][b]"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    CStrArray asOut;
    asOut.Add("was there before");
    const CString s(tRow.sText.c_str());
    const int iCount = s.Split(tRow.cSep, &asOut, tRow.bTrim);
    CHECK(Join(asOut) == tRow.sExpected);
    CHECK(iCount == asOut.GetSize());
    CheckText(s, tRow.sText);
  }
  CHECK(CString("a,b").Split(',', nullptr, false) == 0);
}

TEST_CASE("CString::Split of a text that is an element of the output") {
  for (const char* sz : {"a,b,c", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa,bbbbbbbbbbbbbbbbbbbbbbbb,c"}) {
    CStrArray asOut;
    asOut.Add(sz);
    CHECK(asOut[0].Split(',', &asOut, false) == 3);
    CHECK(asOut[2] == "c");
  }
}

TEST_CASE("CString::Split of many pieces") {
  std::string sText = "0";
  for (int i = 1; i < 10000; ++i) sText += "," + std::to_string(i);
  CStrArray asOut;
  REQUIRE(CString(sText.c_str()).Split(',', &asOut, true) == 10000);
  for (int i = 0; i < 10000; ++i) REQUIRE(asOut[i].ToInt() == i);
}

TEST_CASE("comparison with a C text is exact") {
  for (const char* sz : {"abc", LONG}) {
    const CString s(sz);
    const std::string sUpper = "A" + std::string(sz + 1);
    CHECK(s == sz);
    CHECK_FALSE(s != sz);
    CHECK(s != sUpper.c_str());
    CHECK_FALSE(s == sUpper.c_str());
    CHECK(s != (std::string(sz) + " ").c_str());
    CHECK(s != std::string(sz, strlen(sz) - 1).c_str());
    CHECK(s != "");
    CHECK(s != static_cast<const char*>(nullptr));
  }
  CHECK(CString() == "");
  CHECK(CString() == static_cast<const char*>(nullptr));
  CHECK_FALSE(CString() != static_cast<const char*>(nullptr));
}

#ifdef HAVE_HUGE_TEXT
TEST_CASE("CString refuses a text of more than 2147483646 bytes") {
  const CHugeText cHuge;
  CString s(LONG);
  CFailAlloc cCount;
  CHECK(cCount.Run([&] { s.Set(cHuge.ToStr()); }));
  CHECK(cCount.Run([&] { s = cHuge.ToStr() + 1; }));    // 2147483647
  CHECK(cCount.Run([&] { CString sNew(cHuge.ToStr()); }));
  CHECK(cCount.Run([&] { s.Set(cHuge.ToStr(), 2147483647); }));
  CHECK(cCount.GetCount() == 0);
  CheckText(s, LONG);
  CHECK(s != cHuge.ToStr());
  CHECK_FALSE(s.StartsWith(cHuge.ToStr()));
  CHECK_FALSE(s.EndsWith(cHuge.ToStr()));
  // One byte less is asked for; its allocation fails here, as it would take too long to fill.
  CFailAlloc cFail(1);
  CHECK(cFail.Run([&] { s.Set(cHuge.ToStr() + 2); }));
  CHECK(cFail.GetBytes() == 2147483647u);
  CheckText(s, LONG);
}
#endif
