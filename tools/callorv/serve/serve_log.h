// What the simulator says on standard error: one line a call, a status line on a terminal, a summary at the end.
#ifndef CALLORV_TOOLS_SERVE_LOG_H
#define CALLORV_TOOLS_SERVE_LOG_H

#include <chrono>
#include <mutex>
#include <string>

#include "serve/metrics.h"

// Any thread.
class CServeLog {
 public:
  // p_bQuiet    no lines for calls
  // p_cMetrics  what is counted
  CServeLog(bool p_bQuiet, CMetrics& p_cMetrics);
  CServeLog(const CServeLog&) = delete;
  CServeLog& operator=(const CServeLog&) = delete;

  void Call(const T_CallRecord& p_tCall);
  // A request that was refused, or something else that went wrong with a peer; counts as an error.
  void Refused(const std::string& p_sPeer, const std::string& p_sWhy);
  void Line(const std::string& p_sText);

  bool HasStatus() const { return m_bTerminal; }
  void UpdateStatus();    // to be called once a second
  void Summary();         // ends the status line

 private:
  using Clock = std::chrono::steady_clock;
  CMetrics& m_cMetrics;
  const bool m_bQuiet;
  const bool m_bTerminal;
  const Clock::time_point m_tStart;
  std::mutex m_cMutex;
  std::string m_sStatus;    // what stands on the terminal's last line
  unsigned long long m_iShownCalls = 0;    // when the status was last made
  Clock::time_point m_tShown;

  void Write(const std::string& p_sLine);    // the mutex is held
};

#endif
