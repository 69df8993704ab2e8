// One call, whose reply is printed.
#ifndef CALLORV_TOOLS_CALL_ONCE_H
#define CALLORV_TOOLS_CALL_ONCE_H

#include <string>

#include "call/call_error.h"
#include "call/call_options.h"
#include "call/client_setup.h"

// Throws CFailure; p_tError then says more of a call that failed.
//   p_sDocument  as ReadDocument (request.h) gave it
void CallOnce(const T_CallOptions& p_tOptions, const std::string& p_sDocument, const T_Server& p_tServer,
              T_CallError& p_tError);

#endif
