// The simulated service: a TCP server that answers packets.
#include "serve/server.h"

#include <callorv/base/exception.h>
#include <callorv/net/tcp_adaptor.h>
#include <sys/resource.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <asio.hpp>
#include <atomic>
#include <csignal>
#include <iostream>
#include <thread>

#include "command.h"
#include "common/packet_view.h"
#include "serve/answer.h"

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using Error = asio::error_code;

constexpr size_t HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
constexpr size_t MAX_PACKET = 64 << 20;                 // bytes, sent or decompressed; a longer one is refused
constexpr size_t READ_STEP = 64 << 10;                  // bytes; room grows with what a peer really sends
constexpr auto STOP_GRACE = std::chrono::seconds(2);    // for calls that are being answered when a signal comes

// What the connections share.
class CServer {
 public:
  explicit CServer(const T_ServeOptions& p_tOptions)
      : m_tOptions(p_tOptions),
        m_cLog(p_tOptions.bQuiet),
        m_cAnswerer(p_tOptions),
        m_cControl(asio::make_strand(m_cContext)),
        m_cAcceptor(m_cControl),
        m_cSignals(m_cControl),
        m_cRetry(m_cControl),
        m_cSecond(m_cControl),
        m_cGrace(m_cControl) {}

  void Run();

  const T_ServeOptions& Options() const { return m_tOptions; }
  CServeLog& Log() { return m_cLog; }
  CAnswerer& Answerer() { return m_cAnswerer; }
  bool IsStopping() const { return m_bStopping; }
  void CallBegins() { ++m_iBusy; }
  void CallEnds() {
    if (--m_iBusy == 0 && m_bStopping) m_cContext.stop();
  }

 private:
  const T_ServeOptions m_tOptions;
  CServeLog m_cLog;
  CAnswerer m_cAnswerer;
  std::atomic<bool> m_bStopping{false};
  std::atomic<int> m_iBusy{0};    // calls that are being answered
  asio::io_context m_cContext;
  // The acceptor, the signals and the timers below run on one strand.
  asio::strand<asio::io_context::executor_type> m_cControl;
  tcp::acceptor m_cAcceptor;
  asio::posix::stream_descriptor m_cSignals;
  signalfd_siginfo m_tSignal{};
  asio::steady_timer m_cRetry;
  asio::steady_timer m_cSecond;
  asio::steady_timer m_cGrace;
  bool m_bAcceptFails = false;    // and the log has it

  void Listen();
  void Accept();
  void TakeSignals();
  template <class Handler>
  void AtNextSignal(Handler p_cHandler);
  void ShowStatus();
  void Stop();
  void Work();
};

// One client. Everything runs on the socket's strand, and at most one read or write is under way. It lives as long as
// a handler holds it.
class CConnection : public std::enable_shared_from_this<CConnection> {
 public:
  CConnection(tcp::socket p_cSocket, CServer& p_cServer)
      : m_cServer(p_cServer), m_cSocket(std::move(p_cSocket)), m_cTimer(m_cSocket.get_executor()) {
    Error cError;
    const tcp::endpoint cPeer = m_cSocket.remote_endpoint(cError);    // fails when the peer has gone already
    m_sPeer = cError ? "?" : cPeer.address().to_string() + ':' + std::to_string(cPeer.port());
    m_cServer.Log().Opened();
  }
  ~CConnection() { m_cServer.Log().Closed(); }

  void Start() {
    asio::dispatch(m_cSocket.get_executor(), [pSelf = shared_from_this()] { pSelf->ReadHeader(); });
  }

 private:
  CServer& m_cServer;
  tcp::socket m_cSocket;
  asio::steady_timer m_cTimer;    // the deadline of what is under way, or the delay before an answer
  unsigned m_iDeadline = 0;       // counts the deadlines, so that an old one's handler knows itself
  bool m_bLate = false;
  std::string m_sPeer;
  std::string m_sPacket;    // the request as far as it has come
  T_CallRecord m_tCall;
  T_Answer m_tAnswer;

  void SetDeadline() {
    m_bLate = false;
    ++m_iDeadline;
    CancelAfter(std::chrono::seconds(m_cServer.Options().iReadTimeOut));
  }
  // What is cancelled says so in the log, and only then the peer sees the end.
  void CancelAfter(Clock::duration p_cTime) {
    m_cTimer.expires_after(p_cTime);
    m_cTimer.async_wait([pSelf = shared_from_this(), iDeadline = m_iDeadline](const Error&) {
      if (pSelf->m_iDeadline != iDeadline) return;    // set anew or taken away meanwhile
      pSelf->m_bLate = true;
      Error cIgnored;
      pSelf->m_cSocket.cancel(cIgnored);
      // It may have been between two parts of what it reads or writes.
      pSelf->CancelAfter(std::chrono::milliseconds(10));
    });
  }
  void TakeDeadlineAway() {
    ++m_iDeadline;
    m_cTimer.cancel();
  }

  void Close() {
    Error cIgnored;
    TakeDeadlineAway();
    m_cSocket.close(cIgnored);
  }

  void Refuse(const std::string& p_sWhy) {
    m_cServer.Log().Refused(m_sPeer, p_sWhy);
    End();
  }

  // Lets the peer see the end of the bytes, not a reset, which bytes that were not read would cause.
  void End() {
    Error cIgnored;
    m_cSocket.shutdown(tcp::socket::shutdown_send, cIgnored);
    Hold();
  }

  // Keeps the connection, silently, until the peer closes or the deadline passes.
  void Hold() {
    m_sPacket.resize(READ_STEP);
    SetDeadline();
    Drain();
  }

  void Drain() {
    m_cSocket.async_read_some(asio::buffer(m_sPacket), [pSelf = shared_from_this()](const Error& p_cError, size_t) {
      p_cError ? pSelf->Close() : pSelf->Drain();
    });
  }

  std::string WhyEnded(const Error& p_cError) const {
    if (m_bLate) return "nothing more within " + std::to_string(m_cServer.Options().iReadTimeOut) + " s";
    return p_cError == asio::error::eof ? "the connection was closed" : p_cError.message();
  }

  void ReadHeader() {
    m_sPacket.assign(HEADER_SIZE, '\0');
    SetDeadline();
    asio::async_read(
        m_cSocket, asio::buffer(m_sPacket),
        [pSelf = shared_from_this()](const Error& p_cError, size_t p_iLen) { pSelf->OnHeader(p_cError, p_iLen); });
  }

  void OnHeader(const Error& p_cError, size_t p_iLen) {
    if (p_cError && p_iLen == 0) return Close();    // between two requests: nothing is wrong
    if (p_cError) return Refuse(std::to_string(p_iLen) + " bytes of a header, then " + WhyEnded(p_cError));
    const std::vector<std::string> asWrong = CheckHeader(m_sPacket);
    if (!asWrong.empty()) return Refuse(asWrong[0]);
    const size_t iLongest = std::max(PacketSize(m_sPacket), BodySize(m_sPacket));
    if (iLongest > MAX_PACKET) return Refuse(std::to_string(iLongest) + " bytes are too many");
    SetDeadline();
    ReadRest(PacketSize(m_sPacket));
  }

  void ReadRest(size_t p_iTotal) {
    const size_t iHave = m_sPacket.size();
    m_sPacket.resize(iHave + std::min(p_iTotal - iHave, std::max(iHave, READ_STEP)));
    asio::async_read(m_cSocket, asio::buffer(&m_sPacket[iHave], m_sPacket.size() - iHave),
                     [pSelf = shared_from_this(), iHave, p_iTotal](const Error& p_cError, size_t p_iLen) {
                       pSelf->OnRest(p_cError, iHave + p_iLen, p_iTotal);
                     });
  }

  void OnRest(const Error& p_cError, size_t p_iHave, size_t p_iTotal) {
    if (p_cError) {
      return Refuse(std::to_string(p_iHave) + " of " + std::to_string(p_iTotal) + " bytes, then " + WhyEnded(p_cError));
    }
    if (p_iHave < p_iTotal) return ReadRest(p_iTotal);
    TakeDeadlineAway();
    Answer();
  }

  void Answer() {
    m_cServer.CallBegins();
    m_tCall = T_CallRecord();
    m_tCall.tStart = Clock::now();
    m_tCall.sPeer = m_sPeer;
    m_tCall.iIn = m_sPacket.size();
    m_tAnswer = T_Answer();
    try {
      m_tAnswer = m_cServer.Answerer().Answer(m_sPacket, m_tCall);
    } catch (const CException& cError) {
      Fail(cError.GetText());
    } catch (const std::exception& cError) {
      Fail(cError.what());
    }
    m_sPacket = std::string();    // a waiting connection holds no room
    if (m_tAnswer.eThen == T_Answer::REFUSE) {
      m_cServer.CallEnds();
      return Refuse(m_tCall.sResult);
    }
    if (m_tAnswer.iDelay == 0) return Send();
    m_cTimer.expires_after(std::chrono::milliseconds(m_tAnswer.iDelay));
    m_cTimer.async_wait([pSelf = shared_from_this()](const Error&) { pSelf->Send(); });
  }

  void Fail(const std::string& p_sWhy) {
    m_tAnswer.eThen = T_Answer::CLOSE;
    m_tCall.bError = true;
    m_tCall.sResult = "failed: " + p_sWhy;
  }

  void Send() {
    if (m_tAnswer.sBytes.empty()) return OnSent(Error(), 0);
    SetDeadline();
    asio::async_write(
        m_cSocket, asio::buffer(m_tAnswer.sBytes),
        [pSelf = shared_from_this()](const Error& p_cError, size_t p_iLen) { pSelf->OnSent(p_cError, p_iLen); });
  }

  void OnSent(const Error& p_cError, size_t p_iLen) {
    if (p_cError) Fail("reply not sent: " + (m_bLate ? "it was not taken in time" : p_cError.message()));
    m_tCall.iOut = p_iLen;
    m_cServer.Log().Call(m_tCall);
    m_tAnswer.sBytes = std::string();
    Error cIgnored;
    switch (m_tAnswer.eThen) {
      case T_Answer::READ_NEXT:
        if (!m_cServer.IsStopping()) {
          ReadHeader();
          break;
        }
        [[fallthrough]];
      case T_Answer::REFUSE:    // without an answer already
      case T_Answer::CLOSE: End(); break;
      case T_Answer::RESET:
        m_cSocket.set_option(asio::socket_base::linger(true, 0), cIgnored);
        Close();
        break;
      case T_Answer::STALL: Hold(); break;
    }
    m_cServer.CallEnds();
  }
};

// One waiting connection is one descriptor.
void RaiseDescriptorLimit() {
  rlimit tLimit{};
  if (getrlimit(RLIMIT_NOFILE, &tLimit) == 0 && tLimit.rlim_cur < tLimit.rlim_max) {
    tLimit.rlim_cur = tLimit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &tLimit);    // when it fails, fewer can wait
  }
}

void CServer::Listen() {
  Error cError;
  tcp::resolver cResolver(m_cContext);
  const auto cFound = cResolver.resolve(tcp::v4(), m_tOptions.sHost, std::to_string(m_tOptions.iPort),
                                        tcp::resolver::passive | tcp::resolver::numeric_service, cError);
  const std::string sPlace = m_tOptions.sHost + ' ' + std::to_string(m_tOptions.iPort);
  if (cError) throw CFailure("listen on " + sPlace + ": " + cError.message());
  const tcp::endpoint cPlace = cFound.begin()->endpoint();
  m_cAcceptor.open(cPlace.protocol(), cError);
  if (!cError) m_cAcceptor.set_option(tcp::acceptor::reuse_address(true), cError);
  if (!cError) m_cAcceptor.bind(cPlace, cError);
  if (!cError) m_cAcceptor.listen(tcp::acceptor::max_listen_connections, cError);
  if (cError) throw CFailure("listen on " + sPlace + ": " + cError.message());
  const tcp::endpoint cBound = m_cAcceptor.local_endpoint();
  std::cout << "listening on " << cBound.address().to_string() << ' ' << cBound.port() << std::endl;
  if (!std::cout) throw CFailure("standard output cannot be written");    // whoever started it waits for this line
}

void CServer::Accept() {
  m_cAcceptor.async_accept(asio::make_strand(m_cContext), [this](const Error& p_cError, tcp::socket p_cSocket) {
    if (m_bStopping) return;
    if (!p_cError) {
      m_bAcceptFails = false;
      Error cIgnored;
      p_cSocket.set_option(tcp::no_delay(true), cIgnored);
      std::make_shared<CConnection>(std::move(p_cSocket), *this)->Start();
      return Accept();
    }
    if (!m_bAcceptFails) m_cLog.Line("accept: " + p_cError.message());
    m_bAcceptFails = true;
    m_cRetry.expires_after(std::chrono::milliseconds(100));    // out of descriptors, say: others will close theirs
    m_cRetry.async_wait([this](const Error&) { Accept(); });
  });
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
  m_cLog.UpdateStatus();
  m_cSecond.expires_after(std::chrono::seconds(1));
  m_cSecond.async_wait([this](const Error&) { ShowStatus(); });
}

void CServer::Stop() {
  Error cIgnored;
  m_cAcceptor.close(cIgnored);
  m_bStopping = true;
  if (m_iBusy == 0) return m_cContext.stop();
  m_cGrace.expires_after(STOP_GRACE);
  m_cGrace.async_wait([this](const Error&) { m_cContext.stop(); });
  AtNextSignal([this] { m_cContext.stop(); });
}

void CServer::Work() {
  for (;;) {
    try {
      m_cContext.run();
      return;
    } catch (const std::exception& cError) {    // out of memory: the connection is lost, the others go on
      m_cLog.Line(std::string("failed: ") + cError.what());
    }
  }
}

void CServer::Run() {
  TakeSignals();
  Listen();
  Accept();
  if (m_cLog.HasStatus()) ShowStatus();
  const unsigned iProcessors = std::max(1u, std::thread::hardware_concurrency());
  const unsigned iThreads = m_tOptions.iThreads > 0 ? static_cast<unsigned>(m_tOptions.iThreads) : iProcessors;
  std::vector<std::thread> aThreads;
  aThreads.reserve(iThreads);
  try {
    for (unsigned i = 1; i < iThreads; ++i) aThreads.emplace_back([this] { Work(); });
  } catch (const std::system_error& cError) {    // the others do the work
    m_cLog.Line("only " + std::to_string(aThreads.size() + 1) + " threads: " + cError.what());
  }
  Work();
  for (std::thread& cThread : aThreads) cThread.join();
  m_cLog.Summary();
}

}    // namespace

void Serve(const T_ServeOptions& p_tOptions) {
  std::signal(SIGPIPE, SIG_IGN);    // whoever read the log or the standard output has gone
  RaiseDescriptorLimit();
  CServer(p_tOptions).Run();
}
