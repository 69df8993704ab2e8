// What is known of a call that fails, for people and for programs.
#ifndef CALLORV_TOOLS_CALL_ERROR_H
#define CALLORV_TOOLS_CALL_ERROR_H

#include <nlohmann/json.hpp>
#include <string>

// How far a call has come; in the order of the steps.
enum E_CallStage {
  CALL_CONFIG,
  CALL_KEY,
  CALL_DICTIONARY,
  CALL_REQUEST,
  CALL_CONNECT,
  CALL_SEND,
  CALL_RECEIVE,
  CALL_REPLY
};

struct T_CallError {
  E_CallStage eStage = CALL_CONFIG;
  int iCode = 0;            // the library's for the call, or the server's; 0: neither has one
  std::string sText;        // UTF-8; of a rejection the server's
  int iService = 0;
  bool bRejected = false;   // by the server
  std::string sAddress;     // "127.0.0.1:7000"; "" before it is known
  int iErrno = 0;           // of the connection; 0: none
};

// {"code": ..., "text": ..., ...}
nlohmann::ordered_json ErrorToJson(const T_CallError& p_tError);
// {"error": {"code": ..., "text": ..., ...}} and a line feed.
std::string ToJson(const T_CallError& p_tError);

#endif
