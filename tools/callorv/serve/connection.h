// One client of the simulated service.
#ifndef CALLORV_TOOLS_CONNECTION_H
#define CALLORV_TOOLS_CONNECTION_H

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "serve/answer.h"
#include "serve/metrics.h"
#include "serve/serve_log.h"

// What the connections share. Any thread.
class CService {
 public:
  explicit CService(const T_ServeOptions& p_tOptions);

  const T_ServeOptions& Options() const { return m_tOptions; }
  CServeLog& Log() { return m_cLog; }
  CMetrics& Metrics() { return m_cMetrics; }
  CAnswerer& Answerer() { return m_cAnswerer; }
  // After Stop no request is read any more; p_fnIdle is called, by any thread, when no call is being answered.
  bool IsStopping() const { return m_bStopping; }
  void Stop(std::function<void()> p_fnIdle);
  void CallBegins() { ++m_iBusy; }
  void CallEnds() {
    if (--m_iBusy == 0 && m_bStopping) m_fnIdle();
  }

 private:
  const T_ServeOptions m_tOptions;
  CMetrics m_cMetrics;
  CServeLog m_cLog;
  CAnswerer m_cAnswerer;
  std::function<void()> m_fnIdle;
  std::atomic<bool> m_bStopping{false};
  std::atomic<int> m_iBusy{0};    // calls that are being answered
};

// A thread, and the connections that it alone serves: nothing of theirs needs a lock.
struct T_Worker {
  std::atomic<int> iOpen{0};
  asio::io_context cContext{1};
};

// One client. At most one read or write is under way. It lives as long as a handler holds it.
class CConnection : public std::enable_shared_from_this<CConnection> {
 public:
  // p_cSocket belongs to the worker's context; p_sPeer names the client in the log.
  CConnection(asio::ip::tcp::socket p_cSocket, std::string p_sPeer, CService& p_cService, T_Worker& p_tWorker);
  ~CConnection();
  CConnection(const CConnection&) = delete;
  CConnection& operator=(const CConnection&) = delete;

  void Start();

 private:
  using Clock = std::chrono::steady_clock;
  using Error = asio::error_code;

  CService& m_cService;
  T_Worker& m_tWorker;
  asio::ip::tcp::socket m_cSocket;
  asio::steady_timer m_cTimer;     // runs until m_tDeadline as it was; whoever sets another one leaves it running
  asio::steady_timer m_cDelay;     // before an answer
  Clock::time_point m_tDeadline = NEVER;
  bool m_bTimed = false;           // m_cTimer runs
  bool m_bLate = false;
  const std::string m_sPeer;
  std::string m_sPacket;           // the request as far as it has come, and what came behind it
  size_t m_iHave = 0;              // bytes of it that have come; the others are room
  T_CallRecord m_tCall;
  T_Answer m_tAnswer;

  static constexpr Clock::time_point NEVER = Clock::time_point::max();

  void SetDeadline();
  void TakeDeadlineAway() { m_tDeadline = NEVER; }
  void RunTimer();
  void OnTimer();
  void Close();
  void Refuse(const std::string& p_sWhy);
  void End();
  void Hold();
  void Drain();
  std::string WhyEnded(const Error& p_cError) const;
  void ReadFirst();
  void ReadRequest();
  void ReadSome();
  void OnSome(const Error& p_cError, size_t p_iLen);
  void OnBytes();
  void TakeRequest(size_t p_iSize);
  void Answer(const std::string& p_sPacket);
  void Fail(const std::string& p_sWhy);
  void Send();
  void OnSent(const Error& p_cError, size_t p_iLen);
};

#endif
