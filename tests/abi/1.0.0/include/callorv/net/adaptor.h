// One blocking TCP client socket.
#ifndef CALLORV_NET_ADAPTOR_H
#define CALLORV_NET_ADAPTOR_H

#include <cstdarg>

#include "callorv/base/str.h"
#include "callorv/base/stream.h"
#include "callorv/export.h"

enum E_AdaptError {
  ADAPT_MEMORY = -1,
  ADAPT_NULL = -2,
  ADAPT_SOCKET = -3,
  ADAPT_HOST = -4,
  ADAPT_CONNECT = -5,
  ADAPT_SEND = -6,
  ADAPT_RECV = -7,
  ADAPT_TIMEOUT = -8,
  ADAPT_CLOSED = -9,
  ADAPT_SELECT = -10,
  ADAPT_SOCKOPT = -11,
  ADAPT_NOT_CONNECTED = -12,
  ADAPT_CHECKSUM = -13,
  ADAPT_HEADER = -15,
  ADAPT_COMPRESSION = -16,
  ADAPT_CORRUPTED = -17
};

// The text of an adaptor code; n and -n have the same. Constant, never freed.
//   returns  "Unknown error" for 0 and from 50 on; null for 18 to 49, which are reserved
// Any thread.
extern "C" CALLORV_API const char* ADAPT_GetErrorStr(int p_iCode);

// Moves exact byte counts over one TCP connection. Every failure leaves its text in GetLastError() and returns the
// code of the same text; the connection then stays open until Disconnect. Signals: a peer that went away never
// raises SIGPIPE (it is held back in the calling thread while sending), but any other signal with a handler that
// arrives during a wait ends it with -10. Use from one thread at a time; distinct objects are independent.
class CALLORV_API CAdaptor {
 public:
  // One packet, as it is sent or was received.
  struct CALLORV_API T_PacketInfo {
    int iSvcNum;         // service number, 4 digits
    int iMsgNum;         // message number, 4 digits
    int iExtra;          // free number, 10 digits
    CString sTimeStamp;  // local time of sending, YYYYMMDD-HHMMSS
    CString sUserKey;    // up to 20 characters
    CString sAux13;      // free texts, padded with blanks on the wire
    bool bCompressed;    // the body is compressed on the wire
    CString sAux8;
    CString sAux21;
    CStream stBody;      // the body, never compressed here

    T_PacketInfo();      // numbers 0, texts empty, not compressed
  };

  CAdaptor();
  // Does not close the socket; call Disconnect first.
  virtual ~CAdaptor();
  CAdaptor(const CAdaptor&) = delete;
  CAdaptor& operator=(const CAdaptor&) = delete;

  // Send one packet, receive one packet; see CTcpAdaptor.
  virtual int SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) = 0;
  virtual int ReceiveFrom(T_PacketInfo* p_pInfo, int p_iTimeOut) = 0;

  // Opens a connection. Blocking, without a time-out of its own; only the first IPv4 address of the host is tried. A
  // connection that was open before is forgotten, not closed.
  //   p_szHost  name or dotted address
  //   returns   the descriptor (0 or above), or -3 "(iSock=%d)", -4 "(hostname=%s)", -11 "(TCP_NODELAY)",
  //             -5 "(connect)" (also for a port outside 0 to 65535), -1 "(Connect)" no memory for the host's name;
  //             the object is then as before
  int Connect(const char* p_szHost, int p_iPort);
  // Hands p_iLen bytes to the kernel.
  //   p_iTimeOut  seconds for each wait, not for the whole; negative: 90
  //   returns     -12 "(SendData)" not connected, -2 "p_pData" null; 0 at once when p_iLen is below 1; then 0, or
  //               -10 "(send errno=%d,%s)", -8 "(send to=%d)" no room in time, -6 "(send errno=%d,%s)"
  int SendData(const char* p_pData, int p_iLen, int p_iTimeOut);
  // Reads exactly p_iLen bytes into p_pBuf (caller's, at least p_iLen bytes).
  //   p_iTimeOut  seconds for each wait, not for the whole; negative: 60
  //   returns     -12 "(ReceiveData)" not connected; p_iLen at once when it is below 1; then p_iLen when all came, or
  //               -10 "(recv errno=%d,%s)", -8 "(recv to=%d)" nothing came in time, -9 "OK" or "(%s)" the peer
  //               closed or reset the connection, -7 "(recv errno=%d,%s)"; bytes that came before stay in p_pBuf
  int ReceiveData(char* p_pBuf, int p_iLen, int p_iTimeOut);
  // Shuts down and closes the socket; what close() returned (-1 when none was open).
  int Disconnect();

  // Keeps "<ADAPT_GetErrorStr(code)>(<code>)(<detail>)", the detail cut at 1023 characters. Throws CException (-11)
  // when there is no memory for it.
  void SetLastError(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);
  // Text of the latest failure, "" when there was none; a later success does not clear it.
  // Borrowed: valid until the next failure on this object or its destruction.
  const char* GetLastError();

  // Sum of the bytes modulo 256; 0 when p_iLen is below 1.
  static int CalcCheckSum(const char* p_pData, int p_iLen);

 protected:
  CString sHost;       // of the last successful Connect
  int iPort;
  int iSock;           // -1: not connected
  int iSendTimeOut;    // seconds
  int iRecvTimeOut;

  int Fail(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);    // SetLastError, then returns p_iCode

 private:
  struct T_LastError;
  T_LastError* pLastError;    // made by the first failure

  void Record(int p_iCode, const char* p_szFmt, va_list p_tArgs) CALLORV_PRINTF(3, 0);
};

#endif
