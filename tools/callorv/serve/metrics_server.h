// The counters over HTTP: GET /metrics, and nothing else.
#ifndef CALLORV_TOOLS_METRICS_SERVER_H
#define CALLORV_TOOLS_METRICS_SERVER_H

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <memory>

#include "serve/metrics.h"

// Serves in the thread of a context that has one only. A request may have 8 KB, and 16 at once are served.
class CMetricsServer {
 public:
  // p_cMetrics and p_cContext outlive it. p_iTimeOut: seconds for a request and its answer, no more than five.
  CMetricsServer(asio::io_context& p_cContext, const CMetrics& p_cMetrics, int p_iTimeOut)
      : m_cContext(p_cContext),
        m_cMetrics(p_cMetrics),
        m_tTimeOut(std::min(p_iTimeOut, 5)),
        m_cAcceptor(p_cContext),
        m_cRetry(p_cContext) {}

  asio::ip::tcp::acceptor& Acceptor() { return m_cAcceptor; }    // to be bound before Accept
  void Accept();

 private:
  class CRequest;
  asio::io_context& m_cContext;
  const CMetrics& m_cMetrics;
  const std::chrono::seconds m_tTimeOut;
  asio::ip::tcp::acceptor m_cAcceptor;
  asio::steady_timer m_cRetry;
  const std::shared_ptr<int> m_piOpen = std::make_shared<int>(0);    // requests, which may outlive the server
};

#endif
