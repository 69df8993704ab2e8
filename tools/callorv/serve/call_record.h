// One call of the simulated service as it ended.
#ifndef CALLORV_TOOLS_CALL_RECORD_H
#define CALLORV_TOOLS_CALL_RECORD_H

#include <chrono>
#include <string>

// What was wrong with a call, or with what came instead of one.
enum E_CallError {
  ERROR_NONE,
  ERROR_REFUSED,        // no packet as it should be
  ERROR_BAD_REQUEST,    // a body that is no message (400)
  ERROR_USER_KEY,       // a user key that the rules do not accept (401)
  ERROR_NO_REPLY,       // no reply file, no rule (404)
  ERROR_BAD_REPLY,      // a reply that cannot be used (500)
  ERROR_FAULT,          // it was played
  ERROR_FAILED,         // the reply could not be made or sent
  ERROR_KINDS
};
const char* ErrorName(E_CallError p_eError);    // as "bad_request"

struct T_CallRecord {
  std::string sPeer;
  int iSvcNum = 0;
  int iMsgNum = 0;
  std::string sUserKey;                            // whole; the log masks it
  size_t iIn = 0;                                  // bytes received
  size_t iOut = 0;                                 // bytes sent
  std::chrono::steady_clock::time_point tStart;    // when the request was there
  std::chrono::microseconds tTaken{0};             // from then until the answer was sent
  std::string sRule;                               // that said what to answer; "": none
  std::string sResult;                             // "ok", or why not
  E_CallError eError = ERROR_NONE;
};

#endif
