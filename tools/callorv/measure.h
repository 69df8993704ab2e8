// Many calls from several threads: how fast, how long each takes, what fails.
#ifndef CALLORV_TOOLS_MEASURE_H
#define CALLORV_TOOLS_MEASURE_H

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
  double dSeconds = 0;
  std::vector<uint32_t> aMicros;         // of every call, sorted
  std::map<int, T_Failure> cFailures;    // by code
  int iFailed = 0;

  // The latency that p_dPercent of the calls did not exceed, in microseconds.
  uint32_t Percentile(double p_dPercent) const;
};

// One call: 0, or a code with its text in p_sText.
using CCall = std::function<int(std::string& p_sText)>;

// Makes p_iCalls calls from p_iThreads threads and shows a progress bar on a terminal's standard error.
//   p_fnMake  makes the call of one thread; run once in each thread before the clock starts
// What p_fnMake or a call throws in a thread ends the measurement and is thrown again.
T_Measurement Measure(int p_iCalls, int p_iThreads, const std::function<CCall()>& p_fnMake);

#endif
