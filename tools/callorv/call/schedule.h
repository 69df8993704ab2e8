// Which call is next, and when.
#ifndef CALLORV_TOOLS_SCHEDULE_H
#define CALLORV_TOOLS_SCHEDULE_H

#include <atomic>
#include <chrono>
#include <cstdint>

#include "call/measure.h"

// What the threads of a measurement take calls from. After Start() any thread may use it.
class CSchedule {
 public:
  using Clock = std::chrono::steady_clock;
  struct T_Turn {
    uint64_t uCall;             // 1 for the first
    Clock::time_point tDue;     // in a closed loop: now
    bool bCounted;
  };

  explicit CSchedule(const T_Load& p_tLoad) : m_tLoad(p_tLoad) {}

  void Start(Clock::time_point p_tNow);
  // The next call, which is not begun before it is due, and not at all when that is at the end or behind it; false:
  // there are no more.
  bool Take(T_Turn& p_tTurn);
  bool IsOver(Clock::time_point p_tNow) const { return p_tNow >= m_tEnd; }
  Clock::time_point CountFrom() const { return m_tCount; }
  Clock::time_point End() const { return m_tEnd; }    // far away without a duration
  // Calls that were due by p_tNow, or the end, and of which p_uBegun were begun and counted.
  uint64_t NotBegun(Clock::time_point p_tNow, uint64_t p_uBegun) const;

 private:
  const T_Load& m_tLoad;
  Clock::time_point m_tStart, m_tCount, m_tEnd;
  uint64_t m_uWarmUp = 0;                   // in an open loop: how many calls are due in the warm-up
  std::atomic<uint64_t> m_uTaken{0};        // of all calls
  std::atomic<uint64_t> m_uCounted{0};      // in a closed loop: of those that are counted
};

#endif
