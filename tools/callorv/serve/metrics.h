// What the simulator counts for Prometheus.
#ifndef CALLORV_TOOLS_METRICS_H
#define CALLORV_TOOLS_METRICS_H

#include <array>
#include <chrono>
#include <map>
#include <mutex>
#include <string>

#include "serve/call_record.h"

// Any thread.
class CMetrics {
 public:
  void Call(const T_CallRecord& p_tCall);
  void Refused();
  void Opened();
  void Closed();

  struct T_Totals {
    unsigned long long iCalls, iErrors, iAccepted, iOpen;
  };
  T_Totals Totals() const;

  // All of it as text, the exposition format 0.0.4.
  std::string Text() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Count = unsigned long long;
  enum { BUCKETS = 16 };
  static const std::array<int, BUCKETS> s_aiMicros;    // the buckets' upper ends

  const Clock::time_point m_tStart = Clock::now();
  mutable std::mutex m_cMutex;
  // The first hundred services that are asked for have a line each: what peers make up must not fill the memory.
  std::map<int, Count> m_cByService;
  Count m_iOtherServices = 0;
  std::array<Count, ERROR_KINDS> m_aiErrors{};
  std::array<Count, BUCKETS> m_aiTaken{};    // calls by the first bucket that has them
  Count m_iCalls = 0, m_iMicros = 0;         // all of them, and what they took
  Count m_iReceived = 0, m_iSent = 0;
  Count m_iAccepted = 0, m_iOpen = 0;
};

#endif
