// One client of the simulated service.
#include "serve/connection.h"

#include <callorv/base/exception.h>
#include <callorv/net/tcp_adaptor.h>

#include <algorithm>

#include "common/packet_view.h"

namespace {

constexpr size_t HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
constexpr size_t MAX_PACKET = 64 << 20;    // bytes, sent or decompressed; a longer one is refused
constexpr size_t FIRST_READ = 1024;        // bytes; most requests are shorter, and a waiting connection holds that much
constexpr size_t READ_STEP = 64 << 10;     // bytes; room grows with what a peer really sends

}    // namespace

CService::CService(const T_ServeOptions& p_tOptions)
    : m_tOptions(p_tOptions), m_cLog(p_tOptions.bQuiet, m_cMetrics), m_cAnswerer(p_tOptions, m_cLog) {}

void CService::Stop(std::function<void()> p_fnIdle) {
  m_fnIdle = std::move(p_fnIdle);
  m_bStopping = true;
  if (m_iBusy == 0) m_fnIdle();
}

CConnection::CConnection(asio::ip::tcp::socket p_cSocket, std::string p_sPeer, CService& p_cService,
                         T_Worker& p_tWorker)
    : m_cService(p_cService),
      m_tWorker(p_tWorker),
      m_cSocket(std::move(p_cSocket)),
      m_cTimer(p_tWorker.cContext),
      m_cDelay(p_tWorker.cContext),
      m_sPeer(std::move(p_sPeer)) {
  ++m_tWorker.iOpen;
  m_cService.Metrics().Opened();
}

CConnection::~CConnection() {
  m_cService.Metrics().Closed();
  --m_tWorker.iOpen;
}

void CConnection::Start() {
  asio::dispatch(m_cSocket.get_executor(), [pSelf = shared_from_this()] { pSelf->ReadFirst(); });
}

void CConnection::SetDeadline() {
  m_bLate = false;
  m_tDeadline = Clock::now() + std::chrono::seconds(m_cService.Options().iReadTimeOut);
  if (!m_bTimed) RunTimer();
}

void CConnection::RunTimer() {
  m_bTimed = true;
  m_cTimer.expires_at(m_tDeadline);
  m_cTimer.async_wait([pSelf = shared_from_this()](const Error& p_cError) {
    pSelf->m_bTimed = false;
    if (!p_cError) pSelf->OnTimer();
  });
}

// What is cancelled says so in the log, and only then the peer sees the end.
void CConnection::OnTimer() {
  if (m_tDeadline == NEVER) return;
  if (Clock::now() >= m_tDeadline) {
    m_bLate = true;
    Error cIgnored;
    m_cSocket.cancel(cIgnored);
    // It may have been between two parts of what it reads or writes.
    m_tDeadline = Clock::now() + std::chrono::milliseconds(10);
  }
  RunTimer();
}

void CConnection::Close() {
  Error cIgnored;
  TakeDeadlineAway();
  m_cTimer.cancel();
  m_cSocket.close(cIgnored);
}

void CConnection::Refuse(const std::string& p_sWhy) {
  m_cService.Log().Refused(m_sPeer, p_sWhy);
  End();
}

// Lets the peer see the end of the bytes, not a reset, which bytes that were not read would cause.
void CConnection::End() {
  Error cIgnored;
  m_cSocket.shutdown(asio::ip::tcp::socket::shutdown_send, cIgnored);
  Hold();
}

// Keeps the connection, silently, until the peer closes or the deadline passes.
void CConnection::Hold() {
  m_sPacket.resize(READ_STEP);
  SetDeadline();
  Drain();
}

void CConnection::Drain() {
  m_cSocket.async_read_some(asio::buffer(m_sPacket), [pSelf = shared_from_this()](const Error& p_cError, size_t) {
    p_cError ? pSelf->Close() : pSelf->Drain();
  });
}

std::string CConnection::WhyEnded(const Error& p_cError) const {
  if (m_bLate) return "nothing more within " + std::to_string(m_cService.Options().iReadTimeOut) + " s";
  return p_cError == asio::error::eof ? "the connection was closed" : p_cError.message();
}

// The first request is nearly always there already. What is read at once saves the way through the queue of handlers.
void CConnection::ReadFirst() {
  SetDeadline();
  Error cError;
  m_sPacket.resize(FIRST_READ);
  const size_t iLen = m_cSocket.read_some(asio::buffer(m_sPacket), cError);
  if (cError == asio::error::would_block) return ReadSome();
  OnSome(cError, iLen);
}

// The next request, of which the beginning may have come with the one before.
void CConnection::ReadRequest() {
  SetDeadline();
  if (m_iHave == 0) return ReadSome();
  asio::post(m_cSocket.get_executor(), [pSelf = shared_from_this()] { pSelf->OnBytes(); });
}

void CConnection::ReadSome() {
  if (m_sPacket.size() == m_iHave) m_sPacket.resize(std::max(m_iHave + 1, FIRST_READ));
  m_cSocket.async_read_some(
      asio::buffer(&m_sPacket[m_iHave], m_sPacket.size() - m_iHave),
      [pSelf = shared_from_this()](const Error& p_cError, size_t p_iLen) { pSelf->OnSome(p_cError, p_iLen); });
}

void CConnection::OnSome(const Error& p_cError, size_t p_iLen) {
  const bool bHeader = m_iHave < HEADER_SIZE;
  m_iHave += p_iLen;
  if (!p_cError) {
    if (bHeader && m_iHave >= HEADER_SIZE) SetDeadline();    // as long again for the rest
    return OnBytes();
  }
  if (m_iHave == 0) return Close();    // between two requests: nothing is wrong
  const std::string sHave = std::to_string(m_iHave);
  if (bHeader) return Refuse(sHave + " bytes of a header, then " + WhyEnded(p_cError));
  Refuse(sHave + " of " + std::to_string(PacketSize({m_sPacket.data(), HEADER_SIZE})) + " bytes, then " +
         WhyEnded(p_cError));
}

// Goes on with what has come.
void CConnection::OnBytes() {
  if (m_iHave < HEADER_SIZE) return ReadSome();
  const std::string_view sHeader(m_sPacket.data(), HEADER_SIZE);
  const std::vector<std::string> asWrong = CheckHeader(sHeader);
  if (!asWrong.empty()) return Refuse(asWrong[0]);
  const size_t iSize = PacketSize(sHeader);
  const size_t iLongest = std::max(iSize, BodySize(sHeader));
  if (iLongest > MAX_PACKET) return Refuse(std::to_string(iLongest) + " bytes are too many");
  if (m_iHave >= iSize) return TakeRequest(iSize);
  m_sPacket.resize(m_iHave + std::min(iSize - m_iHave, std::max(m_iHave, READ_STEP)));
  ReadSome();
}

void CConnection::TakeRequest(size_t p_iSize) {
  TakeDeadlineAway();
  std::string sPacket;
  sPacket.swap(m_sPacket);    // a waiting connection holds no room
  if (m_iHave > p_iSize) m_sPacket.assign(sPacket, p_iSize, m_iHave - p_iSize);
  m_iHave = m_sPacket.size();
  sPacket.resize(p_iSize);
  Answer(sPacket);
}

void CConnection::Answer(const std::string& p_sPacket) {
  m_cService.CallBegins();
  m_tCall = T_CallRecord();
  m_tCall.tStart = Clock::now();
  m_tCall.sPeer = m_sPeer;
  m_tCall.iIn = p_sPacket.size();
  m_tAnswer = T_Answer();
  try {
    m_tAnswer = m_cService.Answerer().Answer(p_sPacket, m_tCall);
  } catch (const CException& cError) {
    Fail(cError.GetText());
  } catch (const std::exception& cError) {
    Fail(cError.what());
  }
  if (m_tAnswer.eThen == T_Answer::REFUSE) {
    m_cService.CallEnds();
    return Refuse(m_tCall.sResult);
  }
  if (m_tAnswer.tDelay.count() == 0) return Send();
  m_cDelay.expires_after(m_tAnswer.tDelay);
  m_cDelay.async_wait([pSelf = shared_from_this()](const Error&) { pSelf->Send(); });
}

void CConnection::Fail(const std::string& p_sWhy) {
  m_tAnswer.eThen = T_Answer::CLOSE;
  m_tCall.eError = ERROR_FAILED;
  m_tCall.sResult = "failed: " + p_sWhy;
}

void CConnection::Send() {
  Error cError;
  const std::string& sBytes = m_tAnswer.sBytes;
  // Nearly always all of it goes at once.
  const size_t iSent = sBytes.empty() ? 0 : m_cSocket.write_some(asio::buffer(sBytes), cError);
  if (iSent == sBytes.size() || (cError && cError != asio::error::would_block)) return OnSent(cError, iSent);
  SetDeadline();
  asio::async_write(m_cSocket, asio::buffer(&sBytes[iSent], sBytes.size() - iSent),
                    [pSelf = shared_from_this(), iSent](const Error& p_cError, size_t p_iLen) {
                      pSelf->OnSent(p_cError, iSent + p_iLen);
                    });
}

void CConnection::OnSent(const Error& p_cError, size_t p_iLen) {
  if (p_cError) Fail("reply not sent: " + (m_bLate ? "it was not taken in time" : p_cError.message()));
  m_tCall.iOut = p_iLen;
  m_tCall.tTaken = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_tCall.tStart);
  m_cService.Log().Call(m_tCall);
  m_tAnswer.sBytes = std::string();
  Error cIgnored;
  switch (m_tAnswer.eThen) {
    case T_Answer::READ_NEXT:
      if (!m_cService.IsStopping()) {
        ReadRequest();
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
  m_cService.CallEnds();
}
