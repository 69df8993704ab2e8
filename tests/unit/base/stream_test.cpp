// A growable byte buffer.
#include "callorv/base/stream.h"

#include <doctest/doctest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/fail_alloc.h"

namespace {

std::string Bytes(const CStream& p_st) { return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize())); }

int Append(CStream& p_st, const std::string& p_s) { return p_st.AppendData(p_s.data(), static_cast<int>(p_s.size())); }

// The stream holds p_sExpected, with a NUL behind it.
void CheckBytes(const CStream& p_st, const std::string& p_sExpected) {
  CHECK(Bytes(p_st) == p_sExpected);
  CHECK(p_st.GetData()[p_st.GetSize()] == 0);
}

}    // namespace

TEST_CASE("CStream: a new one is empty, with a NUL, whatever its sizes") {
  for (const int iInitial : {INT_MIN, -1, 0, 1, 511, 512, 5000}) {
    for (const int iGrowBy : {INT_MIN, -1, 0, 1, 512, INT_MAX}) {
      CAPTURE(iInitial);
      CAPTURE(iGrowBy);
      CStream st(iInitial, iGrowBy);
      CheckBytes(st, "");
      CHECK(st.GetCapacity() == (iInitial > 0 ? iInitial : 0));
    }
  }
}

TEST_CASE("CStream: a stream of initial size 0 allocates nothing before the first byte") {
  CFailAlloc cCount;
  cCount.Run([] {
    CStream st(0, 512);
    st.AppendData("abc", 0);
    st.Clear();
    st.GetBuffer(0);
    st.ReleaseBuffer(0);
  });
  CHECK(cCount.GetCount() == 0);
}

TEST_CASE("CStream::AppendData appends exactly the bytes given") {
  CStream st(0, 512);
  CHECK(Append(st, "abc") == 0);
  CheckBytes(st, "abc");
  CHECK(Append(st, std::string("\0d\0", 3)) == 0);
  CheckBytes(st, std::string("abc\0d\0", 6));
  CHECK(st.AppendData("xyz", 0) == 0);
  CHECK(st.AppendData("xyz", -1) == 0);
  CHECK(st.AppendData("xyz", INT_MIN) == 0);
  CHECK(st.AppendData(nullptr, 0) == 0);
  CheckBytes(st, std::string("abc\0d\0", 6));
  CHECK(st.AppendData("xyz", 2) == 0);
  CheckBytes(st, std::string("abc\0d\0xy", 8));
}

TEST_CASE("CStream accepts appends of any length") {
  for (const int iGrowBy : {1, 512}) {
    CStream st(0, iGrowBy);
    std::string sExpected;
    for (int iLen = 1; iLen < 200000; iLen = iLen * 3 / 2 + 1) {
      const std::string sPiece(static_cast<size_t>(iLen), static_cast<char>('a' + iLen % 26));
      REQUIRE(Append(st, sPiece) == 0);
      sExpected += sPiece;
      CheckBytes(st, sExpected);
    }
  }
}

TEST_CASE("CStream grows by the step at first and then by half of itself, so that appending is linear") {
  CStream st(0, 512);
  Append(st, "a");
  CHECK(st.GetCapacity() == 512);
  Append(st, std::string(512, 'b'));
  CHECK(st.GetCapacity() == 1024);
  CFailAlloc cCount;
  cCount.Arm();
  for (int i = 0; i < 1000000; ++i) st.AppendData("c", 1);
  cCount.Disarm();
  CHECK(st.GetSize() == 1000513);
  CHECK(cCount.GetCount() < 25);
  CStream stExact(100, 512);
  Append(stExact, std::string(100, 'x'));
  CHECK(stExact.GetCapacity() == 100);
}

TEST_CASE("CStream::AppendData of the stream's own bytes, with and without growing") {
  for (const int iInitial : {10, 1000}) {
    CAPTURE(iInitial);
    CStream st(iInitial, 1);
    Append(st, "0123456789");
    CHECK(st.AppendData(st.GetData(), st.GetSize()) == 0);
    CheckBytes(st, "01234567890123456789");
    CHECK(st.AppendData(st.GetData() + 17, 3) == 0);
    CheckBytes(st, "01234567890123456789789");
  }
  CStream st(0, 1);
  Append(st, "ab");
  for (int i = 0; i < 18; ++i) REQUIRE(st.AppendData(st.GetData(), st.GetSize()) == 0);
  CHECK(st.GetSize() == 2 << 18);
  CHECK(memcmp(st.GetData(), st.GetData() + 2, static_cast<size_t>(st.GetSize()) - 2) == 0);
}

TEST_CASE("CStream::Clear keeps the room") {
  CStream st(0, 512);
  Append(st, std::string(3000, 'x'));
  const int iCapacity = st.GetCapacity();
  const char* pData = st.GetData();
  st.Clear();
  CheckBytes(st, "");
  CHECK(st.GetCapacity() == iCapacity);
  CHECK((st.GetData() == pData));
  Append(st, "next");
  CheckBytes(st, "next");
}

TEST_CASE("CStream::Swap changes places with another stream") {
  CStream stLong(0, 512), stNone(0, 7);
  stLong.AppendData("a\0b", 3);
  const char* pData = stLong.GetData();
  stLong.Swap(stNone);
  CHECK(stNone.GetData() == pData);
  CHECK(std::string(stNone.GetData(), 4) == std::string("a\0b", 4));
  CHECK(stNone.GetSize() == 3);
  CHECK(stNone.GetCapacity() == 512);
  CHECK(stLong.GetSize() == 0);
  CHECK(stLong.GetCapacity() == 0);
  CHECK(*stLong.GetData() == 0);
  stLong.AppendData("c", 1);
  CHECK(stLong.GetCapacity() == 7);    // the step moves, too
  stLong.Swap(stLong);
  CHECK(std::string(stLong.GetData()) == "c");
}

TEST_CASE("CStream: GetBuffer and ReleaseBuffer") {
  CStream st(0, 512);
  char* p = st.GetBuffer(1000);
  CHECK((p == st.GetData()));
  CHECK(st.GetCapacity() >= 1000);
  CHECK(st.GetSize() == 0);
  memset(p, 'x', 1000);
  SUBCASE("all of it") {
    st.ReleaseBuffer(1000);
    CheckBytes(st, std::string(1000, 'x'));
  }
  SUBCASE("a part") {
    st.ReleaseBuffer(7);
    CheckBytes(st, "xxxxxxx");
    Append(st, "yz");
    CheckBytes(st, "xxxxxxxyz");
  }
  SUBCASE("nothing") {
    st.ReleaseBuffer(0);
    CheckBytes(st, "");
  }
  SUBCASE("a negative length counts as 0") {
    st.ReleaseBuffer(-5);
    CheckBytes(st, "");
  }
  SUBCASE("what the stream held stays, also while growing") {
    st.ReleaseBuffer(3);
    memcpy(st.GetBuffer(50000) + 3, "abc", 3);
    st.ReleaseBuffer(6);
    CheckBytes(st, "xxxabc");
  }
  SUBCASE("room that is there already") {
    st.ReleaseBuffer(3);
    for (const int iSize : {INT_MIN, -1, 0, 1, 1000}) CHECK((st.GetBuffer(iSize) == p));
    CheckBytes(st, "xxx");
  }
}

TEST_CASE("CStream::ReleaseBuffer stays within the room") {
  CStream st(10, 1);
  memset(st.GetBuffer(10), 'x', 10);
  st.ReleaseBuffer(INT_MAX);
  CheckBytes(st, "xxxxxxxxxx");
  CStream stNone(0, 1);
  stNone.ReleaseBuffer(5);
  CheckBytes(stNone, "");
}

TEST_CASE("CStream: exactly the size of a file and its NUL") {
  CStream st(4 + 1, 512);
  memcpy(st.GetBuffer(4), "file", 4);
  st.ReleaseBuffer(4);
  CHECK(st.GetCapacity() == 5);
  CheckBytes(st, "file");
}

TEST_CASE("CStream: lengths beyond what an int counts are refused, the stream is as before") {
  CStream st(0, INT_MAX);
  CFailAlloc cCount;
  CHECK(cCount.Run([&st] { st.GetBuffer(INT_MAX); }));    // 2147483647: no room for the NUL
  CHECK(cCount.Run([] { CStream(INT_MAX, 1); }));
  CHECK(cCount.GetCount() == 0);
  CheckBytes(st, "");

  CStream stShort(10, 1);
  Append(stShort, "0123456789");
  cCount.Arm();
  const int iRet = stShort.AppendData(stShort.GetData(), INT_MAX - 10);    // 2147483647 in all
  cCount.Disarm();
  CHECK(iRet == -1);
  CHECK(cCount.GetCount() == 0);
  CheckBytes(stShort, "0123456789");
}

TEST_CASE("CStream: the room asked for never passes 2147483647 bytes") {
  // The allocation fails, so nothing is really taken; its size is what matters.
  CStream st(0, INT_MAX);
  CFailAlloc cFail(1);
  cFail.Arm();
  const int iRet = st.AppendData("a", 1);
  cFail.Disarm();
  CHECK(iRet == -1);
  CHECK(cFail.GetBytes() == 2147483647u);
  CFailAlloc cFailAgain(1);
  CHECK(cFailAgain.Run([&st] { st.GetBuffer(INT_MAX - 1); }));
  CHECK(cFailAgain.GetBytes() == 2147483647u);
  CheckBytes(st, "");
}

TEST_CASE("CStream without memory") {
  SUBCASE("the constructor throws") {
    CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
            const bool bThrew = p_cFail.Run([] { CStream(100, 512); });
            CHECK(bThrew == p_cFail.HasFailed());
          }) == 1);
  }
  SUBCASE("AppendData returns -1 and changes nothing") {
    for (const char* szOld : {"", "old bytes"}) {
      CHECK(ForEachFailure([szOld](CFailAlloc& p_cFail) {
              CStream st(0, 1);
              Append(st, szOld);
              int iRet = 0;
              CHECK_FALSE(p_cFail.Run([&] { iRet = st.AppendData("abc", 3); }));
              CHECK(iRet == (p_cFail.HasFailed() ? -1 : 0));
              CheckBytes(st, p_cFail.HasFailed() ? szOld : szOld + std::string("abc"));
              CHECK(Append(st, "def") == 0);    // and goes on working
            }) == 1);
    }
  }
  SUBCASE("GetBuffer throws and changes nothing") {
    CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
            CStream st(0, 1);
            Append(st, "old bytes");
            const int iCapacity = st.GetCapacity();
            const bool bThrew = p_cFail.Run([&] { st.GetBuffer(100); });
            CHECK(bThrew == p_cFail.HasFailed());
            if (bThrew) CHECK(st.GetCapacity() == iCapacity);
            CheckBytes(st, "old bytes");
          }) == 1);
  }
}

TEST_CASE("CStream: distinct empty streams may be used in several threads at once") {
  std::atomic<int> iEmpty{0};
  std::vector<std::thread> acThread;
  for (int i = 0; i < 4; ++i) {
    acThread.emplace_back([&] {
      for (int j = 0; j < 1000; ++j) {
        CStream st(0, 512);
        st.Clear();
        st.GetBuffer(0);
        st.ReleaseBuffer(0);
        iEmpty += st.GetSize() == 0 && *st.GetData() == 0;
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  CHECK(iEmpty == 4000);
}
