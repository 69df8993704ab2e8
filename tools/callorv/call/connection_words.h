// Why a call failed on its way, in the system's words.
#ifndef CALLORV_TOOLS_CONNECTION_WORDS_H
#define CALLORV_TOOLS_CONNECTION_WORDS_H

#include <callorv/client/callorv_error.h>

#include <string>

#include "call/call_error.h"
#include "call/client_setup.h"

// Whether a text of the library is one of its connection's.
bool IsConnectionText(const std::string& p_sText);

// "127.0.0.1:7000"; the host's name when it has no address.
std::string AddressOf(const T_Server& p_tServer);

// Says in p_tError, of which iCode and sText are as the library gave them (CCallOrv::CallServiceCore's result and
// reason), at what the call failed: the stage, address, error number, and a text with the server's place before the
// library's words. What connect() said the library does not tell: it is asked again.
//   p_dSeconds  that the call took, 0: nobody knows
void ExplainConnection(const T_Server& p_tServer, double p_dSeconds, T_CallError& p_tError);

// Puts into p_tError what a call says that failed with p_iRet (of CCallOrv::CallServiceByMsg): a rejection is the
// server's word, everything else the library's.
void ExplainFailure(int p_iRet, const CCallOrvError& p_cError, const T_Server& p_tServer, double p_dSeconds,
                    T_CallError& p_tError);

#endif
