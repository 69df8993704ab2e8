// The tests' own means of making allocations fail.
#include "support/fail_alloc.h"

#include <doctest/doctest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

namespace {

void* volatile s_pKeep;    // the compiler must not leave an allocation out

void* Keep(void* p_p) {
  s_pKeep = p_p;
  return p_p;
}

}    // namespace

TEST_CASE("every form of allocation is counted once, with its size") {
  struct T_Row {
    std::string sForm;
    size_t uBytes;
    void (*fnAlloc)();
  };
  static const T_Row s_atRow[] = {
      {"new", 40, [] { operator delete(Keep(operator new(40))); }},
      {"new[]", 41, [] { operator delete[](Keep(operator new[](41))); }},
      {"new (nothrow)", 42, [] { operator delete(Keep(operator new(42, std::nothrow))); }},
      {"new[] (nothrow)", 43, [] { operator delete[](Keep(operator new[](43, std::nothrow))); }},
      {"malloc", 44, [] { free(Keep(malloc(44))); }},
      {"calloc", 45, [] { free(Keep(calloc(9, 5))); }},
      {"realloc", 46, [] { free(Keep(realloc(nullptr, 46))); }},
      {"strdup", 4, [] { free(Keep(strdup("abc"))); }},
      {"a string grown inside libstdc++", 101, [] { std::string().reserve(100); }},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sForm);
    CFailAlloc cCount;
    CHECK_FALSE(cCount.Run(tRow.fnAlloc));
    CHECK(cCount.GetCount() == 1);
    CHECK(cCount.GetBytes() == tRow.uBytes);
    CHECK_FALSE(cCount.HasFailed());
  }
}

TEST_CASE("a chosen allocation fails in the way of its form") {
  struct T_Row {
    std::string sForm;
    bool bThrows;
    void* (*fnAlloc)();
  };
  static const T_Row s_atRow[] = {
      {"new", true, [] { return operator new(40); }},
      {"new[]", true, [] { return operator new[](40); }},
      {"new (nothrow)", false, [] { return operator new(40, std::nothrow); }},
      {"new[] (nothrow)", false, [] { return operator new[](40, std::nothrow); }},
      {"malloc", false, [] { return malloc(40); }},
      {"calloc", false, [] { return calloc(4, 10); }},
      {"realloc", false, [] { return realloc(nullptr, 40); }},
      {"strdup", false, [] { return static_cast<void*>(strdup("abc")); }},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sForm);
    CFailAlloc cFail(1);
    void* p = nullptr;
    CHECK(cFail.Run([&] { p = tRow.fnAlloc(); }) == tRow.bThrows);
    CHECK(p == nullptr);
    CHECK(cFail.HasFailed());
    CHECK(cFail.GetCount() == 1);
  }
}

TEST_CASE("only the chosen ones fail, and only while armed") {
  CFailAlloc cFail(2, 2);
  void* ap[5] = {};
  cFail.Arm();
  for (void*& p : ap) p = malloc(1);
  cFail.Disarm();
  CHECK(ap[0] != nullptr);
  CHECK(ap[1] == nullptr);
  CHECK(ap[2] == nullptr);
  CHECK(ap[3] != nullptr);
  CHECK(ap[4] != nullptr);
  for (void* p : ap) free(p);
  CHECK(cFail.GetCount() == 5);
  CHECK_NOTHROW(std::make_unique<int>(1));

  CFailAlloc cNone(3, INT_MAX);
  cNone.Arm();
  for (void*& p : ap) p = malloc(1);
  cNone.Disarm();
  CHECK(ap[1] != nullptr);
  CHECK(ap[2] == nullptr);
  CHECK(ap[4] == nullptr);
  for (void* p : ap) free(p);
}

TEST_CASE("other threads are not touched") {
  CFailAlloc cFail(1, INT_MAX);
  bool bGot = false;
  std::thread cThread([&bGot] {
    CFailAlloc cOther(2);
    bGot = !cOther.Run([] { operator delete(Keep(operator new(4))); });
  });
  CHECK_THROWS_AS(
      [&] {
        cFail.Arm();
        std::unique_ptr<int> p(new int(1));
        cFail.Disarm();
      }(),
      std::bad_alloc);
  cThread.join();
  cFail.Disarm();
  CHECK(bGot);
}

TEST_CASE("ForEachFailure fails each allocation in turn") {
  int iRuns = 0;
  const int iFailures = ForEachFailure([&iRuns](CFailAlloc& p_cFail) {
    ++iRuns;
    std::unique_ptr<int> p1, p2, p3;
    const bool bThrew = p_cFail.Run([&] {
      p1 = std::make_unique<int>(1);
      p2 = std::make_unique<int>(2);
      p3 = std::make_unique<int>(3);
    });
    CHECK(bThrew == p_cFail.HasFailed());
    CHECK((p1 != nullptr) == (iRuns > 1));
    CHECK((p2 != nullptr) == (iRuns > 2));
    CHECK((p3 != nullptr) == (iRuns > 3));
  });
  CHECK(iFailures == 3);
  CHECK(iRuns == 4);
}

TEST_CASE("Run disarms and passes other exceptions on") {
  CFailAlloc cFail(1);
  CHECK_THROWS_AS(cFail.Run([] { throw 7; }), int);
  CHECK_NOTHROW(std::make_unique<int>(1));
}
