// What calls cost that hold no thread: against bare non-blocking sockets, and against blocking calls.
#include <callorv/client/pending_call.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <vector>

#include "client.h"
#include "crowd.h"
#include "crowd_server.h"
#include "figure.h"
#include "floors/bare_epoll.h"
#include "floors/plain_writer.h"

namespace {

enum E_Service { SHORT, MEGABYTE, TWENTY_MEGABYTES };
enum { IN_FLIGHT = 64, BATCH = 10 * IN_FLIGHT, CALLS_EACH = 10, DEADLINE_MS = 60000 };

enum E_Wait { OWN_EPOLL, WAIT_ANY };    // how the application waits

struct T_World {
  std::vector<std::string> asReply;
  std::unique_ptr<CCrowdServer> pServer;

  T_World() {
    AllowManyDescriptors();
    asReply.push_back(Packet(WritePlainly(MakeRows(1))));
    for (const int iRows : {10000, 200000}) asReply.push_back(Packet(WritePlainly(MakeRows(iRows))));
    pServer = std::make_unique<CCrowdServer>(asReply);
    InitializeClient(pServer->Port());
  }
};
const T_World& World() {
  static const T_World s_tWorld;
  return s_tWorld;
}

CPendingCall Start(int p_iSvcNum, CMsg& p_cRequest) {
  CCallOrvError cErr;
  CPendingCall cCall = CCallOrv::Start(p_iSvcNum, &p_cRequest, DEADLINE_MS, &cErr);
  if (!cCall) throw std::runtime_error(cErr.GetText().ToStr());
  return cCall;
}

void Finish(CPendingCall& p_cCall) {
  CMsg cReply(0, 0, 0, MA_GetMsgDic());
  CCallOrvError cErr;
  if (p_cCall.Finish(&cReply, &cErr) < 0) throw std::runtime_error(cErr.GetText().ToStr());
}

std::vector<uint32_t> AllSlots(int p_iSlots) {
  std::vector<uint32_t> auSlot(static_cast<size_t>(p_iSlots));
  std::iota(auSlot.begin(), auSlot.end(), 0);
  return auSlot;
}
// p_fnStart(slot) in each that is free, p_iMost times at most; how often. None is free then.
template <class F>
int StartIn(std::vector<uint32_t>& p_auFree, int p_iMost, F p_fnStart) {
  p_auFree.resize(std::min(p_auFree.size(), static_cast<size_t>(p_iMost)));
  for (const uint32_t uSlot : p_auFree) p_fnStart(uSlot);
  const int iStarted = static_cast<int>(p_auFree.size());
  p_auFree.clear();
  return iStarted;
}

// p_iCalls calls, p_iInFlight at once, in a loop as an application would write it: calls are finished as they end, and
// what takes their places is begun together, behind the last of them. A server that sleeps is then woken once and works
// beside the client, where one that is asked now and then is woken, at the client's cost, for nearly every call. The
// floor does the same.
void CallByEpoll(int p_iSvcNum, CMsg& p_cRequest, int p_iCalls, int p_iInFlight) {
  const int iEpoll = epoll_create1(EPOLL_CLOEXEC);
  std::vector<CPendingCall> cCalls(static_cast<size_t>(p_iInFlight));
  const auto fnWatch = [&](int p_iHow, uint32_t p_uSlot) {
    epoll_event tEvent = {};
    tEvent.events = static_cast<uint32_t>(cCalls[p_uSlot].GetEvents());
    tEvent.data.u32 = p_uSlot;
    if (epoll_ctl(iEpoll, p_iHow, cCalls[p_uSlot].GetFd(), &tEvent) != 0) throw std::runtime_error("epoll_ctl");
  };
  std::vector<uint32_t> auFree = AllSlots(p_iInFlight);
  for (int iStarted = 0, iDone = 0; iDone < p_iCalls;) {
    iStarted += StartIn(auFree, p_iCalls - iStarted, [&](uint32_t p_uSlot) {
      cCalls[p_uSlot] = Start(p_iSvcNum, p_cRequest);
      fnWatch(EPOLL_CTL_ADD, p_uSlot);
    });
    epoll_event atEvent[256];
    const int iReady = epoll_wait(iEpoll, atEvent, 256, -1);
    for (int i = 0; i < iReady; ++i) {
      const uint32_t uSlot = atEvent[i].data.u32;
      const int iEvents = cCalls[uSlot].GetEvents();
      if (cCalls[uSlot].Step()) {
        if (cCalls[uSlot].GetEvents() != iEvents) fnWatch(EPOLL_CTL_MOD, uSlot);
        continue;
      }
      Finish(cCalls[uSlot]);
      ++iDone;
      auFree.push_back(uSlot);
    }
  }
  close(iEpoll);
}

// The same. That no more are over, it asks only where others are to be begun.
void CallByWaitAny(int p_iSvcNum, CMsg& p_cRequest, int p_iCalls, int p_iInFlight) {
  std::vector<CPendingCall> cCalls(static_cast<size_t>(p_iInFlight));
  std::vector<uint32_t> auFree = AllSlots(p_iInFlight);
  for (int iStarted = 0, iDone = 0; iDone < p_iCalls;) {
    iStarted += StartIn(auFree, p_iCalls - iStarted,
                        [&](uint32_t p_uSlot) { cCalls[p_uSlot] = Start(p_iSvcNum, p_cRequest); });
    const int iThen = iStarted < p_iCalls ? 0 : -1;
    for (int iTimeOut = -1, i; (i = CPendingCall::WaitAny(cCalls.data(), p_iInFlight, iTimeOut)) >= 0;) {
      Finish(cCalls[static_cast<size_t>(i)]);
      ++iDone;
      auFree.push_back(static_cast<uint32_t>(i));
      iTimeOut = iThen;
    }
  }
}

void CallInFlight(E_Wait p_eWait, int p_iSvcNum, CMsg& p_cRequest, int p_iCalls, int p_iInFlight) {
  (p_eWait == OWN_EPOLL ? CallByEpoll : CallByWaitAny)(p_iSvcNum, p_cRequest, p_iCalls, p_iInFlight);
}

void OneInFlight(benchmark::State& p_cState) {
  const CMsgPtr pRequest = NewRequest();
  Compare(
      p_cState, WALL, 10, [&] { Call(SHORT, *pRequest); }, [&] { CallByWaitAny(SHORT, *pRequest, 1, 1); });
}

void BesideBareEpoll(benchmark::State& p_cState, E_Wait p_eWait, bool p_bFloorLoads) {
  const CMsgPtr pRequest = NewRequest();
  const std::string sRequest = RequestPacket(SHORT, *pRequest);
  const size_t uReply = World().asReply[SHORT].size();
  const auto fnLoad = [&](char* p_szReply) {
    if (!p_bFloorLoads) return;
    p_szReply[uReply - 3] = 0;    // the trailer begins here
    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    Expect(cReply.LoadXml(p_szReply + 128), "LoadXml");
  };
  const auto fnFloor = [&] { ExchangeInFlight(World().pServer->Port(), sRequest, uReply, BATCH, IN_FLIGHT, fnLoad); };
  const auto fnLibrary = [&] { CallInFlight(p_eWait, SHORT, *pRequest, BATCH, IN_FLIGHT); };
  CompareTimes(
      p_cState, BATCH, [&] { return NanosOf(WALL, 1, fnFloor); }, [&] { return NanosOf(WALL, 1, fnLibrary); });
}

// IN_FLIGHT calls under way in p_iThreads threads, against as many threads with a blocking call each.
void BesideThreads(benchmark::State& p_cState, E_Clock p_eClock, int p_iThreads) {
  CCrowd cBlocking(IN_FLIGHT), cInFlight(p_iThreads);
  const auto fnFloor = [&] {
    cBlocking.Run([] {
      thread_local const CMsgPtr s_pRequest = NewRequest();
      for (int i = 0; i < CALLS_EACH; ++i) Call(SHORT, *s_pRequest);
    });
  };
  const auto fnLibrary = [&] {
    cInFlight.Run([=] {
      thread_local const CMsgPtr s_pRequest = NewRequest();
      CallByEpoll(SHORT, *s_pRequest, BATCH / p_iThreads, IN_FLIGHT / p_iThreads);
    });
  };
  CompareTimes(
      p_cState, BATCH, [&] { return NanosOf(p_eClock, 1, fnFloor); }, [&] { return NanosOf(p_eClock, 1, fnLibrary); });
}

// All under way at once, and answered late: the time beyond that. A round takes seconds, so the figure's rounds are the
// iterations.
void TenThousand(benchmark::State& p_cState) {
  const CMsgPtr pRequest = NewRequest();
  const int iSvcNum = LATE + SHORT;
  const std::string sRequest = RequestPacket(iSvcNum, *pRequest);
  std::vector<double> adFloor, adEpoll, adWaitAny, adEpollRatio, adWaitAnyRatio;
  const auto fnTime = [](auto p_fn) { return NanosOf(WALL, 1, p_fn) - LATE_BY_MS * 1e6; };
  for (auto tIgnored : p_cState) {
    adFloor.push_back(fnTime([&] {
      ExchangeInFlight(World().pServer->Port(), sRequest, World().asReply[SHORT].size(), MOST_CONNECTIONS,
                       MOST_CONNECTIONS, [](char*) {});
    }));
    adEpoll.push_back(fnTime([&] { CallByEpoll(iSvcNum, *pRequest, MOST_CONNECTIONS, MOST_CONNECTIONS); }));
    adWaitAny.push_back(fnTime([&] { CallByWaitAny(iSvcNum, *pRequest, MOST_CONNECTIONS, MOST_CONNECTIONS); }));
    adEpollRatio.push_back(adEpoll.back() / adFloor.back());
    adWaitAnyRatio.push_back(adWaitAny.back() / adFloor.back());
    p_cState.SetIterationTime(adEpoll.back() * 1e-9);
  }
  p_cState.counters["floor_ns"] = Median(adFloor);
  p_cState.counters["epoll_ns"] = Median(adEpoll);
  p_cState.counters["wait_any_ns"] = Median(adWaitAny);
  p_cState.counters["ratio_epoll"] = Median(adEpollRatio);
  p_cState.counters["ratio_wait_any"] = Median(adWaitAnyRatio);
}

// Processor time of single steps while long replies come, p_iReplies a round.
void Steps(benchmark::State& p_cState, int p_iSvcNum, int p_iReplies) {
  const CMsgPtr pRequest = NewRequest();
  std::vector<double> adStep, adLongest;
  for (auto tIgnored : p_cState) {
    const double dStart = Now(WALL);
    for (int i = 0; i < p_iReplies; ++i) {
      CPendingCall cCall = Start(p_iSvcNum, *pRequest);
      double dLongest = 0;
      for (bool bOn = true; bOn;) {
        pollfd tPoll = {cCall.GetFd(), static_cast<short>(cCall.GetEvents()), 0};
        poll(&tPoll, 1, -1);
        const auto fnStep = [&] { bOn = cCall.Step(); };
        adStep.push_back(NanosOf(WORK, 1, fnStep));
        dLongest = std::max(dLongest, adStep.back());
      }
      adLongest.push_back(dLongest);
      Finish(cCall);
    }
    p_cState.SetIterationTime((Now(WALL) - dStart) * 1e-9);
  }
  p_cState.counters["steps"] = static_cast<double>(adStep.size()) / static_cast<double>(adLongest.size());
  p_cState.counters["median_ms"] = Median(adStep) / 1e6;
  p_cState.counters["longest_ms"] = Median(adLongest) / 1e6;
  p_cState.counters["longest_of_all_ms"] = Quantile(adLongest, 1) / 1e6;
}

}    // namespace

int main(int p_iArgs, char** p_aszArg) try {
  benchmark::Initialize(&p_iArgs, p_aszArg);
  if (benchmark::ReportUnrecognizedArguments(p_iArgs, p_aszArg)) return 1;
  World();
  Register("in_flight/1", OneInFlight);
  Register("in_flight/epoll", [](benchmark::State& p_c) { BesideBareEpoll(p_c, OWN_EPOLL, false); });
  Register("in_flight/wait_any", [](benchmark::State& p_c) { BesideBareEpoll(p_c, WAIT_ANY, false); });
  Register("in_flight/epoll_and_load", [](benchmark::State& p_c) { BesideBareEpoll(p_c, OWN_EPOLL, true); });
  Register("in_flight/wait_any_and_load", [](benchmark::State& p_c) { BesideBareEpoll(p_c, WAIT_ANY, true); });
  Register("in_flight/work", [](benchmark::State& p_c) { BesideThreads(p_c, ALL_WORK, 1); });
  Register("in_flight/two_threads", [](benchmark::State& p_c) { BesideThreads(p_c, WALL, 2); });
  Register("in_flight/10000", TenThousand);
  Register("step/1MB", [](benchmark::State& p_c) { Steps(p_c, MEGABYTE, 10); });
  Register("step/20MB", [](benchmark::State& p_c) { Steps(p_c, TWENTY_MEGABYTES, 3); });
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "bench_in_flight: %s\n", cError.what());
  return 1;
}
