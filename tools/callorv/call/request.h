// The request of `callorv call`.
#ifndef CALLORV_TOOLS_REQUEST_H
#define CALLORV_TOOLS_REQUEST_H

#include <callorv/msg/msg.h>

#include <memory>
#include <string>

#include "call/call_options.h"

// The number of a message of the dictionary that is given by number or by name. Throws CFailure.
int FindMessage(const std::string& p_sMessage);

//   p_sXml  what stands in the file of --xml
// Throws CFailure, and CUsage for a TAG=VALUE that is none.
std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sXml);

#endif
