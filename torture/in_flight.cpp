// Calls in flight, thousands at once and handed from thread to thread, to a server that plays faults; and each of them
// ended by its owner or its deadline wherever it stands.
#include <callorv/callorv.h>
#include <poll.h>
#include <sys/resource.h>

#include <deque>
#include <mutex>
#include <thread>

#include "client.h"
#include "memory.h"
#include "played.h"
#include "support/service_peer.h"

namespace {

enum {
  UNDER_WAY = 10000,
  THREADS = 8,
  LEFT_OVER = 256 * 1024,    // bytes that may be in use more than before: what malloc keeps for a thread counts as in use
  NEVER_MS = 600000
};

const Played s_atPrompt = {{"reset@2", END_RESET, 2},       {"close@2", END_CLOSED, 2}, {"truncate:200@2", END_CLOSED, 2},
                           {"checksum@2", END_CHECKSUM, 2}, {"zlib@2", END_ZLIB, 2},    {"reject:7@2", END_REJECT, 2},
                           {"truncate:64@2", END_CLOSED, 2}};
// Those that cost a deadline each.
const Played s_atSilent = {{"stall:0@2", END_SILENCE, 2}, {"stall:140@2", END_CUT_OFF, 2}, {"reset@2", END_RESET, 2}};

// A call that carries a text and a number of its own.
struct T_Job {
  CPendingCall cCall;
  int iNumber = 0;
  std::string Text() const { return "call " + std::to_string(iNumber) + std::string(iNumber % 2 ? 2000 : 0, '.'); }
};

T_Job Started(int p_iNumber, int p_iDeadlineMs) {
  T_Job tJob;
  tJob.iNumber = p_iNumber;
  CMsg cIn(100, 0, 0, MA_GetMsgDic());
  CCallOrvError cErr;
  cIn.SetValue(1, tJob.Text().c_str());
  cIn.SetValue(2, p_iNumber);
  tJob.cCall = CCallOrv::Start(p_iNumber % 10000, &cIn, p_iDeadlineMs, &cErr);
  if (!tJob.cCall) throw std::runtime_error(std::string("not started: ") + cErr.sText.ToStr());
  return tJob;
}

E_End Finished(T_Job& p_tJob, std::string& p_sWhat) {
  CMsg cOut(0, 0, 0, MA_GetMsgDic());
  CCallOrvError cErr;
  const int iRet = p_tJob.cCall.Finish(&cOut, &cErr);
  return JudgeEcho(iRet, cErr, cOut, p_tJob.iNumber % 10000, p_tJob.Text(), p_tJob.iNumber, p_sWhat);
}

// p_iCalls under way in one thread.
void ManyAtOnce(CClient& p_cClient, CTally& p_cTally, int p_iCalls) {
  const CServer cServer(p_cClient.Dictionary(), Names(s_atPrompt));
  p_cClient.SetUp(cServer.Port(), 60);
  std::vector<T_Job> tJobs;
  std::vector<CallOrv_Call*> pCalls;
  for (int i = 0; i < p_iCalls; ++i) {
    tJobs.push_back(Started(i, NEVER_MS));
    pCalls.push_back(tJobs.back().cCall.Release());
  }
  Counts alEnds{};
  for (int iOver; (iOver = CallOrv_WaitAny(pCalls.data(), p_iCalls, -1)) != -1;) {
    if (iOver < 0) throw std::runtime_error("WaitAny found no memory");
    T_Job& tJob = tJobs[static_cast<size_t>(iOver)];
    tJob.cCall = CPendingCall(std::exchange(pCalls[static_cast<size_t>(iOver)], nullptr));
    std::string sWhat;
    const E_End eEnd = Finished(tJob, sWhat);
    ++alEnds[eEnd];
    p_cTally.Case(eEnd != END_WRONG, std::to_string(p_iCalls) + " at once, call " + std::to_string(iOver) + ": " + sWhat);
  }
  Compare(p_cTally, "many at once", alEnds, Expected(s_atPrompt, p_iCalls));
}

// Threads that take a call from a queue, start, step or finish it, and put it back for another one.
class CHandOver {
 public:
  CHandOver(CTally& p_cTally, int p_iCalls, int p_iDeadlineMs)
      : m_cTally(p_cTally), m_iCalls(p_iCalls), m_iDeadlineMs(p_iDeadlineMs) {}

  Counts Run() {
    std::vector<std::thread> cThreads;
    for (int i = 0; i < THREADS; ++i) cThreads.emplace_back([this] { Work(); });
    for (std::thread& cThread : cThreads) cThread.join();
    return m_alEnds;
  }

 private:
  enum { QUEUED = 32 };
  CTally& m_cTally;
  const int m_iCalls, m_iDeadlineMs;
  std::mutex m_cMutex;    // the following
  std::deque<T_Job> m_tQueue;
  int m_iStarted = 0;
  Counts m_alEnds{};

  // The next call, perhaps not started yet. False when there is none for this thread.
  bool Take(T_Job& p_tJob) {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    if (m_iStarted < m_iCalls && m_tQueue.size() < QUEUED) {
      p_tJob = T_Job();
      p_tJob.iNumber = m_iStarted++;
      return true;
    }
    if (m_tQueue.empty()) return false;
    p_tJob = std::move(m_tQueue.front());
    m_tQueue.pop_front();
    return true;
  }

  void Work() {
    for (T_Job tJob; Take(tJob);) {
      if (!tJob.cCall) {
        tJob = Started(tJob.iNumber, m_iDeadlineMs);
      } else if (tJob.cCall.GetEvents() == 0) {
        std::string sWhat;
        const E_End eEnd = Finished(tJob, sWhat);
        const std::lock_guard<std::mutex> cLock(m_cMutex);
        ++m_alEnds[eEnd];
        m_cTally.Case(eEnd != END_WRONG, "handed over, call " + std::to_string(tJob.iNumber) + ": " + sWhat);
        continue;
      } else {
        pollfd tPoll = {tJob.cCall.GetFd(), static_cast<short>(tJob.cCall.GetEvents()), 0};
        poll(&tPoll, 1, std::min(tJob.cCall.GetTimeLeft(), 1));
        tJob.cCall.Step();
      }
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_tQueue.push_back(std::move(tJob));
    }
  }
};

void HandedOver(CClient& p_cClient, CTally& p_cTally, const Played& p_atPlayed, int p_iCalls, int p_iDeadlineMs) {
  const CServer cServer(p_cClient.Dictionary(), Names(p_atPlayed));
  p_cClient.SetUp(cServer.Port(), 60);
  Compare(p_cTally, "handed over", CHandOver(p_cTally, p_iCalls, p_iDeadlineMs).Run(), Expected(p_atPlayed, p_iCalls));
}

// ---- each state, ended

enum { SHORT = 10, TOO_LONG_TO_SEND = 16000000, NONE = -1, ALL_BUT_ONE = 10000, ALL };    // bytes

// How far a call is, whose server is in this thread.
struct T_State {
  const char* szName;
  bool bAccepted;    // by a server whose queue of connections is full otherwise
  size_t uRequest;
  int iReply;        // so much of the reply has come; NONE: the request was not read
  int iEvents;
  int iCode;         // what it comes to past the deadline
  const char* szPhase;
};
const T_State s_atStates[] = {{"connecting", false, SHORT, NONE, POLLOUT, -3, "connect"},
                              {"sending", true, TOO_LONG_TO_SEND, NONE, POLLOUT, -4, "send"},
                              {"waiting", true, SHORT, 0, POLLIN, -5, "header"},
                              {"in the header", true, SHORT, 77, POLLIN, -5, "header"},
                              {"at the body", true, SHORT, 128, POLLIN, -5, "body"},
                              {"in the body", true, SHORT, 180, POLLIN, -5, "body"},
                              {"in the checksum", true, SHORT, ALL_BUT_ONE, POLLIN, -5, "checksum"},
                              {"over", true, SHORT, ALL, 0, 0, ""}};

enum E_Way { CANCELLED, DESTROYED, REPLACED, FINISHED_LATE, STEPPED_LATE, WAITED_LATE, WAYS };
const char* const s_aszWays[WAYS] = {"cancelled", "destroyed", "replaced", "Finish past the deadline", "Step past the deadline",
                                     "WaitAny past the deadline"};

class CStates {
 public:
  CStates(CClient& p_cClient, CTally& p_cTally) : m_cTally(p_cTally) {
    int iPort = 0;
    m_iListen = BoundSocket(iPort);
    if (listen(m_iListen, 0) != 0) throw std::runtime_error("cannot listen");
    p_cClient.SetUp(iPort, 60);
  }
  ~CStates() { close(m_iListen); }
  CStates(const CStates&) = delete;
  CStates& operator=(const CStates&) = delete;

  void Try(const T_State& p_tState, E_Way p_eWay) {
    const std::string sCase = std::string(p_tState.szName) + ", " + s_aszWays[p_eWay];
    const long iBefore = OpenDescriptors();
    {
      std::vector<CPendingCall> cQueue;    // fill the server's queue, so that no more connections are made
      while (!p_tState.bAccepted && (cQueue.empty() || IsConnected(cQueue.back()))) cQueue.push_back(Start(10, 60000));
      int iDeadlineMs = p_tState.uRequest == SHORT ? 100 : 2000;    // twice that where making the packet took it
      while (!Bring(p_tState, p_eWay, sCase, iDeadlineMs)) iDeadlineMs *= 2;
    }
    Drain();
    m_cTally.Case(OpenDescriptors() == iBefore, sCase + ": a descriptor is left open");
  }

 private:
  CTally& m_cTally;
  int m_iListen;

  static CPendingCall Start(size_t p_uRequest, int p_iDeadlineMs) {
    CMsg cIn(100, 0, 0, MA_GetMsgDic());
    std::string sText(p_uRequest, ' ');
    unsigned uRandom = 1;
    for (char& c : sText) c = static_cast<char>('!' + (uRandom = uRandom * 1103515245 + 12345) / 65536 % 60);
    cIn.SetValue(1, sText.c_str());
    CCallOrvError cErr;
    return CCallOrv::Start(7, &cIn, p_iDeadlineMs, &cErr);
  }
  static bool IsConnected(const CPendingCall& p_cCall) {
    pollfd tPoll = {p_cCall.GetFd(), POLLOUT, 0};
    return p_cCall.GetEvents() == POLLIN || poll(&tPoll, 1, 100) != 0;
  }
  void Drain() const {    // what stands in the queue
    for (pollfd tPoll = {m_iListen, POLLIN, 0}; poll(&tPoll, 1, 0) == 1;) close(accept(m_iListen, nullptr, nullptr));
  }

  // Brings a call into a state and ends it there. False when the deadline passed before.
  bool Bring(const T_State& p_tState, E_Way p_eWay, const std::string& p_sCase, int p_iDeadlineMs) {
    const bool bLate = p_eWay >= FINISHED_LATE;
    CPendingCall cCall = Start(p_tState.uRequest, bLate ? p_iDeadlineMs : 600000);
    struct T_Peer {
      const int iSock;
      ~T_Peer() { close(iSock); }
    } const tPeer{p_tState.bAccepted ? accept(m_iListen, nullptr, nullptr) : dup(m_iListen)};
    for (int iSteps = 0; cCall.GetEvents() == POLLOUT && iSteps < 1000; ++iSteps) cCall.Step();
    if (p_tState.iReply != NONE) {
      T_Request tRequest;
      ReadRequest(tPeer.iSock, tRequest);
      std::string sReply = Packet(tRequest.sBody);
      if (p_tState.iReply == ALL_BUT_ONE) sReply.pop_back();
      else if (p_tState.iReply != ALL) sReply.resize(static_cast<size_t>(p_tState.iReply));
      for (const char c : sReply) {
        WriteAll(tPeer.iSock, std::string(1, c));
        pollfd tPoll = {cCall.GetFd(), POLLIN, 0};
        poll(&tPoll, 1, -1);
        cCall.Step();
      }
    }
    if (bLate && p_tState.iEvents != 0 && cCall.GetTimeLeft() == 0 && p_iDeadlineMs < 60000) return false;
    m_cTally.Case(cCall.GetEvents() == p_tState.iEvents, p_sCase + ": waits for " + std::to_string(cCall.GetEvents()));
    if (!bLate) {
      if (p_eWay == CANCELLED) cCall.Cancel();
      if (p_eWay == REPLACED) cCall = CPendingCall();
      return true;
    }
    if (p_eWay != FINISHED_LATE) {
      while (cCall.GetTimeLeft() > 0) poll(nullptr, 0, cCall.GetTimeLeft());
      const bool bOver = p_eWay == STEPPED_LATE ? !cCall.Step() : CPendingCall::WaitAny(&cCall, 1, -1) == 0;
      m_cTally.Case(bOver && cCall.GetEvents() == 0, p_sCase + ": is not over");
    }
    CMsg cOut(0, 0, 0, MA_GetMsgDic());
    CCallOrvError cErr;
    const int iRet = cCall.Finish(&cOut, &cErr);
    const std::string sShould = p_tState.iCode == 0 ? "" : "Socket timeout(-8)((" + std::string(p_tState.szPhase) + ", " +
                                                               std::to_string(p_iDeadlineMs) + " ms))";
    m_cTally.Case(iRet == (p_tState.iCode == 0 ? 0 : -3) && cErr.GetCode() == p_tState.iCode && cErr.GetText() == sShould.c_str(),
                  p_sCase + ": " + std::to_string(iRet) + " " + std::to_string(cErr.GetCode()) + " " + cErr.sText.ToStr());
    return true;
  }
};

int InFlight(bool p_bQuick) {
  CTally cTally("in_flight");
  rlimit tLimit = {};
  getrlimit(RLIMIT_NOFILE, &tLimit);
  tLimit.rlim_cur = std::max<rlim_t>(tLimit.rlim_cur, std::min<rlim_t>(tLimit.rlim_max, UNDER_WAY + 1000));
  setrlimit(RLIMIT_NOFILE, &tLimit);    // the server takes it over
  int iCalls = UNDER_WAY;
  if (tLimit.rlim_cur < UNDER_WAY + 1000) {
    iCalls = static_cast<int>(tLimit.rlim_cur / 2);
    printf("%d calls at once NOT TRIED: the machine allows %d descriptors\n", UNDER_WAY, static_cast<int>(tLimit.rlim_cur));
  }

  CClient cClient;
  {
    CStates cStates(cClient, cTally);
    for (const T_State& tState : s_atStates) {
      for (int i = 0; i < WAYS; ++i) cStates.Try(tState, static_cast<E_Way>(i));
    }
  }
  HandedOver(cClient, cTally, s_atSilent, p_bQuick ? 200 : 1000, 6000);
  HandedOver(cClient, cTally, s_atPrompt, p_bQuick ? 1000 : 20000, NEVER_MS);
  ManyAtOnce(cClient, cTally, iCalls);    // leaves what is kept
  const long iDescriptors = OpenDescriptors();
  const long long iBytes = BytesInUse();
  for (int i = 0; i < (p_bQuick ? 1 : 5); ++i) ManyAtOnce(cClient, cTally, iCalls);
  cTally.Case(OpenDescriptors() == iDescriptors, "descriptors are left over");
  fprintf(stderr, "in_flight: bytes %lld, %lld before\n", BytesInUse(), iBytes);
  if (MEMORY_IS_KNOWN) cTally.Case(BytesInUse() - iBytes <= LEFT_OVER, "memory is left over");
  return cTally.End();
}

}    // namespace

int main(int p_iArgs, char** p_pszArgs) try {
  return InFlight(IsQuick(p_iArgs, p_pszArgs));
} catch (const std::exception& cError) {
  fprintf(stderr, "in_flight: %s\n", cError.what());
  return 1;
}
