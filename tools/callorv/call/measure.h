// Many calls from several threads: how fast, how long each takes, what fails.
#ifndef CALLORV_TOOLS_MEASURE_H
#define CALLORV_TOOLS_MEASURE_H

#include <callorv/client/pending_call.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "call/measurement.h"
#include "call/pace.h"

// How many calls, and when.
struct T_Load {
  uint64_t uCalls = 0;                       // that are counted; 0: until the time is over
  std::chrono::nanoseconds tDuration{0};     // that is measured; 0: until all calls are made
  std::chrono::nanoseconds tWarmUp{0};       // before that: calls that begin in it are not counted
  CPace cPace;                               // open: latency counts from when a call was due
  int iThreads = 1;
  int iInFlight = 0;                         // calls that each thread has under way; 0: each call holds its thread

  bool IsMany() const { return uCalls > 0 || tDuration.count() > 0; }
};

// What a thread calls. Both results are 0, or a code with its text in p_sText. p_uCall is 1 for the first call of all.
struct T_Caller {
  std::function<int(uint64_t p_uCall, std::string& p_sText)> fnCall;    // one call at a time
  // Or several in flight: begins one, which is none on failure, and ends one that is over.
  std::function<int(uint64_t p_uCall, CPendingCall& p_cCall, std::string& p_sText)> fnStart;
  std::function<int(CPendingCall& p_cCall, std::string& p_sText)> fnFinish;
};

// Calls, and shows on a terminal's standard error how far it is. After SIGINT or SIGTERM no more calls begin; those
// under way end and are counted.
//   p_tLoad   of which IsMany()
//   p_fnMake  makes what one thread calls; run once in each thread before the clock starts
// What p_fnMake or a call throws in a thread ends the measurement and is thrown again.
T_Measurement Measure(const T_Load& p_tLoad, const std::function<T_Caller()>& p_fnMake);

#endif
