// Many calls from several threads.
#include "call/measure.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point p_tStart) {
  return std::chrono::duration<double>(Clock::now() - p_tStart).count();
}

void ShowProgress(int p_iDone, int p_iAll, int p_iFailed, double p_dSeconds) {
  constexpr int WIDTH = 40;
  const int iFull = static_cast<int>(static_cast<long long>(WIDTH) * p_iDone / p_iAll);
  std::fprintf(stderr, "\r\x1b[K[%s%s] %3d %%  %d/%d  %.0f/s  %d failed", std::string(iFull, '#').c_str(),
               std::string(WIDTH - iFull, '.').c_str(), static_cast<int>(100LL * p_iDone / p_iAll), p_iDone, p_iAll,
               p_iDone / std::max(p_dSeconds, 0.001), p_iFailed);
}

// What the threads share.
class CRun {
 public:
  CRun(int p_iCalls, int p_iThreads, int p_iInFlight)
      : m_iCalls(p_iCalls), m_iInFlight(p_iInFlight), m_iWaiting(p_iThreads), m_iRunning(p_iThreads) {}

  // One thread's part. Nothing leaves it by an exception.
  void Work(const std::function<T_Caller()>& p_fnMake) {
    T_Caller tCaller;
    Guarded([&] { tCaller = p_fnMake(); });
    {
      std::unique_lock<std::mutex> cLock(m_cMutex);
      if (--m_iWaiting == 0) m_tStart = Clock::now();
      m_cChanged.notify_all();
      m_cChanged.wait(cLock, [&] { return m_iWaiting == 0; });
    }
    std::vector<uint32_t> aMicros;
    Guarded([&] {
      m_iInFlight > 0 ? CallInFlight(tCaller, aMicros) : CallOneByOne(tCaller, aMicros);
    });
    Guarded([&] {
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_tResult.aMicros.insert(m_tResult.aMicros.end(), aMicros.begin(), aMicros.end());
    });
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_tResult.dSeconds = SecondsSince(m_tStart);
    --m_iRunning;
    m_cChanged.notify_all();
  }

  // The last p_iThreads threads could not be made, for the reason that is being handled.
  void GiveUp(int p_iThreads) {
    m_bStop = true;
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_pThrown = std::current_exception();
    m_iWaiting -= p_iThreads;
    m_iRunning -= p_iThreads;
    m_cChanged.notify_all();
  }

  // Waits until every thread is through, showing how far they are.
  void Watch() {
    const bool bTerminal = isatty(STDERR_FILENO) == 1;
    std::unique_lock<std::mutex> cLock(m_cMutex);
    while (!m_cChanged.wait_for(cLock, std::chrono::milliseconds(200), [&] { return m_iRunning == 0; })) {
      if (bTerminal && m_iWaiting == 0) ShowProgress(m_iDone, m_iCalls, m_tResult.iFailed, SecondsSince(m_tStart));
    }
    if (bTerminal) std::fputs("\r\x1b[K", stderr);
  }

  T_Measurement TakeResult() {
    if (m_pThrown) std::rethrow_exception(m_pThrown);
    std::sort(m_tResult.aMicros.begin(), m_tResult.aMicros.end());
    m_tResult.iCalls = m_iCalls;
    return std::move(m_tResult);
  }

 private:
  const int m_iCalls;
  const int m_iInFlight;
  std::atomic<int> m_iTaken{0};
  std::atomic<int> m_iDone{0};
  std::atomic<bool> m_bStop{false};
  std::mutex m_cMutex;    // the following
  std::condition_variable m_cChanged;
  int m_iWaiting;    // threads that are not ready to start
  int m_iRunning;
  Clock::time_point m_tStart;
  T_Measurement m_tResult;
  std::exception_ptr m_pThrown;

  template <class F>
  void Guarded(F p_fn) {
    try {
      p_fn();
    } catch (...) {
      m_bStop = true;
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_pThrown = std::current_exception();
    }
  }

  bool Take() { return !m_bStop && m_iTaken++ < m_iCalls; }    // one more call

  void CallOneByOne(const T_Caller& p_tCaller, std::vector<uint32_t>& p_aMicros) {
    while (Take()) {
      std::string sText;
      const Clock::time_point tStart = Clock::now();
      const int iCode = p_tCaller.fnCall(sText);
      Count(tStart, iCode, sText, p_aMicros);
    }
  }

  void CallInFlight(const T_Caller& p_tCaller, std::vector<uint32_t>& p_aMicros) {
    const size_t iSlots = static_cast<size_t>(std::min(m_iInFlight, m_iCalls));
    std::vector<CPendingCall> acCall(iSlots);
    std::vector<Clock::time_point> atStart(iSlots);
    const auto fnFill = [&](size_t p_iSlot) {
      while (!acCall[p_iSlot] && Take()) {
        std::string sText;
        atStart[p_iSlot] = Clock::now();
        const int iCode = p_tCaller.fnStart(acCall[p_iSlot], sText);
        if (!acCall[p_iSlot]) Count(atStart[p_iSlot], iCode, sText, p_aMicros);
      }
    };
    for (size_t i = 0; i < iSlots; ++i) fnFill(i);
    for (;;) {
      const int iOver = CPendingCall::WaitAny(acCall.data(), static_cast<int>(iSlots), -1);
      if (iOver == -1) return;
      if (iOver < 0) throw std::runtime_error("waiting for the calls was interrupted, or there is no memory for it");
      std::string sText;
      const size_t iSlot = static_cast<size_t>(iOver);
      const int iCode = p_tCaller.fnFinish(acCall[iSlot], sText);
      Count(atStart[iSlot], iCode, sText, p_aMicros);
      fnFill(iSlot);
    }
  }

  void Count(Clock::time_point p_tStart, int p_iCode, const std::string& p_sText, std::vector<uint32_t>& p_aMicros) {
    const auto iMicros = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - p_tStart).count();
    p_aMicros.push_back(static_cast<uint32_t>(std::min<long long>(iMicros, UINT32_MAX)));
    ++m_iDone;
    if (p_iCode == 0) return;
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    T_Failure& tFailure = m_tResult.cFailures[p_iCode];
    if (tFailure.iCount++ == 0) tFailure.sText = p_sText;
    ++m_tResult.iFailed;
  }
};

}    // namespace

uint32_t T_Measurement::Percentile(double p_dPercent) const {
  if (aMicros.empty()) return 0;
  const auto iRank = static_cast<size_t>(std::ceil(p_dPercent / 100 * static_cast<double>(aMicros.size())));
  return aMicros[std::max<size_t>(iRank, 1) - 1];
}

T_Measurement Measure(int p_iCalls, int p_iThreads, int p_iInFlight, const std::function<T_Caller()>& p_fnMake) {
  CRun cRun(p_iCalls, p_iThreads, p_iInFlight);
  std::vector<std::thread> aThreads;
  aThreads.reserve(static_cast<size_t>(p_iThreads));
  try {
    for (int i = 0; i < p_iThreads; ++i) aThreads.emplace_back([&] { cRun.Work(p_fnMake); });
  } catch (const std::system_error&) {
    cRun.GiveUp(p_iThreads - static_cast<int>(aThreads.size()));
  }
  cRun.Watch();
  for (std::thread& cThread : aThreads) cThread.join();
  T_Measurement tResult = cRun.TakeResult();
  tResult.iThreads = p_iThreads;
  tResult.iInFlight = p_iInFlight;
  return tResult;
}
