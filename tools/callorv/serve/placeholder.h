// Placeholders in replies: {{tag:PATH}} stands for a value of the request, {{state:NAME}} for one of the state.
#ifndef CALLORV_TOOLS_PLACEHOLDER_H
#define CALLORV_TOOLS_PLACEHOLDER_H

#include <functional>
#include <string>

// What stands for a placeholder with this argument, given the finished text before it.
using CPlaceholder = std::function<std::string(const std::string& p_sArgument, const std::string& p_sBefore)>;

struct T_Placeholders {
  CPlaceholder fnTag;
  CPlaceholder fnState;    // null: {{state:NAME}} is text like any other
};

// The text with every placeholder replaced. Throws CFailure for one that is not closed or whose argument is none, and
// what the functions throw.
std::string ReplacePlaceholders(const std::string& p_sText, const T_Placeholders& p_t);

// Whether there is one, which is sound. p_bState: {{state:NAME}} is one, too. Throws CFailure.
bool HasPlaceholders(const std::string& p_sText, bool p_bState);

// Whether it may stand for a value of the state: 1 to 64 letters, digits, underscores, dots and hyphens.
bool IsStateName(const std::string& p_sName);

#endif
