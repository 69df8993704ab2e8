// Calls that hold no thread, for C.
#include "callorv/callorv.h"
#include "callorv/client/callorv_client.h"
#include "capi/guard.h"

using callorv::detail::GuardService;

namespace {

// Runs an operation on a call, which stays the caller's.
template <class F>
auto Lend(const CallOrv_Call* p_pCall, F p_fnRun) {
  CPendingCall cCall(const_cast<CallOrv_Call*>(p_pCall));
  const auto tResult = p_fnRun(cCall);
  cCall.Release();
  return tResult;
}

}    // namespace

int CallOrv_Resolve(CallOrv_Error* err) { return GuardService(err, CCallOrv::Resolve); }

CallOrv_Call* CallOrv_Start(int svcNum, CMsg* in, int deadlineMs, CallOrv_Error* err) {
  CallOrv_Call* pCall = nullptr;
  GuardService(err, [&](CCallOrvError* p_pErr) {
    pCall = CCallOrv::Start(svcNum, in, deadlineMs, p_pErr).Release();
    return pCall != nullptr ? 0 : -1;
  });
  return pCall;
}

int CallOrv_GetFd(const CallOrv_Call* call) {
  return Lend(call, [](const CPendingCall& p_cCall) { return p_cCall.GetFd(); });
}

int CallOrv_GetEvents(const CallOrv_Call* call) {
  return Lend(call, [](const CPendingCall& p_cCall) { return p_cCall.GetEvents(); });
}

int CallOrv_GetTimeLeft(const CallOrv_Call* call) {
  return Lend(call, [](const CPendingCall& p_cCall) { return p_cCall.GetTimeLeft(); });
}

int CallOrv_Step(CallOrv_Call* call) {
  return Lend(call, [](CPendingCall& p_cCall) { return p_cCall.Step() ? 1 : 0; });
}

int CallOrv_Finish(CallOrv_Call* call, CMsg* out, CallOrv_Error* err) {
  CPendingCall cCall(call);    // freed without a record, too
  return GuardService(err, [&](CCallOrvError* p_pErr) { return cCall.Finish(out, p_pErr); });
}

void CallOrv_Cancel(CallOrv_Call* call) { CPendingCall(call).Cancel(); }

int CallOrv_WaitAny(CallOrv_Call** calls, int n, int timeOutMs) { return CPendingCall::WaitAny(calls, n, timeOutMs); }

int CallOrv_CallServiceWithin(int svcNum, CMsg* in, CMsg* out, int deadlineMs, CallOrv_Error* err) {
  return GuardService(err, [&](CCallOrvError* p_pErr) {
    return CCallOrv::CallServiceByMsgWithin(svcNum, in, out, deadlineMs, p_pErr);
  });
}

void CallOrv_SetUser(CallOrv_Call* call, void* user) {
  Lend(call, [=](CPendingCall& p_cCall) {
    p_cCall.SetUser(user);
    return 0;
  });
}

void* CallOrv_GetUser(const CallOrv_Call* call) {
  return Lend(call, [](const CPendingCall& p_cCall) { return p_cCall.GetUser(); });
}
