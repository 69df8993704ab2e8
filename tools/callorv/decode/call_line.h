// A captured call for people and as JSON.
#ifndef CALLORV_TOOLS_CALL_LINE_H
#define CALLORV_TOOLS_CALL_LINE_H

#include <nlohmann/json.hpp>
#include <string>

#include "decode/conversations.h"

const char* OutcomeName(T_Call::E_Outcome p_eOutcome);    // "reply", "rejected", "no reply", "damaged"
// One line: when, from where to where, what, how long it took, and what came of it.
std::string CallLine(const T_Call& p_tCall);
nlohmann::ordered_json CallAsJson(const T_Call& p_tCall);

#endif
