// callorv serve: a simulated service for people who develop against one that they cannot reach.
#include <climits>
#include <memory>
#include <random>

#include "command.h"
#include "common/options.h"
#include "common/text.h"
#include "serve/server.h"

namespace {

constexpr char s_szFooter[] = R"(A call of service 1201 is answered with the message in DIR/1201.xml; {{tag:1}} or
{{tag:rows[0].price}} in it stands for that value of the request. A file that changes
counts at once, and so does the dictionary. A service without a file is rejected
(message 10, code 404), a file with a value that the dictionary does not allow ends the
server at its start.

Faults, each for PERCENT of the calls (100 when left out):
  delay:MS        answer later (1000)       checksum     wrong checksum
  stall:BYTES     stop after BYTES (128)    zlib         body that cannot be decompressed
  truncate:BYTES  close after BYTES (64)    reset        reset instead of an answer
  reject:CODE     rejection (503)           close        close instead of an answer

Examples:
  callorv serve --dictionary dictionary.xml --replies replies --port 7000
  callorv serve --dictionary dictionary.exml --echo --delay 200
  callorv serve --dictionary dictionary.xml --replies replies --fault reset@10 --fault delay:500@50
  callorv serve --dictionary dictionary.xml --replies replies --record packets
  callorv serve --dictionary dictionary.xml --replies replies --rules rules.json)";

void TakeMetrics(const std::string& p_sPlace, T_ServeOptions& p_tOptions) {
  const size_t iColon = p_sPlace.rfind(':');
  if (iColon == std::string::npos || iColon == 0 ||
      !ParseNumber(std::string_view(p_sPlace).substr(iColon + 1), 0, 65535, p_tOptions.iMetricsPort)) {
    throw CUsage("--metrics " + p_sPlace + ": HOST:PORT belongs here, as 127.0.0.1:9464");
  }
  p_tOptions.sMetricsHost = p_sPlace.substr(0, iColon);
}

void RunServe(T_ServeOptions& p_tOptions, const std::string& p_sMetrics) {
  if (!p_tOptions.bEcho && p_tOptions.sReplies.empty() && p_tOptions.sRules.empty()) {
    throw CUsage("--replies DIR, --rules FILE or --echo is needed");
  }
  if (!p_sMetrics.empty()) TakeMetrics(p_sMetrics, p_tOptions);
  while (p_tOptions.iSeed == 0) p_tOptions.iSeed = static_cast<int>(std::random_device()() >> 1);
  Serve(p_tOptions);
}

}    // namespace

void AddServe(CLI::App& p_cApp) {
  auto pOptions = std::make_shared<T_ServeOptions>();
  auto psMetrics = std::make_shared<std::string>();
  T_ServeOptions& t = *pOptions;
  CLI::App* pCommand = p_cApp.add_subcommand("serve", "Play the server: answer calls from reply files and by rules");
  pCommand->add_option("--dictionary", t.sDictionary, "Dictionary, plain or .exml")->type_name("FILE")->required();
  CLI::Option* pReplies =
      pCommand->add_option("--replies", t.sReplies, "Folder of reply files, <service number>.xml each")
          ->type_name("DIR");
  pCommand->add_flag("--as-library", t.bAsLibrary, "Answer what the library makes of the reply files, unchecked")
      ->needs(pReplies);
  pCommand->add_flag("--echo", t.bEcho, "Answer every request with itself")->excludes(pReplies);
  CLI::Option* pRules =
      pCommand->add_option("--rules", t.sRules, "Rules, JSON: which request gets which reply")->type_name("FILE");
  pCommand->add_option("--seed", t.iSeed, "What the delays of rules are drawn from; 0 is another one at each start")
      ->type_name("N")
      ->check(Between(0, INT_MAX))
      ->needs(pRules);
  pCommand->add_option("--host", t.sHost, "Address to listen on")->type_name("HOST")->capture_default_str();
  pCommand->add_option("--port", t.iPort, "Port to listen on; 0 takes a free one and prints it")
      ->type_name("PORT")
      ->check(Between(0, 65535))
      ->capture_default_str();
  pCommand->add_option("--delay", t.iDelay, "Milliseconds to wait before every answer")
      ->type_name("MS")
      ->check(Between(0, 3600000));
  pCommand->add_option("--compress-over", t.iCompressOver, "Compress replies of more than this many bytes")
      ->type_name("BYTES")
      ->check(Between(0, INT_MAX))
      ->capture_default_str();
  pCommand->add_option("--fault", t.asFaults, "Play a fault; may be given several times")
      ->type_name("KIND[:ARG][@PERCENT]")
      ->allow_extra_args(false);
  pCommand->add_option("--record", t.sRecord, "Keep every request and reply packet in this folder")->type_name("DIR");
  pCommand->add_option("--metrics", *psMetrics, "Counters for Prometheus at this address; port 0 takes a free one")
      ->type_name("HOST:PORT");
  pCommand->add_option("--timeout", t.iReadTimeOut, "Seconds for a request to come in, and for a reply to be taken")
      ->type_name("SECONDS")
      ->check(Between(1, 86400))
      ->capture_default_str();
  pCommand->add_option("--threads", t.iThreads, "Threads to work with; 0 is one for each processor")
      ->type_name("N")
      ->check(Between(0, 256));
  pCommand->add_flag("--quiet", t.bQuiet, "No line for each call");
  pCommand->footer(s_szFooter);
  pCommand->callback([pOptions, psMetrics] { RunServe(*pOptions, *psMetrics); });
}
