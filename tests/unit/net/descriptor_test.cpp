// Descriptors that no fd_set has room for.
#include <doctest/doctest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

#include "open_adaptor.h"
#include "support/fail_alloc.h"
#include "support/peer.h"

namespace {

// Lets descriptors go as high as this process may, while it lives.
class CManyDescriptors {
 public:
  CManyDescriptors() {
    getrlimit(RLIMIT_NOFILE, &m_tOld);
    rlimit tMany = {200000, 200000};
    if (setrlimit(RLIMIT_NOFILE, &tMany) == 0) return;    // needs privileges
    tMany.rlim_cur = tMany.rlim_max = m_tOld.rlim_max;
    setrlimit(RLIMIT_NOFILE, &tMany);
  }
  ~CManyDescriptors() { setrlimit(RLIMIT_NOFILE, &m_tOld); }

  // 1023 and some above it: the first, the last and the middle of a word, and what the limit allows.
  std::vector<int> Numbers() const {
    rlimit tNow;
    getrlimit(RLIMIT_NOFILE, &tNow);
    std::vector<int> aiNumber;
    for (const int i : {1022, 1023, 1024, 1055, 1056, 1087, 1088, 2000, 5000, 65535, 65536, 131071}) {
      if (static_cast<rlim_t>(i) < tNow.rlim_cur) aiNumber.push_back(i);
    }
    return aiNumber;
  }

 private:
  rlimit m_tOld;
};

void MoveTo(COpenAdaptor& p_cAdaptor, int p_iNumber) {
  const int iNew = fcntl(p_cAdaptor.iSock, F_DUPFD_CLOEXEC, p_iNumber);
  REQUIRE(iNew == p_iNumber);
  close(p_cAdaptor.iSock);
  p_cAdaptor.iSock = iNew;
}

}    // namespace

TEST_CASE("descriptors from 1024 on: every kind of wait") {
  CManyDescriptors cMany;
  CPeer cPeer([](int p_iSock) {
    WriteAll(p_iSock, ReadBytes(p_iSock, 4));
    WaitForEnd(p_iSock);
  });
  const std::vector<int> aiNumber = cMany.Numbers();
  REQUIRE(aiNumber.back() >= 1024);
  for (const int iNumber : aiNumber) {
    CAPTURE(iNumber);
    COpenAdaptor cAdaptor;
    REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
    MoveTo(cAdaptor, iNumber);
    char szBuf[4];
    CHECK(cAdaptor.ReceiveData(szBuf, 4, 0) == -8);
    CHECK(cAdaptor.Error() == "Socket timeout(-8)((recv to=0))");
    CHECK(cAdaptor.SendData("ping", 4, 5) == 0);
    CHECK(cAdaptor.ReceiveData(szBuf, 4, 20) == 4);
    CHECK(std::string(szBuf, 4) == "ping");
    cAdaptor.Fill();
    CHECK(cAdaptor.SendData("x", 1, 0) == -8);
    CHECK(cAdaptor.Error() == "Socket timeout(-8)((send to=0))");
  }
}

TEST_CASE("descriptors from 1024 on: Connect itself") {
  CManyDescriptors cMany;
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, "x"); });
  std::vector<int> aiTaken;
  for (int i = 0; i < 1100; ++i) aiTaken.push_back(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  COpenAdaptor cAdaptor;
  const int iSock = cAdaptor.Connect("127.0.0.1", cPeer.Port());
  char szBuf[1];
  const int iGot = cAdaptor.ReceiveData(szBuf, 1, 20);
  for (const int i : aiTaken) close(i);
  CHECK(iSock >= 1024);
  CHECK(iGot == 1);
}

TEST_CASE("descriptors from 1024 on: no memory for the set") {
  CManyDescriptors cMany;
  CPeer cPeer(WaitForEnd);
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  MoveTo(cAdaptor, 1024);
  char szBuf[1];
  int iRet = 0;
  CFailAlloc cFailRead(1);
  CHECK_FALSE(cFailRead.Run([&] { iRet = cAdaptor.ReceiveData(szBuf, 1, 5); }));
  CHECK(iRet == -10);
  CHECK(cAdaptor.Error() == "Failed in select()(-10)((recv errno=12,Cannot allocate memory))");
  cAdaptor.Fill();
  CFailAlloc cFailWrite(1);
  CHECK_FALSE(cFailWrite.Run([&] { iRet = cAdaptor.SendData("x", 1, 5); }));
  CHECK(iRet == -10);
  CHECK(cAdaptor.Error() == "Failed in select()(-10)((send errno=12,Cannot allocate memory))");
}

TEST_CASE("descriptors below 1024 need no memory to wait") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, ReadBytes(p_iSock, 1)); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  char szBuf[1];
  int iSent = -1, iGot = -1;
  CFailAlloc cCount;
  CHECK_FALSE(cCount.Run([&] {
    iSent = cAdaptor.SendData("x", 1, 5);
    iGot = cAdaptor.ReceiveData(szBuf, 1, 5);
  }));
  CHECK(iSent == 0);
  CHECK(iGot == 1);
  CHECK(cCount.GetCount() == 0);
}
