// Calls that hold no thread.
#include "callorv/client/pending_call.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>

#include "base/cancel.h"
#include "callorv/client/callorv_client.h"
#include "client/call_steps.h"
#include "client/pending_state.h"
#include "net/packet_writer.h"
#include "net/socket.h"

using namespace callorv::detail;

int CCallOrv::Resolve(CCallOrvError* p_pErr) {
  const int iRet = CheckCall(s_bSetupOK, 0, true, p_pErr);
  if (iRet < 0) return iRet;
  T_Fault tFault;
  CString sDotted;
  if (LookUp(s_sServer.ToStr(), sDotted, tFault) < 0) {
    CString sReason;
    FormatFault(sReason, tFault.iCode, tFault.szDetail);
    p_pErr->SetError(CORE_CONNECT, sReason.ToStr(), -1);
    return -3;
  }
  s_sResolvedHost = s_sServer;
  s_sResolved = std::move(sDotted);
  return 0;
}

// 0, or what CallServiceByMsg returns, with p_cErr filled and p_cCall as it was.
int CCallOrv::StartChecked(int p_iSvcNum, CMsg& p_cIn, int p_iDeadlineMs, CCallOrvError& p_cErr,
                           CPendingCall& p_cCall) {
  const CNoCancel cWhole;
  if (p_iDeadlineMs <= 0) {
    const int iSeconds = s_iTimeOut < 0 ? +RECV_TIME_OUT : s_iTimeOut;
    p_iDeadlineMs = static_cast<int>(std::min<long long>(iSeconds * 1000LL, INT_MAX));
  }
  auto pCall = std::make_unique<CallOrv_Call>(p_iSvcNum, p_iDeadlineMs);
  CAdaptor::T_PacketInfo tHeader;
  MakeRequest(p_cIn, p_iSvcNum, 0, s_sUserKey, tHeader, pCall->Packet());
  T_Fault tFault;
  if (WritePacket(tHeader, pCall->Packet(), tFault) < 0) {
    CString sReason;
    FormatFault(sReason, tFault.iCode, tFault.szDetail);
    p_cErr.SetError(CORE_SEND, sReason.ToStr(), -1);
    return -3;
  }
  const bool bResolved = s_sResolvedHost == s_sServer.ToStr();
  pCall->Open(bResolved ? s_sResolved.ToStr() : s_sServer.ToStr(), s_iPort);
  p_cCall = CPendingCall(pCall.release());
  return 0;
}

CPendingCall CCallOrv::Start(int p_iSvcNum, CMsg* p_pIn, int p_iDeadlineMs, CCallOrvError* p_pErr) {
  CPendingCall cCall;
  if (CheckCall(s_bSetupOK, p_iSvcNum, p_pIn != nullptr, p_pErr) == 0) {
    StartChecked(p_iSvcNum, *p_pIn, p_iDeadlineMs, *p_pErr, cCall);
  }
  return cCall;
}

CPendingCall CCallOrv::Start(int p_iSvcNum, CMsgBase* p_pIn, int p_iDeadlineMs, CCallOrvError* p_pErr) {
  CPendingCall cCall;
  if (CheckTypedCall(s_bSetupOK, p_iSvcNum, p_pIn == nullptr ? s_szInputNull : nullptr, p_pErr) < 0) return cCall;
  ThrowPlain([&] {
    const std::unique_ptr<CMsg> pRequest = MakeMsg(*p_pIn, p_iSvcNum, *p_pErr);
    if (pRequest != nullptr) StartChecked(p_iSvcNum, *pRequest, p_iDeadlineMs, *p_pErr, cCall);
  });
  return cCall;
}

int CCallOrv::CallServiceByMsgWithin(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iDeadlineMs,
                                     CCallOrvError* p_pErr) {
  int iRet = CheckCall(s_bSetupOK, p_iSvcNum, p_pIn != nullptr && p_pOut != nullptr, p_pErr);
  if (iRet < 0) return iRet;
  CPendingCall cCall;
  iRet = StartChecked(p_iSvcNum, *p_pIn, p_iDeadlineMs, *p_pErr, cCall);
  return iRet < 0 ? iRet : cCall.Finish(p_pOut, p_pErr);
}

CPendingCall& CPendingCall::operator=(CPendingCall&& p_c) noexcept {
  CallOrv_Call* pCall = p_c.Release();    // also when it is this one
  Cancel();
  m_pCall = pCall;
  return *this;
}

CallOrv_Call* CPendingCall::Release() noexcept { return std::exchange(m_pCall, nullptr); }

int CPendingCall::GetFd() const { return m_pCall != nullptr ? m_pCall->GetFd() : -1; }

int CPendingCall::GetEvents() const { return m_pCall != nullptr ? m_pCall->GetEvents() : 0; }

int CPendingCall::GetTimeLeft() const { return m_pCall != nullptr ? m_pCall->GetTimeLeft() : 0; }

bool CPendingCall::Step() { return m_pCall != nullptr && m_pCall->Step(); }

void CPendingCall::Cancel() noexcept { delete std::exchange(m_pCall, nullptr); }

void CPendingCall::SetUser(void* p_pUser) {
  if (m_pCall != nullptr) m_pCall->pUser = p_pUser;
}

void* CPendingCall::GetUser() const { return m_pCall != nullptr ? m_pCall->pUser : nullptr; }

int CPendingCall::Finish(CMsg* p_pOut, CCallOrvError* p_pErr) {
  const std::unique_ptr<CallOrv_Call> pCall(Release());
  const int iSvcNum = pCall != nullptr ? pCall->iSvcNum : 0;
  int iRet = CheckCall(true, iSvcNum, pCall != nullptr && p_pOut != nullptr, p_pErr);
  if (iRet < 0) return iRet;
  pCall->Await();
  CStream stRoom(0, 512);
  CString sReason;
  const CStream* pBody = pCall->Finish(stRoom, sReason);
  if (pBody != nullptr) {
    iRet = ReadReply(*pBody, *p_pOut, sReason);
  } else {
    const CExchange::E_Phase ePhase = pCall->Phase();
    iRet = ePhase == CExchange::CONNECT ? CORE_CONNECT : ePhase == CExchange::SEND ? CORE_SEND : CORE_RECEIVE;
  }
  return JudgeReply(iRet, sReason, *p_pOut, iSvcNum, *p_pErr);
}

int CPendingCall::Finish(CMsgBase* p_pOut, CCallOrvError* p_pErr) {
  CPendingCall cCall(Release());
  const int iSvcNum = cCall ? cCall.m_pCall->iSvcNum : 0;
  const int iRet = CheckTypedCall(true, iSvcNum, p_pOut == nullptr ? s_szOutputNull : nullptr, p_pErr);
  if (iRet < 0) return iRet;
  return ThrowPlain([&] {
    return GetTypedReply(*p_pOut, iSvcNum, *p_pErr, [&](CMsg* p_pReply) { return cCall.Finish(p_pReply, p_pErr); });
  });
}
