// The library's only exception.
#include "callorv/base/exception.h"

#include <doctest/doctest.h>

#include <atomic>
#include <exception>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/fail_alloc.h"

namespace {

const char LONG[] = "a text that is clearly too long to be kept inside the object";

}    // namespace

static_assert(!std::is_base_of<std::exception, CException>::value, "a root class");
static_assert(std::is_nothrow_copy_constructible<CException>::value, "");
static_assert(std::is_nothrow_copy_assignable<CException>::value, "");

TEST_CASE("CException holds a code and a text as it stands") {
  const CException c("100%s done, %d %n", -19);
  CHECK(c.GetCode() == -19);
  CHECK(std::string(c.GetText()) == "100%s done, %d %n");
  const CException cNull(nullptr, 0);
  CHECK(cNull.GetCode() == 0);
  CHECK(std::string(cNull.GetText()) == "");
}

TEST_CASE("CException formats its text") {
  const CException c(-21, "[F]%s (L:%d, C:%d) : %s", "MemData", 1, 20, "expected end of tag 't1'");
  CHECK(c.GetCode() == -21);
  CHECK(std::string(c.GetText()) == "[F]MemData (L:1, C:20) : expected end of tag 't1'");
  const std::string sLong(100000, 'x');
  CHECK(std::string(CException(-1, "<%s>", sLong.c_str()).GetText()) == "<" + sLong + ">");
  CHECK(std::string(CException(-1, nullptr).GetText()) == "");
}

TEST_CASE("CException is thrown by value, caught by reference and wrapped again") {
  std::string sText;
  int iCode = 0;
  try {
    try {
      throw CException("inner", -24);
    } catch (const std::exception&) {
      FAIL("not a standard exception");
    } catch (CException& cInner) {
      throw CException(cInner.GetCode(), "outer {%s}", cInner.GetText());
    }
  } catch (const CException& cOuter) {
    sText = cOuter.GetText();
    iCode = cOuter.GetCode();
  }
  CHECK(sText == "outer {inner}");
  CHECK(iCode == -24);
}

TEST_CASE("CException: copies outlive the original and need no memory") {
  CException cAssigned("other", -1);
  CFailAlloc cCount;
  {
    const CException cFirst(LONG, -9);
    cCount.Run([&] {
      CException cCopy(cFirst);
      cAssigned = cCopy;
      const CException& cSame = cAssigned;
      cAssigned = cSame;
    });
    CHECK(std::string(cFirst.GetText()) == LONG);
  }
  CHECK(cCount.GetCount() == 0);
  CHECK(cAssigned.GetCode() == -9);
  CHECK(std::string(cAssigned.GetText()) == LONG);
}

TEST_CASE("CException: copies in several threads are independent") {
  const CException c(LONG, -9);
  std::atomic<int> iEqual{0};
  std::vector<std::thread> acThread;
  for (int i = 0; i < 4; ++i) {
    acThread.emplace_back([&] {
      for (int j = 0; j < 1000; ++j) {
        CException cMine(c);
        CException cOther(cMine);
        cMine = cOther;
        iEqual += std::string(cMine.GetText()) == LONG && std::string(cOther.GetText()) == LONG;
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  CHECK(iEqual == 4000);
  CHECK(std::string(c.GetText()) == LONG);
}

TEST_CASE("CException: no memory for the text is std::bad_alloc") {
  CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
          const bool bThrew = p_cFail.Run([] { CException(LONG, -9); });
          CHECK(bThrew == p_cFail.HasFailed());
        }) == 2);
  CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
          const bool bThrew = p_cFail.Run([] { CException(-9, "%s", LONG); });
          CHECK(bThrew == p_cFail.HasFailed());
        }) == 2);
}
