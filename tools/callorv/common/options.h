// What the subcommands' options share.
#ifndef CALLORV_TOOLS_OPTIONS_H
#define CALLORV_TOOLS_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>

// A number from p_iMin to p_iMax, without the range in the help: the words beside it say what matters. What CLI::Range
// says of another one depends on its version.
inline CLI::Validator Between(int p_iMin, int p_iMax) {
  const auto fnCheck = [=](const std::string& p_sText) {
    int iValue = 0;
    if (CLI::detail::lexical_cast(p_sText, iValue) && iValue >= p_iMin && iValue <= p_iMax) return std::string();
    return "Value " + p_sText + " not in range " + std::to_string(p_iMin) + " to " + std::to_string(p_iMax);
  };
  return CLI::Validator(fnCheck, "");
}

#endif
