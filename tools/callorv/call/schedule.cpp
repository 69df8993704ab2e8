// Which call is next, and when.
#include "call/schedule.h"

#include <algorithm>

void CSchedule::Start(Clock::time_point p_tNow) {
  m_tStart = p_tNow;
  m_tCount = p_tNow + m_tLoad.tWarmUp;
  m_tEnd = m_tLoad.tDuration.count() > 0 ? m_tCount + m_tLoad.tDuration : Clock::time_point::max();
  if (m_tLoad.cPace.IsOpen()) m_uWarmUp = m_tLoad.cPace.DueBefore(m_tLoad.tWarmUp);
}

bool CSchedule::Take(T_Turn& p_tTurn) {
  const Clock::time_point tNow = Clock::now();
  if (IsOver(tNow)) return false;
  if (m_tLoad.cPace.IsOpen()) {
    const uint64_t uAt = m_uTaken++;
    p_tTurn = {uAt + 1, m_tStart + m_tLoad.cPace.DueAt(uAt), uAt >= m_uWarmUp};
    return m_tLoad.uCalls == 0 || uAt < m_uWarmUp + m_tLoad.uCalls;
  }
  p_tTurn.tDue = tNow;
  p_tTurn.bCounted = tNow >= m_tCount;
  if (p_tTurn.bCounted && m_tLoad.uCalls > 0 && m_uCounted++ >= m_tLoad.uCalls) return false;
  p_tTurn.uCall = ++m_uTaken;
  return true;
}

uint64_t CSchedule::NotBegun(Clock::time_point p_tNow, uint64_t p_uBegun) const {
  if (!m_tLoad.cPace.IsOpen()) return 0;
  uint64_t uDue = m_tLoad.cPace.DueBefore(std::min(p_tNow, m_tEnd) - m_tStart);
  uDue = std::max(uDue, m_uWarmUp) - m_uWarmUp;
  if (m_tLoad.uCalls > 0) uDue = std::min(uDue, m_tLoad.uCalls);
  return std::max(uDue, p_uBegun) - p_uBegun;
}
