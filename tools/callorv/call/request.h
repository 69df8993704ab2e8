// The request of `callorv call`.
#ifndef CALLORV_TOOLS_REQUEST_H
#define CALLORV_TOOLS_REQUEST_H

#include <callorv/msg/msg.h>

#include <memory>
#include <string>

#include "call/call_options.h"

// The document of --xml or --data, "" when there is neither. Throws CFailure.
std::string ReadDocument(const T_CallOptions& p_tOptions);

//   p_sDocument  as ReadDocument gave it
// Throws CFailure, and CUsage for a TAG=VALUE that is none and for a message that nobody names.
std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sDocument);

#endif
