// callorv call: a service from the shell.
#include <callorv/callorv.hpp>

#include <iostream>
#include <memory>
#include <utility>

#include "call/call_error.h"
#include "call/call_many.h"
#include "call/call_once.h"
#include "call/call_options.h"
#include "call/call_stream.h"
#include "call/client_setup.h"
#include "call/load_options.h"
#include "call/request.h"
#include "command.h"
#include "common/options.h"
#include "common/text.h"

namespace {

constexpr char s_szFooter[] =
    R"(SERVICE is a number; MESSAGE a message of the dictionary by number or by name; TAG a tag
by number or by name, with the index of an element in brackets behind an array's, and
further steps behind a dot inside a sub-message. An array tag may simply come again.

Examples:
  callorv call --config client.cfg 1201 Quote code=ABC volume=100
  callorv call --config client.cfg 1201 3 1=ABC 'rows[0].price=1.5' 'rows[1].price=2'
  callorv call --config client.cfg --json 1201 --xml request.xml
  callorv call --config client.cfg 1201 Quote --data '{"code":"ABC","rows":[{"price":1.5}]}'
  callorv call --config client.cfg --repeat 10000 --threads 8 1201 Quote code=ABC
  callorv call --config client.cfg --repeat 10000 --in-flight 64 1201 Quote code=ABC
  callorv call --config client.cfg --rate 500 --duration 30s 1201 Quote 'code={{uuid}}'
  echo '{"service":1201,"message":"Quote","data":{"code":"ABC"}}' | callorv call --config client.cfg --stream
  callorv call --config client.cfg --trace 1201 Quote code=ABC
  callorv call --dictionary d.xml --key-file user.key --server localhost:7000 1201 Quote)";

// Does everything but the check of the arguments. What fails is also in p_tError. Returns as CallMany does.
std::string SetUpAndCall(const T_CallOptions& p_tOptions, T_Server p_tServer, T_CallError& p_tError) {
  if (!p_tOptions.sConfig.empty()) {
    p_tServer = SetUpClient(p_tOptions.sConfig, p_tError.eStage);
  } else {
    SetUpClient({p_tOptions.sDictionary, p_tOptions.sKeyFile}, p_tServer, p_tError.eStage);
  }
  p_tError.eStage = CALL_REQUEST;
  if (p_tOptions.bStream) return CallStream(p_tOptions, p_tServer);
  const std::string sDocument = ReadDocument(p_tOptions);
  if (p_tOptions.tLoad.IsMany()) return CallMany(p_tOptions, sDocument, p_tServer);
  CallOnce(p_tOptions, sDocument, p_tServer, p_tError);
  return "";
}

// An error as the object that --json promises, and as any other.
[[noreturn]] void Fail(const T_CallOptions& p_tOptions, T_CallError p_tError, const std::string& p_sText) {
  if (!p_tError.bRejected) p_tError.sText = PrintableFailure(p_sText);
  if (p_tOptions.sFormat == "json") std::cout << ToJson(p_tError) << std::flush;
  throw CFailure(p_sText);
}

// Whether SERVICE and MESSAGE are there where they must be. Where a document may bring the message, the first TAG=VALUE
// stands in its place.
void CheckArguments(T_CallOptions& p_tOptions) {
  if (p_tOptions.bStream) {
    if (p_tOptions.iService < 0) return;
    throw CUsage("--stream takes no SERVICE, MESSAGE and TAG=VALUE: each line has its own");
  }
  if (p_tOptions.iService < 0) throw CUsage("SERVICE is required");
  const bool bValue = p_tOptions.sMessage.find('=') != std::string::npos;
  if (p_tOptions.sXml.empty() && p_tOptions.sData.empty()) {
    if (p_tOptions.sMessage.empty()) throw CUsage("MESSAGE, --xml FILE or --data JSON is needed");
  } else if (bValue) {
    p_tOptions.asValues.insert(p_tOptions.asValues.begin(), std::exchange(p_tOptions.sMessage, ""));
  } else if (!p_tOptions.sXml.empty() && !p_tOptions.sMessage.empty()) {    // the document says which message it is
    throw CUsage("--xml brings the message: '" + p_tOptions.sMessage + "' must be TAG=VALUE or go");
  }
}

void Call(T_CallOptions& p_tOptions) {
  if (p_tOptions.bJson) p_tOptions.sFormat = "json";
  CheckArguments(p_tOptions);
  const bool bDirect = !p_tOptions.sDictionary.empty();
  if (bDirect == !p_tOptions.sConfig.empty()) {
    throw CUsage("either --config FILE or --dictionary, --key-file and --server are needed");
  }
  T_Server tServer;
  if (bDirect) {
    tServer = ParseServer(p_tOptions.sServer);
    tServer.iTimeOut = p_tOptions.iTimeOut;
  }
  T_CallError tError;
  tError.iService = std::max(p_tOptions.iService, 0);
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
  auto pOptions = std::make_shared<T_CallOptions>();
  T_CallOptions& t = *pOptions;
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
  pCommand->add_option("SERVICE", t.iService, "Service number")->check([](const std::string& p_sText) {
    const std::string sWrong = Between(0, 9999)(p_sText);
    const bool bName = !sWrong.empty() && p_sText.find_first_not_of("-0123456789") != std::string::npos;
    return bName ? sWrong + "; the service's number stands before the message" : sWrong;
  });
  pCommand->add_option("MESSAGE", t.sMessage, "Request message, unless --xml or --data brings it");
  pCommand->add_option("VALUES", t.asValues, "Values of the request")->type_name("TAG=VALUE");
  CLI::Option* pXml = pCommand->add_option("--xml", t.sXml, "Take the request from an XML file; - is standard input")
                          ->type_name("FILE");
  CLI::Option* pData =
      pCommand
          ->add_option("--data", t.sData, "Take the request from JSON: this, or what is in @FILE; - is standard input")
      ->type_name("JSON")
      ->check([](const std::string& p_s) { return p_s.empty() ? "JSON or @FILE is needed" : ""; })
      ->excludes(pXml);
  pCommand->add_flag("--as-library", t.bAsLibrary, "Send what the library makes of the XML file, unchecked")
      ->needs(pXml);
  CLI::Option* pFormat = pCommand->add_option("--format", t.sFormat, "How to print the reply: dump, xml or json")
                             ->type_name("FORMAT")
                             ->check(CLI::IsMember({"dump", "xml", "json"}))
                             ->capture_default_str();
  CLI::Option* pJson = pCommand->add_flag("--json", t.bJson, "The same as --format json")->excludes(pFormat);
  CLI::Option* pRepeat = pCommand->add_option("--repeat", t.tLoad.uCalls, "Call N times and measure, printing no reply")
                             ->type_name("N")
                             ->check(Between(1, 1000000000));
  CLI::Option* pDuration = AddLoadOptions(*pCommand, t.tLoad, t.tReport);
  CLI::Option* pDeadline =
      pCommand->add_option("--deadline", t.iDeadline, "Milliseconds for all of a call, connecting and sending included")
          ->type_name("MS")
          ->check(Between(1, 86400000));
  CLI::Option* pTrace = pCommand->add_flag("--trace", t.bTrace, "Print both packets on standard error")
                            ->excludes(pRepeat)
                            ->excludes(pDuration)
                            ->excludes(pDeadline);
  pCommand->add_flag("--show-key", t.bShowKey, "Print the user key whole in a trace")->needs(pTrace);
  CLI::Option* pStream = pCommand->add_flag(
      "--stream", t.bStream, "Take calls from standard input, a line of JSON each, and print a line of JSON for each");
  for (CLI::Option* p : {pXml, pData, pFormat, pJson, pRepeat, pDuration, pTrace}) pStream->excludes(p);
  pCommand->add_flag("--ordered", t.bOrdered, "Print the results of --stream in the order of its lines")
      ->needs(pStream);
  pCommand->footer(s_szFooter);
  pCommand->callback([pOptions, pCommand] {
    CheckLoad(*pCommand, pOptions->tLoad, pOptions->tReport);
    Call(*pOptions);
  });
}
