// One packet out and one in, without a wait.
#include "net/exchange.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <new>
#include <utility>

#include "base/cancel.h"
#include "net/socket.h"

namespace callorv::detail {

namespace {

// A step takes so much of a packet at most, so that a long one does not keep the others waiting.
enum { STEP_BYTES = 64 * 1024 };
// The first bytes are received here, which spares a short packet's header and trailer a call of the system each, and
// needs no memory for a body that is only announced.
enum { FIRST_BYTES = 4 * 1024 };
// Room for a short request's packet: of the sizes that the C library keeps for each thread, on i386 up to 1,020 bytes.
// A kilobyte cost 500 instructions more there.
enum { PACKET_ROOM = 1000 };

// Counted from the loading of the library on, until it is unloaded: no thread can be in the middle of arranging that
// when another one forks.
std::atomic<unsigned> s_uForks{0};
const bool s_bForksAreCounted = pthread_atfork([] { ++s_uForks; }, nullptr, nullptr) == 0;

// How many forks were begun; when they are not counted, there is one before each question.
unsigned CountForks() { return s_bForksAreCounted ? s_uForks.load() : ++s_uForks; }

}    // namespace

long long Now() {
  timespec tNow = {};
  clock_gettime(CLOCK_MONOTONIC, &tNow);
  return tNow.tv_sec * 1000000000LL + tNow.tv_nsec;
}

int MillisecondsUntil(long long p_iEnd) {
  const long long iLeft = (p_iEnd - Now() + 999999) / 1000000;
  return static_cast<int>(std::clamp<long long>(iLeft, 0, INT_MAX));
}

CExchange::CExchange(int p_iDeadlineMs)
    : m_iDeadlineMs(p_iDeadlineMs), m_iEnd(Now() + p_iDeadlineMs * 1000000LL), m_uForks(CountForks()),
      m_oPacket(std::in_place, 0, PACKET_ROOM) {}

CExchange::~CExchange() { Close(); }

void CExchange::Close() {
  if (m_iSock < 0) return;
  const CNoCancel cWhole;
  close(std::exchange(m_iSock, -1));
}

void CExchange::Open(const char* p_szHost, int p_iPort) {
  T_Fault tFault;
  CSocket cSocket;
  if (Connect(p_szHost, p_iPort, SOCK_NONBLOCK | SOCK_CLOEXEC, cSocket, tFault) < 0) Fail(tFault);
  m_iSock = cSocket.Release();
  Proceed();    // on the same machine a connection is made by now; when it failed, all is over
  if (m_bFailed && m_ePhase == CONNECT) Close();
}

int CExchange::GetEvents() const {
  if (m_bOver) return 0;
  return m_ePhase == RECEIVE ? POLLIN : POLLOUT;
}

void CExchange::Fail(const T_Fault& p_tFault) {
  m_bOver = m_bFailed = true;
  if (p_tFault.iCode == 0) return;
  try {
    FormatFault(m_sFault, p_tFault.iCode, p_tFault.szDetail);
  } catch (const std::bad_alloc&) {
    m_bNoMemory = true;
  }
}

const char* CExchange::PhaseName() const {
  if (m_ePhase == CONNECT) return "connect";
  if (m_ePhase == SEND) return "send";
  return m_cMachine.PartName();
}

bool CExchange::Step() {
  if (m_bOver) return false;
  const CNoCancel cWhole;
  Proceed();
  return !m_bOver;
}

void CExchange::Proceed() {
  T_Fault tFault;
  if (!m_bOver && Advance(tFault) < 0) Fail(tFault);
}

int CExchange::Advance(T_Fault& p_tFault) {
  if (Now() >= m_iEnd) return p_tFault.Set(ADAPT_TIMEOUT, "(%s, %d ms)", PhaseName(), m_iDeadlineMs);
  return m_ePhase == RECEIVE ? Receive(p_tFault) : Send(p_tFault);
}

// Sending is also how to learn whether the connection is made: EAGAIN until it is, and then why not, which the kernel
// tells only once.
int CExchange::Send(T_Fault& p_tFault) {
  const int iLeft = m_oPacket->GetSize() - m_iSent;
  errno = 0;
  const ssize_t iSent = send(m_iSock, m_oPacket->GetData() + m_iSent,
                             static_cast<size_t>(std::min<int>(iLeft, STEP_BYTES)), MSG_NOSIGNAL);
  const int iErrno = errno;
  if (iSent <= 0) {
    if (iErrno == EAGAIN) return 0;
    const bool bWasMade = iErrno == ECONNRESET || iErrno == EPIPE;    // one that was not is refused instead
    if (m_ePhase == CONNECT && !bWasMade) return ConnectFault(p_tFault);
    m_ePhase = SEND;
    return p_tFault.SetErrno(ADAPT_SEND, "send", iErrno);
  }
  m_ePhase = SEND;
  m_iSent += static_cast<int>(iSent);
  if (m_iSent == m_oPacket->GetSize()) {
    m_ePhase = RECEIVE;
    m_oPacket.reset();
  }
  return 0;
}

int CExchange::Receive(T_Fault& p_tFault) {
  char szFirst[FIRST_BYTES];
  for (int iLeft = STEP_BYTES; iLeft > 0;) {
    CPacketMachine::T_Room tRoom{szFirst, FIRST_BYTES};
    const bool bFirst = m_cMachine.Part() != CPacketMachine::BODY || m_cMachine.GetHave() < FIRST_BYTES;
    int iRet = bFirst ? 0 : m_cMachine.GetRoom(FIRST_BYTES, tRoom, p_tFault);
    if (iRet < 0) return iRet;
    const int iWanted = std::min(tRoom.iLen, iLeft);
    errno = 0;
    const ssize_t iGot = recv(m_iSock, tRoom.pAt, static_cast<size_t>(iWanted), 0);
    const int iErrno = errno;
    if (iGot <= 0) {
      if (iErrno == EAGAIN) return 0;
      return m_cMachine.Cut(RecvFault(iErrno, p_tFault), p_tFault);
    }
    const int iBytes = static_cast<int>(iGot);
    iRet = bFirst ? m_cMachine.Feed(szFirst, iBytes, p_tFault) : m_cMachine.Fill(iBytes, p_tFault);
    if (iRet < 0) return iRet;
    m_bOver = m_cMachine.Part() == CPacketMachine::COMPLETE;
    if (m_bOver || iBytes < iWanted) return 0;
    iLeft -= iBytes;
  }
  return 0;
}

void CExchange::Await() {
  // When the thread is cancelled; AddressSanitizer, too, learns of it only by a destructor here.
  struct T_CloseUnlessOver {
    CExchange& cExchange;
    ~T_CloseUnlessOver() {
      if (!cExchange.m_bOver) cExchange.Close();
    }
  } const cCloseUnlessOver{*this};
  while (!m_bOver) {
    pollfd tPoll = {m_iSock, static_cast<short>(GetEvents()), 0};
    const int iReady = poll(&tPoll, 1, GetTimeLeft());
    const int iErrno = errno;
    if (iReady >= 0) {
      Step();
      continue;
    }
    T_Fault tFault;
    const char* szCall = m_ePhase == SEND ? "send" : "recv";
    m_ePhase == CONNECT ? ConnectFault(tFault) : tFault.SetErrno(ADAPT_SELECT, szCall, iErrno);
    Fail(tFault);
  }
}

const CStream* CExchange::Finish(CStream& p_stRoom, CString& p_sErr) {
  // A child may have the descriptor, too: only shutting it down ends the connection then. Otherwise closing is enough,
  // and shutting down first would make a call in flight 3 % dearer.
  if (m_iSock >= 0 && m_uForks != CountForks()) ShutAndClose(std::exchange(m_iSock, -1));
  Close();
  if (m_cMachine.Part() >= CPacketMachine::TRAILER) {    // whatever came of the checksum: a bad body is told first
    T_Fault tFault;
    const CStream* pBody = m_cMachine.Unpack(p_stRoom, tFault);
    if (pBody == nullptr) FormatFault(p_sErr, tFault.iCode, tFault.szDetail);
    if (pBody == nullptr || !m_bFailed) return pBody;
  }
  if (m_bNoMemory) throw std::bad_alloc();
  p_sErr = m_sFault;
  return nullptr;
}

}    // namespace callorv::detail
