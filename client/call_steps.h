// The steps that a call is made of, whether it waits or not.
#ifndef CALLORV_CLIENT_CALL_STEPS_H
#define CALLORV_CLIENT_CALL_STEPS_H

#include <memory>
#include <new>

#include "callorv/base/exception.h"
#include "callorv/client/callorv_error.h"
#include "callorv/client/msg_base.h"
#include "callorv/msg/msg.h"
#include "callorv/net/adaptor.h"

namespace callorv::detail {

// Results of CCallOrv::CallServiceCore. -2 is for a request that cannot be written, which does not happen: when memory
// is short std::bad_alloc is thrown.
enum E_CoreResult {
  CORE_NULL = -1, CORE_CONNECT = -3, CORE_SEND = -4, CORE_RECEIVE = -5, CORE_REPLY = -6,
  CORE_REPLY_THROWN = -7
};

constexpr char s_szInputNull[] = "Input Msg(p_pIn) is NULL";
constexpr char s_szOutputNull[] = "Output Msg(p_pOut) is NULL";

// Whether a call may begin: 0 with p_pErr cleared, or what the call returns, with p_pErr filled when there is one.
int CheckCall(bool p_bSetupOK, int p_iSvcNum, bool p_bMessages, CCallOrvError* p_pErr);
// The same for a typed call: p_szNull names what is null, if anything is.
int CheckTypedCall(bool p_bSetupOK, int p_iSvcNum, const char* p_szNull, CCallOrvError* p_pErr);

// What is to be sent for a message, with the user key: p_stPacket, which is empty, gets the body behind room for the
// packet's header, p_tHeader the rest. Throws std::bad_alloc.
void MakeRequest(const CMsg& p_cIn, int p_iSvcNum, int p_iExtra, const CString& p_sUserKey,
                 CAdaptor::T_PacketInfo& p_tHeader, CStream& p_stPacket);
// The message in a reply's body. 0, CORE_REPLY or CORE_REPLY_THROWN with the reason.
int ReadReply(const CStream& p_stBody, CMsg& p_cOut, CString& p_sErr);
// What a call returns whose exchange ended with p_iCoreResult; p_cErr, which is clear, is filled unless that is 0.
int JudgeReply(int p_iCoreResult, const CString& p_sReason, CMsg& p_cOut, int p_iSvcNum, CCallOrvError& p_cErr);

// The message that a typed one makes; null with p_cErr filled.
std::unique_ptr<CMsg> MakeMsg(CMsgBase& p_cIn, int p_iSvcNum, CCallOrvError& p_cErr);
// Fills a typed message from the reply that p_fnCall(message) gets: 0, or -3 to -5 with p_cErr filled.
template <class F>
int GetTypedReply(CMsgBase& p_cOut, int p_iSvcNum, CCallOrvError& p_cErr, F p_fnCall) {
  const std::unique_ptr<CMsg> pReply(new (std::nothrow) CMsg(0, 0, 0, MA_GetMsgDic()));
  if (pReply == nullptr) {
    p_cErr.SetError(MSG_MEMORY, "Out of memory", p_iSvcNum);
    return -3;
  }
  if (p_fnCall(pReply.get()) < 0) return -4;
  if (p_cOut.LoadFromMsg(pReply.get()) >= 0) return 0;
  p_cErr.SetError(MSG_NO_DATA, p_cOut.sLastError.ToStr(), p_iSvcNum);
  return -5;
}

// Runs what calls the application's typed messages. A CException comes out plain, whatever class was derived from it.
template <class F>
auto ThrowPlain(F p_fnRun) {
  try {
    return p_fnRun();
  } catch (const CException& p_c) {
    throw CException(p_c.GetText(), p_c.GetCode());
  }
}

}    // namespace callorv::detail

#endif
