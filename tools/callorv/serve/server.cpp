// The simulated service: a TCP server that answers packets.
#include "serve/server.h"

#include <sys/resource.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <thread>

#include "command.h"
#include "serve/connection.h"
#include "serve/metrics_server.h"

namespace {

using asio::ip::tcp;
using Error = asio::error_code;

constexpr auto STOP_GRACE = std::chrono::seconds(2);    // for calls that are being answered when a signal comes

// Takes connections and hands each to the thread that has the fewest, the own one if that is as good: nobody is woken
// up for a call that comes alone.
class CServer {
 public:
  explicit CServer(const T_ServeOptions& p_tOptions)
      : m_tOptions(p_tOptions),
        m_cService(p_tOptions),
        m_cAcceptor(Own().cContext),
        m_cMetrics(Own().cContext, m_cService.Metrics(), p_tOptions.iReadTimeOut),
        m_cSignals(Own().cContext),
        m_cRetry(Own().cContext),
        m_cSecond(Own().cContext),
        m_cGrace(Own().cContext) {}

  void Run();

 private:
  const T_ServeOptions& m_tOptions;
  CService m_cService;
  std::vector<std::unique_ptr<T_Worker>> m_apWorkers = OneWorker();    // the first is the thread of Run
  // All below runs there.
  tcp::acceptor m_cAcceptor;
  CMetricsServer m_cMetrics;
  asio::posix::stream_descriptor m_cSignals;
  signalfd_siginfo m_tSignal{};
  asio::steady_timer m_cRetry;
  asio::steady_timer m_cSecond;
  asio::steady_timer m_cGrace;
  bool m_bAcceptFails = false;    // and the log has it

  static std::vector<std::unique_ptr<T_Worker>> OneWorker() {
    std::vector<std::unique_ptr<T_Worker>> apWorkers;
    apWorkers.push_back(std::make_unique<T_Worker>());
    return apWorkers;
  }
  T_Worker& Own() const { return *m_apWorkers[0]; }
  T_Worker& LeastBusy() const {
    return **std::min_element(m_apWorkers.begin(), m_apWorkers.end(),
                              [](const auto& p_p, const auto& p_pOther) { return p_p->iOpen < p_pOther->iOpen; });
  }

  void Listen();
  void Accept();
  void TakeOne();
  void TakeSignals();
  template <class Handler>
  void AtNextSignal(Handler p_cHandler);
  void ShowStatus();
  void Stop();
  void StopAll();
  void Work(T_Worker& p_tWorker);
};

// One waiting connection is one descriptor.
void RaiseDescriptorLimit() {
  rlimit tLimit{};
  if (getrlimit(RLIMIT_NOFILE, &tLimit) == 0 && tLimit.rlim_cur < tLimit.rlim_max) {
    tLimit.rlim_cur = tLimit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &tLimit);    // when it fails, fewer can wait
  }
}

tcp::endpoint Bind(tcp::acceptor& p_cAcceptor, const std::string& p_sHost, int p_iPort) {
  Error cError;
  tcp::resolver cResolver(p_cAcceptor.get_executor());
  const auto cFound = cResolver.resolve(tcp::v4(), p_sHost, std::to_string(p_iPort),
                                        tcp::resolver::passive | tcp::resolver::numeric_service, cError);
  const std::string sPlace = p_sHost + ' ' + std::to_string(p_iPort);
  if (cError) throw CFailure("listen on " + sPlace + ": " + cError.message());
  const tcp::endpoint cPlace = cFound.begin()->endpoint();
  p_cAcceptor.open(cPlace.protocol(), cError);
  if (!cError) p_cAcceptor.set_option(tcp::acceptor::reuse_address(true), cError);
  if (!cError) p_cAcceptor.bind(cPlace, cError);
  if (!cError) p_cAcceptor.set_option(tcp::no_delay(true), cError);    // what it accepts has it from there
  if (!cError) p_cAcceptor.non_blocking(true, cError);
  if (!cError) p_cAcceptor.listen(tcp::acceptor::max_listen_connections, cError);
  if (cError) throw CFailure("listen on " + sPlace + ": " + cError.message());
  return p_cAcceptor.local_endpoint();
}

// Whoever started it waits for the line, or for both.
void CServer::Listen() {
  std::string sLines;
  const auto fnListen = [&](tcp::acceptor& p_cAcceptor, const std::string& p_sHost, int p_iPort, const char* p_szWhat) {
    const tcp::endpoint cPlace = Bind(p_cAcceptor, p_sHost, p_iPort);
    sLines += p_szWhat + cPlace.address().to_string() + ' ' + std::to_string(cPlace.port()) + '\n';
  };
  fnListen(m_cAcceptor, m_tOptions.sHost, m_tOptions.iPort, "listening on ");
  const bool bMetrics = !m_tOptions.sMetricsHost.empty();
  if (bMetrics) fnListen(m_cMetrics.Acceptor(), m_tOptions.sMetricsHost, m_tOptions.iMetricsPort, "metrics on ");
  std::cout << sLines << std::flush;
  if (!std::cout) throw CFailure("standard output cannot be written");
  if (bMetrics) m_cMetrics.Accept();
}

void CServer::Accept() {
  m_cAcceptor.async_wait(tcp::acceptor::wait_read, [this](const Error& p_cError) {
    if (p_cError) return;
    // A client that calls again has closed its last connection a moment before: that is to be seen first.
    if (Own().iOpen > 0) asio::post(Own().cContext, [this] { TakeOne(); });
    else TakeOne();
  });
}

void CServer::TakeOne() {
  if (!m_cAcceptor.is_open()) return;    // stopped meanwhile
  T_Worker& tWorker = LeastBusy();
  Error cError;
  tcp::endpoint cPeer;
  tcp::socket cSocket = m_cAcceptor.accept(tWorker.cContext, cPeer, cError);
  if (!cError) cSocket.non_blocking(true, cError);
  if (!cError) {
    m_bAcceptFails = false;
    Accept();    // first, as serving the one may take its time
    const std::string sPeer = cPeer.address().to_string() + ':' + std::to_string(cPeer.port());
    return std::make_shared<CConnection>(std::move(cSocket), sPeer, m_cService, tWorker)->Start();
  }
  if (cError == asio::error::would_block || cError == asio::error::connection_aborted) return Accept();
  if (!m_bAcceptFails) m_cService.Log().Line("accept: " + cError.message());
  m_bAcceptFails = true;
  m_cRetry.expires_after(std::chrono::milliseconds(100));    // out of descriptors, say: others will close theirs
  m_cRetry.async_wait([this](const Error&) { Accept(); });
}

// Signals are read from a descriptor: a handler would run in the middle of whatever the thread it hits is doing, and
// ThreadSanitizer may put it off until that thread wakes up, which can be never.
void CServer::TakeSignals() {
  sigset_t tStop;
  sigemptyset(&tStop);
  sigaddset(&tStop, SIGINT);
  sigaddset(&tStop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &tStop, nullptr);    // the threads inherit it
  const int iFd = signalfd(-1, &tStop, SFD_NONBLOCK | SFD_CLOEXEC);
  if (iFd < 0) throw CFailure("signalfd: " + Error(errno, asio::error::get_system_category()).message());
  m_cSignals.assign(iFd);
  AtNextSignal([this] { Stop(); });
}

template <class Handler>
void CServer::AtNextSignal(Handler p_cHandler) {
  m_cSignals.async_read_some(asio::buffer(&m_tSignal, sizeof(m_tSignal)),
                             [p_cHandler](const Error&, size_t) { p_cHandler(); });
}

void CServer::ShowStatus() {
  m_cService.Log().UpdateStatus();
  m_cSecond.expires_after(std::chrono::seconds(1));
  m_cSecond.async_wait([this](const Error&) { ShowStatus(); });
}

void CServer::Stop() {
  Error cIgnored;
  m_cAcceptor.close(cIgnored);
  m_cRetry.cancel();
  m_cGrace.expires_after(STOP_GRACE);
  m_cGrace.async_wait([this](const Error&) { StopAll(); });
  AtNextSignal([this] { StopAll(); });
  m_cService.Stop([this] { StopAll(); });
}

void CServer::StopAll() {
  for (const auto& pWorker : m_apWorkers) pWorker->cContext.stop();
}

void CServer::Work(T_Worker& p_tWorker) {
  const auto cGuard = asio::make_work_guard(p_tWorker.cContext);
  for (;;) {
    try {
      p_tWorker.cContext.run();
      return;
    } catch (const std::exception& cError) {    // out of memory: the connection is lost, the others go on
      m_cService.Log().Line(std::string("failed: ") + cError.what());
    }
  }
}

void CServer::Run() {
  TakeSignals();
  Listen();
  if (m_cService.Log().HasStatus()) ShowStatus();
  const unsigned iProcessors = std::max(1u, std::thread::hardware_concurrency());
  const unsigned iThreads = m_tOptions.iThreads > 0 ? static_cast<unsigned>(m_tOptions.iThreads) : iProcessors;
  std::vector<std::thread> aThreads;
  aThreads.reserve(iThreads);
  m_apWorkers.reserve(iThreads);
  try {
    for (unsigned i = 1; i < iThreads; ++i) {
      auto pWorker = std::make_unique<T_Worker>();
      aThreads.emplace_back([this, &tWorker = *pWorker] { Work(tWorker); });
      m_apWorkers.push_back(std::move(pWorker));
    }
  } catch (const std::system_error& cError) {    // the others do the work
    m_cService.Log().Line("only " + std::to_string(aThreads.size() + 1) + " threads: " + cError.what());
  }
  Accept();
  Work(Own());
  for (std::thread& cThread : aThreads) cThread.join();
  m_cService.Log().Summary();
}

}    // namespace

void Serve(const T_ServeOptions& p_tOptions) {
  std::signal(SIGPIPE, SIG_IGN);    // whoever read the log or the standard output has gone
  RaiseDescriptorLimit();
  CServer(p_tOptions).Run();
}
