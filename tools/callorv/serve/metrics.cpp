// What the simulator counts for Prometheus.
#include "serve/metrics.h"

#include <callorv/callorv.hpp>

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace {

constexpr size_t MOST_SERVICES = 100;

// "0.00025"
std::string Seconds(unsigned long long p_iMicros) {
  char sz[48];
  const int iLen = std::snprintf(sz, sizeof sz, "%llu.%06llu", p_iMicros / 1000000, p_iMicros % 1000000);
  std::string s(sz, static_cast<size_t>(iLen));
  s.erase(s.find_last_not_of('0') + 1);
  if (s.back() == '.') s.pop_back();
  return s;
}

class CText {
 public:
  void Head(const std::string& p_sName, const char* p_szType, const char* p_szHelp) {
    m_sName = p_sName;
    m_sText += "# HELP " + p_sName + ' ' + p_szHelp + "\n# TYPE " + p_sName + ' ' + p_szType + '\n';
  }
  // p_sLabels: behind the name; perhaps with a suffix of it before.
  void Line(const std::string& p_sLabels, const std::string& p_sValue) {
    m_sText += m_sName + p_sLabels + ' ' + p_sValue + '\n';
  }
  void Line(const std::string& p_sLabels, unsigned long long p_iValue) { Line(p_sLabels, std::to_string(p_iValue)); }
  void Single(const std::string& p_sName, const char* p_szType, const char* p_szHelp, unsigned long long p_iValue) {
    Head(p_sName, p_szType, p_szHelp);
    Line("", p_iValue);
  }
  const std::string& Text() const { return m_sText; }

 private:
  std::string m_sText, m_sName;
};

}    // namespace

const char* ErrorName(E_CallError p_eError) {
  constexpr const char* NAMES[ERROR_KINDS] = {"none",     "refused",   "bad_request", "user_key",
                                              "no_reply", "bad_reply", "fault",       "failed"};
  return NAMES[p_eError];
}

const std::array<int, CMetrics::BUCKETS> CMetrics::s_aiMicros{
    100, 250, 500, 1000, 2500, 5000, 10000, 25000, 50000, 100000, 250000, 500000, 1000000, 2500000, 5000000, 10000000};

void CMetrics::Call(const T_CallRecord& p_tCall) {
  const auto iMicros = static_cast<Count>(p_tCall.tTaken.count());
  const auto itBucket = std::lower_bound(s_aiMicros.begin(), s_aiMicros.end(), p_tCall.tTaken.count());
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  const auto it = m_cByService.find(p_tCall.iSvcNum);
  if (it != m_cByService.end()) ++it->second;
  else if (m_cByService.size() < MOST_SERVICES) m_cByService.emplace(p_tCall.iSvcNum, 1);
  else ++m_iOtherServices;
  if (p_tCall.eError != ERROR_NONE) ++m_aiErrors[p_tCall.eError];
  if (itBucket != s_aiMicros.end()) ++m_aiTaken[static_cast<size_t>(itBucket - s_aiMicros.begin())];
  ++m_iCalls;
  m_iMicros += iMicros;
  m_iReceived += p_tCall.iIn;
  m_iSent += p_tCall.iOut;
}

void CMetrics::Refused() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  ++m_aiErrors[ERROR_REFUSED];
}

void CMetrics::Opened() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  ++m_iAccepted;
  ++m_iOpen;
}

void CMetrics::Closed() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  --m_iOpen;
}

CMetrics::T_Totals CMetrics::Totals() const {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  return {m_iCalls, std::accumulate(m_aiErrors.begin(), m_aiErrors.end(), Count()), m_iAccepted, m_iOpen};
}

std::string CMetrics::Text() const {
  const auto iUp = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_tStart).count();
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  CText c;
  c.Head("callorv_serve_calls_total", "counter", "Calls by service, whatever came of them.");
  for (const auto& [iService, iCount] : m_cByService) c.Line("{service=\"" + std::to_string(iService) + "\"}", iCount);
  c.Line("{service=\"other\"}", m_iOtherServices);
  c.Head("callorv_serve_errors_total", "counter", "Calls and packets that went wrong, by kind.");
  for (size_t i = ERROR_NONE + 1; i < ERROR_KINDS; ++i) {
    c.Line(std::string("{kind=\"") + ErrorName(static_cast<E_CallError>(i)) + "\"}", m_aiErrors[i]);
  }
  c.Head("callorv_serve_call_duration_seconds", "histogram",
         "Time from a request's last byte to its answer's, delays included.");
  Count iBelow = 0;
  for (size_t i = 0; i < BUCKETS; ++i) {
    iBelow += m_aiTaken[i];
    c.Line("_bucket{le=\"" + Seconds(static_cast<Count>(s_aiMicros[i])) + "\"}", iBelow);
  }
  c.Line("_bucket{le=\"+Inf\"}", m_iCalls);
  c.Line("_sum", Seconds(m_iMicros));
  c.Line("_count", m_iCalls);
  c.Single("callorv_serve_received_bytes_total", "counter", "Bytes of requests.", m_iReceived);
  c.Single("callorv_serve_sent_bytes_total", "counter", "Bytes of answers.", m_iSent);
  c.Single("callorv_serve_connections_total", "counter", "Connections that were accepted.", m_iAccepted);
  c.Single("callorv_serve_connections_open", "gauge", "Connections that are open.", m_iOpen);
  c.Head("callorv_serve_uptime_seconds", "gauge", "Time since the start.");
  c.Line("", Seconds(static_cast<Count>(iUp)));
  c.Head("callorv_serve_build_info", "gauge", "The version, as a label.");
  c.Line("{version=\"" CALLORV_VERSION "\"}", 1);
  return c.Text();
}
