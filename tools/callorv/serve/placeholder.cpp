// Placeholders in replies.
#include "serve/placeholder.h"

#include <string_view>

#include "command.h"
#include "common/msg_path.h"

namespace {

constexpr std::string_view s_sTag = "{{tag:";
constexpr std::string_view s_sState = "{{state:";
constexpr std::string_view s_sClose = "}}";

}    // namespace

bool IsStateName(const std::string& p_sName) {
  constexpr size_t LONGEST = 64;
  constexpr const char* LETTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";
  return !p_sName.empty() && p_sName.size() <= LONGEST && p_sName.find_first_not_of(LETTERS) == std::string::npos;
}

std::string ReplacePlaceholders(const std::string& p_sText, const T_Placeholders& p_t) {
  std::string sOut;
  size_t iDone = 0;
  for (;;) {
    const size_t iTag = p_sText.find(s_sTag, iDone);
    const size_t iState = p_t.fnState ? p_sText.find(s_sState, iDone) : std::string::npos;
    const bool bTag = iTag < iState;
    const size_t iOpen = bTag ? iTag : iState;
    if (iOpen == std::string::npos) break;
    const std::string_view sOpen = bTag ? s_sTag : s_sState;
    const size_t iArgument = iOpen + sOpen.size();
    const size_t iEnd = p_sText.find(s_sClose, iArgument);
    if (iEnd == std::string::npos) throw CFailure(std::string(sOpen) + " without }}");
    const std::string sArgument = p_sText.substr(iArgument, iEnd - iArgument);
    if (bTag && !IsPath(sArgument)) throw CFailure("'" + sArgument + "' is no tag");
    if (!bTag && !IsStateName(sArgument)) throw CFailure("'" + sArgument + "' is no name in the state");
    sOut.append(p_sText, iDone, iOpen - iDone);
    sOut += (bTag ? p_t.fnTag : p_t.fnState)(sArgument, sOut);
    iDone = iEnd + s_sClose.size();
  }
  return sOut.append(p_sText, iDone);
}

bool HasPlaceholders(const std::string& p_sText, bool p_bState) {
  bool bHas = false;
  const CPlaceholder fnSeen = [&](const std::string&, const std::string&) {
    bHas = true;
    return "";
  };
  ReplacePlaceholders(p_sText, {fnSeen, p_bState ? fnSeen : nullptr});
  return bHas;
}
