// One blocking TCP client socket.
#include "callorv/net/adaptor.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/cancel.h"
#include "base/detail_text.h"
#include "net/checksum.h"
#include "net/fault.h"
#include "net/socket.h"

using namespace callorv::detail;

namespace {

// The text of code -n; the slots from 18 on are reserved.
constexpr const char* s_szaErrStr[50] = {
    "Unknown error",
    "Memory error",
    "Parameter is NULL",
    "Cannot open socket",
    "Failed in gethostbyname()",
    "Failed in connect()",
    "Failed in send()",
    "Failed in recv()",
    "Socket timeout",
    "Socket closed",
    "Failed in select()",
    "Failed in setsockopt()",
    "Socket not connected",
    "Checksum is incorrect",
    "Invalid trailer data",
    "Header format is incorrect",
    "Compression failed",
    "Packet is corrupted",
};
static_assert(sizeof(s_szaErrStr) / sizeof(*s_szaErrStr) == 50 && s_szaErrStr[-ADAPT_CORRUPTED] != nullptr &&
              s_szaErrStr[-ADAPT_CORRUPTED + 1] == nullptr);

// The source file and the lines that the texts of a failed allocation name.
const char s_szSource[] = "adaptor";
enum { LINE_RECORD = 71, LINE_BUFFER = 79 };

// Holds SIGPIPE back in the calling thread, so that a server which closes early does not end the application. The
// application's own mask and handlers are as before afterwards.
class CSigPipeHold {
 public:
  CSigPipeHold() {
    sigemptyset(&m_tSigPipe);
    sigaddset(&m_tSigPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_tSigPipe, &m_tOldMask);
    if (sigismember(&m_tOldMask, SIGPIPE) == 1) {    // else it would have been delivered already
      sigset_t tPending;
      sigpending(&tPending);
      m_bWasPending = sigismember(&tPending, SIGPIPE) == 1;
    }
  }
  ~CSigPipeHold() {
    if (m_bSending) Discard();    // cancelled: who knows how far it came
    pthread_sigmask(SIG_SETMASK, &m_tOldMask, nullptr);
  }
  CSigPipeHold(const CSigPipeHold&) = delete;
  CSigPipeHold& operator=(const CSigPipeHold&) = delete;

  // send(), with its errno.
  ssize_t Send(int p_iSock, const char* p_pData, size_t p_uLen) {
    errno = 0;
    m_bSending = true;
    const ssize_t iSent = send(p_iSock, p_pData, p_uLen, 0);
    m_bSending = false;
    const int iErrno = errno;
    if (iErrno == EPIPE) Discard();
    errno = iErrno;
    return iSent;
  }

 private:
  // Takes back the signal that a send() with EPIPE raised; one that was pending before belongs to the application.
  void Discard() const {
    const CNoCancel cWhole;
    const timespec tNoWait = {};
    if (!m_bWasPending) sigtimedwait(&m_tSigPipe, nullptr, &tNoWait);
  }

  sigset_t m_tSigPipe;
  sigset_t m_tOldMask;
  bool m_bWasPending = false;
  bool m_bSending = false;
};

enum E_Direction { WAIT_READ, WAIT_WRITE };

// Waits by select() for one socket, p_iTimeOut seconds at most. The set is as large as the descriptor needs, since an
// fd_set ends at 1023. 0 or the code of the fault.
int Wait(int p_iSock, E_Direction p_eDirection, int p_iTimeOut, T_Fault& p_tFault) {
  const char* szCall = p_eDirection == WAIT_READ ? "recv" : "send";
  using Word = unsigned long;    // the kernel reads the bits in longs
  const size_t uBits = 8 * sizeof(Word);
  Word aSmall[FD_SETSIZE / uBits] = {};
  std::unique_ptr<Word[]> pLarge;
  Word* pBits = aSmall;
  const size_t uSock = static_cast<size_t>(p_iSock);
  if (uSock >= FD_SETSIZE) {
    pLarge.reset(new (std::nothrow) Word[uSock / uBits + 1]());
    if (pLarge == nullptr) return p_tFault.SetErrno(ADAPT_SELECT, szCall, ENOMEM);
    pBits = pLarge.get();
  }
  pBits[uSock / uBits] |= Word{1} << uSock % uBits;
  fd_set* pSet = reinterpret_cast<fd_set*>(pBits);
  timeval tTime = {p_iTimeOut, 0};    // select() counts it down
  const int iReady = select(p_iSock + 1, p_eDirection == WAIT_READ ? pSet : nullptr,
                            p_eDirection == WAIT_WRITE ? pSet : nullptr, nullptr, &tTime);
  const int iErrno = errno;
  if (iReady < 0) return p_tFault.SetErrno(ADAPT_SELECT, szCall, iErrno);
  if (iReady == 0) return p_tFault.Set(ADAPT_TIMEOUT, "(%s to=%d)", szCall, static_cast<int>(tTime.tv_sec));
  return 0;
}

}    // namespace

const char* ADAPT_GetErrorStr(int p_iCode) {
  const unsigned uIndex = p_iCode < 0 ? 0u - static_cast<unsigned>(p_iCode) : static_cast<unsigned>(p_iCode);
  return s_szaErrStr[uIndex < 50 ? uIndex : 0];
}

CAdaptor::T_PacketInfo::T_PacketInfo() : iSvcNum(0), iMsgNum(0), iExtra(0), bCompressed(false), stBody(0, 512) {}

struct CAdaptor::T_LastError {
  int iCode = 0;
  CString sText;
};

CAdaptor::CAdaptor()
    : iPort(0), iSock(-1), iSendTimeOut(SEND_TIME_OUT), iRecvTimeOut(RECV_TIME_OUT), pLastError(nullptr) {}

CAdaptor::~CAdaptor() { delete pLastError; }

int CAdaptor::Connect(const char* p_szHost, int p_iPort) {
  CSocket cSocket;
  T_Fault tFault;
  if (callorv::detail::Connect(p_szHost, p_iPort, 0, cSocket, tFault) < 0) {
    return Fail(tFault.iCode, "%s", tFault.szDetail);
  }
  try {
    sHost = p_szHost;
  } catch (const std::bad_alloc&) {
    return Fail(ADAPT_MEMORY, "(Connect)");
  }
  iPort = p_iPort;
  iSock = cSocket.Release();
  return iSock;
}

int CAdaptor::SendData(const char* p_pData, int p_iLen, int p_iTimeOut) {
  if (iSock < 0) return Fail(ADAPT_NOT_CONNECTED, "(SendData)");
  if (p_pData == nullptr) return Fail(ADAPT_NULL, "p_pData");
  if (p_iTimeOut < 0) p_iTimeOut = iSendTimeOut;
  if (p_iLen < 1) return 0;

  T_Fault tFault;
  CSigPipeHold cHold;
  for (;;) {
    const ssize_t iSent = cHold.Send(iSock, p_pData, static_cast<size_t>(p_iLen));
    const int iErrno = errno;
    if (iSent > 0) {
      p_pData += iSent;
      p_iLen -= static_cast<int>(iSent);
      if (p_iLen == 0) return 0;
    } else if (iErrno != EAGAIN) {
      return Fail(tFault.SetErrno(ADAPT_SEND, "send", iErrno), "%s", tFault.szDetail);
    }
    if (Wait(iSock, WAIT_WRITE, p_iTimeOut, tFault) < 0) return Fail(tFault.iCode, "%s", tFault.szDetail);
  }
}

int CAdaptor::ReceiveData(char* p_pBuf, int p_iLen, int p_iTimeOut) {
  if (iSock < 0) return Fail(ADAPT_NOT_CONNECTED, "(ReceiveData)");
  if (p_iTimeOut < 0) p_iTimeOut = iRecvTimeOut;

  T_Fault tFault;
  int iLeft = p_iLen;
  while (iLeft > 0) {
    if (Wait(iSock, WAIT_READ, p_iTimeOut, tFault) < 0) return Fail(tFault.iCode, "%s", tFault.szDetail);

    errno = 0;
    const ssize_t iGot = recv(iSock, p_pBuf, static_cast<size_t>(iLeft), 0);
    const int iErrno = errno;
    if (iGot > 0) {
      p_pBuf += iGot;
      iLeft -= static_cast<int>(iGot);
    } else if (iErrno != EAGAIN) {
      return Fail(RecvFault(iErrno, tFault), "%s", tFault.szDetail);
    }
  }
  return p_iLen;
}

int CAdaptor::Disconnect() { return ShutAndClose(std::exchange(iSock, -1)); }

void CAdaptor::SetLastError(int p_iCode, const char* p_szFmt, ...) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  Record(p_iCode, p_szFmt, tArgs);
  va_end(tArgs);
}

int CAdaptor::Fail(int p_iCode, const char* p_szFmt, ...) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  Record(p_iCode, p_szFmt, tArgs);
  va_end(tArgs);
  return p_iCode;
}

void CAdaptor::Record(int p_iCode, const char* p_szFmt, va_list p_tArgs) {
  try {
    if (pLastError == nullptr) pLastError = new T_LastError;
    pLastError->iCode = p_iCode;
    const auto pDetail = FormatDetail(s_szSource, LINE_BUFFER, "char[iLen]", p_szFmt, p_tArgs);
    FormatFault(pLastError->sText, p_iCode, pDetail.get());
  } catch (const std::bad_alloc& cNoMemory) {
    ThrowNoMemory(s_szSource, LINE_RECORD, "Error", cNoMemory.what());
  }
}

const char* CAdaptor::GetLastError() { return pLastError != nullptr ? pLastError->sText.ToStr() : ""; }

int CAdaptor::CalcCheckSum(const char* p_pData, int p_iLen) {
  return p_iLen < 1 ? 0 : static_cast<int>(Sum(p_pData, static_cast<size_t>(p_iLen)) % 256);
}
