// Many calls with one request, which are measured.
#include "call/call_many.h"

#include <callorv/callorv.hpp>

#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "call/call_error.h"
#include "call/connection_words.h"
#include "call/measure.h"
#include "call/request.h"
#include "common/text.h"

namespace {

using Json = nlohmann::ordered_json;

void PrintMeasurement(const T_Measurement& p_t, bool p_bJson) {
  const double dRate = p_t.iCalls / std::max(p_t.dSeconds, 1e-6);
  if (p_bJson) {
    Json cFailures = Json::array();
    for (const auto& [iCode, tFailure] : p_t.cFailures) {
      cFailures.push_back({{"code", iCode}, {"text", ToUtf8(tFailure.sText)}, {"count", tFailure.iCount}});
    }
    Json cAll{{"calls", p_t.iCalls},
              {"threads", p_t.iThreads},
              {"seconds", p_t.dSeconds},
              {"calls_per_second", dRate},
              {"latency_us",
               {{"p50", p_t.Percentile(50)},
                {"p90", p_t.Percentile(90)},
                {"p99", p_t.Percentile(99)},
                {"max", p_t.Percentile(100)}}},
              {"failed", p_t.iFailed},
              {"errors", cFailures}};
    if (p_t.iInFlight > 0) cAll["in_flight"] = p_t.iInFlight;
    std::cout << cAll.dump(2) << '\n';
    return;
  }
  const auto fnMillis = [&](double p_dPercent) { return CFormat("%.3f ms", p_t.Percentile(p_dPercent) / 1000.0); };
  const CString sInFlight = p_t.iInFlight > 0 ? CFormat(", %d in flight each,", p_t.iInFlight) : CString();
  std::cout << Counted(static_cast<size_t>(p_t.iCalls), "call") << " from "
            << Counted(static_cast<size_t>(p_t.iThreads), "thread")
            << CFormat("%s in %.3f s: %.0f calls/s\n", sInFlight.ToStr(), p_t.dSeconds, dRate).ToStr()
            << "latency  50 % " << fnMillis(50).ToStr() << "  90 % " << fnMillis(90).ToStr() << "  99 % "
            << fnMillis(99).ToStr() << "  max " << fnMillis(100).ToStr() << '\n';
  for (const auto& [iCode, tFailure] : p_t.cFailures) {
    std::cout << tFailure.iCount << " x " << iCode << "  " << Printable(tFailure.sText, false) << '\n';
  }
}

// The texts of failures in the words of one call. What a server said by a rejection stays.
void ExplainMeasurement(const T_Server& p_tServer, T_Measurement& p_t) {
  for (auto& [iCode, tFailure] : p_t.cFailures) {
    if (iCode < -7 || iCode > -3 || !IsConnectionText(tFailure.sText)) continue;
    T_CallError tError;
    tError.iCode = iCode;
    tError.sText = tFailure.sText;
    ExplainConnection(p_tServer, 0, tError);
    tFailure.sText = tError.sText;
  }
}

// What a failed call counts as.
int CodeOf(int p_iRet, const CCallOrvError& p_cError, std::string& p_sText) {
  if (p_iRet == 0) return 0;
  p_sText = p_cError.GetText().ToStr();
  return p_cError.GetCode() != 0 ? p_cError.GetCode() : p_iRet;
}

// Calls that one thread makes with one request. Each has a reply of its own, as a message keeps what it held before.
T_Caller MakeCaller(const T_CallOptions& p_tOptions, const std::shared_ptr<CMsg>& p_pRequest) {
  const int iService = p_tOptions.iService, iDeadline = p_tOptions.iDeadline;
  T_Caller tCaller;
  tCaller.fnCall = [=](std::string& p_sText) {
    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    CCallOrvError cError;
    const int iRet =
        iDeadline > 0 ? CCallOrv::CallServiceByMsgWithin(iService, p_pRequest.get(), &cReply, iDeadline, &cError)
                      : CCallOrv::CallServiceByMsg(iService, p_pRequest.get(), &cReply, &cError);
    return CodeOf(iRet, cError, p_sText);
  };
  tCaller.fnStart = [=](CPendingCall& p_cCall, std::string& p_sText) {
    CCallOrvError cError;
    p_cCall = CCallOrv::Start(iService, p_pRequest.get(), iDeadline, &cError);
    return CodeOf(p_cCall ? 0 : -3, cError, p_sText);
  };
  tCaller.fnFinish = [](CPendingCall& p_cCall, std::string& p_sText) {
    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    CCallOrvError cError;
    return CodeOf(p_cCall.Finish(&cReply, &cError), cError, p_sText);
  };
  return tCaller;
}

}    // namespace

std::string CallMany(const T_CallOptions& p_tOptions, const std::string& p_sDocument, const T_Server& p_tServer) {
  MakeRequest(p_tOptions, p_sDocument);    // what is wrong with the request is said once
  T_Measurement tResult = Measure(p_tOptions.iRepeat, p_tOptions.iThreads, p_tOptions.iInFlight, [&] {
    return MakeCaller(p_tOptions, MakeRequest(p_tOptions, p_sDocument));    // a message belongs to one thread
  });
  ExplainMeasurement(p_tServer, tResult);
  PrintMeasurement(tResult, p_tOptions.sFormat == "json");
  std::cout.flush();
  if (tResult.iFailed == 0) return "";
  return std::to_string(tResult.iFailed) + " of " + std::to_string(tResult.iCalls) + " calls failed";
}
