// Calls that are stepped, and what came of them.
#ifndef TESTS_SUPPORT_IN_FLIGHT_H
#define TESTS_SUPPORT_IN_FLIGHT_H

#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <poll.h>

#include <string>

#include "support/set_up.h"

// What a call came to: its result, its error and the message.
struct T_End {
  int iRet = 0;
  int iCode = 0;
  std::string sText;
  int iRefSvcNum = 0;
  std::string sXml;    // when iRet is 0

  bool operator==(const T_End& p_t) const {
    return iRet == p_t.iRet && iCode == p_t.iCode && sText == p_t.sText && iRefSvcNum == p_t.iRefSvcNum &&
           sXml == p_t.sXml;
  }
};

inline T_End EndOf(int p_iRet, const CCallOrvError& p_cErr, CMsg& p_cOut) {
  T_End tEnd{p_iRet, p_cErr.GetCode(), p_cErr.GetText().ToStr(), p_cErr.GetRefSvcNum(), ""};
  CStream stXml(0, 512);
  if (p_iRet == 0 && p_cOut.ToXml(&stXml, false, false, 1) == 0) tEnd.sXml = stXml.GetData();
  return tEnd;
}

inline T_End Finished(CPendingCall p_cCall) {
  const CMsgPtr pOut = NewMsg(0);
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  const int iRet = p_cCall.Finish(pOut.get(), &cErr);
  return EndOf(iRet, cErr, *pOut);
}

// Sends, however busy the machine, and leaves the reply where it comes.
inline void AwaitReply(CPendingCall& p_cCall) {
  pollfd tPoll = {p_cCall.GetFd(), POLLOUT, 0};
  while (p_cCall.GetEvents() == POLLOUT) {
    REQUIRE(poll(&tPoll, 1, 20000) == 1);
    p_cCall.Step();
  }
  tPoll.events = POLLIN;
  REQUIRE(poll(&tPoll, 1, 20000) == 1);
}

// Steps as an event loop does; how many steps it took.
inline int StepToEnd(CPendingCall& p_cCall) {
  for (int iSteps = 1;; ++iSteps) {
    if (!p_cCall.Step()) return iSteps;
    pollfd tPoll = {p_cCall.GetFd(), static_cast<short>(p_cCall.GetEvents()), 0};
    poll(&tPoll, 1, p_cCall.GetTimeLeft());
  }
}

inline CPendingCall Started(int p_iSvcNum, CMsg* p_pIn, int p_iDeadlineMs = 20000) {
  CCallOrvError cErr;
  CPendingCall cCall = CCallOrv::Start(p_iSvcNum, p_pIn, p_iDeadlineMs, &cErr);
  REQUIRE_MESSAGE(static_cast<bool>(cCall), cErr.sText.ToStr());
  return cCall;
}

inline T_End Stepped(int p_iSvcNum, CMsg* p_pIn, int p_iDeadlineMs = 20000) {
  CPendingCall cCall = Started(p_iSvcNum, p_pIn, p_iDeadlineMs);
  StepToEnd(cCall);
  return Finished(std::move(cCall));
}

inline T_End Blocking(int p_iSvcNum, CMsg* p_pIn) {
  const CMsgPtr pOut = NewMsg(0);
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  const int iRet = CCallOrv::CallServiceByMsg(p_iSvcNum, p_pIn, pOut.get(), &cErr);
  return EndOf(iRet, cErr, *pOut);
}

inline void CheckEnd(const T_End& p_tEnd, int p_iRet, int p_iCode, const std::string& p_sText, int p_iRefSvcNum) {
  CHECK(p_tEnd.iRet == p_iRet);
  CHECK(p_tEnd.iCode == p_iCode);
  CHECK(p_tEnd.sText == p_sText);
  CHECK(p_tEnd.iRefSvcNum == p_iRefSvcNum);
}

#endif
