// ReceiveData.
#include <doctest/doctest.h>
#include <linux/net_tstamp.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <future>

#include "open_adaptor.h"
#include "support/peer.h"
#include "support/valgrind.h"

TEST_CASE("ReceiveData: the connection is tested first, then the length") {
  COpenAdaptor cAdaptor;
  char szBuf[4] = "abc";
  CHECK(cAdaptor.ReceiveData(szBuf, 0, 0) == -12);
  CHECK(cAdaptor.Error() == "Socket not connected(-12)((ReceiveData))");
  CPeer cPeer(WaitForEnd);
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.SetLastError(-1, "x");
  CHECK(cAdaptor.ReceiveData(szBuf, 0, 0) == 0);
  CHECK(cAdaptor.ReceiveData(nullptr, 0, 0) == 0);
  CHECK(cAdaptor.ReceiveData(szBuf, -1, 0) == -1);
  CHECK(cAdaptor.ReceiveData(szBuf, -8, 0) == -8);
  CHECK(cAdaptor.ReceiveData(szBuf, INT_MIN, 0) == INT_MIN);
  CHECK(cAdaptor.Error() == "Memory error(-1)(x)");    // none of them is an error of its own
  CHECK(std::string(szBuf) == "abc");
}

TEST_CASE("ReceiveData reads exactly what was asked for") {
  const std::string sBytes = Noise(1000000);
  CPeer cPeer([&](int p_iSock) { WriteAll(p_iSock, "headbody" + sBytes); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  char szBuf[9] = "........";
  CHECK(cAdaptor.ReceiveData(szBuf, 4, 5) == 4);
  CHECK(std::string(szBuf) == "head....");
  CHECK(cAdaptor.ReceiveData(szBuf + 4, 4, 5) == 4);
  CHECK(std::string(szBuf) == "headbody");
  std::string sGot(1000000, '\0');
  CHECK(cAdaptor.ReceiveData(&sGot[0], 1000000, 5) == 1000000);
  CHECK((sGot == sBytes));
  CHECK(cAdaptor.Error() == "");
}

TEST_CASE("ReceiveData: the peer closes") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, "ab"); });
  COpenAdaptor cAdaptor;
  char szBuf[9] = "........";
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.ReceiveData(szBuf, 8, 5) == -9);    // half way
  CHECK(cAdaptor.Error() == "Socket closed(-9)(OK)");
  CHECK(std::string(szBuf) == "ab......");    // what came stays
  CHECK(cAdaptor.ReceiveData(szBuf, 8, 5) == -9);    // at once
  CHECK(cAdaptor.Error() == "Socket closed(-9)(OK)");
  CHECK(cAdaptor.iSock >= 0);
}

TEST_CASE("ReceiveData: the peer resets the connection") {
  CPeer cPeer(ResetOnClose);
  COpenAdaptor cAdaptor;
  char szBuf[8];
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.ReceiveData(szBuf, 8, 5) == -9);
  CHECK(cAdaptor.Error() == "Socket closed(-9)((Connection reset by peer))");
}

TEST_CASE("ReceiveData: the peer closes without having read everything") {
  CPeer cPeer([](int p_iSock) { ReadBytes(p_iSock, 1); });
  COpenAdaptor cAdaptor;
  char szBuf[8];
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.SendData("unread", 6, 5) == 0);
  CHECK(cAdaptor.ReceiveData(szBuf, 8, 5) == -9);
  CHECK(cAdaptor.Error() == "Socket closed(-9)((Connection reset by peer))");
}

TEST_CASE("ReceiveData: nothing comes in time") {
  CPeer cPeer([](int p_iSock) {
    WriteAll(p_iSock, "ab");
    WaitForEnd(p_iSock);
  });
  COpenAdaptor cAdaptor;
  char szBuf[9] = "........";
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.AwaitBytes(2);
  CHECK(cAdaptor.ReceiveData(szBuf, 8, 0) == -8);
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((recv to=0))");
  CHECK(std::string(szBuf) == "ab......");

  cAdaptor.SetLastError(-1, "x");
  cAdaptor.iRecvTimeOut = 1;
  const auto tStart = std::chrono::steady_clock::now();
  CHECK(cAdaptor.ReceiveData(szBuf, 1, -1) == -8);
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((recv to=0))");    // what is left of the second, not the second
  const auto tTook = std::chrono::steady_clock::now() - tStart;
  CHECK(tTook >= std::chrono::milliseconds(990));
  CHECK(tTook < std::chrono::seconds(15));
}

TEST_CASE("ReceiveData: the time-out is for each wait, not for the whole") {
  CPeer cPeer([](int p_iSock) {
    for (int i = 0; i < 4; ++i) {
      pollfd tPoll = {p_iSock, POLLRDHUP, 0};
      poll(&tPoll, 1, 800);
      WriteAll(p_iSock, "x");
    }
  });
  COpenAdaptor cAdaptor;
  char szBuf[4];
  const auto tStart = std::chrono::steady_clock::now();    // before the peer's first wait
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.ReceiveData(szBuf, 4, 2) == 4);
  CHECK(std::chrono::steady_clock::now() - tStart >= std::chrono::milliseconds(3000));
}

TEST_CASE("ReceiveData: recv() fails") {
  int aiPipe[2];
  REQUIRE(pipe2(aiPipe, O_CLOEXEC) == 0);
  REQUIRE(write(aiPipe[1], "x", 1) == 1);
  COpenAdaptor cAdaptor;
  char szBuf[1];
  cAdaptor.iSock = aiPipe[0];
  CHECK(cAdaptor.ReceiveData(szBuf, 1, 5) == -7);
  CHECK(cAdaptor.Error() == "Failed in recv()(-7)((recv errno=88,Socket operation on non-socket))");
  cAdaptor.Disconnect();
  close(aiPipe[1]);
}

TEST_CASE("ReceiveData: recv() refuses where to") {
  NOT_UNDER_VALGRIND("a bad pointer");
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, "x"); });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.ReceiveData(nullptr, 1, 5) == -7);
  CHECK(cAdaptor.Error() == "Failed in recv()(-7)((recv errno=14,Bad address))");
}

TEST_CASE("ReceiveData: select() fails") {
  COpenAdaptor cAdaptor;
  char szBuf[1];
  cAdaptor.iSock = dup(STDOUT_FILENO);
  close(cAdaptor.iSock);
  CHECK(cAdaptor.ReceiveData(szBuf, 1, 5) == -10);
  CHECK(cAdaptor.Error() == "Failed in select()(-10)((recv errno=9,Bad file descriptor))");
  cAdaptor.iSock = -1;
}

TEST_CASE("ReceiveData: a signal ends the wait") {
  struct sigaction tAction = {};
  tAction.sa_handler = [](int) {};
  tAction.sa_flags = SA_RESTART;
  sigaction(SIGUSR1, &tAction, nullptr);
  const pthread_t tClient = pthread_self();
  CPeer cPeer([&](int p_iSock) {
    for (pollfd tPoll = {p_iSock, POLLRDHUP, 0}; poll(&tPoll, 1, 5) == 0;) pthread_kill(tClient, SIGUSR1);
  });
  COpenAdaptor cAdaptor;
  char szBuf[1];
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.ReceiveData(szBuf, 1, 20) == -10);
  CHECK(cAdaptor.Error() == "Failed in select()(-10)((recv errno=4,Interrupted system call))");
  cAdaptor.Disconnect();
}

// With time stamps of sent bytes in the socket's error queue, select() says "readable" while recv() has nothing.
TEST_CASE("ReceiveData: EAGAIN after select() waits again") {
  clockid_t tClientClock;
  REQUIRE(pthread_getcpuclockid(pthread_self(), &tClientClock) == 0);
  const auto fnClientTime = [tClientClock] {    // ns of processor time
    timespec tTime;
    clock_gettime(tClientClock, &tTime);
    return tTime.tv_sec * 1000000000LL + tTime.tv_nsec;
  };
  std::promise<void> cStart;
  CPeer cPeer([&](int p_iSock) {
    cStart.get_future().get();
    const long long iFrom = fnClientTime();
    while (fnClientTime() - iFrom < 20000000) sched_yield();    // until the client has gone round many times
    WriteAll(p_iSock, "late");
  });
  COpenAdaptor cAdaptor;
  char szBuf[5] = "";
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.SetNonBlocking();
  const int iStamps = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
  REQUIRE(setsockopt(cAdaptor.iSock, SOL_SOCKET, SO_TIMESTAMPING, &iStamps, sizeof(iStamps)) == 0);
  REQUIRE(cAdaptor.SendData("x", 1, 5) == 0);
  pollfd tPoll = {cAdaptor.iSock, 0, 0};
  REQUIRE(poll(&tPoll, 1, 5000) == 1);
  REQUIRE(tPoll.revents == POLLERR);
  errno = 0;
  REQUIRE(recv(cAdaptor.iSock, szBuf, 1, 0) == -1);
  REQUIRE(errno == EAGAIN);
  cStart.set_value();
  CHECK(cAdaptor.ReceiveData(szBuf, 4, 20) == 4);
  CHECK(std::string(szBuf) == "late");
  CHECK(cAdaptor.Error() == "");
}
