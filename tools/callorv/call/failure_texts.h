// What many failed calls say.
#ifndef CALLORV_TOOLS_FAILURE_TEXTS_H
#define CALLORV_TOOLS_FAILURE_TEXTS_H

#include <callorv/client/callorv_error.h>

#include <chrono>
#include <map>
#include <string>

#include "call/call_error.h"
#include "call/client_setup.h"

// Why there is no connection is found out by another one, which must not be made for each of thousands of calls: what
// was found out is good for a second.
class CFailureTexts {
 public:
  explicit CFailureTexts(const T_Server& p_tServer) : m_tServer(p_tServer) {}

  // As ExplainFailure (connection_words.h), with a text for people.
  T_CallError Explain(int p_iRet, const CCallOrvError& p_cError, int p_iService, double p_dSeconds);

 private:
  const T_Server m_tServer;
  std::chrono::steady_clock::time_point m_tSince;
  std::map<std::string, T_CallError> m_cKnown;    // by the library's code and text
};

#endif
