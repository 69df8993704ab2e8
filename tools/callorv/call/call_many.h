// Many calls, which are measured.
#ifndef CALLORV_TOOLS_CALL_MANY_H
#define CALLORV_TOOLS_CALL_MANY_H

#include <string>

#include "call/call_options.h"
#include "call/client_setup.h"

// Returns what is to be said of calls that failed and of a report that could not be written, "" when all went well.
// Throws CFailure.
//   p_sDocument  as ReadDocument (request.h) gave it
std::string CallMany(const T_CallOptions& p_tOptions, const std::string& p_sDocument, const T_Server& p_tServer);

#endif
