// What --json prints: one object, whether the command succeeds or fails.
#include "common/json_out.h"

#include <callorv/base/exception.h>

#include <iostream>

#include "command.h"
#include "common/text.h"

using Json = nlohmann::ordered_json;

void PrintJson(const Json& p_cJson) {
  std::cout << p_cJson.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  std::cout.flush();
}

Json JsonError(const std::string& p_sText) { return {{"text", PrintableFailure(p_sText)}}; }

void PrintObject(const std::function<void(Json&)>& p_fnFill) {
  Json cObject = Json::object();
  const auto fnFail = [&](const std::string& p_sText) {
    if (!p_sText.empty()) cObject["error"] = JsonError(p_sText);
    PrintJson(cObject);
  };
  try {
    p_fnFill(cObject);
  } catch (const CUsage&) {
    throw;
  } catch (const CException& cError) {
    fnFail(cError.GetText());
    throw;
  } catch (const std::exception& cError) {
    fnFail(cError.what());
    throw;
  }
  PrintJson(cObject);
}
