// The counters over HTTP.
#include "serve/metrics_server.h"

#include <memory>
#include <string>
#include <string_view>

namespace {

using asio::ip::tcp;
using Error = asio::error_code;

constexpr size_t LONGEST = 8192;     // bytes of a request
constexpr int MOST_OPEN = 16;

struct T_Status {
  const char* szLine;
  const char* szMore;    // header lines
};
constexpr T_Status OK{"200 OK", ""};
constexpr T_Status BAD{"400 Bad Request", ""};
constexpr T_Status NOT_FOUND{"404 Not Found", ""};
constexpr T_Status NOT_ALLOWED{"405 Method Not Allowed", "Allow: GET\r\n"};
constexpr T_Status TOO_LARGE{"431 Request Header Fields Too Large", ""};

// The answer to a request, of which the first line counts.
T_Status StatusOf(std::string_view p_sRequest) {
  const std::string_view sLine = p_sRequest.substr(0, p_sRequest.find("\r\n"));
  const size_t iTarget = sLine.find(' ');
  const size_t iVersion = sLine.rfind(" HTTP/1.");
  if (iTarget == std::string_view::npos || iTarget == 0 || iVersion == std::string_view::npos || iVersion <= iTarget ||
      sLine.size() != iVersion + 9 || (sLine.back() != '0' && sLine.back() != '1')) {
    return BAD;
  }
  const std::string_view sTarget = sLine.substr(iTarget + 1, iVersion - iTarget - 1);
  for (const char c : sLine) {
    if (static_cast<unsigned char>(c) < ' ' || static_cast<unsigned char>(c) > '~') return BAD;
  }
  if (sTarget.find(' ') != std::string_view::npos) return BAD;
  if (sTarget.substr(0, sTarget.find('?')) != "/metrics") return NOT_FOUND;
  return sLine.substr(0, iTarget) == "GET" ? OK : NOT_ALLOWED;
}

}    // namespace

// One connection, which carries one request.
class CMetricsServer::CRequest : public std::enable_shared_from_this<CRequest> {
 public:
  CRequest(tcp::socket p_cSocket, CMetricsServer& p_cServer)
      : m_cMetrics(p_cServer.m_cMetrics),
        m_piOpen(p_cServer.m_piOpen),
        m_cSocket(std::move(p_cSocket)),
        m_cTimer(p_cServer.m_cContext) {
    ++*m_piOpen;
  }
  ~CRequest() { --*m_piOpen; }
  CRequest(const CRequest&) = delete;
  CRequest& operator=(const CRequest&) = delete;

  void Start(std::chrono::seconds p_tTimeOut) {
    m_cTimer.expires_after(p_tTimeOut);
    m_cTimer.async_wait([pSelf = shared_from_this()](const Error& p_cError) {
      if (!p_cError) pSelf->Close();
    });
    asio::async_read_until(m_cSocket, asio::dynamic_buffer(m_sBytes, LONGEST), "\r\n\r\n",
                           [pSelf = shared_from_this()](const Error& p_cError, size_t) { pSelf->OnRequest(p_cError); });
  }

 private:
  const CMetrics& m_cMetrics;
  const std::shared_ptr<int> m_piOpen;
  tcp::socket m_cSocket;
  asio::steady_timer m_cTimer;
  std::string m_sBytes;

  void Close() {
    Error cIgnored;
    m_cTimer.cancel();
    m_cSocket.close(cIgnored);
  }

  void OnRequest(const Error& p_cError) {
    if (!m_cSocket.is_open() || m_sBytes.empty()) return Close();
    if (p_cError == asio::error::not_found) return Answer(TOO_LARGE);
    Answer(p_cError ? BAD : StatusOf(m_sBytes));
  }

  void Answer(const T_Status& p_tStatus) {
    const bool bOk = p_tStatus.szLine == OK.szLine;
    const std::string sBody = bOk ? m_cMetrics.Text() : std::string(p_tStatus.szLine) + '\n';
    const char* szType = bOk ? "text/plain; version=0.0.4; charset=utf-8" : "text/plain; charset=utf-8";
    m_sBytes = std::string("HTTP/1.1 ") + p_tStatus.szLine + "\r\nContent-Type: " + szType +
               "\r\nContent-Length: " + std::to_string(sBody.size()) + "\r\nConnection: close\r\n" + p_tStatus.szMore +
               "\r\n" + sBody;
    asio::async_write(m_cSocket, asio::buffer(m_sBytes), [pSelf = shared_from_this()](const Error& p_cError, size_t) {
      Error cIgnored;
      pSelf->m_cSocket.shutdown(tcp::socket::shutdown_send, cIgnored);
      p_cError ? pSelf->Close() : pSelf->Drain();
    });
  }

  // Until the peer has seen the end, or the deadline passes: what is unread would reset the connection.
  void Drain() {
    m_cSocket.async_read_some(asio::buffer(m_sBytes), [pSelf = shared_from_this()](const Error& p_cError, size_t) {
      p_cError ? pSelf->Close() : pSelf->Drain();
    });
  }
};

void CMetricsServer::Accept() {
  m_cAcceptor.async_accept([this](const Error& p_cError, tcp::socket p_cSocket) {
    if (p_cError == asio::error::operation_aborted) return;
    if (p_cError) {    // out of descriptors, say: others will close theirs
      m_cRetry.expires_after(std::chrono::milliseconds(100));
      return m_cRetry.async_wait([this](const Error&) { Accept(); });
    }
    const bool bRoom = *m_piOpen < MOST_OPEN;
    const auto pRequest = bRoom ? std::make_shared<CRequest>(std::move(p_cSocket), *this) : nullptr;
    if (bRoom) pRequest->Start(m_tTimeOut);
    Accept();
  });
}
