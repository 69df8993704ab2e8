// The options of `callorv call` that make many calls.
#include "call/load_options.h"

#include <functional>
#include <string_view>

#include "command.h"
#include "common/options.h"

namespace {

using Time = std::chrono::nanoseconds;

constexpr char s_szTime[] = "no time: a number and a unit are needed, as in 500ms, 30s, 5m or 1.5h, up to 168h";
constexpr char s_szRate[] = "no rate: a number from 0.001 to 1000000 is needed, with up to three decimals";

// An option whose value p_fnParse makes of a text, 0 being none.
template <class T>
CLI::Option* AddParsed(CLI::App& p_cCommand, const char* p_szName, const char* p_szHelp, const char* p_szElse,
                       T (*p_fnParse)(const std::string&), std::function<void(T)> p_fnTake) {
  const auto fnTake = [=](const std::string& p_s) { p_fnTake(p_fnParse(p_s)); };
  return p_cCommand.add_option_function<std::string>(p_szName, fnTake, p_szHelp)
      ->check([=](const std::string& p_s) { return p_fnParse(p_s) != T(0) ? "" : "'" + p_s + "' is " + p_szElse; });
}

}    // namespace

CLI::Option* AddLoadOptions(CLI::App& p_cCommand, T_Load& p_t, T_Report& p_tReport) {
  CLI::Option* pDuration =
      AddParsed<Time>(p_cCommand, "--duration", "Call for so long and measure, as in 30s", s_szTime, ParseDuration,
                      [&](Time p_tTime) { p_t.tDuration = p_tTime; })
          ->type_name("TIME");
  AddParsed<int64_t>(p_cCommand, "--rate", "Calls a second, each due at its time", s_szRate, ParseRate,
                     [&](int64_t p_iRate) { p_t.cPace = CPace(p_iRate); })
      ->type_name("R");
  AddParsed<Time>(p_cCommand, "--warm-up", "Call for so long before, which is not counted", s_szTime, ParseDuration,
                  [&](Time p_tTime) { p_t.tWarmUp = p_tTime; })
      ->type_name("TIME");
  p_cCommand.add_option("--threads", p_t.iThreads, "Threads for --repeat and --duration")
      ->type_name("T")
      ->check(Between(1, 1024))
      ->capture_default_str();
  p_cCommand
      .add_option("--in-flight", p_t.iInFlight, "Calls that each of these threads, or --stream, has under way at once")
      ->type_name("K")
      ->check(Between(1, 100000));
  p_cCommand.add_option("--report", p_tReport.sPath, "Write what was measured to FILE.html, FILE.csv or FILE.json")
      ->type_name("FILE");
  return pDuration;
}

void CheckLoad(const CLI::App& p_cCommand, const T_Load& p_t, T_Report& p_tReport) {
  for (const char* szOption : {"--rate", "--warm-up", "--threads", "--in-flight", "--report"}) {
    if (p_t.IsMany() || p_cCommand.count(szOption) == 0) continue;
    const bool bStream = std::string_view(szOption) == "--in-flight";
    if (bStream && p_cCommand.count("--stream") > 0) continue;
    throw CUsage(std::string(szOption) +
                 (bStream ? " requires --repeat, --duration or --stream" : " requires --repeat or --duration"));
  }
  if (p_cCommand.count("--report") == 0) return;
  CheckReportName(p_tReport.sPath);
  p_tReport.sCommandLine = CommandLine(p_cCommand);
}
