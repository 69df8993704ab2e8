// What the simulator says on standard error: one line a call, a status line on a terminal, a summary at the end.
#ifndef CALLORV_TOOLS_SERVE_LOG_H
#define CALLORV_TOOLS_SERVE_LOG_H

#include <chrono>
#include <mutex>
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

// One call as it ended.
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

// Any thread.
class CServeLog {
 public:
  // p_bQuiet  no lines for calls
  explicit CServeLog(bool p_bQuiet);
  CServeLog(const CServeLog&) = delete;
  CServeLog& operator=(const CServeLog&) = delete;

  void Call(const T_CallRecord& p_tCall);
  // A request that was refused, or something else that went wrong with a peer; counts as an error.
  void Refused(const std::string& p_sPeer, const std::string& p_sWhy);
  void Line(const std::string& p_sText);
  void Opened();
  void Closed();

  bool HasStatus() const { return m_bTerminal; }
  void UpdateStatus();    // to be called once a second
  void Summary();         // ends the status line

 private:
  using Clock = std::chrono::steady_clock;
  const bool m_bQuiet;
  const bool m_bTerminal;
  const Clock::time_point m_tStart;
  std::mutex m_cMutex;
  std::string m_sStatus;    // what stands on the terminal's last line
  unsigned long long m_iCalls;
  unsigned long long m_iErrors;
  unsigned long long m_iAccepted;
  unsigned long long m_iOpen;
  unsigned long long m_iShownCalls;    // when the status was last made
  Clock::time_point m_tShown;

  void Write(const std::string& p_sLine);    // the mutex is held
};

#endif
