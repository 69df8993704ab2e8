// callorv call: a service from the shell.
#include <callorv/callorv.hpp>

#include <chrono>
#include <climits>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "call/call_error.h"
#include "call/client_setup.h"
#include "call/connection_words.h"
#include "call/measure.h"
#include "call/msg_json.h"
#include "command.h"
#include "common/input.h"
#include "common/msg_file.h"
#include "common/msg_path.h"
#include "common/options.h"
#include "common/packet_view.h"
#include "common/text.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char s_szFooter[] =
    R"(SERVICE is a number; MESSAGE a message of the dictionary by number or by name; TAG a tag
by number or by name, with the index of an element in brackets behind an array's, and
further steps behind a dot inside a sub-message. An array tag may simply come again.

Examples:
  callorv call --config client.cfg 1201 Quote code=ABC volume=100
  callorv call --config client.cfg 1201 3 1=ABC 'rows[0].price=1.5' 'rows[1].price=2'
  callorv call --config client.cfg --json 1201 --xml request.xml
  callorv call --config client.cfg --repeat 10000 --threads 8 1201 Quote code=ABC
  callorv call --config client.cfg --repeat 10000 --in-flight 64 1201 Quote code=ABC
  callorv call --config client.cfg --trace 1201 Quote code=ABC
  callorv call --dictionary d.xml --key-file user.key --server localhost:7000 1201 Quote)";

struct T_Options {
  std::string sConfig;
  std::string sDictionary, sKeyFile, sServer;    // instead of the configuration file
  int iTimeOut = 90;
  int iService = 0;
  std::string sMessage;
  std::vector<std::string> asValues;
  std::string sXml;
  std::string sFormat = "dump";
  bool bAsLibrary = false;    // the library reads sXml
  bool bJson = false;
  bool bTrace = false;
  bool bShowKey = false;
  int iRepeat = 0;
  int iThreads = 1;
  int iInFlight = 0;    // 0: each call holds its thread
  int iDeadline = 0;    // milliseconds; 0: none but the time-out
};

int FindMessage(const std::string& p_sMessage) {
  int iFound = 0;
  if (!ParseNumber(p_sMessage, 0, INT_MAX, iFound)) {
    const std::string sName = ToLatin1(p_sMessage);
    for (int i = 1; i < CMsgDic::SLOTS && iFound == 0; ++i) {
      const CMsgInfo* pInfo = MA_GetMsgDic()->GetMsgInfo(i);
      if (pInfo != nullptr && pInfo->GetMsgName() == sName.c_str()) iFound = i;
    }
  }
  if (MA_GetMsgDic()->GetMsgInfo(iFound) == nullptr)
    throw CFailure("no message '" + p_sMessage + "' in the dictionary" +
                   (p_sMessage.find('=') == std::string::npos ? "" : ": MESSAGE stands before TAG=VALUE"));
  return iFound;
}

std::shared_ptr<CMsg> MakeRequest(const T_Options& p_tOptions, const std::string& p_sXml) {
  auto pRequest = std::make_shared<CMsg>(0, 0, 0, MA_GetMsgDic());
  if (p_tOptions.sXml.empty()) {
    pRequest->Init(FindMessage(p_tOptions.sMessage), 0, 0);
  } else if (p_tOptions.bAsLibrary) {
    try {
      pRequest->LoadXml(std::string(p_sXml).data());
    } catch (const CException& cError) {
      throw CFailure(InputName(p_tOptions.sXml) + ": " + cError.GetText());
    }
  } else {
    ReadMsgFile(*pRequest, InputName(p_tOptions.sXml), p_sXml);
  }
  for (const std::string& s : p_tOptions.asValues) SetByPath(*pRequest, s);
  return pRequest;
}

// Puts into p_tError what a failed call says: a rejection is the server's word, everything else the library's.
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

void CallOnce(const T_Options& p_tOptions, const std::string& p_sXml, const T_Server& p_tServer,
              T_CallError& p_tError) {
  const auto pRequest = MakeRequest(p_tOptions, p_sXml);
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
            << CFormat("%s in %.3f s: %.0f calls/s\n", sInFlight.ToStr(), p_t.dSeconds, dRate).ToStr() << "latency  50 % " << fnMillis(50).ToStr() << "  90 % " << fnMillis(90).ToStr() << "  99 % "
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
T_Caller MakeCaller(const T_Options& p_tOptions, const std::shared_ptr<CMsg>& p_pRequest) {
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

// Returns what is to be said of calls that failed, "" when none did.
std::string CallMany(const T_Options& p_tOptions, const std::string& p_sXml, const T_Server& p_tServer) {
  MakeRequest(p_tOptions, p_sXml);    // what is wrong with the request is said once
  T_Measurement tResult = Measure(p_tOptions.iRepeat, p_tOptions.iThreads, p_tOptions.iInFlight, [&] {
    return MakeCaller(p_tOptions, MakeRequest(p_tOptions, p_sXml));    // a message belongs to one thread
  });
  ExplainMeasurement(p_tServer, tResult);
  PrintMeasurement(tResult, p_tOptions.sFormat == "json");
  std::cout.flush();
  if (tResult.iFailed == 0) return "";
  return std::to_string(tResult.iFailed) + " of " + std::to_string(tResult.iCalls) + " calls failed";
}

// Does everything but the check of the arguments. What fails is also in p_tError. Returns as CallMany does.
std::string SetUpAndCall(const T_Options& p_tOptions, T_Server p_tServer, T_CallError& p_tError) {
  if (!p_tOptions.sConfig.empty()) {
    p_tServer = SetUpClient(p_tOptions.sConfig, p_tError.eStage);
  } else {
    SetUpClient({p_tOptions.sDictionary, p_tOptions.sKeyFile}, p_tServer, p_tError.eStage);
  }
  p_tError.eStage = CALL_REQUEST;
  const std::string sXml = p_tOptions.sXml.empty() ? "" : ReadWholeFile(p_tOptions.sXml);
  if (p_tOptions.iRepeat > 0) return CallMany(p_tOptions, sXml, p_tServer);
  CallOnce(p_tOptions, sXml, p_tServer, p_tError);
  return "";
}

// An error as the object that --json promises, and as any other.
[[noreturn]] void Fail(const T_Options& p_tOptions, T_CallError p_tError, const std::string& p_sText) {
  if (!p_tError.bRejected) p_tError.sText = PrintableFailure(p_sText);
  if (p_tOptions.sFormat == "json") std::cout << ToJson(p_tError) << std::flush;
  throw CFailure(p_sText);
}

void Call(T_Options& p_tOptions) {
  if (p_tOptions.bJson) p_tOptions.sFormat = "json";
  const bool bDirect = !p_tOptions.sDictionary.empty();
  if (bDirect == !p_tOptions.sConfig.empty()) {
    throw CUsage("either --config FILE or --dictionary, --key-file and --server are needed");
  }
  if (!p_tOptions.sXml.empty() && !p_tOptions.sMessage.empty()) {    // the document says which message it is
    if (p_tOptions.sMessage.find('=') == std::string::npos) {
      throw CUsage("--xml brings the message: '" + p_tOptions.sMessage + "' must be TAG=VALUE or go");
    }
    p_tOptions.asValues.insert(p_tOptions.asValues.begin(), p_tOptions.sMessage);
  } else if (p_tOptions.sXml.empty() && p_tOptions.sMessage.empty()) {
    throw CUsage("MESSAGE or --xml FILE is needed");
  }
  T_Server tServer;
  if (bDirect) {
    tServer = ParseServer(p_tOptions.sServer);
    tServer.iTimeOut = p_tOptions.iTimeOut;
  }
  T_CallError tError;
  tError.iService = p_tOptions.iService;
  std::string sFailed;
  try {
    sFailed = SetUpAndCall(p_tOptions, tServer, tError);
  } catch (const CUsage&) {    // of a TAG=VALUE
    throw;
  } catch (const CException& cError) {
    Fail(p_tOptions, tError, cError.GetText());
  } catch (const std::exception& cError) {
    Fail(p_tOptions, tError, cError.what());
  }
  if (!sFailed.empty()) throw CFailure(sFailed);
}

}    // namespace

void AddCall(CLI::App& p_cApp) {
  auto pOptions = std::make_shared<T_Options>();
  T_Options& t = *pOptions;
  CLI::App* pCommand = p_cApp.add_subcommand("call", "Call a service and print its reply");
  CLI::Option* pConfig =
      pCommand->add_option("--config", t.sConfig, "Configuration file of the client")->type_name("FILE");
  CLI::Option* pDictionary = pCommand->add_option("--dictionary", t.sDictionary, "Without --config: the dictionary")
                                 ->type_name("FILE")
                                 ->excludes(pConfig);
  CLI::Option* pKey = pCommand->add_option("--key-file", t.sKeyFile, "Without --config: the user-key file")
                          ->type_name("FILE")
                          ->excludes(pConfig)
                          ->needs(pDictionary);
  CLI::Option* pServer = pCommand->add_option("--server", t.sServer, "Without --config: the server")
                             ->type_name("HOST:PORT")
                             ->excludes(pConfig)
                             ->needs(pDictionary);
  pDictionary->needs(pKey)->needs(pServer);
  pCommand->add_option("--timeout", t.iTimeOut, "Without --config: seconds to wait for the reply")
      ->type_name("SECONDS")
      ->check(Between(1, 86400))
      ->excludes(pConfig)
      ->capture_default_str();
  pCommand->add_option("SERVICE", t.iService, "Service number")->required()->check(Between(0, 9999));
  pCommand->add_option("MESSAGE", t.sMessage, "Request message, unless --xml brings it");
  pCommand->add_option("VALUES", t.asValues, "Values of the request")->type_name("TAG=VALUE");
  CLI::Option* pXml = pCommand->add_option("--xml", t.sXml, "Take the request from an XML file; - is standard input")
                          ->type_name("FILE");
  pCommand->add_flag("--as-library", t.bAsLibrary, "Send what the library makes of the XML file, unchecked")
      ->needs(pXml);
  CLI::Option* pFormat = pCommand->add_option("--format", t.sFormat, "How to print the reply: dump, xml or json")
                             ->type_name("FORMAT")
                             ->check(CLI::IsMember({"dump", "xml", "json"}))
                             ->capture_default_str();
  pCommand->add_flag("--json", t.bJson, "The same as --format json")->excludes(pFormat);
  CLI::Option* pRepeat = pCommand->add_option("--repeat", t.iRepeat, "Call N times and measure, printing no reply")
                             ->type_name("N")
                             ->check(Between(1, 1000000000));
  pCommand->add_option("--threads", t.iThreads, "Threads for --repeat")
      ->type_name("T")
      ->check(Between(1, 1024))
      ->needs(pRepeat)
      ->capture_default_str();
  pCommand->add_option("--in-flight", t.iInFlight, "Calls that each thread of --repeat has under way at once")
      ->type_name("K")
      ->check(Between(1, 100000))
      ->needs(pRepeat);
  CLI::Option* pDeadline =
      pCommand->add_option("--deadline", t.iDeadline, "Milliseconds for all of a call, connecting and sending included")
          ->type_name("MS")
          ->check(Between(1, 86400000));
  CLI::Option* pTrace = pCommand->add_flag("--trace", t.bTrace, "Print both packets on standard error")
                            ->excludes(pRepeat)
                            ->excludes(pDeadline);
  pCommand->add_flag("--show-key", t.bShowKey, "Print the user key whole in a trace")->needs(pTrace);
  pCommand->footer(s_szFooter);
  pCommand->callback([pOptions] { Call(*pOptions); });
}
