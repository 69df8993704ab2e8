// The callorv command: subcommands, exit status 0 (done), 1 (failed), 2 (wrong usage).
#include <callorv/callorv.hpp>

#include <CLI/CLI.hpp>
#include <iostream>

#include "command.h"
#include "common/near.h"
#include "common/seal.h"
#include "common/text.h"

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

const CLI::App& Innermost(const CLI::App& p_cApp) {
  const CLI::App* pInner = &p_cApp;
  while (!pInner->get_subcommands().empty()) pInner = pInner->get_subcommands().front();
  return *pInner;
}

// An option that the command does not have, "" when there is none. It says more than what follows from it, as when its
// value is taken for an argument.
std::string UnknownOption(const CLI::App& p_cApp) {
  for (const std::string& s : p_cApp.remaining(true)) {
    if (s.size() < 2 || s[0] != '-') continue;
    std::vector<std::string> asKnown{"--help"};
    for (const CLI::Option* pOption : Innermost(p_cApp).get_options()) {
      for (const std::string& sName : pOption->get_lnames()) asKnown.push_back("--" + sName);
    }
    const std::string sOption = s.substr(0, s.find('='));
    return "unknown option " + sOption + DidYouMean(sOption, asKnown);
  }
  return "";
}

// What is wrong when something required is missing, or too much is there. A misspelt command is missed under its right
// name; the wrong one says more.
std::string MissingText(const CLI::App& p_cApp, const CLI::ParseError& p_cError) {
  const CLI::App& cInner = Innermost(p_cApp);
  const std::vector<std::string> asLeft = p_cApp.remaining(true);
  if (cInner.get_require_subcommand_min() == 0) {
    return asLeft.empty() ? p_cError.what() : "unexpected argument '" + asLeft[0] + "'";
  }
  std::vector<std::string> asCommands;
  std::string sCommands;
  for (const CLI::App* pSub : cInner.get_subcommands([](const CLI::App*) { return true; })) {
    asCommands.push_back(pSub->get_name());
    sCommands += (sCommands.empty() ? "" : ", ") + pSub->get_name();
  }
  if (asLeft.empty()) return "a command is needed: " + sCommands;
  return "there is no command '" + asLeft[0] + "': " + sCommands + DidYouMean(asLeft[0], asCommands);
}

// "--output: 1 required DIR missing" in other words.
std::string NeedsText(std::string p_sText) {
  constexpr std::string_view s_sOne = ": 1 required ", s_sMissing = " missing";
  const size_t iOne = p_sText.find(s_sOne);
  if (iOne == std::string::npos || p_sText.find(s_sMissing, iOne) == std::string::npos) return p_sText;
  const size_t iName = iOne + s_sOne.size();
  const std::string sName = p_sText.substr(iName, p_sText.find(s_sMissing, iName) - iName);
  return p_sText.substr(0, iOne) + " needs " + sName + " behind it";
}

int Usage(const CLI::App& p_cApp, const std::string& p_sText) {
  std::cerr << "callorv: " << PrintableFailure(p_sText) << "\nTry '" << GivenCommand(p_cApp) << " --help'.\n";
  return EXIT_USAGE;
}

int Failed(const std::string& p_sText, int p_iStatus = EXIT_FAILED) {
  if (!p_sText.empty()) std::cerr << "callorv: " << PrintableFailure(p_sText) << '\n';
  return p_iStatus;
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
  } catch (const CLI::ParseError& cError) {
    const std::string sUnknown = UnknownOption(p_cApp);
    if (!sUnknown.empty()) return Usage(p_cApp, sUnknown);
    const bool bArguments = dynamic_cast<const CLI::RequiredError*>(&cError) != nullptr ||
                            dynamic_cast<const CLI::ExtrasError*>(&cError) != nullptr;
    return Usage(p_cApp, bArguments ? MissingText(p_cApp, cError) : NeedsText(cError.what()));
  } catch (const CUsage& cError) {
    return Usage(p_cApp, cError.what());
  } catch (const CFailure& cError) {
    return Failed(cError.what(), cError.Status());
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
    cApp.set_version_flag("--version", [] { return "callorv " CALLORV_VERSION "\nSEED key " + SeedFingerprint(); });
    cApp.formatter(std::make_shared<CHelp>());
    cApp.require_subcommand(1);
    cApp.footer(s_szFooter);
    AddCall(cApp);
    AddServe(cApp);
    AddDecode(cApp);
    AddDict(cApp);
    AddKey(cApp);
    AddGenerate(cApp);
    if (p_iArgs > 1 && p_apArgs[1] == std::string_view("complete")) {    // its words are none of ours
      PrintCompletion(cApp, {p_apArgs + 2, p_apArgs + p_iArgs});
      return Done();
    }
    return Run(cApp, p_iArgs, p_apArgs);
  } catch (...) {    // there is no memory even to say so
    return EXIT_FAILED;
  }
}
