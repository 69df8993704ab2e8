// Many calls in one thread, and calls between threads and processes.
#include <doctest/doctest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/cancelled.h"
#include "support/child.h"
#include "support/descriptors.h"
#include "support/in_flight.h"
#include "support/service_peer.h"

namespace {

T_Answer Echo(const T_Request& p_tRequest) { return {Packet(p_tRequest.sBody)}; }
T_Answer Silence(const T_Request&) { return {"", true}; }

// Lets a server's answers wait for the test.
class CGate {
 public:
  void Open() {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_bOpen = true;
    m_cOpened.notify_all();
  }
  void Await() {
    std::unique_lock<std::mutex> cLock(m_cMutex);
    m_cOpened.wait(cLock, [this] { return m_bOpen; });
  }

 private:
  std::mutex m_cMutex;
  std::condition_variable m_cOpened;
  bool m_bOpen = false;
};

// Serves a connection by signals to one thread, until the other side closes.
std::function<void(int)> Signalling(pthread_t p_tThread) {
  struct sigaction tAction = {};
  tAction.sa_handler = [](int) {};
  sigaction(SIGUSR1, &tAction, nullptr);
  return [p_tThread](int p_iSock) {
    for (pollfd tPoll = {p_iSock, POLLRDHUP, 0}; poll(&tPoll, 1, 5) == 0;) pthread_kill(p_tThread, SIGUSR1);
  };
}

}    // namespace

TEST_CASE("300 calls in one thread each come back with their own reply") {
  constexpr int CALLS = 300;
  CServicePeer cPeer(Echo, 8);
  SetUp(cPeer.Port());
  std::vector<CallOrv_Call*> cCalls;
  for (int i = 0; i < CALLS; ++i) {
    const CMsgPtr pIn = NewRequest(std::to_string(i).c_str());
    CallOrv_Error tErr;
    cCalls.push_back(CallOrv_Start(7, pIn.get(), 60000, &tErr));
    REQUIRE(cCalls.back() != nullptr);
    CallOrv_SetUser(cCalls.back(), &cCalls);
  }
  for (int i = 0; i < CALLS; ++i) {
    const int iOver = CallOrv_WaitAny(cCalls.data(), CALLS, -1);
    REQUIRE(iOver >= 0);
    CallOrv_Call*& pCall = cCalls[static_cast<size_t>(iOver)];
    REQUIRE(pCall != nullptr);
    CHECK(CallOrv_Step(pCall) == 0);
    CHECK(CallOrv_GetUser(pCall) == &cCalls);
    const CMsgPtr pOut = NewMsg(0);
    CallOrv_Error tErr;
    CHECK(CallOrv_Finish(std::exchange(pCall, nullptr), pOut.get(), &tErr) == 0);
    CString sText;
    CHECK(pOut->GetValue(1, &sText) == 0);
    CHECK(sText == std::to_string(iOver).c_str());
  }
  CHECK(CallOrv_WaitAny(cCalls.data(), CALLS, -1) == -1);    // at once
}

TEST_CASE("WaitAny without calls gives -1 at once") {
  CallOrv_Call* apNone[3] = {};
  CPendingCall acNone[3];
  for (const int iTimeOut : {-1, 0, 2147483647}) {
    CHECK(CallOrv_WaitAny(apNone, 3, iTimeOut) == -1);
    CHECK(CallOrv_WaitAny(apNone, 0, iTimeOut) == -1);
    CHECK(CallOrv_WaitAny(apNone, -1, iTimeOut) == -1);
    CHECK(CallOrv_WaitAny(nullptr, 3, iTimeOut) == -1);
    CHECK(CPendingCall::WaitAny(acNone, 3, iTimeOut) == -1);
    CHECK(CPendingCall::WaitAny(static_cast<CPendingCall*>(nullptr), 3, iTimeOut) == -1);
  }
}

TEST_CASE("WaitAny waits as long as it is told to, and calls end at their deadlines") {
  CServicePeer cPeer(Silence);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall acCalls[3] = {Started(7, pIn.get(), 60000), CPendingCall(), Started(7, pIn.get(), 300)};
  CHECK(CPendingCall::WaitAny(acCalls, 3, 0) == -1);
  CHECK(CPendingCall::WaitAny(acCalls, 3, 20) == -1);
  CHECK(CPendingCall::WaitAny(acCalls, 3, -1) == 2);
  CheckEnd(Finished(std::move(acCalls[2])), -3, -5, "Socket timeout(-8)((header, 300 ms))", -1);
  CHECK(CPendingCall::WaitAny(acCalls, 3, 20) == -1);
}

TEST_CASE("every call that is over has its turn, though others are over as soon as they are started") {
  const CDeafPort cNobody;
  SetUp(cNobody.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall acCalls[5];
  int aiTurns[5] = {};
  const auto fnStart = [&](CPendingCall& p_cCall) {
    p_cCall = Started(7, pIn.get());
    StepToEnd(p_cCall);    // nothing to do, but on a busy machine
  };
  for (CPendingCall& cCall : acCalls) fnStart(cCall);
  for (int i = 0; i < 50; ++i) {
    const int iOver = CPendingCall::WaitAny(acCalls, 5, -1);
    REQUIRE(iOver >= 0);
    ++aiTurns[iOver];
    fnStart(acCalls[iOver]);
  }
  for (const int iTurns : aiTurns) CHECK(iTurns == 10);
}

TEST_CASE("WaitAny looks once for all replies that have come, and not again until each of them has had its turn") {
  constexpr int CALLS = 120;    // more than are waited for without memory, and nulls to be passed between them
  std::vector<CGate> cLate(2);
  CServicePeer cPeer(
      [&](const T_Request& p_tRequest) {
        if (p_tRequest.SvcNum() > 7) cLate[static_cast<size_t>(p_tRequest.SvcNum()) - 8].Await();
        return Echo(p_tRequest);
      },
      4);
  struct T_OpenAtEnd {    // the peer waits for its threads
    std::vector<CGate>& cGates;
    ~T_OpenAtEnd() {
      for (CGate& cGate : cGates) cGate.Open();
    }
  } const cOpenAtEnd{cLate};
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  std::vector<CPendingCall> cCalls(CALLS);
  const auto fnAwaitReply = [&](int p_iCall) { AwaitReply(cCalls[static_cast<size_t>(p_iCall)]); };
  constexpr int LATE = 100, LATEST = 117;
  for (int i = 0; i < CALLS; ++i) {
    if (i % 17 != 5) cCalls[static_cast<size_t>(i)] = Started(i == LATE ? 8 : i == LATEST ? 9 : 7, pIn.get(), 60000);
  }
  for (int i = 0; i < CALLS; ++i) {
    if (cCalls[static_cast<size_t>(i)] && i != LATE && i != LATEST) fnAwaitReply(i);
  }
  std::vector<int> aiTurns;
  const auto fnTakeTurn = [&](int p_iTimeOut) {
    const int iOver = CPendingCall::WaitAny(cCalls.data(), CALLS, p_iTimeOut);
    if (iOver < 0) return false;
    aiTurns.push_back(iOver);
    CHECK(Finished(std::move(cCalls[static_cast<size_t>(iOver)])).iRet == 0);
    return true;
  };
  REQUIRE(fnTakeTurn(-1));
  for (int i = 0; i < CALLS; ++i) {
    if (cCalls[static_cast<size_t>(i)]) CHECK((cCalls[static_cast<size_t>(i)].GetEvents() != 0) == (i == LATE || i == LATEST));
  }
  cLate[0].Open();
  fnAwaitReply(LATE);
  const size_t uOthers = CALLS - CALLS / 17 - 2;
  while (aiTurns.size() < uOthers) {
    REQUIRE(fnTakeTurn(0));
    CHECK(cCalls[LATE].GetEvents() == POLLIN);    // ready, but nobody looked
  }
  CHECK(std::is_sorted(aiTurns.begin(), aiTurns.end()));
  CHECK(std::count(aiTurns.begin(), aiTurns.end(), LATE) == 0);
  REQUIRE(fnTakeTurn(0));
  CHECK(aiTurns.back() == LATE);
  CHECK_FALSE(fnTakeTurn(0));
  cLate[1].Open();
  REQUIRE(fnTakeTurn(-1));
  CHECK(aiTurns.back() == LATEST);
}

TEST_CASE("a signal ends WaitAny, and the wait of Finish as that of a blocking call") {
  CPeer cPeer(Signalling(pthread_self()));
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(CPendingCall::WaitAny(&cCall, 1, -1) == -2);
  CHECK(cCall.Step());    // it is still under way
  const T_End tEnd = Finished(std::move(cCall));
  CheckEnd(tEnd, -3, -5, "Failed in select()(-10)((recv errno=4,Interrupted system call))", -1);
  CHECK((Blocking(7, pIn.get()) == tEnd));
}

TEST_CASE("a call is started in one thread, stepped in another and finished in a third") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  std::vector<std::future<T_End>> cEnds;
  for (int i = 0; i < 40; ++i) {
    auto cStarted = std::async(std::launch::async, [i] {
      const CMsgPtr pIn(MA_NewMsg(100));
      pIn->SetValue(1, std::to_string(i).c_str());
      CCallOrvError cErr;
      return CCallOrv::Start(7, pIn.get(), 60000, &cErr);
    });
    auto cStepped = std::async(std::launch::async, [&cStarted] {
      CPendingCall cCall = cStarted.get();
      StepToEnd(cCall);
      return cCall;
    });
    cEnds.push_back(std::async(std::launch::async, [cCall = cStepped.get()]() mutable {
      const CMsgPtr pOut(MA_NewMsg(0));
      CCallOrvError cErr;
      const int iRet = cCall.Finish(pOut.get(), &cErr);
      return EndOf(iRet, cErr, *pOut);
    }));
  }
  for (size_t u = 0; u < cEnds.size(); ++u) CHECK(cEnds[u].get().sXml == Body100(std::to_string(u)));
}

TEST_CASE("a call that is cancelled or destroyed at any time leaves nothing open") {
  const long iBefore = OpenDescriptors();
  {
    CGate cGate;
    CServicePeer cPeer([&](const T_Request& p_tRequest) {
      if (p_tRequest.SvcNum() == 8) cGate.Await();
      return Echo(p_tRequest);
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x");
    Started(8, pIn.get()).Cancel();    // just begun
    {
      CPendingCall cWaiting = Started(8, pIn.get());
      cWaiting.Step();
    }
    CPendingCall cOver = Started(7, pIn.get());
    StepToEnd(cOver);
    cOver.Cancel();
    CHECK_FALSE(static_cast<bool>(cOver));
    CPendingCall cReplaced = Started(7, pIn.get());
    cReplaced = Started(7, pIn.get());
    cReplaced = CPendingCall(cReplaced.Release());
    CHECK(Finished(std::move(cReplaced)).iRet == 0);
    cGate.Open();
  }
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("a server notices at once that a call is cancelled") {
  std::promise<void> cArrived, cGone;
  CPeer cPeer([&](int p_iSock) {
    T_Request tRequest;
    ReadRequest(p_iSock, tRequest);
    cArrived.set_value();
    ReadToEnd(p_iSock);
    cGone.set_value();
  });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(cCall.Step());
  cArrived.get_future().wait();
  cCall.Cancel();
  CHECK(cGone.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready);
}

TEST_CASE("a forked child cancels its parent's call, who notices nothing") {
  CGate cGate;
  CServicePeer cPeer([&](const T_Request& p_tRequest) {
    cGate.Await();
    return Echo(p_tRequest);
  });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(InChild([&] {
          const int iFd = cCall.GetFd();
          cCall.Cancel();
          return std::string(fcntl(iFd, F_GETFD) < 0 ? "closed" : "open");
        }) == "closed");
  cGate.Open();
  CHECK(Finished(std::move(cCall)).iRet == 0);
}

TEST_CASE("a call's connection ends with its Finish, although a forked child has it, too") {
  std::promise<void> cGone;
  CPeer cPeer([&](int p_iSock) {
    T_Request tRequest;
    ReadRequest(p_iSock, tRequest);
    WriteAll(p_iSock, Packet(tRequest.sBody));
    ReadToEnd(p_iSock);
    cGone.set_value();
  });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  const pid_t iChild = fork();
  if (iChild == 0) {
    alarm(60);
    for (;;) pause();
  }
  CHECK(Finished(std::move(cCall)).iRet == 0);
  CHECK(cGone.get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready);
  kill(iChild, SIGKILL);
  waitpid(iChild, nullptr, 0);
}

TEST_CASE("a call's descriptor is not for programs that are executed") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(fcntl(cCall.GetFd(), F_GETFD) == FD_CLOEXEC);
}

TEST_CASE("a thread that is cancelled in Finish frees the call, in WaitAny it does not") {
  const long iBefore = OpenDescriptors();
  {
    CServicePeer cPeer(Silence);
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CallOrv_Error tErr{};
    CallOrv_Call* pCall = Started(7, pIn.get()).Release();
    std::promise<void> cWaiting, cFinishing, cWithin;
    CHECK(IsCancelled(
        [&] {
          cWaiting.set_value();
          CallOrv_WaitAny(&pCall, 1, -1);
        },
        cWaiting));
    CHECK(CallOrv_Step(pCall) == 1);
    CHECK(IsCancelled(
        [&] {
          cFinishing.set_value();
          CallOrv_Finish(pCall, pOut.get(), &tErr);
        },
        cFinishing));
    CHECK(IsCancelled(
        [&] {
          cWithin.set_value();
          CallOrv_CallServiceWithin(7, pIn.get(), pOut.get(), 60000, &tErr);
        },
        cWithin));
    CHECK(tErr.iCode == 0);
  }
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("a thousand calls in flight, many of them failing, leave no descriptor open") {
  const auto fnRun = [](int p_iCalls) {
    CServicePeer cPeer([](const T_Request& p_tRequest) -> T_Answer {
      switch (p_tRequest.SvcNum() % 4) {
        case 0: return {Packet(p_tRequest.sBody)};
        case 1: return {Packet("<msg no='10'><t6>5</t6></msg>")};
        case 2: return {Packet("hello")};
        default: return {""};
      }
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x");
    std::vector<CPendingCall> cCalls;
    int iReplies = 0;
    for (int i = 0; i < p_iCalls; i += 20) {
      cCalls.clear();
      for (int j = 0; j < 20; ++j) cCalls.push_back(Started(i + j, pIn.get()));
      for (int iOver; (iOver = CPendingCall::WaitAny(cCalls.data(), 20, -1)) >= 0;) {
        iReplies += Finished(std::move(cCalls[static_cast<size_t>(iOver)])).iRet == 0;
      }
    }
    return iReplies;
  };
  fnRun(20);    // opens whatever is opened once
  const long iBefore = OpenDescriptors();
  CHECK(fnRun(1000) == 250);
  CHECK(OpenDescriptors() == iBefore);
}
