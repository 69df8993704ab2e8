// What the subcommands' options share.
#ifndef CALLORV_TOOLS_OPTIONS_H
#define CALLORV_TOOLS_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

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

// One of some words, without them in the help, which would repeat them wherever the option's name stands.
inline CLI::Validator OneOf(const std::vector<std::string>& p_asWord) {
  const auto fnCheck = [=](const std::string& p_sText) {
    std::string sWords;
    for (const std::string& sWord : p_asWord) {
      if (sWord == p_sText) return std::string();
      sWords += (sWords.empty() ? "" : ", ") + sWord;
    }
    return "'" + p_sText + "' is none of " + sWords;
  };
  return CLI::Validator(fnCheck, "");
}

#endif
