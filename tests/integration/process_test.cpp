// What calls do to the process around them: threads, descriptors, signals, the locale.
#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <clocale>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/cancelled.h"
#include "support/comma_locale.h"
#include "support/descriptors.h"
#include "support/long_text.h"
#include "support/service_peer.h"
#include "support/set_up.h"

namespace {

T_Answer Echo(const T_Request& p_tRequest) { return {Packet(p_tRequest.sBody)}; }

}    // namespace

TEST_CASE("32 threads call at once and each gets its own reply") {
  constexpr int THREADS = 32, CALLS = 20;
  std::mutex cMutex;
  std::condition_variable cAllHere;
  int iHere = 0;
  // The first replies wait until every thread's request is here, so that all calls are open at the same time.
  CServicePeer cPeer(
      [&](const T_Request& p_tRequest) {
        std::unique_lock<std::mutex> cLock(cMutex);
        ++iHere;
        cAllHere.notify_all();
        cAllHere.wait(cLock, [&] { return iHere >= THREADS; });
        return Echo(p_tRequest);
      },
      THREADS);
  SetUp(cPeer.Port());
  std::vector<std::future<int>> cResults;
  for (int iThread = 0; iThread < THREADS; ++iThread) {
    cResults.push_back(std::async(std::launch::async, [iThread] {
      int iRight = 0;
      for (int iCall = 0; iCall < CALLS; ++iCall) {
        const CMsgPtr pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
        const std::string sText = "thread " + std::to_string(iThread) + std::string(iThread % 2 ? 2000 : 0, '.');
        pIn->SetValue(1, sText.c_str());
        pIn->SetValue(2, iCall);
        CCallOrvError cErr;
        CString sBack;
        int iBack = -1;
        if (CCallOrv::CallServiceByMsg(iThread, pIn.get(), pOut.get(), &cErr) == 0 && pOut->GetValue(1, &sBack) == 0 &&
            pOut->GetValue(2, &iBack) == 0 && sBack == sText.c_str() && iBack == iCall) {
          ++iRight;
        }
      }
      return iRight;
    }));
  }
  for (std::future<int>& cResult : cResults) CHECK(cResult.get() == CALLS);
}

TEST_CASE("a thousand calls, many of them failing, leave no descriptor open") {
  int iReplies = 0, iRejections = 0, iFailures = 0;
  const auto fnRun = [&](int p_iCalls) {
    CServicePeer cPeer([](const T_Request& p_tRequest) -> T_Answer {
      switch (p_tRequest.SvcNum() % 5) {
        case 0: return {Packet(p_tRequest.sBody)};
        case 1: return {Packet("<msg no='10'><t6>5</t6></msg>")};
        case 2: return {Packet("hello")};
        case 3: return {""};
        default: return {"no packet at all, but more than a header long: " + std::string(100, '.')};
      }
    });
    SetUp(cPeer.Port());
    CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CCallOrvError cErr;
    for (int i = 0; i < p_iCalls; ++i) {
      switch (CCallOrv::CallServiceByMsg(i, pIn.get(), pOut.get(), &cErr)) {
        case 0: ++iReplies; break;
        case -4: ++iRejections; break;
        case -3: ++iFailures; break;
      }
    }
    for (int i = 0; i < p_iCalls / 10; ++i) {
      CCallOrv::CallServiceByMsg(10000, pIn.get(), pOut.get(), &cErr);    // connects, but cannot send
    }
    const CDeafPort cNobody;
    SetUp(cNobody.Port());
    for (int i = 0; i < p_iCalls / 10; ++i) CCallOrv::CallServiceByMsg(i, pIn.get(), pOut.get(), &cErr);
  };
  fnRun(1);    // opens whatever is opened once
  const long iBefore = OpenDescriptors();
  iReplies = iRejections = iFailures = 0;
  fnRun(1000);
  CHECK(iReplies == 200);
  CHECK(iRejections == 200);
  CHECK(iFailures == 600);
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("a server that goes away while a request is sent raises no signal") {
  CServicePeer cPeer(nullptr);
  SetUp(cPeer.Port());
  // The send is still going on when the peer's reset arrives.
  CMsgPtr pIn = NewRequest(TextBeyondBuffers().c_str()), pOut = NewMsg(0);
  CCallOrvError cErr;
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -3);
  CHECK(cErr.GetCode() == -4);
  CHECK(cErr.GetText().StartsWith("Failed in send()(-6)((send errno="));
}

TEST_CASE("a thread that is cancelled during a call ends and leaves no descriptor open") {
  const long iBefore = OpenDescriptors();
  {
    std::promise<void> cArrived;
    CServicePeer cPeer([&](const T_Request&) {
      cArrived.set_value();
      return T_Answer{"", true};
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CallOrv_Error tErr{};
    CHECK(IsCancelled([&] { CallOrv_CallService(7, pIn.get(), pOut.get(), &tErr); }, cArrived));
    CHECK(tErr.iCode == 0);
  }
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("numbers on the wire do not follow the locale") {
  REQUIRE(setlocale(LC_ALL, "C.UTF-8") != nullptr);
  struct T_BackToC {
    ~T_BackToC() { setlocale(LC_ALL, "C"); }
  } const cBackToC;
  const CCommaLocale cComma;
  char szNumber[16];
  snprintf(szNumber, sizeof(szNumber), "%.1f", 1.5);
  REQUIRE(szNumber == std::string("1,5"));

  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
  REQUIRE(pIn->SetValue(2, 1234567) == 0);
  REQUIRE(pIn->SetValue(3, 1234.5) == 0);
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(cPeer.LastRequest().sBody ==
        R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="100" ver="">)"
        "<t2>1234567</t2><t3>1.234500000000000e+03</t3></msg>");
  double dBack = 0;
  CHECK(pOut->GetValue(3, &dBack) == 0);
  CHECK(dBack == 1234.5);
  CStream stDump(0, 512);
  pOut->Dump(&stDump, false, 1);
  CHECK(std::string(stDump.GetData()).find("[3](price) 1.234500000000000e+03\n") != std::string::npos);
}
