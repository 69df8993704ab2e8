// A captured call for people and as JSON.
#include "decode/call_line.h"

#include <callorv/base/str.h>

#include <climits>
#include <ctime>

#include "common/text.h"

namespace {

constexpr int64_t BILLION = 1000000000;

// "2026-11-23T05:01:07.123456Z", "-" when the capture does not tell.
std::string TimeText(const T_Moment& p_t) {
  if (!p_t.bKnown) return "-";
  const int64_t iRest = (p_t.iNano % BILLION + BILLION) % BILLION;
  const auto iSeconds = static_cast<time_t>((p_t.iNano - iRest) / BILLION);
  struct tm tTime = {};
  char szTime[40] = "";
  if (gmtime_r(&iSeconds, &tTime) == nullptr) return "-";
  strftime(szTime, sizeof(szTime), "%Y-%m-%dT%H:%M:%S", &tTime);
  const auto iNano = static_cast<int>(iRest);
  return szTime + std::string((p_t.bNano ? CFormat(".%09dZ", iNano) : CFormat(".%06dZ", iNano / 1000)).ToStr());
}

// Nanoseconds from the end of the request to the end of the reply; whether both are known.
bool Latency(const T_Call& p_tCall, int64_t& p_iNano) {
  if (!p_tCall.tRequest || !p_tCall.tReply) return false;
  const T_Moment &tFrom = p_tCall.tRequest->tLast, &tTo = p_tCall.tReply->tLast;
  p_iNano = tTo.iNano - tFrom.iNano;
  return tFrom.bKnown && tTo.bKnown;
}

std::string PacketText(const T_Packet& p_t) {
  const std::string sBytes = Counted(static_cast<size_t>(p_t.iSize), "byte");
  return p_t.bPacket ? "message " + std::to_string(p_t.iMessage) + ", " + sBytes : sBytes;
}

std::string OutcomeText(const T_Call& p_tCall) {
  const std::string sName = OutcomeName(p_tCall.eOutcome);
  if (p_tCall.eOutcome == T_Call::REPLY) return sName + ": " + PacketText(*p_tCall.tReply);
  if (p_tCall.eOutcome != T_Call::REJECTED) return sName + ": " + PrintableFailure(p_tCall.sWhy);
  const T_Packet& tReply = *p_tCall.tReply;
  return sName + ": " + PrintableFailure(tReply.sCode) + " (" + PrintableFailure(tReply.sReason) + ")";
}

nlohmann::ordered_json EndAsJson(const T_End& p_t) {
  return {{"address", p_t.Address()}, {"port", p_t.iPort}};
}

nlohmann::ordered_json PacketAsJson(const std::optional<T_Packet>& p_t) {
  if (!p_t) return nullptr;
  nlohmann::ordered_json cPacket;
  const std::string sTime = TimeText(p_t->tFirst);
  if (sTime == "-") {
    cPacket["time"] = nullptr;
  } else {
    cPacket["time"] = sTime;
  }
  cPacket["message"] = p_t->iMessage;
  cPacket["size"] = p_t->iSize;
  cPacket["wrong"] = p_t->asWrong;
  if (p_t->pDetail != nullptr) cPacket["packet"] = *p_t->pDetail;
  return cPacket;
}

}    // namespace

const char* OutcomeName(T_Call::E_Outcome p_eOutcome) {
  constexpr const char* s_aszName[T_Call::OUTCOMES] = {"reply", "rejected", "no reply", "damaged"};
  return s_aszName[p_eOutcome];
}

std::string CallLine(const T_Call& p_tCall) {
  std::string sLine = TimeText(p_tCall.Any().tFirst) + "  " + p_tCall.tClient.ToText() + " > " +
                      p_tCall.tServer.ToText() + "  service " + std::to_string(p_tCall.Any().iService) + "  " +
                      (p_tCall.tRequest ? PacketText(*p_tCall.tRequest) : "request not in the capture");
  int64_t iNano = 0;
  if (Latency(p_tCall, iNano)) sLine += CFormat("  %.3f ms", static_cast<double>(iNano) / 1e6).ToStr();
  return sLine + "  " + OutcomeText(p_tCall) + '\n';
}

nlohmann::ordered_json CallAsJson(const T_Call& p_tCall) {
  nlohmann::ordered_json cCall{{"client", EndAsJson(p_tCall.tClient)},
                               {"server", EndAsJson(p_tCall.tServer)},
                               {"service", p_tCall.Any().iService},
                               {"outcome", OutcomeName(p_tCall.eOutcome)},
                               {"why", nullptr},
                               {"latency_us", nullptr},
                               {"rejection", nullptr},
                               {"request", PacketAsJson(p_tCall.tRequest)},
                               {"reply", PacketAsJson(p_tCall.tReply)}};
  if (!p_tCall.sWhy.empty()) cCall["why"] = p_tCall.sWhy;
  int64_t iNano = 0;
  if (Latency(p_tCall, iNano)) cCall["latency_us"] = static_cast<double>(iNano) / 1e3;
  if (p_tCall.eOutcome == T_Call::REJECTED) {
    int iCode = 0;
    nlohmann::ordered_json& cRejection = cCall["rejection"] = {{"code", nullptr}, {"text", p_tCall.tReply->sReason}};
    if (ParseNumber(p_tCall.tReply->sCode, INT_MIN, INT_MAX, iCode)) cRejection["code"] = iCode;
  }
  return cCall;
}
