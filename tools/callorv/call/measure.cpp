// Many calls from several threads.
#include "call/measure.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "call/schedule.h"
#include "common/descriptor.h"
#include "common/stop_signal.h"

namespace {

using Clock = CSchedule::Clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr char s_szClear[] = "\r\x1b[K";    // the line of a terminal that has the bar

double SecondsSince(Clock::time_point p_tStart) {
  return std::max(std::chrono::duration<double>(Clock::now() - p_tStart).count(), 0.0);
}

// What the threads share.
class CRun {
 public:
  explicit CRun(const T_Load& p_tLoad)
      : m_tLoad(p_tLoad), m_cSchedule(p_tLoad), m_iWaiting(p_tLoad.iThreads), m_iRunning(p_tLoad.iThreads) {}

  // One thread's part. Nothing leaves it by an exception.
  void Work(const std::function<T_Caller()>& p_fnMake) {
    T_Caller tCaller;
    Guarded([&] { tCaller = p_fnMake(); });
    {
      std::unique_lock<std::mutex> cLock(m_cMutex);
      if (--m_iWaiting == 0) Start();
      m_cChanged.wait(cLock, [&] { return m_iWaiting == 0; });
    }
    // The system may put off a wake-up by 50 us to save one, which would count as latency.
    if (m_tLoad.cPace.IsOpen()) prctl(PR_SET_TIMERSLACK, 1);
    Guarded([&] { m_tLoad.iInFlight > 0 ? CallInFlight(tCaller) : CallOneByOne(tCaller); });
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_dSeconds = SecondsSince(m_cSchedule.CountFrom());
    if (--m_iRunning == 0) eventfd_write(m_cThrough, 1);
  }

  // The last p_iThreads threads could not be made, for the reason that is being handled.
  void GiveUp(int p_iThreads) {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_pThrown = std::current_exception();
    m_bStop = true;
    m_iRunning -= p_iThreads;
    if (m_iRunning == 0) eventfd_write(m_cThrough, 1);
    m_iWaiting -= p_iThreads;
    if (m_iWaiting == 0) Start();
  }

  // Waits until every thread is through, showing how far they are.
  void Watch(CStopSignal& p_cSignal) {
    const bool bTerminal = isatty(STDERR_FILENO) == 1;
    for (;;) {
      pollfd atPoll[] = {{m_cThrough, POLLIN, 0}, {p_cSignal.Fd(), POLLIN, 0}};
      if (poll(atPoll, 2, bTerminal ? 200 : -1) < 0 && errno != EINTR) break;
      if (atPoll[0].revents != 0) break;
      if (atPoll[1].revents != 0 && p_cSignal.Take()) Interrupt(bTerminal);
      if (bTerminal && IsStarted()) ShowProgress();    // not with the mutex: a terminal may be halted
    }
    if (bTerminal) std::fputs(s_szClear, stderr);
  }

  T_Measurement TakeResult() {
    if (m_pThrown) std::rethrow_exception(m_pThrown);
    T_Measurement tResult = m_cRecorder.Take();
    tResult.uWarmUpCalls = m_uWarmUpCalls;
    tResult.uNotBegun = m_cSchedule.NotBegun(m_bInterrupted ? m_tInterrupted : m_cSchedule.End(), m_uBegun);
    tResult.bInterrupted = m_bInterrupted;
    tResult.tBegun = m_tBegun;
    tResult.dSeconds = m_dSeconds;
    return tResult;
  }

 private:
  const T_Load& m_tLoad;
  CSchedule m_cSchedule;
  std::atomic<bool> m_bStop{false};
  std::atomic<uint64_t> m_uBegun{0}, m_uDone{0}, m_uFailed{0};    // of the calls that are counted
  std::atomic<uint64_t> m_uWarmUpCalls{0};
  const CDescriptor m_cThrough{eventfd(0, EFD_CLOEXEC)};    // readable once every thread is through
  std::mutex m_cMutex;    // the following
  std::condition_variable m_cChanged;
  int m_iWaiting;    // threads that are not ready to start
  int m_iRunning;
  CRecorder m_cRecorder;
  std::chrono::system_clock::time_point m_tBegun;
  double m_dSeconds = 0;
  bool m_bInterrupted = false;
  Clock::time_point m_tInterrupted;
  std::exception_ptr m_pThrown;

  template <class F>
  void Guarded(F p_fn) {
    try {
      p_fn();
    } catch (...) {
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_pThrown = std::current_exception();
      m_bStop = true;
      m_cChanged.notify_all();
    }
  }

  void Start() {    // with the mutex
    m_cSchedule.Start(Clock::now());
    m_tBegun = std::chrono::system_clock::now();
    m_cChanged.notify_all();
  }

  bool IsStarted() {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    return m_iWaiting == 0;
  }

  void Interrupt(bool p_bTerminal) {
    {
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_bInterrupted = m_bStop = true;
      m_tInterrupted = Clock::now();
      m_cChanged.notify_all();
    }
    std::fprintf(stderr, "%scallorv: no more calls begin; those under way end. Once more, and nothing is printed.\n",
                 p_bTerminal ? s_szClear : "");
  }

  void ShowProgress() const {
    constexpr int WIDTH = 40;
    const double dSeconds = SecondsSince(m_cSchedule.CountFrom());
    const auto uDone = static_cast<unsigned long long>(m_uDone);
    const double dAll = std::chrono::duration<double>(m_tLoad.tDuration).count();
    double dPart = dAll > 0 ? std::min(dSeconds / dAll, 1.0) : 0;
    if (m_tLoad.uCalls > 0) dPart = std::max(dPart, static_cast<double>(uDone) / static_cast<double>(m_tLoad.uCalls));
    const int iFull = static_cast<int>(WIDTH * dPart);
    std::fprintf(stderr, "%s[%s%s] %3d %%  %llu", s_szClear, std::string(static_cast<size_t>(iFull), '#').c_str(),
                 std::string(static_cast<size_t>(WIDTH - iFull), '.').c_str(), static_cast<int>(100 * dPart), uDone);
    if (m_tLoad.uCalls > 0) std::fprintf(stderr, "/%llu", static_cast<unsigned long long>(m_tLoad.uCalls));
    std::fprintf(stderr, "  %.0f/s  %llu failed", static_cast<double>(uDone) / std::max(dSeconds, 0.001),
                 static_cast<unsigned long long>(m_uFailed));
  }

  // Until then, or until no more calls are made.
  void WaitUntil(Clock::time_point p_t) {
    std::unique_lock<std::mutex> cLock(m_cMutex);
    m_cChanged.wait_until(cLock, p_t, [&] { return m_bStop.load(); });
  }

  // The time at which a turn's call begins, or at which it turns out that it does not.
  Clock::time_point WakeFor(const CSchedule::T_Turn& p_t) const { return std::min(p_t.tDue, m_cSchedule.End()); }

  void CallOneByOne(const T_Caller& p_tCaller) {
    CSchedule::T_Turn t;
    while (!m_bStop && m_cSchedule.Take(t)) {
      if (Clock::now() < t.tDue) WaitUntil(WakeFor(t));
      if (m_bStop || t.tDue >= m_cSchedule.End()) return;
      std::string sText;
      Begin(t);
      const int iCode = p_tCaller.fnCall(t.uCall, sText);
      Count(t, iCode, sText);
    }
  }

  void CallInFlight(const T_Caller& p_tCaller) {
    auto iSlots = static_cast<size_t>(m_tLoad.iInFlight);
    if (m_tLoad.uCalls > 0 && m_tLoad.tWarmUp.count() == 0) iSlots = std::min<uint64_t>(iSlots, m_tLoad.uCalls);
    std::vector<CPendingCall> acCall(iSlots);
    std::vector<CSchedule::T_Turn> atTurn(iSlots);
    std::vector<size_t> aiFree(iSlots);
    for (size_t i = 0; i < iSlots; ++i) aiFree[i] = iSlots - 1 - i;
    CSchedule::T_Turn tNext{};
    bool bTaken = false, bMore = true;    // whether tNext waits to be begun; whether there are more calls
    const auto fnFill = [&] {
      while (bMore && !aiFree.empty()) {
        if (!bTaken) bTaken = !m_bStop && m_cSchedule.Take(tNext);
        bMore = bTaken && !m_bStop;
        const Clock::time_point tNow = m_tLoad.cPace.IsOpen() ? Clock::now() : tNext.tDue;
        if (!bMore || tNow < WakeFor(tNext)) return;
        bMore = tNext.tDue < m_cSchedule.End();
        if (!bMore) return;
        const size_t iSlot = aiFree.back();
        std::string sText;
        bTaken = false;
        atTurn[iSlot] = tNext;
        Begin(tNext);
        const int iCode = p_tCaller.fnStart(tNext.uCall, acCall[iSlot], sText);
        acCall[iSlot] ? aiFree.pop_back() : Count(tNext, iCode, sText);
      }
    };
    for (;;) {
      fnFill();
      if (aiFree.size() == iSlots) {
        if (!bMore) return;
        WaitUntil(WakeFor(tNext));
        continue;
      }
      const bool bUntilDue = bMore && !aiFree.empty();
      const int iOver = bUntilDue ? WaitAnyUntil(acCall, WakeFor(tNext))
                                  : CPendingCall::WaitAny(acCall.data(), static_cast<int>(iSlots), -1);
      if (iOver == -1) continue;    // something is due
      if (iOver < 0) throw std::runtime_error("waiting for the calls was interrupted, or there is no memory for it");
      std::string sText;
      const auto iSlot = static_cast<size_t>(iOver);
      const int iCode = p_tCaller.fnFinish(acCall[iSlot], sText);
      Count(atTurn[iSlot], iCode, sText);
      aiFree.push_back(iSlot);
    }
  }

  // As CPendingCall::WaitAny, which knows whole milliseconds only: what is left of one is waited for here. No longer
  // than a while, as a signal may have ended it all.
  static int WaitAnyUntil(std::vector<CPendingCall>& p_acCall, Clock::time_point p_t) {
    const nanoseconds tLeft = std::max<nanoseconds>(p_t - Clock::now(), nanoseconds(0));
    const auto iLeft = std::chrono::duration_cast<milliseconds>(tLeft).count();
    const int iMillis = static_cast<int>(std::min<int64_t>(iLeft, 100));
    if (iMillis == 0 && tLeft.count() > 0) {
      std::vector<pollfd> atPoll;
      for (const CPendingCall& c : p_acCall) {
        if (c) atPoll.push_back({c.GetFd(), static_cast<short>(c.GetEvents()), 0});
      }
      timespec tRest{0, static_cast<long>(tLeft.count())};
      ppoll(atPoll.data(), atPoll.size(), &tRest, nullptr);
    }
    return CPendingCall::WaitAny(p_acCall.data(), static_cast<int>(p_acCall.size()), iMillis);
  }

  void Begin(const CSchedule::T_Turn& p_t) {
    if (p_t.bCounted) ++m_uBegun;
  }

  void Count(const CSchedule::T_Turn& p_t, int p_iCode, const std::string& p_sText) {
    if (!p_t.bCounted) {
      ++m_uWarmUpCalls;
      return;
    }
    const Clock::time_point tNow = Clock::now();
    const auto iMicros = std::chrono::duration_cast<std::chrono::microseconds>(tNow - p_t.tDue).count();
    const auto iSecond = std::chrono::duration_cast<std::chrono::seconds>(tNow - m_cSchedule.CountFrom()).count();
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_cRecorder.Count(static_cast<uint64_t>(iSecond), static_cast<uint64_t>(iMicros), p_iCode, p_sText);
    ++m_uDone;
    m_uFailed += p_iCode != 0 ? 1 : 0;
  }
};

}    // namespace

T_Measurement Measure(const T_Load& p_tLoad, const std::function<T_Caller()>& p_fnMake) {
  CStopSignal cSignal;
  CRun cRun(p_tLoad);
  std::vector<std::thread> aThreads;
  aThreads.reserve(static_cast<size_t>(p_tLoad.iThreads));
  try {
    for (int i = 0; i < p_tLoad.iThreads; ++i) aThreads.emplace_back([&] { cRun.Work(p_fnMake); });
  } catch (const std::system_error&) {
    cRun.GiveUp(p_tLoad.iThreads - static_cast<int>(aThreads.size()));
  }
  cRun.Watch(cSignal);
  for (std::thread& cThread : aThreads) cThread.join();
  return cRun.TakeResult();
}
