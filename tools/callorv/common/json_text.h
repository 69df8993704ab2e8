// JSON on one line, written piece by piece.
#ifndef CALLORV_TOOLS_JSON_TEXT_H
#define CALLORV_TOOLS_JSON_TEXT_H

#include <string>
#include <string_view>

#include "common/json_in.h"

// A text, which is UTF-8, with its quotes.
void AppendText(std::string& p_sOut, std::string_view p_sText);
// A value with all that stands in it; its numbers are as they were.
void AppendValue(std::string& p_sOut, const CJsonIn::CValue& p_cValue);

#endif
