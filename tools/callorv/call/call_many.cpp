// Many calls, which are measured.
#include "call/call_many.h"

#include <callorv/callorv.hpp>

#include <functional>
#include <iostream>
#include <memory>

#include "call/call_error.h"
#include "call/connection_words.h"
#include "call/measure.h"
#include "call/measurement_out.h"
#include "call/request.h"
#include "command.h"
#include "common/text.h"

namespace {

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

// The request of the call with this number.
using CRequestOf = std::function<std::shared_ptr<CMsg>(uint64_t p_uCall)>;

// Calls that one thread makes. Each has a reply of its own, as a message keeps what it held before.
T_Caller MakeCaller(const T_CallOptions& p_tOptions, const CRequestOf& p_fnRequest) {
  const int iService = p_tOptions.iService, iDeadline = p_tOptions.iDeadline;
  T_Caller tCaller;
  tCaller.fnCall = [=](uint64_t p_uCall, std::string& p_sText) {
    const std::shared_ptr<CMsg> pRequest = p_fnRequest(p_uCall);
    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    CCallOrvError cError;
    const int iRet =
        iDeadline > 0 ? CCallOrv::CallServiceByMsgWithin(iService, pRequest.get(), &cReply, iDeadline, &cError)
                      : CCallOrv::CallServiceByMsg(iService, pRequest.get(), &cReply, &cError);
    return CodeOf(iRet, cError, p_sText);
  };
  tCaller.fnStart = [=](uint64_t p_uCall, CPendingCall& p_cCall, std::string& p_sText) {
    const std::shared_ptr<CMsg> pRequest = p_fnRequest(p_uCall);
    CCallOrvError cError;
    p_cCall = CCallOrv::Start(iService, pRequest.get(), iDeadline, &cError);
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
  if (!p_tOptions.tReport.sPath.empty()) CheckReportFolder(p_tOptions.tReport.sPath);
  const CRequestMaker cMaker(p_tOptions, p_sDocument);
  T_Measurement tResult = Measure(p_tOptions.tLoad, [&] {
    if (cMaker.Varies()) return MakeCaller(p_tOptions, [&](uint64_t p_uCall) { return cMaker.Make(p_uCall); });
    // A message belongs to one thread.
    return MakeCaller(p_tOptions, [pRequest = cMaker.Make(1)](uint64_t) { return pRequest; });
  });
  ExplainMeasurement(p_tServer, tResult);
  if (p_tOptions.sFormat == "json") {
    std::cout << MeasurementToJson(tResult, p_tOptions.tLoad).dump(2) << '\n';
  } else {
    PrintMeasurement(std::cout, tResult, p_tOptions.tLoad);
  }
  std::cout.flush();
  std::string sSaid;
  if (tResult.uFailed > 0) {
    sSaid = std::to_string(tResult.uFailed) + " of " + std::to_string(tResult.uCalls) + " calls failed";
  }
  if (p_tOptions.tReport.sPath.empty()) return sSaid;
  try {
    WriteReport(p_tOptions.tReport, tResult, p_tOptions.tLoad);
  } catch (const CFailure& cError) {    // --json has printed its object
    sSaid += (sSaid.empty() ? "" : "; ") + std::string(cError.what());
  }
  return sSaid;
}
