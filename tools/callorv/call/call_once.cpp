// One call, whose reply is printed.
#include "call/call_once.h"

#include <callorv/callorv.hpp>

#include <chrono>
#include <iostream>

#include "call/connection_words.h"
#include "common/msg_json.h"
#include "call/request.h"
#include "command.h"
#include "common/packet_view.h"
#include "common/text.h"

namespace {

std::string RejectionText(const CCallOrvError& p_cError) {
  return "rejected by the server: Code=" + std::to_string(p_cError.GetCode()) +
         ", Text=" + Printable(p_cError.GetText().ToStr(), false) +
         ", RefSvcNum=" + std::to_string(p_cError.GetRefSvcNum());
}

void PrintTrace(const CCallOrv::T_Exchange& p_tExchange, bool p_bShowKey) {
  const auto fnPacket = [&](const char* p_szTitle, const CString& p_sHeader, const CStream& p_stBody) {
    if (p_sHeader.IsEmpty()) return;
    const std::string_view sHeader(p_sHeader.ToStr(), static_cast<size_t>(p_sHeader.GetSize()));
    const size_t iSize = CTcpAdaptor::HEADER_SIZE;
    std::cerr << p_szTitle << '\n';
    PrintHeader(std::cerr, sHeader.substr(0, iSize), sHeader.substr(std::min(sHeader.size(), iSize)), p_bShowKey);
    const std::string_view sBody(p_stBody.GetData(), static_cast<size_t>(p_stBody.GetSize()));
    std::cerr << "  body: " << Printable(sBody, true) << '\n';
  };
  fnPacket("request", p_tExchange.sSendHeader, p_tExchange.stSent);
  fnPacket("reply", p_tExchange.sRecvHeader, p_tExchange.stReceived);
}

void PrintReply(CMsg& p_cReply, const std::string& p_sFormat) {
  CStream stOut(0, 512);
  if (p_sFormat == "json") {
    std::cout << MsgToJson(p_cReply).dump(2) << '\n';
  } else if (p_sFormat == "xml") {
    p_cReply.DumpXml(&stOut, true, 1);
    std::cout.write(stOut.GetData(), stOut.GetSize());
  } else {
    p_cReply.Dump(&stOut, false, 1);
    std::cout << Printable({stOut.GetData(), static_cast<size_t>(stOut.GetSize())}, true);
  }
}

double SecondsSince(std::chrono::steady_clock::time_point p_tStart) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - p_tStart).count();
}

}    // namespace

void CallOnce(const T_CallOptions& p_tOptions, const std::string& p_sDocument, const T_Server& p_tServer,
              T_CallError& p_tError) {
  const auto pRequest = MakeRequest(p_tOptions, p_sDocument);
  WarnOfPlaceholders(p_tOptions, p_sDocument);
  CMsg cReply(0, 0, 0, MA_GetMsgDic());
  CCallOrvError cError;
  CCallOrv::T_Exchange tExchange;
  const auto tStart = std::chrono::steady_clock::now();
  const int iRet = p_tOptions.iDeadline > 0
                       ? CCallOrv::CallServiceByMsgWithin(p_tOptions.iService, pRequest.get(), &cReply,
                                                          p_tOptions.iDeadline, &cError)
                       : CCallOrv::CallServiceByMsg(p_tOptions.iService, pRequest.get(), &cReply, &cError,
                                                    p_tOptions.bTrace ? &tExchange : nullptr);
  const double dSeconds = SecondsSince(tStart);
  if (p_tOptions.bTrace) PrintTrace(tExchange, p_tOptions.bShowKey);
  if (iRet == 0) return PrintReply(cReply, p_tOptions.sFormat);
  ExplainFailure(iRet, cError, p_tServer, dSeconds, p_tError);
  throw CFailure(p_tError.bRejected ? RejectionText(cError) : p_tError.sText);
}
