// Many calls from several threads: how fast, how long each takes, what fails.
#ifndef CALLORV_TOOLS_MEASURE_H
#define CALLORV_TOOLS_MEASURE_H

#include <callorv/client/pending_call.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct T_Failure {
  std::string sText;    // of the first call with this code
  int iCount = 0;
};

struct T_Measurement {
  int iCalls = 0;
  int iThreads = 0;
  int iInFlight = 0;    // in each thread
  double dSeconds = 0;
  std::vector<uint32_t> aMicros;         // of every call, sorted
  std::map<int, T_Failure> cFailures;    // by code
  int iFailed = 0;

  // The latency that p_dPercent of the calls did not exceed, in microseconds.
  uint32_t Percentile(double p_dPercent) const;
};

// What a thread calls. Both results are 0, or a code with its text in p_sText.
struct T_Caller {
  std::function<int(std::string& p_sText)> fnCall;    // one call at a time
  // Or several in flight: begins one, which is none on failure, and ends one that is over.
  std::function<int(CPendingCall& p_cCall, std::string& p_sText)> fnStart, fnFinish;
};

// Makes p_iCalls calls from p_iThreads threads and shows a progress bar on a terminal's standard error.
//   p_iInFlight  calls that each thread has under way; 0: each call holds its thread
//   p_fnMake     makes what one thread calls; run once in each thread before the clock starts
// What p_fnMake or a call throws in a thread ends the measurement and is thrown again.
T_Measurement Measure(int p_iCalls, int p_iThreads, int p_iInFlight, const std::function<T_Caller()>& p_fnMake);

#endif
