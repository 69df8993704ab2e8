// {{tag:PATH}} in reply files: values of the request.
#ifndef CALLORV_TOOLS_PLACEHOLDER_H
#define CALLORV_TOOLS_PLACEHOLDER_H

#include <functional>
#include <string>

// What stands for {{tag:p_sPath}}, given the finished text before it.
using CPathValue = std::function<std::string(const std::string& p_sPath, const std::string& p_sBefore)>;

// The text with every placeholder replaced. Throws CFailure for one that is not closed or whose path is none, and what
// p_fnValue throws.
std::string ReplacePlaceholders(const std::string& p_sText, const CPathValue& p_fnValue);

#endif
