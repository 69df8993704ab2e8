// What --json prints: one object, whether the command succeeds or fails.
#ifndef CALLORV_TOOLS_JSON_OUT_H
#define CALLORV_TOOLS_JSON_OUT_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

// Prints it on standard output. Texts that are no UTF-8 are made so.
void PrintJson(const nlohmann::ordered_json& p_cJson);

// What stands under "error" of a failure that says p_sText.
nlohmann::ordered_json JsonError(const std::string& p_sText);

// Has p_fnFill fill an object, and prints it. What p_fnFill throws becomes the object's "error", besides what was
// filled in before, and is thrown on; wrong usage (CUsage) prints nothing.
void PrintObject(const std::function<void(nlohmann::ordered_json&)>& p_fnFill);

#endif
