// The callorv command: subcommands, exit status 0 (done), 1 (failed), 2 (wrong usage).
#include <callorv/callorv.hpp>

#include <CLI/CLI.hpp>
#include <iostream>

#include "command.h"

namespace {

enum { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// "call" of "callorv call", for the hint below a usage error; the innermost subcommand that was given.
std::string GivenCommand(const CLI::App& p_cApp) {
  std::string sName = p_cApp.get_name();
  for (const CLI::App* pSub : p_cApp.get_subcommands()) sName += " " + GivenCommand(*pSub);
  return sName;
}

int Usage(const CLI::App& p_cApp, const std::string& p_sText) {
  std::cerr << "callorv: " << p_sText << "\nTry '" << GivenCommand(p_cApp) << " --help'.\n";
  return EXIT_USAGE;
}

int Failed(const std::string& p_sText) {
  if (!p_sText.empty()) std::cerr << "callorv: " << p_sText << '\n';
  return EXIT_FAILED;
}

int Run(CLI::App& p_cApp, int p_iArgs, char** p_apArgs) {
  try {
    p_cApp.parse(p_iArgs, p_apArgs);
    std::cout.flush();
    return std::cout ? EXIT_DONE : Failed("standard output cannot be written");
  } catch (const CLI::Success& cDone) {    // --help, --version
    return p_cApp.exit(cDone);
  } catch (const CLI::ParseError& cError) {
    return Usage(p_cApp, cError.what());
  } catch (const CUsage& cError) {
    return Usage(p_cApp, cError.what());
  } catch (const CException& cError) {
    return Failed(cError.GetText());
  } catch (const std::exception& cError) {
    return Failed(cError.what());
  }
}

}    // namespace

int main(int p_iArgs, char** p_apArgs) {
  CLI::App cApp{"Calls numbered remote services, plays a server for them, and makes the files that they need.",
                "callorv"};
  cApp.set_version_flag("--version", "callorv " CALLORV_VERSION);
  cApp.get_formatter()->column_width(34);
  cApp.require_subcommand(1);
  AddCall(cApp);
  AddServe(cApp);
  AddDecode(cApp);
  AddDict(cApp);
  AddKey(cApp);
  AddGenerate(cApp);
  return Run(cApp, p_iArgs, p_apArgs);
}
