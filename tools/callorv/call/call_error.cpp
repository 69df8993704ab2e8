// What is known of a call that fails.
#include "call/call_error.h"

using Json = nlohmann::ordered_json;

Json ErrorToJson(const T_CallError& p_tError) {
  static constexpr const char* s_szaStage[] = {"config",  "key",  "dictionary", "request",
                                               "connect", "send", "receive",    "reply"};
  return {{"code", p_tError.iCode},
          {"text", p_tError.sText},
          {"service", p_tError.iService},
          {"rejected", p_tError.bRejected},
          {"stage", s_szaStage[p_tError.eStage]},
          {"address", p_tError.sAddress.empty() ? Json() : Json(p_tError.sAddress)},
          {"errno", p_tError.iErrno == 0 ? Json() : Json(p_tError.iErrno)}};
}

std::string ToJson(const T_CallError& p_tError) { return Json{{"error", ErrorToJson(p_tError)}}.dump(2) + '\n'; }
