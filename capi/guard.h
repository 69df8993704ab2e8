// The edge of the C interface: the error record, and the guard around every call.
#ifndef CALLORV_CAPI_GUARD_H
#define CALLORV_CAPI_GUARD_H

#include <stdio.h>
#include <string.h>

#include <new>

#include "callorv/base/exception.h"
#include "callorv/callorv.h"
#include "callorv/client/callorv_error.h"
#include "callorv/error/error.h"

namespace callorv::detail {

static_assert(alignof(CallOrv_Error) == 4);    // callers have compiled it into their programs

// Fills a record, null for a caller who wants none, and returns p_iCode.
inline int SetError(CallOrv_Error* p_pErr, int p_iCode, const char* p_szText, int p_iRefSvcNum) {
  if (p_pErr != nullptr) {
    const size_t iLen = strnlen(p_szText, sizeof(p_pErr->szText) - 1);
    p_pErr->iCode = p_iCode;
    memcpy(p_pErr->szText, p_szText, iLen);
    p_pErr->szText[iLen] = 0;
    p_pErr->szText[sizeof(p_pErr->szText) - 1] = 0;
    p_pErr->iRefSvcNum = p_iRefSvcNum;
  }
  return p_iCode;
}

// The same for an exception, with the text that the message layer would have kept for its code and detail.
inline int SetMsgError(CallOrv_Error* p_pErr, int p_iCode, const char* p_szDetail) {
  char szText[sizeof(CallOrv_Error::szText)];
  snprintf(szText, sizeof(szText), "MSG_Error(%d) : %s {%s}", p_iCode, MA_GetErrorStr(p_iCode), p_szDetail);
  return SetError(p_pErr, p_iCode, szText, 0);
}

// Runs a call. A CException and a shortage of memory end here: their code becomes the result, and p_pErr (may be
// null) is filled. Whatever else is thrown, such as the unwinding of a cancelled thread, passes.
template <class F>
int Guard(CallOrv_Error* p_pErr, F p_fnCall) {
  try {
    return p_fnCall();
  } catch (const CException& p_c) {
    return SetMsgError(p_pErr, p_c.GetCode(), p_c.GetText());
  } catch (const std::bad_alloc& p_c) {
    return SetMsgError(p_pErr, MSG_MEMORY, p_c.what());
  }
}

// The same for an operation of a message.
template <class F>
int Guard(CMsg* p_pMsg, F p_fnCall) {
  return p_pMsg != nullptr ? Guard(static_cast<CallOrv_Error*>(nullptr), p_fnCall) : MSG_NULL;
}

// The same for a call of the service client, which gets an error of its own to fill. On success the record is left
// alone, so that it keeps an earlier failure.
template <class F>
int GuardService(CallOrv_Error* p_pErr, F p_fnCall) {
  if (p_pErr == nullptr) return MSG_NULL;
  return Guard(p_pErr, [&] {
    CCallOrvError cErr;
    const int iRet = p_fnCall(&cErr);
    if (iRet >= 0) return 0;
    SetError(p_pErr, cErr.iCode, cErr.sText.ToStr(), cErr.iRefSvcNum);
    return iRet;
  });
}

}    // namespace callorv::detail

#endif
