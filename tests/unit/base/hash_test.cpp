// Maps from a text to a number or to several texts.
#include "callorv/base/hash.h"

#include <doctest/doctest.h>

#include <climits>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/fail_alloc.h"
#include "support/huge_text.h"

namespace {

int Set(CStrHash& p_c, const char* p_szKey, const char* p_szValue, bool p_bReplace) {
  std::string sValue(p_szValue);
  return p_c.Set(p_szKey, &sValue[0], p_bReplace);
}

// Every value of a key in brackets; "absent" when it is not there.
std::string All(const CStrHash& p_c, const char* p_szKey) {
  CStrArray as;
  as.Add("was there before");
  if (p_c.Get(p_szKey, &as) < 0) return "absent";
  std::string s;
  for (int i = 0; i < as.GetSize(); ++i) s += "[" + std::string(as[i].ToStr()) + "]";
  return s;
}

std::string First(const CStrHash& p_c, const char* p_szKey) {
  CString s("untouched");
  const int iRet = p_c.Get(p_szKey, &s);
  return std::to_string(iRet) + " " + s.ToStr();
}

// The value of a key, or INT_MIN when it is absent.
int Value(const CIntHash& p_c, const char* p_szKey) {
  int iValue = INT_MIN;
  const int iRet = p_c.Get(p_szKey, &iValue);
  CHECK(iRet == (iValue == INT_MIN ? -1 : 0));
  CHECK(p_c.GetOr(p_szKey, INT_MIN) == iValue);
  return iValue;
}

}    // namespace

TEST_CASE("CIntHash finds what was set, for any number of buckets") {
  for (const int iBuckets : {INT_MIN, -1, 0, 1, 7, 1024, INT_MAX}) {
    CAPTURE(iBuckets);
    CIntHash c(iBuckets);
    CHECK(Value(c, "one") == INT_MIN);
    CHECK(c.Set("one", 1, false) == 0);
    CHECK(c.Set("two", -2, false) == 0);
    CHECK(Value(c, "one") == 1);
    CHECK(Value(c, "two") == -2);
    CHECK(Value(c, "three") == INT_MIN);
  }
}

TEST_CASE("CIntHash compares keys exactly") {
  const char* const aszKey[] = {
      "",         "a",        "A",         "aa",        "aaa",      "aaaa",     "aaaaa",
      "aaaaaa",   "aaaaaaa",  "aaaaaaaa",  "aaaaaaaaa", "aaaaaaab", "baaaaaaa", "aaaabaaa",
      " a",       "a ",       "tag_1",     "tag_01",    "tag_10",   "\xFF",     "\xFF\xFF",
      "abcdabcd", "abcdabc",  "bcdabcd",   "a key that is much longer than the other ones are, and ends in a",
      "a key that is much longer than the other ones are, and ends in b",
  };
  const int iKeys = static_cast<int>(sizeof aszKey / sizeof *aszKey);
  CIntHash c(1024);
  for (int i = 0; i < iKeys; ++i) {
    CHECK(Value(c, aszKey[i]) == INT_MIN);
    c.Set(aszKey[i], i, false);
  }
  for (int i = 0; i < iKeys; ++i) CHECK(Value(c, aszKey[i]) == i);
  CHECK(Value(c, "aaaaaaaaaa") == INT_MIN);
}

TEST_CASE("CIntHash tells keys apart that differ in one place, at every length") {
  CIntHash c(1024);
  std::vector<std::string> asKey;
  for (size_t uLen = 0; uLen < 70; ++uLen) {
    asKey.emplace_back(uLen, 'k');
    for (size_t uAt = 0; uAt < uLen; ++uAt) asKey.emplace_back(uLen, 'k')[uAt] = 'K';
  }
  for (size_t u = 0; u < asKey.size(); u += 2) c.Set(asKey[u].c_str(), static_cast<int>(u), false);
  for (size_t u = 0; u < asKey.size(); ++u) {
    CAPTURE(asKey[u]);
    CHECK(Value(c, asKey[u].c_str()) == (u % 2 == 0 ? static_cast<int>(u) : INT_MIN));
  }
}

TEST_CASE("CIntHash: a null key is refused") {
  CIntHash c(1024);
  CHECK(c.Set(nullptr, 1, false) < 0);
  CHECK(c.Set(nullptr, 1, true) < 0);
  CHECK(Value(c, nullptr) == INT_MIN);
  c.Set("a", 1, false);
  CHECK(Value(c, nullptr) == INT_MIN);
}

TEST_CASE("CIntHash: a repeated key keeps its first value unless it is replaced") {
  CIntHash c(1024);
  CHECK(c.Set("key", 1, false) == 0);
  CHECK(c.Set("key", 2, false) == 0);
  CHECK(Value(c, "key") == 1);
  CHECK(c.Set("key", 3, true) == 0);
  CHECK(Value(c, "key") == 3);
  CHECK(c.Set("key", 4, false) == 0);
  CHECK(Value(c, "key") == 3);
  CHECK(c.Set("new", 5, true) == 0);
  CHECK(Value(c, "new") == 5);
  c.Set("int", INT_MAX, false);
  CHECK(Value(c, "int") == INT_MAX);
}

TEST_CASE("CIntHash copies its keys") {
  CIntHash c(1024);
  char szKey[] = "key";
  c.Set(szKey, 1, false);
  szKey[0] = 'X';
  CHECK(Value(c, "key") == 1);
  CHECK(Value(c, szKey) == INT_MIN);
}

TEST_CASE("CIntHash holds very many keys of every length") {
  CIntHash c(1024);
  std::vector<std::string> asKey;
  for (int i = 0; i < 100000; ++i) {
    asKey.push_back(i % 2 != 0 ? std::to_string(i) : std::string(static_cast<size_t>(i % 37), 'k') + std::to_string(i));
    REQUIRE(c.Set(asKey.back().c_str(), i, false) == 0);
  }
  for (int i = 0; i < 100000; ++i) {
    int iValue = -1;
    REQUIRE(c.Get(asKey[static_cast<size_t>(i)].c_str(), &iValue) == 0);
    REQUIRE(iValue == i);
  }
  int iValue = -1;
  for (int i = 0; i < 100000; ++i) REQUIRE(c.Get(("absent" + std::to_string(i)).c_str(), &iValue) == -1);
  CHECK(iValue == -1);
}

TEST_CASE("CIntHash: an empty map takes no memory, one of twenty short keys little") {
  CFailAlloc cCount;
  cCount.Run([] {
    CIntHash c(1024);
    int iValue;
    c.Get("key", &iValue);
  });
  CHECK(cCount.GetCount() == 0);

  // All that was ever asked for; what was outgrown on the way, about half of it, has been given back.
  cCount.Run([] {
    CIntHash c(1024);
    char szKey[] = "tag_name";
    for (int i = 0; i < 20; ++i) {
      szKey[7] = static_cast<char>('a' + i);
      c.Set(szKey, i, false);
    }
  });
  CHECK(cCount.GetBytes() < 20 * 90);
}

TEST_CASE("CIntHash: without memory the map stays as it was") {
  const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
    CIntHash c(1024);
    int iSet = 0;
    const bool bThrew = p_cFail.Run([&] {
      for (; iSet < 60; ++iSet) {
        const char szKey[] = {'k', static_cast<char>('A' + iSet), 0};
        c.Set(szKey, iSet, false);
      }
    });
    CHECK(bThrew == p_cFail.HasFailed());
    CHECK((iSet < 60) == bThrew);
    for (int i = 0; i < 61; ++i) {
      const char szKey[] = {'k', static_cast<char>('A' + i), 0};
      CHECK(Value(c, szKey) == (i < iSet ? i : INT_MIN));
      if (i >= iSet) CHECK(c.Set(szKey, 100 + i, false) == 0);    // and goes on working
      CHECK(Value(c, szKey) == (i < iSet ? i : 100 + i));
    }
  });
  CHECK(iFailures >= 6);
}

TEST_CASE("CIntHash: several threads may look up at once") {
  CIntHash c(1024);
  for (int i = 0; i < 1000; ++i) c.Set(std::to_string(i).c_str(), i, false);
  std::vector<std::thread> acThread;
  std::vector<int> aiWrong(4, 0);
  for (size_t iThread = 0; iThread < aiWrong.size(); ++iThread) {
    acThread.emplace_back([&c, &aiWrong, iThread] {
      for (int i = 0; i < 2000; ++i) {
        int iValue = -1;
        const int iRet = c.Get(std::to_string(i).c_str(), &iValue);
        if (i < 1000 ? iRet != 0 || iValue != i : iRet != -1) ++aiWrong[iThread];
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  CHECK(aiWrong == std::vector<int>(4, 0));
}

TEST_CASE("CStrHash returns the first value, or all of them in the order of adding") {
  CStrHash c(1024);
  CHECK(All(c, "key") == "absent");
  CHECK(First(c, "key") == "-1 untouched");
  CHECK(Set(c, "key", "first", false) == 0);
  CHECK(Set(c, "other", "x", false) == 0);
  CHECK(Set(c, "key", "second", false) == 0);
  CHECK(Set(c, "key", "first", false) == 0);
  CHECK(Set(c, "key", "last", false) == 0);
  CHECK(All(c, "key") == "[first][second][first][last]");
  CHECK(First(c, "key") == "0 first");
  CHECK(All(c, "other") == "[x]");
  CHECK(All(c, "KEY") == "absent");
}

TEST_CASE("CStrHash: replacing leaves one value") {
  CStrHash c(1024);
  Set(c, "key", "a", true);
  CHECK(All(c, "key") == "[a]");
  Set(c, "key", "b", false);
  Set(c, "key", "c", true);
  CHECK(All(c, "key") == "[c]");
  CHECK(First(c, "key") == "0 c");
  Set(c, "key", "d", false);
  CHECK(All(c, "key") == "[c][d]");
}

TEST_CASE("CStrHash: null keys are refused, a null value counts as \"\"") {
  CStrHash c(1024);
  char szValue[] = "v";
  CHECK(c.Set(nullptr, szValue, false) < 0);
  CHECK(c.Set(nullptr, szValue, true) < 0);
  CHECK(First(c, nullptr) == "-1 untouched");
  CHECK(All(c, nullptr) == "absent");
  CHECK(c.Set("key", nullptr, false) == 0);
  CHECK(c.Set("key", nullptr, false) == 0);
  CHECK(All(c, "key") == "[][]");
  CHECK(c.Set("key", nullptr, true) == 0);
  CHECK(All(c, "key") == "[]");
  CHECK(First(c, "key") == "0 ");
}

TEST_CASE("CStrHash: an absent key leaves the outputs untouched") {
  const CStrHash c(1024);
  CStrArray as;
  as.Add("before");
  CHECK(c.Get("key", &as) == -1);
  REQUIRE(as.GetSize() == 1);
  CHECK(as[0] == "before");
}

TEST_CASE("CStrHash copies keys and values") {
  CStrHash c(1024);
  char szKey[] = "key", szValue[] = "value";
  c.Set(szKey, szValue, false);
  szKey[0] = szValue[0] = 'X';
  CHECK(All(c, "key") == "[value]");
  CString s;
  c.Get("key", &s);
  s = "changed";
  CHECK(All(c, "key") == "[value]");
}

TEST_CASE("CStrHash holds very many keys and values") {
  for (const int iBuckets : {1, 1024}) {
    CStrHash c(iBuckets);
    for (int i = 0; i < 20000; ++i) Set(c, std::to_string(i % 5000).c_str(), std::to_string(i).c_str(), false);
    for (int i = 0; i < 5000; ++i) {
      const std::string sExpected = "[" + std::to_string(i) + "][" + std::to_string(i + 5000) + "][" +
                                    std::to_string(i + 10000) + "][" + std::to_string(i + 15000) + "]";
      REQUIRE(All(c, std::to_string(i).c_str()) == sExpected);
    }
  }
}

TEST_CASE("CStrHash: without memory the map stays as it was") {
  char szNew[] = "a new value that is clearly too long to be kept inside an object";
  struct T_Row {
    std::string sWhat;
    const char* szKey;
    bool bReplace;
    std::string sAfter;
  };
  const T_Row atRow[] = {
      {"a new key", "new", false, "[" + std::string(szNew) + "]"},
      {"a new key, replacing", "new", true, "[" + std::string(szNew) + "]"},
      {"a further value", "old", false, "[1][2][3][4][" + std::string(szNew) + "]"},
      {"another value", "old", true, "[" + std::string(szNew) + "]"},
  };
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.sWhat);
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CStrHash c(1024);
      for (const char* sz : {"1", "2", "3", "4"}) Set(c, "old", sz, false);
      for (const char* sz : {"b", "c", "d", "e", "f"}) Set(c, sz, "x", false);
      const bool bThrew = p_cFail.Run([&] { c.Set(tRow.szKey, szNew, tRow.bReplace); });
      CHECK(bThrew == p_cFail.HasFailed());
      const bool bNewKey = std::string(tRow.szKey) == "new";
      CHECK(All(c, tRow.szKey) == (!bThrew ? tRow.sAfter : bNewKey ? "absent" : "[1][2][3][4]"));
      CHECK(All(c, "f") == "[x]");
      CHECK(Set(c, tRow.szKey, "z", true) == 0);    // and goes on working
      CHECK(All(c, tRow.szKey) == "[z]");
    });
    CHECK(iFailures >= 2);
  }
}

TEST_CASE("CStrHash::Get without memory") {
  CStrHash c(1024);
  Set(c, "key", "a value that is clearly too long to be kept inside an object", false);
  CHECK(ForEachFailure([&c](CFailAlloc& p_cFail) {
          CString s("before");
          const bool bThrew = p_cFail.Run([&] { c.Get("key", &s); });
          CHECK(bThrew == p_cFail.HasFailed());
          if (bThrew) CHECK(s == "before");
        }) == 1);
  CHECK(ForEachFailure([&c](CFailAlloc& p_cFail) {
          CStrArray as;
          const bool bThrew = p_cFail.Run([&] { c.Get("key", &as); });
          CHECK(bThrew == p_cFail.HasFailed());
          if (bThrew) CHECK(as.GetSize() == 0);
        }) == 2);
}

#ifdef HAVE_HUGE_TEXT
TEST_CASE("CIntHash refuses a key of more than an int can count") {
  const CHugeText cHuge;
  CIntHash c(1024);
  c.Set("key", 1, false);
  CHECK_THROWS_AS(c.Set(cHuge.ToStr(), 2, false), std::bad_alloc);
  CHECK(Value(c, "key") == 1);
}
#endif
