// What went wrong on a connection, in the words of the adaptor's errors.
#ifndef CALLORV_NET_FAULT_H
#define CALLORV_NET_FAULT_H

#include <string.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "base/detail_text.h"
#include "callorv/net/adaptor.h"

namespace callorv::detail {

// A code with its detail. Making one needs no memory, so that a shortage can be told, too.
struct T_Fault {
  int iCode = 0;    // of E_AdaptError; 0 when there is no text
  char szDetail[DETAIL_SIZE];

  T_Fault() { szDetail[0] = 0; }    // the rest of it is nobody's business
  CALLORV_PRINTF(3, 4) int Set(int p_iCode, const char* p_szFmt, ...) {    // returns p_iCode
    va_list tArgs;
    va_start(tArgs, p_szFmt);
    vsnprintf(szDetail, sizeof(szDetail), p_szFmt, tArgs);
    va_end(tArgs);
    iCode = p_iCode;
    return p_iCode;
  }
  // p_szCall  "send" or "recv"; for ADAPT_SELECT whichever was to follow the wait
  int SetErrno(int p_iCode, const char* p_szCall, int p_iErrno) {
    char szBuf[128];
    return Set(p_iCode, "(%s errno=%d,%s)", p_szCall, p_iErrno, strerror_r(p_iErrno, szBuf, sizeof(szBuf)));
  }
};

// The whole text of a fault.
inline void FormatFault(CString& p_sOut, int p_iCode, const char* p_szDetail) {
  const char* szText = ADAPT_GetErrorStr(p_iCode);
  p_sOut.Format("%s(%d)(%s)", szText != nullptr ? szText : "(null)", p_iCode, p_szDetail);
}

// p_iErrno  0: the peer closed the connection
inline int RecvFault(int p_iErrno, T_Fault& p_tFault) {
  if (p_iErrno == 0) return p_tFault.Set(ADAPT_CLOSED, "OK");
  if (p_iErrno != ECONNRESET) return p_tFault.SetErrno(ADAPT_RECV, "recv", p_iErrno);
  char szBuf[128];
  return p_tFault.Set(ADAPT_CLOSED, "(%s)", strerror_r(p_iErrno, szBuf, sizeof(szBuf)));
}

}    // namespace callorv::detail

#endif
