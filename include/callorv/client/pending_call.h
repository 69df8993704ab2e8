// Calls that hold no thread.
#ifndef CALLORV_CLIENT_PENDING_CALL_H
#define CALLORV_CLIENT_PENDING_CALL_H

#include "callorv/client/callorv_error.h"
#include "callorv/client/msg_base.h"
#include "callorv/export.h"

class CMsg;
struct CallOrv_Call;

// A call under way, or none. CCallOrv::Start makes one; destroyed, it cancels. What each operation does, its results
// and what they mean stand above the function of the same name in callorv/callorv.h; without a call it does what that
// does with null. Used by one thread at a time, not always the same one; different calls are independent.
class CALLORV_API CPendingCall {
 public:
  CPendingCall() noexcept : m_pCall(nullptr) {}
  explicit CPendingCall(CallOrv_Call* p_pCall) noexcept : m_pCall(p_pCall) {}    // takes what CallOrv_Start gave
  CPendingCall(CPendingCall&& p_c) noexcept : m_pCall(p_c.Release()) {}
  CPendingCall& operator=(CPendingCall&& p_c) noexcept;    // cancels the call that stood here
  CPendingCall(const CPendingCall&) = delete;
  CPendingCall& operator=(const CPendingCall&) = delete;
  ~CPendingCall() { Cancel(); }

  explicit operator bool() const { return m_pCall != nullptr; }    // whether there is a call
  CallOrv_Call* Release() noexcept;    // hands the call to the caller, for the C functions; none is left here

  // As CallOrv_GetFd, CallOrv_GetEvents, CallOrv_GetTimeLeft and CallOrv_Step.
  int GetFd() const;
  int GetEvents() const;
  int GetTimeLeft() const;
  bool Step();    // whether it is still under way
  // None is left here afterwards, whatever the result. Throws std::bad_alloc.
  int Finish(CMsg* p_pOut, CCallOrvError* p_pErr);
  // The same for a typed message (borrowed).
  //   returns  as CCallOrv::CallService: 0; -12 p_pErr is null; -1 (-12 "Output Msg(p_pOut) is NULL");
  //            -3 (-11 "Out of memory"); -4 as the other Finish; -5 (-1 with p_pOut's sLastError)
  // Throws CException when LoadFromMsg does.
  int Finish(CMsgBase* p_pOut, CCallOrvError* p_pErr);
  void Cancel() noexcept;    // as CallOrv_Cancel; none is left here

  // As CallOrv_SetUser and CallOrv_GetUser.
  void SetUser(void* p_pUser);
  void* GetUser() const;

  // p_pCalls: p_iCount of them in a row, of which those without a call are skipped.
  static int WaitAny(CPendingCall* p_pCalls, int p_iCount, int p_iTimeOutMs);
  static int WaitAny(CallOrv_Call** p_apCalls, int p_iCount, int p_iTimeOutMs);    // the C function

 private:
  CallOrv_Call* m_pCall;    // ours
};
static_assert(sizeof(CPendingCall) == sizeof(void*), "programs know its size");

#endif
