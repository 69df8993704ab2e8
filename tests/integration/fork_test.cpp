// Processes that fork while their threads are inside the library.
#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/service_peer.h"
#include "support/set_up.h"

namespace {

// Reads documents of every fate: with a kept reader, with a new one, and not at all. "", or what went wrong.
std::string Read() {
  const auto fnRead = [](std::string p_sXml) {
    CMsg cMsg(0, 0, 0, MA_GetMsgDic());
    try {
      return std::to_string(cMsg.LoadXml(&p_sXml[0])) + " " + cMsg.GetLastError();
    } catch (const CException& cError) {
      return std::to_string(cError.GetCode()) + " " + cError.GetText();
    }
  };
  for (const auto& [sXml, iWanted] : std::vector<std::pair<std::string, int>>{
           {Body100("text"), 0},
           {"hello", -21},
           {"<msg no='100'><t1>x</t2></msg>", -21},
           {"<msg no='100'><x:t1 xmlns:x='u'>x</x:t1></msg>", 0}}) {
    const std::string sResult = fnRead(sXml);
    if (std::stoi(sResult) != iWanted) return sXml + ": " + sResult;
  }
  return "";
}

int CallWithin(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CallOrv_Error* p_pErr) {
  return CallOrv_CallServiceWithin(p_iSvcNum, p_pIn, p_pOut, 60000, p_pErr);
}

// Makes a call. "", or what went wrong.
std::string Call(decltype(CallOrv_CallService)* p_fnCall = CallOrv_CallService) {
  const CMsgPtr pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
  CallOrv_Error tErr = {};
  int iBack = 0;
  MSG_SetInt(pIn.get(), 2, 5);
  const int iRet = p_fnCall(7, pIn.get(), pOut.get(), &tErr);
  if (iRet != 0) return std::to_string(iRet) + " " + std::to_string(tErr.iCode) + " " + tErr.szText;
  MSG_GetInt(pOut.get(), 2, &iBack);
  return iBack == 5 ? "" : "the reply holds " + std::to_string(iBack);
}

std::string ReadAndCall() { return Read() + Call(); }

// Forks; the child runs p_fn, which does not return. What waitpid says of it.
template <class F>
int ForkStatus(F p_fn) {
  const pid_t iPid = fork();
  if (iPid == 0) {
    alarm(60);
    p_fn();
    _exit(99);
  }
  int iStatus = -1;
  return waitpid(iPid, &iStatus, 0) == iPid ? iStatus : -1;
}

}    // namespace

TEST_CASE("a process whose threads are parsing may fork, and its children may execute a program") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody)}; });
  SetUp(cPeer.Port());
  REQUIRE(Read() == "");
  std::atomic<bool> bEnd{false};
  int iRight = 0;
  std::mutex cMutex;
  std::string sWrong;
  std::vector<std::thread> cThreads;
  for (int i = 0; i < 4; ++i) {
    cThreads.emplace_back([&, i] {
      while (!bEnd) {
        const std::string sFault = i % 2 == 0 ? Read() : Call();
        const std::lock_guard<std::mutex> cLock(cMutex);
        if (sFault.empty()) ++iRight;
        else sWrong += sFault + "\n";
      }
    });
  }
  int iGood = 0;
  for (int i = 0; i < 60; ++i) {
    if (ForkStatus([i] { i % 2 == 0 ? _exit(0) : (void)execlp("true", "true", nullptr); }) == 0) ++iGood;
  }
  bEnd = true;
  for (std::thread& cThread : cThreads) cThread.join();
  CHECK(iGood == 60);
  CHECK(iRight > 0);
  CHECK(sWrong == "");
}

TEST_CASE("a child that is forked while no other thread is in the library reads, calls and ends as any process") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody)}; });
  SetUp(cPeer.Port());
  REQUIRE(ReadAndCall() == "");
  for (int i = 0; i < 20; ++i) {
    CHECK(ForkStatus([] { _exit((ReadAndCall() + Read()).empty() ? 0 : 1); }) == 0);
  }
  CHECK(ReadAndCall() == "");
}

TEST_CASE("a child that has a copy of a call's connection does not keep it open") {
  for (auto* const fnCall : {CallOrv_CallService, CallWithin}) {
    std::promise<void> cArrived, cForked;
    std::promise<ssize_t> cEnd;
    CPeer cPeer([&](int p_iSock) {
      T_Request tRequest;
      if (!ReadRequest(p_iSock, tRequest)) return;
      cArrived.set_value();
      cForked.get_future().wait();
      WriteAll(p_iSock, Packet(tRequest.sBody));
      char cByte;
      cEnd.set_value(recv(p_iSock, &cByte, 1, 0));
    });
    SetUp(cPeer.Port());
    std::future<std::string> cCall = std::async(std::launch::async, Call, fnCall);
    cArrived.get_future().wait();
    const pid_t iPid = fork();
    if (iPid == 0) {
      alarm(60);
      for (;;) pause();
    }
    cForked.set_value();
    CHECK(cCall.get() == "");
    std::future<ssize_t> cEnded = cEnd.get_future();
    CHECK(cEnded.wait_for(std::chrono::seconds(30)) == std::future_status::ready);    // while the child lives
    CHECK(kill(iPid, SIGKILL) == 0);
    CHECK(waitpid(iPid, nullptr, 0) == iPid);
    CHECK(cEnded.get() == 0);    // an orderly end
  }
}
