// Why a call failed on its way, in the system's words.
#include "call/connection_words.h"

#include <callorv/net/adaptor.h>

#include <asio.hpp>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>
#include <utility>

#include "common/refusal.h"
#include "common/text.h"

namespace {

using asio::ip::tcp;

enum { SEND_TIME_OUT = 90 };      // seconds, of the library
constexpr double PATIENCE = 20;    // seconds; a connection that took longer to fail is not tried again ...
constexpr auto PROBE = std::chrono::seconds(5);    // ... and another attempt takes no longer

std::string Words(int p_iErrno) { return std::generic_category().message(p_iErrno); }

// What a failed call says of its connection.
struct T_Reason {
  std::string sWords;
  int iErrno = 0;
};

bool IsText(const std::string& p_sText, int p_iCode) {
  const std::string sBegin = ADAPT_GetErrorStr(p_iCode) + ('(' + std::to_string(p_iCode)) + ')';
  return p_sText.compare(0, sBegin.size(), sBegin) == 0;
}

// The error number in the library's text.
int ErrnoIn(const std::string& p_sText) {
  if (IsText(p_sText, ADAPT_CLOSED) && p_sText.find(Words(ECONNRESET)) != std::string::npos) return ECONNRESET;
  const size_t iAt = p_sText.find("errno=");
  int iErrno = 0;
  if (iAt != std::string::npos) std::from_chars(&p_sText[iAt + 6], p_sText.data() + p_sText.size(), iErrno);
  return iErrno;
}

// The host's first address of a kind, "" when it has none.
std::string Resolve(const std::string& p_sHost, const tcp& p_cKind, asio::error_code& p_cError) {
  asio::io_context cContext;
  const auto cFound = tcp::resolver(cContext).resolve(p_cKind, p_sHost, "", p_cError);
  return p_cError || cFound.empty() ? "" : cFound.begin()->endpoint().address().to_string();
}

T_Reason WhyNoAddress(const std::string& p_sHost, const asio::error_code& p_cError) {
  asio::error_code cIgnored;
  const std::string sOther = Resolve(p_sHost, tcp::v6(), cIgnored);
  if (!sOther.empty()) return {"only an IPv6 address (" + sOther + "), and calls go over IPv4 only", 0};
  return {p_cError == asio::error::host_not_found ? "no such host" : p_cError.message(), 0};
}

T_Reason WhyNotConnected(const std::string& p_sAddress, int p_iPort, double p_dSeconds) {
  asio::io_context cContext;
  tcp::socket cSocket(cContext);
  asio::error_code cError = asio::error::timed_out;
  if (p_dSeconds <= PATIENCE) {
    cSocket.async_connect({asio::ip::make_address(p_sAddress), static_cast<unsigned short>(p_iPort)},
                          [&](const asio::error_code& p_cError) { cError = p_cError; });
    cContext.run_for(PROBE);
  }
  if (cError == asio::error::timed_out) {
    const std::string sAfter = p_dSeconds > 0 ? " after " + std::to_string(static_cast<int>(p_dSeconds)) + " s" : "";
    return {Words(ETIMEDOUT) + sAfter, ETIMEDOUT};
  }
  if (!cError) return {"no connection at first, but now there is one: try again", 0};
  if (cError == asio::error::connection_refused) return {cError.message() + "; nobody listens there", cError.value()};
  return {cError.message(), cError.value()};
}

T_Reason WhyNotSent(const std::string& p_sText) {
  if (IsText(p_sText, ADAPT_TIMEOUT)) {
    return {"nothing more of the request was taken for " + std::to_string(SEND_TIME_OUT) + " s", 0};
  }
  const int iErrno = ErrnoIn(p_sText);
  return {iErrno == 0 ? "" : Words(iErrno), iErrno};
}

T_Reason WhyNoReply(const std::string& p_sText, int p_iTimeOut) {
  const std::string sSeconds = std::to_string(p_iTimeOut) + " s";
  if (IsText(p_sText, ADAPT_TIMEOUT)) return {"no reply within " + sSeconds, 0};
  if (IsText(p_sText, ADAPT_CORRUPTED)) return {"the reply stopped in the middle for " + sSeconds, 0};
  if (const int iErrno = ErrnoIn(p_sText)) return {Words(iErrno), iErrno};
  if (IsText(p_sText, ADAPT_CLOSED)) return {"the connection was closed before the reply was complete", 0};
  if (IsText(p_sText, ADAPT_HEADER)) return {"what answers does not speak the protocol", 0};
  if (IsText(p_sText, ADAPT_CHECKSUM) || IsText(p_sText, ADAPT_COMPRESSION)) return {"the reply is damaged", 0};
  return {};
}

// Of a call with a deadline, whose text is "Socket timeout(-8)((body, 400 ms))": what it was doing, and the
// milliseconds.
T_Reason WhyTooLate(const std::string& p_sText) {
  static constexpr std::pair<const char*, const char*> s_aszDoing[] = {{"((connect, ", "connecting"},
                                                                       {"((send, ", "sending the request"},
                                                                       {"((header, ", "waiting for the reply"},
                                                                       {"((body, ", "reading the reply"},
                                                                       {"((checksum, ", "reading the reply"}};
  if (!IsText(p_sText, ADAPT_TIMEOUT)) return {};
  for (const auto& [szAt, szDoing] : s_aszDoing) {
    const size_t iAt = p_sText.find(szAt);
    if (iAt == std::string::npos) continue;
    const size_t iTime = p_sText.find(' ', iAt) + 1;
    return {"the " + p_sText.substr(iTime, p_sText.find(')', iTime) - iTime) + " were over while " + szDoing, 0};
  }
  return {};
}

}    // namespace

bool IsConnectionText(const std::string& p_sText) {
  for (int i = ADAPT_MEMORY; i >= ADAPT_CORRUPTED; --i) {
    if (IsText(p_sText, i)) return true;
  }
  return false;
}

std::string AddressOf(const T_Server& p_tServer) {
  asio::error_code cIgnored;
  const std::string sAddress = Resolve(p_tServer.sHost, tcp::v4(), cIgnored);
  return (sAddress.empty() ? p_tServer.sHost : sAddress) + ':' + std::to_string(p_tServer.iPort);
}

void ExplainConnection(const T_Server& p_tServer, double p_dSeconds, T_CallError& p_tError) {
  static constexpr E_CallStage s_aStage[] = {CALL_REQUEST, CALL_REQUEST, CALL_REQUEST, CALL_CONNECT,
                                             CALL_SEND,    CALL_RECEIVE, CALL_REPLY,   CALL_REPLY};
  const std::string sPort = ':' + std::to_string(p_tServer.iPort);
  asio::error_code cError;
  const std::string sAddress = Resolve(p_tServer.sHost, tcp::v4(), cError);
  p_tError.eStage = s_aStage[-p_tError.iCode];
  p_tError.sAddress = (sAddress.empty() ? p_tServer.sHost : sAddress) + sPort;
  T_Reason tReason = WhyTooLate(p_tError.sText);
  if (!tReason.sWords.empty()) {
    // the deadline says it all
  } else if (p_tError.eStage == CALL_CONNECT && sAddress.empty()) {
    tReason = WhyNoAddress(p_tServer.sHost, cError);
  } else if (p_tError.eStage == CALL_CONNECT && IsText(p_tError.sText, ADAPT_CONNECT)) {
    tReason = WhyNotConnected(sAddress, p_tServer.iPort, p_dSeconds);
  } else if (p_tError.eStage == CALL_SEND) {
    tReason = WhyNotSent(p_tError.sText);
  } else if (p_tError.eStage == CALL_RECEIVE) {
    tReason = WhyNoReply(p_tError.sText, p_tServer.iTimeOut);
  } else if (p_tError.eStage == CALL_REPLY) {
    tReason.sWords = "the reply is no message of this dictionary";
  }
  std::string sPlace = p_tServer.sHost + sPort;
  if (!sAddress.empty() && sAddress != p_tServer.sHost) sPlace += " (" + sAddress + ')';
  p_tError.iErrno = tReason.iErrno;
  p_tError.sText = Refusal(sPlace, tReason.sWords, p_tError.sText);
}

void ExplainFailure(int p_iRet, const CCallOrvError& p_cError, const T_Server& p_tServer, double p_dSeconds,
                    T_CallError& p_tError) {
  p_tError.iCode = p_cError.GetCode();
  p_tError.sText = p_cError.GetText().ToStr();
  if (p_iRet == -3) return ExplainConnection(p_tServer, p_dSeconds, p_tError);
  p_tError.eStage = CALL_REPLY;
  p_tError.sAddress = AddressOf(p_tServer);
  p_tError.bRejected = p_iRet == -4;
  p_tError.iService = p_cError.GetRefSvcNum();
  p_tError.sText = ToUtf8(p_tError.sText);
}
