// What was seen of many calls.
#ifndef CALLORV_TOOLS_MEASUREMENT_H
#define CALLORV_TOOLS_MEASUREMENT_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/histogram.h"

struct T_Failure {
  std::string sText;    // of the first call with this code
  uint64_t uCount = 0;
};

// The calls that ended in one second.
struct T_Second {
  uint64_t uCalls, uFailed;
  uint64_t uP50, uP90, uP99, uMax;    // microseconds, 0 without calls
};

struct T_Measurement {
  uint64_t uCalls = 0;          // that were counted
  uint64_t uFailed = 0;         // of these
  uint64_t uWarmUpCalls = 0;    // before these
  uint64_t uNotBegun = 0;       // that were due, but had no thread or slot when the time was over
  bool bInterrupted = false;
  std::chrono::system_clock::time_point tBegun;
  double dSeconds = 0;
  CHistogram cMicros;                    // the latency of every call
  std::map<int, T_Failure> cFailures;    // by code
  std::vector<T_Second> atSeconds;
};

// Counts calls as they end. Its memory does not grow with their number, but with the seconds.
class CRecorder {
 public:
  // p_uSecond: in which it ended, behind the start of counting; p_iCode: 0 for a call that succeeded.
  void Count(uint64_t p_uSecond, uint64_t p_uMicros, int p_iCode, const std::string& p_sText);
  T_Measurement Take();    // once, at the end

 private:
  T_Measurement m_tAll;
  CHistogram m_cSecond;    // the second that is going on, which is not in m_tAll yet
  uint64_t m_uSecondFailed = 0;

  void EndSecond();
};

#endif
