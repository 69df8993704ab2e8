// SendData.
#include <doctest/doctest.h>
#include <gnu/libc-version.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "open_adaptor.h"
#include "support/cancelled.h"
#include "support/child.h"
#include "support/peer.h"

namespace {

volatile sig_atomic_t s_iPipeSignals = 0;

// The calling thread's SIGPIPE: blocked or not, pending or not, and how often the handler ran.
std::string PipeState() {
  sigset_t tMask, tPending;
  pthread_sigmask(SIG_BLOCK, nullptr, &tMask);
  sigpending(&tPending);
  return std::string(sigismember(&tMask, SIGPIPE) == 1 ? "blocked" : "open") +
         (sigismember(&tPending, SIGPIPE) == 1 ? ", pending" : ", none pending") + ", handled " +
         std::to_string(s_iPipeSignals);
}

void BlockSigPipe() {
  sigset_t tSet;
  sigemptyset(&tSet);
  sigaddset(&tSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &tSet, nullptr);
}

// Leaves all bits set where the next function called will have its variables.
__attribute__((noinline)) void DirtyStack() {
  volatile char szStack[8192];
  for (volatile char& c : szStack) c = '\xFF';
}

// Sends into a connection whose own sending side is closed: send() fails with EPIPE.
std::string SendIntoBrokenPipe() {
  CPeer cPeer(WaitForEnd);
  COpenAdaptor cAdaptor;
  cAdaptor.Connect("127.0.0.1", cPeer.Port());
  shutdown(cAdaptor.iSock, SHUT_WR);
  DirtyStack();
  const int iRet = cAdaptor.SendData("x", 1, 5);
  const int iErrno = errno;
  return std::to_string(iRet) + " " + cAdaptor.Error() + " errno " + std::to_string(iErrno);
}

}    // namespace

TEST_CASE("SendData: the connection is tested first, then the pointer, then the length") {
  COpenAdaptor cAdaptor;
  CHECK(cAdaptor.SendData(nullptr, 0, 0) == -12);
  CHECK(cAdaptor.Error() == "Socket not connected(-12)((SendData))");
  CPeer cPeer(WaitForEnd);
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.SendData(nullptr, 0, 0) == -2);
  CHECK(cAdaptor.Error() == "Parameter is NULL(-2)(p_pData)");
  CHECK(cAdaptor.SendData(nullptr, 5, 0) == -2);
  CHECK(cAdaptor.SendData("x", 0, 0) == 0);
  CHECK(cAdaptor.SendData("x", -1, 0) == 0);
  CHECK(cAdaptor.SendData("x", INT_MIN, 0) == 0);
  CHECK(cAdaptor.Error() == "Parameter is NULL(-2)(p_pData)");    // success does not clear it
  cAdaptor.Disconnect();
  CHECK(cAdaptor.SendData("x", 1, 0) == -12);
}

TEST_CASE("SendData hands over every byte") {
  std::promise<std::string> cGot;
  CPeer cPeer([&](int p_iSock) { cGot.set_value(ReadToEnd(p_iSock)); });
  const std::string sBytes = Noise(3000000) + std::string("a\0b", 3);
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  CHECK(cAdaptor.SendData(sBytes.data(), static_cast<int>(sBytes.size()), 20) == 0);
  cAdaptor.Disconnect();
  CHECK((cGot.get_future().get() == sBytes));
}

TEST_CASE("SendData in parts: waits for room, again and again") {
  std::promise<void> cStart;
  std::promise<std::string> cGot;
  CPeer cPeer([&](int p_iSock) {
    cStart.get_future().get();
    cGot.set_value(ReadToEnd(p_iSock));
  });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.Fill();    // the first send() of SendData finds no room
  const int iSmall = 4096;
  setsockopt(cAdaptor.iSock, SOL_SOCKET, SO_SNDBUF, &iSmall, sizeof(iSmall));
  const std::string sBytes = Noise(2000000);
  std::thread cLater([&] { cStart.set_value(); });
  CHECK(cAdaptor.SendData(sBytes.data(), 2000000, 20) == 0);
  cLater.join();
  shutdown(cAdaptor.iSock, SHUT_WR);
  const std::string sGot = cGot.get_future().get();
  REQUIRE(sGot.size() > sBytes.size());
  CHECK((sGot.substr(sGot.size() - sBytes.size()) == sBytes));
}

TEST_CASE("SendData: no room in time") {
  CPeer cPeer(WaitForEnd);
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.SetNonBlocking();
  const std::string sBytes(64 << 20, 'x');
  CHECK(cAdaptor.SendData(sBytes.data(), 64 << 20, 0) == -8);    // after a part
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((send to=0))");
  cAdaptor.SetLastError(-1, "x");
  cAdaptor.Fill();
  CHECK(cAdaptor.SendData("x", 1, 0) == -8);    // at once
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((send to=0))");
  CHECK(cAdaptor.iSock >= 0);

  cAdaptor.iSendTimeOut = 1;
  const auto tStart = std::chrono::steady_clock::now();
  CHECK(cAdaptor.SendData("x", 1, -1) == -8);
  CHECK(cAdaptor.Error() == "Socket timeout(-8)((send to=0))");    // what is left of the second, not the second
  const auto tTook = std::chrono::steady_clock::now() - tStart;
  CHECK(tTook >= std::chrono::milliseconds(990));
  CHECK(tTook < std::chrono::seconds(15));
}

TEST_CASE("SendData: the time-out is for each wait, not for the whole") {
  int aiPair[2];    // what one read takes out of its buffer makes room for as much, and at once
  REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair) == 0);
  COpenAdaptor cAdaptor;
  cAdaptor.iSock = aiPair[0];
  cAdaptor.Fill();
  const auto fnHave = [&] {
    int iHave = 0;
    ioctl(aiPair[1], FIONREAD, &iHave);
    return static_cast<size_t>(iHave);
  };
  const std::string sBytes(fnHave() * 7 / 2, 'x');    // so it takes four times
  const auto tStart = std::chrono::steady_clock::now();    // before the reader's first wait
  std::thread cReader([&] {
    bool bEnded = false;
    for (size_t uLeft = fnHave() + sBytes.size(); uLeft > 0 && !bEnded;) {
      pollfd tEnd = {aiPair[1], POLLRDHUP, 0};
      bEnded = poll(&tEnd, 1, 800) > 0;
      uLeft -= ReadBytes(aiPair[1], fnHave()).size();
    }
  });
  CHECK(cAdaptor.SendData(sBytes.data(), static_cast<int>(sBytes.size()), 2) == 0);
  CHECK(std::chrono::steady_clock::now() - tStart >= std::chrono::milliseconds(3000));
  cAdaptor.Disconnect();
  cReader.join();
  close(aiPair[1]);
}

TEST_CASE("SendData: send() fails") {
  int aiPipe[2];
  REQUIRE(pipe2(aiPipe, O_CLOEXEC) == 0);
  COpenAdaptor cAdaptor;
  cAdaptor.iSock = aiPipe[1];
  CHECK(cAdaptor.SendData("x", 1, 0) == -6);
  CHECK(cAdaptor.Error() == "Failed in send()(-6)((send errno=88,Socket operation on non-socket))");
  cAdaptor.Disconnect();
  close(aiPipe[0]);

  cAdaptor.iSock = 900000;
  CHECK(cAdaptor.SendData("x", 1, 0) == -6);
  CHECK(cAdaptor.Error() == "Failed in send()(-6)((send errno=9,Bad file descriptor))");
  cAdaptor.iSock = -1;
}

TEST_CASE("SendData: the server has reset the connection") {
  CPeer cPeer(ResetOnClose);
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.AwaitBytes(1);
  CHECK(cAdaptor.SendData("x", 1, 5) == -6);
  CHECK(cAdaptor.Error() == "Failed in send()(-6)((send errno=104,Connection reset by peer))");
  CHECK(cAdaptor.SendData("x", 1, 5) == -6);    // no SIGPIPE
  CHECK(cAdaptor.Error() == "Failed in send()(-6)((send errno=32,Broken pipe))");
  CHECK(PipeState() == "open, none pending, handled 0");
}

TEST_CASE("SendData: a signal ends the wait for room") {
  struct sigaction tAction = {};
  tAction.sa_handler = [](int) {};
  tAction.sa_flags = SA_RESTART;
  sigaction(SIGUSR1, &tAction, nullptr);
  const pthread_t tClient = pthread_self();
  std::promise<void> cStart;
  CPeer cPeer([&](int p_iSock) {
    cStart.get_future().get();
    for (pollfd tPoll = {p_iSock, POLLRDHUP, 0}; poll(&tPoll, 1, 5) == 0;) pthread_kill(tClient, SIGUSR1);
  });
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  cAdaptor.Fill();
  cStart.set_value();
  CHECK(cAdaptor.SendData("x", 1, 20) == -10);
  CHECK(cAdaptor.Error() == "Failed in select()(-10)((send errno=4,Interrupted system call))");
  cAdaptor.Disconnect();
}

TEST_CASE("a server that went away does not end the application by SIGPIPE") {
  static const char s_szFailed[] = "-6 Failed in send()(-6)((send errno=32,Broken pipe)) errno 32; ";
  SUBCASE("default action") {
    CHECK(InChild([] {
            signal(SIGPIPE, SIG_DFL);
            const std::string sSent = SendIntoBrokenPipe();
            return sSent + "; " + PipeState();
          }) == s_szFailed + std::string("open, none pending, handled 0"));
  }
  SUBCASE("the application's handler does not see it") {
    CHECK(InChild([] {
            signal(SIGPIPE, [](int) { s_iPipeSignals = s_iPipeSignals + 1; });
            const std::string sSent = SendIntoBrokenPipe();
            const std::string sState = PipeState();
            raise(SIGPIPE);    // and is still there
            return sSent + "; " + sState + "; " + PipeState();
          }) == s_szFailed + std::string("open, none pending, handled 0; open, none pending, handled 1"));
  }
  SUBCASE("ignored") {
    CHECK(InChild([] {
            signal(SIGPIPE, SIG_IGN);
            const std::string sSent = SendIntoBrokenPipe();
            return sSent + "; " + PipeState() + (signal(SIGPIPE, SIG_DFL) == SIG_IGN ? ", ignored" : "");
          }) == s_szFailed + std::string("open, none pending, handled 0, ignored"));
  }
  SUBCASE("blocked by the application") {
    CHECK(InChild([] {
            BlockSigPipe();
            const std::string sSent = SendIntoBrokenPipe();
            return sSent + "; " + PipeState();
          }) == s_szFailed + std::string("blocked, none pending, handled 0"));
  }
  SUBCASE("one that the application has pending stays") {
    CHECK(InChild([] {
            BlockSigPipe();
            raise(SIGPIPE);
            const std::string sSent = SendIntoBrokenPipe();
            return sSent + "; " + PipeState();
          }) == s_szFailed + std::string("blocked, pending, handled 0"));
  }
  SUBCASE("another signal that the application has pending stays") {
    CHECK(InChild([] {
            sigset_t tSet;
            sigemptyset(&tSet);
            sigaddset(&tSet, SIGUSR1);
            pthread_sigmask(SIG_BLOCK, &tSet, nullptr);
            raise(SIGUSR1);
            const std::string sSent = SendIntoBrokenPipe();
            sigpending(&tSet);
            return sSent + "; " + PipeState() + (sigismember(&tSet, SIGUSR1) == 1 ? ", the other pending" : "");
          }) == s_szFailed + std::string("open, none pending, handled 0, the other pending"));
  }
}

TEST_CASE("SendData: a thread may be cancelled while it sends") {
  std::promise<void> cSending;
  std::atomic<bool> bEnd{false};
  CPeer cPeer([&](int p_iSock) {
    ReadBytes(p_iSock, 1);
    cSending.set_value();
    while (!bEnd) usleep(1000);    // and reads no more
  });
  struct T_End {
    std::atomic<bool>& bEnd;
    ~T_End() { bEnd = true; }
  } const cEnd{bEnd};
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  const std::vector<char> aData(50000000);
  CHECK(IsCancelled([&] { cAdaptor.SendData(aData.data(), static_cast<int>(aData.size()), 60); }, cSending));
  CHECK(cAdaptor.Disconnect() == 0);    // it is as it was otherwise
}

// SIGPIPE reaches the thread while it is inside send(), as when the connection ends in the moment of the cancellation.
// From glibc 2.41 on a send() that has sent something returns before the cancellation acts: then the signal is somebody
// else's.
TEST_CASE("a thread that is cancelled while it sends leaves SIGPIPE as it was") {
  struct T_AtEnd {
    std::string& sState;
    ~T_AtEnd() { sState = PipeState(); }
  };
  const auto fnCancelSend = [] {
    signal(SIGPIPE, [](int) { s_iPipeSignals = s_iPipeSignals + 1; });
    std::promise<void> cSending;
    std::promise<pthread_t> cThread;
    CPeer cPeer([&](int p_iSock) {
      ReadBytes(p_iSock, 1);    // and no more: send() never returns
      pthread_kill(cThread.get_future().get(), SIGPIPE);
      cSending.set_value();
      WaitForEnd(p_iSock);
    });
    COpenAdaptor cAdaptor;
    cAdaptor.Connect("127.0.0.1", cPeer.Port());
    const std::vector<char> aData(50000000);
    std::string sState;
    const bool bCancelled = IsCancelled(
        [&] {
          const T_AtEnd cEnd{sState};
          cThread.set_value(pthread_self());
          cAdaptor.SendData(aData.data(), static_cast<int>(aData.size()), 60);
        },
        cSending);
    cAdaptor.Disconnect();
    return (bCancelled ? "" : "not cancelled, ") + sState;
  };
  int iMajor = 0, iMinor = 0;
  REQUIRE(sscanf(gnu_get_libc_version(), "%d.%d", &iMajor, &iMinor) == 2);
  const bool bReturns = iMajor > 2 || iMinor >= 41;
  SUBCASE("none is delivered that send() may have raised") {
    CHECK(InChild(fnCancelSend) == std::string("open, none pending, handled ") + (bReturns ? "1" : "0"));
  }
  SUBCASE("none of those stays behind where the application blocks it") {
    CHECK(InChild([&] {
            BlockSigPipe();
            return fnCancelSend();
          }) == std::string(bReturns ? "blocked, pending" : "blocked, none pending") + ", handled 0");
  }
  SUBCASE("one that the application has pending stays") {
    CHECK(InChild([&] {
            BlockSigPipe();
            kill(getpid(), SIGPIPE);    // pending for the whole process
            return fnCancelSend();
          }) == "blocked, pending, handled 0");
  }
}
