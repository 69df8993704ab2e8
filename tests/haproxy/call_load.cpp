// Calls from many threads until standard input ends, each call with a value of its own, and counts what became of them.
//   call_load CONFIG THREADS DEADLINE_MS [CALLS]
// Prints the calls so far after every hundred, then a line for each outcome: its count, a blank, and what it is.
#include <callorv/callorv.hpp>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

enum { SERVICE = 1201, MESSAGE = 3, TAG_CODE = 1, TAG_COUNT = 6, LENGTHS = 200, EVERY = 100 };
using CClock = std::chrono::steady_clock;

std::atomic<bool> s_bStop{false};
std::atomic<long> s_iCalls{0};
std::mutex s_cMutex;
std::map<std::string, long> s_cOutcomes;
double s_dLongest = 0;    // milliseconds

void Count(const std::string& p_sOutcome, double p_dMs) {
  const std::lock_guard<std::mutex> cLock(s_cMutex);
  ++s_cOutcomes[p_sOutcome];
  s_dLongest = std::max(s_dLongest, p_dMs);
  if (++s_iCalls % EVERY == 0) {
    std::printf("%ld\n", s_iCalls.load());
    std::fflush(stdout);
  }
}

std::string Outcome(int p_iThread, int p_iCall, int p_iDeadlineMs) {
  CMsg cIn(MESSAGE, 0, 0, MA_GetMsgDic());
  CMsg cOut(0, 0, 0, MA_GetMsgDic());
  std::string sValue = std::to_string(p_iThread) + "-" + std::to_string(p_iCall) + ";";
  const std::string sOnce = sValue;
  for (int i = p_iCall % LENGTHS; i > 0; --i) sValue += sOnce;    // a few bytes, or so many that they are compressed
  if (cIn.SetValue(TAG_CODE, sValue.c_str()) < 0 || cIn.SetValue(TAG_COUNT, p_iCall) < 0) return cIn.GetLastError();
  CallOrv_Error tErr;
  const int iRet = CallOrv_CallServiceWithin(SERVICE, &cIn, &cOut, p_iDeadlineMs, &tErr);
  if (iRet != 0) return std::to_string(iRet) + " " + std::to_string(tErr.iCode) + " " + tErr.szText;
  CString sReply;
  int iReply = 0;
  if (cOut.GetValue(TAG_CODE, &sReply) < 0 || cOut.GetValue(TAG_COUNT, &iReply) < 0) return "mixed up: no value";
  return sReply == sValue.c_str() && iReply == p_iCall ? "ok" : "mixed up: another's value";
}

void Call(int p_iThread, int p_iDeadlineMs, long p_iMost) {
  for (int i = 0; !s_bStop && s_iCalls < p_iMost; ++i) {
    const CClock::time_point cStart = CClock::now();
    const std::string sOutcome = Outcome(p_iThread, i, p_iDeadlineMs);
    Count(sOutcome, std::chrono::duration<double, std::milli>(CClock::now() - cStart).count());
  }
}

}    // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  CallOrv_Error tErr;
  if (CallOrv_Initialize(argv[1], &tErr) != 0) return std::fprintf(stderr, "%s\n", tErr.szText), 1;
  const int iThreads = std::atoi(argv[2]);
  const int iDeadlineMs = std::atoi(argv[3]);
  const long iMost = argc > 4 ? std::atol(argv[4]) : 1000000000;
  std::vector<std::thread> aThreads;
  for (int i = 0; i < iThreads; ++i) aThreads.emplace_back(Call, i, iDeadlineMs, iMost);
  char c = 0;
  while (argc <= 4 && read(STDIN_FILENO, &c, 1) > 0) {
  }
  s_bStop = argc <= 4;
  for (std::thread& cThread : aThreads) cThread.join();
  rusage tUsed = {};
  getrusage(RUSAGE_SELF, &tUsed);
  const double dSeconds = static_cast<double>(tUsed.ru_utime.tv_sec + tUsed.ru_stime.tv_sec) +
                          static_cast<double>(tUsed.ru_utime.tv_usec + tUsed.ru_stime.tv_usec) / 1e6;
  for (const auto& [sOutcome, iCount] : s_cOutcomes) std::printf("%ld %s\n", iCount, sOutcome.c_str());
  std::printf("%.0f ms was the longest call\n", s_dLongest);
  const double dCalls = static_cast<double>(std::max(s_iCalls.load(), 1L));
  std::printf("%.1f us of processor time a call\n", dSeconds * 1e6 / dCalls);
  return 0;
}
