// {{tag:PATH}} in reply files: values of the request.
#include "serve/placeholder.h"

#include <string_view>

#include "command.h"
#include "common/msg_path.h"

namespace {

constexpr std::string_view s_sOpen = "{{tag:";
constexpr std::string_view s_sClose = "}}";

}    // namespace

std::string ReplacePlaceholders(const std::string& p_sText, const CPathValue& p_fnValue) {
  std::string sOut;
  size_t iDone = 0;
  for (size_t iOpen; (iOpen = p_sText.find(s_sOpen, iDone)) != std::string::npos;) {
    const size_t iPath = iOpen + s_sOpen.size();
    const size_t iEnd = p_sText.find(s_sClose, iPath);
    if (iEnd == std::string::npos) throw CFailure("{{tag: without }}");
    const std::string sPath = p_sText.substr(iPath, iEnd - iPath);
    if (!IsPath(sPath)) throw CFailure("'" + sPath + "' is no tag");
    sOut.append(p_sText, iDone, iOpen - iDone);
    sOut += p_fnValue(sPath, sOut);
    iDone = iEnd + s_sClose.size();
  }
  return sOut.append(p_sText, iDone);
}
