// The callorv command: subcommands, exit status 0 (done), 1 (failed), 2 (wrong usage).
#include <callorv/callorv.hpp>

#include <CLI/CLI.hpp>
#include <iostream>

#include "command.h"
#include "text.h"

namespace {

enum { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

constexpr char s_szFooter[] =
    R"(callorv COMMAND --help explains a command by example; callorv-COMMAND(1) says everything.
callorv(1) goes from nothing to a call.

Examples:
  callorv key make --user-key TRYOUT -o user.key
  callorv dict check dictionary.xml
  callorv serve --dictionary dictionary.xml --replies replies --port 7000
  callorv call --config client.cfg 1201 Quote code=ABC)";

// "callorv call", for the hint below a usage error: the subcommands that were given, the innermost last.
std::string GivenCommand(const CLI::App& p_cApp) {
  std::string sName = p_cApp.get_name();
  for (const CLI::App* pSub : p_cApp.get_subcommands()) sName += " " + GivenCommand(*pSub);
  return sName;
}

// What is wrong when something required is missing. A misspelt command or option is missed under its right name; the
// wrong one says more.
std::string MissingText(const CLI::App& p_cApp, const CLI::RequiredError& p_cError) {
  const CLI::App* pInner = &p_cApp;
  while (!pInner->get_subcommands().empty()) pInner = pInner->get_subcommands().front();
  const std::vector<std::string> asLeft = p_cApp.remaining(true);
  if (!asLeft.empty() && (asLeft[0].rfind('-', 0) == 0 || pInner->get_require_subcommand_min() == 0)) {
    return CLI::ExtrasError(asLeft).what();
  }
  if (pInner->get_require_subcommand_min() == 0) return p_cError.what();
  std::string sCommands;
  for (const CLI::App* pSub : pInner->get_subcommands([](const CLI::App*) { return true; })) {
    sCommands += (sCommands.empty() ? "" : ", ") + pSub->get_name();
  }
  const std::string sWhat = asLeft.empty() ? "a command is needed" : "there is no command '" + asLeft[0] + "'";
  return sWhat + ": " + sCommands;
}

int Usage(const CLI::App& p_cApp, const std::string& p_sText) {
  std::cerr << "callorv: " << PrintableFailure(p_sText) << "\nTry '" << GivenCommand(p_cApp) << " --help'.\n";
  return EXIT_USAGE;
}

int Failed(const std::string& p_sText) {
  if (!p_sText.empty()) std::cerr << "callorv: " << PrintableFailure(p_sText) << '\n';
  return EXIT_FAILED;
}

int Done() {
  std::cout.flush();
  return std::cout ? EXIT_DONE : Failed("standard output cannot be written");
}

// Help that leaves out which options go together: the footers and man pages show that.
class CHelp : public CLI::Formatter {
 public:
  CHelp() { column_width(34); }

  std::string make_option_opts(const CLI::Option* p_pOption) const override {
    std::string sText;
    if (p_pOption->get_type_size() != 0) sText = " " + p_pOption->get_type_name();
    if (!p_pOption->get_default_str().empty()) sText += " [" + p_pOption->get_default_str() + "]";
    if (p_pOption->get_expected_max() == CLI::detail::expected_max_vector_size) sText += " ...";
    if (p_pOption->get_required()) sText += " (required)";
    return sText;
  }
};

int Run(CLI::App& p_cApp, int p_iArgs, char** p_apArgs) {
  try {
    p_cApp.parse(p_iArgs, p_apArgs);
    return Done();
  } catch (const CLI::Success& cDone) {    // --help, --version
    p_cApp.exit(cDone);
    return Done();
  } catch (const CLI::RequiredError& cError) {
    return Usage(p_cApp, MissingText(p_cApp, cError));
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

void Warn(const std::string& p_sText) { std::cerr << "callorv: warning: " << PrintableFailure(p_sText) << '\n'; }

int main(int p_iArgs, char** p_apArgs) {
  try {
    CLI::App cApp{"Calls numbered remote services, plays a server for them, and makes the files that they need.",
                  "callorv"};
    cApp.set_version_flag("--version", "callorv " CALLORV_VERSION);
    cApp.formatter(std::make_shared<CHelp>());
    cApp.require_subcommand(1);
    cApp.footer(s_szFooter);
    AddCall(cApp);
    AddServe(cApp);
    AddDecode(cApp);
    AddDict(cApp);
    AddKey(cApp);
    AddGenerate(cApp);
    return Run(cApp, p_iArgs, p_apArgs);
  } catch (...) {    // there is no memory even to say so
    return EXIT_FAILED;
  }
}
