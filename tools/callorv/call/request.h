// The request of `callorv call`.
#ifndef CALLORV_TOOLS_REQUEST_H
#define CALLORV_TOOLS_REQUEST_H

#include <callorv/msg/msg.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "call/call_options.h"
#include "common/variables.h"

// The document of --xml or --data, "" when there is neither. Throws CFailure.
std::string ReadDocument(const T_CallOptions& p_tOptions);

//   p_sDocument  as ReadDocument gave it
//   p_fnText     what is sent for a TAG=VALUE, for a text of an XML file that the library does not read, and for a
//                document of JSON; may be null
// Throws CFailure, and CUsage for a TAG=VALUE that is none and for a message that nobody names.
std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sDocument,
                                  const std::function<std::string(const std::string&)>& p_fnText = nullptr);

// Says what would be replaced if there were many calls, and is sent as it stands.
void WarnOfPlaceholders(const T_CallOptions& p_tOptions, const std::string& p_sDocument);

// Requests that may vary from call to call: their texts have placeholders (common/variables.h), which are found once.
class CRequestMaker {
 public:
  // Makes the request of the first call, or one with each row of a table, so that nothing is sent when one is wrong.
  // Throws as MakeRequest; both arguments are borrowed for as long as it stands.
  CRequestMaker(const T_CallOptions& p_tOptions, const std::string& p_sDocument);

  bool Varies() const;    // else one request does for all calls of a thread
  // Any thread. Throws CFailure.
  std::shared_ptr<CMsg> Make(uint64_t p_uCall) const;

 private:
  const T_CallOptions& m_tOptions;
  const std::string& m_sDocument;
  std::map<std::string, CVaryingText> m_cTexts;    // every text of the request
};

#endif
