// Faults that the simulator plays.
#include "serve/fault.h"

#include <climits>

#include "command.h"
#include "common/text.h"

namespace {

struct T_Kind {
  E_Fault eKind;
  const char* szName;
  int iMin, iMax, iDefault;    // of ARG; iMax below iMin: there is none
};
constexpr T_Kind s_atKinds[] = {
    {FAULT_DELAY, "delay", 0, 3600000, 1000},
    {FAULT_STALL, "stall", 0, INT_MAX, 128},
    {FAULT_TRUNCATE, "truncate", 0, INT_MAX, 64},
    {FAULT_CHECKSUM, "checksum", 0, -1, 0},
    {FAULT_ZLIB, "zlib", 0, -1, 0},
    {FAULT_RESET, "reset", 0, -1, 0},
    {FAULT_CLOSE, "close", 0, -1, 0},
    {FAULT_REJECT, "reject", INT_MIN, INT_MAX, 503},
};

}    // namespace

CFaults::CFaults(const std::vector<std::string>& p_asFaults) {
  for (const std::string& s : p_asFaults) m_aFaults.push_back(Parse(s));
}

CFaults::T_Fault CFaults::Parse(const std::string& p_sText) {
  const auto fnWrong = [&](const std::string& p_sWhy) { throw CFailure(p_sText + ": " + p_sWhy); };
  const size_t iAt = p_sText.find('@');
  int iPercent = 100;
  if (iAt != std::string::npos && !ParseNumber(p_sText.substr(iAt + 1), 1, 100, iPercent)) {
    fnWrong("the percentage must be 1 to 100");
  }
  const std::string sFault = p_sText.substr(0, iAt);
  const size_t iColon = sFault.find(':');
  const std::string sKind = sFault.substr(0, iColon);
  for (const T_Kind& tKind : s_atKinds) {
    if (sKind != tKind.szName) continue;
    int iArg = tKind.iDefault;
    if (iColon != std::string::npos) {
      if (tKind.iMax < tKind.iMin) fnWrong(sKind + " takes no argument");
      if (!ParseNumber(sFault.substr(iColon + 1), tKind.iMin, tKind.iMax, iArg)) {
        fnWrong("the argument must be " + std::to_string(tKind.iMin) + " to " + std::to_string(tKind.iMax));
      }
    }
    return {tKind.eKind, iArg, iPercent, 0};
  }
  fnWrong("the kinds are delay, stall, truncate, checksum, zlib, reset, close, reject");
  return {};
}

T_FaultPlan CFaults::Next() {
  T_FaultPlan tPlan;
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  for (T_Fault& tFault : m_aFaults) {
    const unsigned long long iBefore = tFault.iCalls++;
    if (iBefore * tFault.iPercent / 100 == tFault.iCalls * tFault.iPercent / 100) continue;
    if (tFault.eKind == FAULT_DELAY) {
      tPlan.iDelay += tFault.iArg;
      continue;
    }
    tPlan.eKind = tFault.eKind;
    tPlan.iArg = tFault.iArg;
    break;
  }
  return tPlan;
}

const char* CFaults::Name(E_Fault p_eKind) {
  for (const T_Kind& tKind : s_atKinds) {
    if (tKind.eKind == p_eKind) return tKind.szName;
  }
  return "none";
}
