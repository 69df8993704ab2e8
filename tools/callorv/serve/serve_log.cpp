// What the simulator says on standard error.
#include "serve/serve_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "common/text.h"

namespace {

constexpr char s_szEraseLine[] = "\r\x1b[K";

// Local time as 2026-01-31T12:00:00.123.
std::string Now() {
  timespec tNow{};
  clock_gettime(CLOCK_REALTIME, &tNow);
  tm tLocal{};
  localtime_r(&tNow.tv_sec, &tLocal);
  char szTime[32];
  const size_t iLen = std::strftime(szTime, sizeof szTime, "%Y-%m-%dT%H:%M:%S", &tLocal);
  char szMillis[8];
  std::snprintf(szMillis, sizeof szMillis, ".%03d", static_cast<int>(tNow.tv_nsec / 1000000 % 1000));
  return std::string(szTime, iLen) + szMillis;
}

std::string Seconds(double p_d) {
  char sz[32];
  std::snprintf(sz, sizeof sz, "%.1f", p_d);
  return sz;
}

template <class DURATION>
double ToSeconds(DURATION p_t) {
  return std::chrono::duration<double>(p_t).count();
}

}    // namespace

CServeLog::CServeLog(bool p_bQuiet, CMetrics& p_cMetrics)
    : m_cMetrics(p_cMetrics),
      m_bQuiet(p_bQuiet),
      m_bTerminal(isatty(STDERR_FILENO) == 1),
      m_tStart(Clock::now()),
      m_tShown(m_tStart) {}

void CServeLog::Write(const std::string& p_sLine) {
  std::string sOut = m_sStatus.empty() ? "" : s_szEraseLine;
  sOut += p_sLine + '\n' + m_sStatus;
  std::fwrite(sOut.data(), 1, sOut.size(), stderr);    // unbuffered: one write, so that lines never mix
}

void CServeLog::Call(const T_CallRecord& p_tCall) {
  std::string sLine;
  if (!m_bQuiet) {
    sLine = Now() + ' ' + p_tCall.sPeer + " service=" + std::to_string(p_tCall.iSvcNum) +
            " message=" + std::to_string(p_tCall.iMsgNum) + " user=" + MaskKey(p_tCall.sUserKey) +
            " in=" + std::to_string(p_tCall.iIn) + " out=" + std::to_string(p_tCall.iOut) +
            " us=" + std::to_string(p_tCall.tTaken.count()) +
            (p_tCall.sRule.empty() ? "" : " rule=" + Printable(p_tCall.sRule, false)) +
            " result=" + Printable(p_tCall.sResult, false);
  }
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  m_cMetrics.Call(p_tCall);
  if (!m_bQuiet) Write(sLine);
}

void CServeLog::Refused(const std::string& p_sPeer, const std::string& p_sWhy) {
  const std::string sLine = Now() + ' ' + p_sPeer + " refused: " + p_sWhy;
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  m_cMetrics.Refused();
  if (!m_bQuiet) Write(sLine);
}

void CServeLog::Line(const std::string& p_sText) {
  const std::string sLine = Now() + ' ' + p_sText;
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  Write(sLine);
}

void CServeLog::UpdateStatus() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  const CMetrics::T_Totals t = m_cMetrics.Totals();
  const Clock::time_point tNow = Clock::now();
  const double dRate = static_cast<double>(t.iCalls - m_iShownCalls) / std::max(ToSeconds(tNow - m_tShown), 0.001);
  m_iShownCalls = t.iCalls;
  m_tShown = tNow;
  m_sStatus = std::to_string(t.iCalls) + " calls  " + Seconds(dRate) + "/s  " + std::to_string(t.iErrors) +
              " errors  " + std::to_string(t.iOpen) + " connections";
  const std::string sOut = s_szEraseLine + m_sStatus;
  std::fwrite(sOut.data(), 1, sOut.size(), stderr);
}

void CServeLog::Summary() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  const CMetrics::T_Totals t = m_cMetrics.Totals();
  const std::string sLine = "served " + std::to_string(t.iCalls) + " calls, " + std::to_string(t.iErrors) +
                            " errors, " + std::to_string(t.iAccepted) + " connections in " +
                            Seconds(ToSeconds(Clock::now() - m_tStart)) + " s";
  if (!m_sStatus.empty()) std::fputs(s_szEraseLine, stderr);
  m_sStatus.clear();
  Write(sLine);
}
