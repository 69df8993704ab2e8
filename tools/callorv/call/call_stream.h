// Calls that come as lines of standard input, and results that go as lines to standard output.
#ifndef CALLORV_TOOLS_CALL_STREAM_H
#define CALLORV_TOOLS_CALL_STREAM_H

#include <string>

#include "call/call_options.h"
#include "call/client_setup.h"

// Returns what is to be said of lines that failed, "" when none did. Throws CFailure when the stream broke off.
std::string CallStream(const T_CallOptions& p_tOptions, const T_Server& p_tServer);

#endif
