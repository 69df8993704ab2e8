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
};

// The whole text of a fault.
inline void FormatFault(CString& p_sOut, int p_iCode, const char* p_szDetail) {
  const char* szText = ADAPT_GetErrorStr(p_iCode);
  p_sOut.Format("%s(%d)(%s)", szText != nullptr ? szText : "(null)", p_iCode, p_szDetail);
}

// strerror's text for an errno value, safe in any thread.
class CErrnoText {
 public:
  explicit CErrnoText(int p_iErrno) : m_szText(strerror_r(p_iErrno, m_szBuf, sizeof(m_szBuf))) {}
  CErrnoText(const CErrnoText&) = delete;
  CErrnoText& operator=(const CErrnoText&) = delete;

  const char* ToStr() const { return m_szText; }

 private:
  char m_szBuf[128];
  const char* m_szText;
};

inline int SendFault(int p_iErrno, T_Fault& p_tFault) {
  return p_tFault.Set(ADAPT_SEND, "(send errno=%d,%s)", p_iErrno, CErrnoText(p_iErrno).ToStr());
}

// p_iErrno  0: the peer closed the connection
inline int RecvFault(int p_iErrno, T_Fault& p_tFault) {
  if (p_iErrno == 0) return p_tFault.Set(ADAPT_CLOSED, "OK");
  const CErrnoText cText(p_iErrno);
  if (p_iErrno == ECONNRESET) return p_tFault.Set(ADAPT_CLOSED, "(%s)", cText.ToStr());
  return p_tFault.Set(ADAPT_RECV, "(recv errno=%d,%s)", p_iErrno, cText.ToStr());
}

// p_szWhat  "send" or "recv", whichever was to follow the wait
inline int WaitFault(const char* p_szWhat, int p_iErrno, T_Fault& p_tFault) {
  return p_tFault.Set(ADAPT_SELECT, "(%s errno=%d,%s)", p_szWhat, p_iErrno, CErrnoText(p_iErrno).ToStr());
}

}    // namespace callorv::detail

#endif
