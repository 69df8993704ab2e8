// The functions in front of the C library's.

// All names of what has twins for large files and late dates are defined here, and nothing is to be inlined.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS
#undef _FORTIFY_SOURCE
#include "syscall_gate.h"

#include <dlfcn.h>
#include <errno.h>
#include <netdb.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

thread_local bool s_bArmed = false;
std::vector<T_Fault> s_atFault;    // of the armed thread
int s_aiCount[CALLS];
std::vector<long> s_aiWait;
FILE* s_pBroken = nullptr;    // whose ferror() is set

// The C library's function of a name.
template <class FN>
FN* Real(const char* p_szName, FN*) {
  return reinterpret_cast<FN*>(dlsym(RTLD_NEXT, p_szName));
}

// The fault that this call meets, or null; what is as always otherwise has happened when this returns.
const T_Fault* Meet(E_Call p_eCall) {
  if (!s_bArmed) return nullptr;
  ++s_aiCount[p_eCall];
  for (const T_Fault& tFault : s_atFault) {
    if (tFault.eCall != p_eCall || (tFault.iNth != 0 && tFault.iNth != s_aiCount[p_eCall])) continue;
    if (tFault.eFault == FAULT_LATE) usleep(10000);
    if (tFault.eFault == FAULT_CANCEL || tFault.bCancel) pthread_cancel(pthread_self());
    return tFault.eFault == FAULT_LATE || tFault.eFault == FAULT_CANCEL ? nullptr : &tFault;
  }
  return nullptr;
}

// For a function whose only fault is an errno: true when this call fails.
bool Fails(E_Call p_eCall) {
  const T_Fault* pFault = Meet(p_eCall);
  if (pFault == nullptr) return false;
  errno = pFault->iErrno;
  return true;
}

// How many of p_uCount a call is to move: p_fnReal(that many), unless it fails.
template <class RESULT, class REAL>
RESULT Move(const T_Fault* p_pFault, RESULT p_Failed, size_t p_uFew, REAL p_fnReal, size_t p_uCount) {
  if (p_pFault == nullptr) return p_fnReal(p_uCount);
  if (p_pFault->eFault == FAULT_SHORT) return p_fnReal(std::min(p_uFew, p_uCount));
  if (p_pFault->eFault == FAULT_NONE) return 0;
  errno = p_pFault->iErrno;
  return p_Failed;
}

template <class REAL, class TIME, class SECONDS>
int Select(REAL p_fnReal, int p_iCount, fd_set* p_pRead, fd_set* p_pWrite, fd_set* p_pExcept, TIME* p_pTime,
           SECONDS TIME::*p_pSeconds) {
  if (s_bArmed) s_aiWait.push_back(static_cast<long>(p_pTime->*p_pSeconds));
  const T_Fault* pFault = Meet(CALL_SELECT);
  if (pFault == nullptr) return p_fnReal(p_iCount, p_pRead, p_pWrite, p_pExcept, p_pTime);
  if (pFault->eFault == FAULT_TIME) {
    *p_pTime = {};
    return 0;
  }
  errno = pFault->iErrno;
  return -1;
}

}    // namespace

const char* CallName(E_Call p_eCall) {
  static const char* const s_aszName[CALLS] = {"socket", "getaddrinfo", "setsockopt", "connect", "send",  "select", "poll",
                                               "recv",   "shutdown",    "close",      "stat",    "fopen", "fgets",
                                               "fread",  "fwrite",      "fflush",     "fclose"};
  return s_aszName[p_eCall];
}

const char* NamedHost() { return "server.invalid"; }

void CSyscallGate::Arm(const std::vector<T_Fault>& p_atFault) {
  s_atFault = p_atFault;
  std::fill_n(s_aiCount, +CALLS, 0);
  s_aiWait.clear();
  s_pBroken = nullptr;
  s_bArmed = true;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}
void CSyscallGate::Disarm() {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);    // what comes now is not the library's
  s_bArmed = false;
  s_pBroken = nullptr;
}
int CSyscallGate::GetCount(E_Call p_eCall) { return s_aiCount[p_eCall]; }
const std::vector<long>& CSyscallGate::GetWaits() { return s_aiWait; }

#define REAL(FUNCTION) ([] { static const auto s_fn = Real(#FUNCTION, &FUNCTION); return s_fn; }())

#pragma GCC visibility push(default)
extern "C" {

int socket(int p_iDomain, int p_iType, int p_iProtocol) noexcept {
  return Fails(CALL_SOCKET) ? -1 : REAL(socket)(p_iDomain, p_iType, p_iProtocol);
}

int getaddrinfo(const char* p_szNode, const char* p_szService, const addrinfo* p_pHints, addrinfo** p_ppResult) {
  if (const T_Fault* pFault = Meet(CALL_GETADDRINFO)) return pFault->iErrno;
  const bool bNamed = p_szNode != nullptr && strcmp(p_szNode, NamedHost()) == 0;
  return REAL(getaddrinfo)(bNamed ? "127.0.0.1" : p_szNode, p_szService, p_pHints, p_ppResult);
}

int setsockopt(int p_iSock, int p_iLevel, int p_iName, const void* p_pValue, socklen_t p_uLen) noexcept {
  return Fails(CALL_SETSOCKOPT) ? -1 : REAL(setsockopt)(p_iSock, p_iLevel, p_iName, p_pValue, p_uLen);
}

int connect(int p_iSock, const sockaddr* p_pAddr, socklen_t p_uLen) {
  return Fails(CALL_CONNECT) ? -1 : REAL(connect)(p_iSock, p_pAddr, p_uLen);
}

ssize_t send(int p_iSock, const void* p_pData, size_t p_uLen, int p_iFlags) {
  const T_Fault* pFault = Meet(CALL_SEND);
  if (pFault != nullptr && pFault->eFault == FAULT_ERRNO && pFault->iErrno == EPIPE &&
      (p_iFlags & MSG_NOSIGNAL) == 0) {
    pthread_kill(pthread_self(), SIGPIPE);    // as the kernel does
  }
  const auto fnSend = [&](size_t p_uCount) { return REAL(send)(p_iSock, p_pData, p_uCount, p_iFlags); };
  return Move<ssize_t>(pFault, -1, 1, fnSend, p_uLen);
}

ssize_t recv(int p_iSock, void* p_pBuf, size_t p_uLen, int p_iFlags) {
  const auto fnRecv = [&](size_t p_uCount) { return REAL(recv)(p_iSock, p_pBuf, p_uCount, p_iFlags); };
  return Move<ssize_t>(Meet(CALL_RECV), -1, 1, fnRecv, p_uLen);
}

int select(int p_iCount, fd_set* p_pRead, fd_set* p_pWrite, fd_set* p_pExcept, timeval* p_pTime) {
  return Select(REAL(select), p_iCount, p_pRead, p_pWrite, p_pExcept, p_pTime, &timeval::tv_sec);
}

int poll(pollfd* p_ptPoll, nfds_t p_uCount, int p_iTimeOut) {
  return Fails(CALL_POLL) ? -1 : REAL(poll)(p_ptPoll, p_uCount, p_iTimeOut);
}

int shutdown(int p_iSock, int p_iHow) noexcept {
  return Fails(CALL_SHUTDOWN) ? -1 : REAL(shutdown)(p_iSock, p_iHow);
}

int close(int p_iFile) {
  const bool bFails = Fails(CALL_CLOSE);
  const int iErrno = errno;
  const int iRet = REAL(close)(p_iFile);
  if (!bFails) return iRet;
  errno = iErrno;
  return -1;
}

int stat(const char* p_szPath, struct stat* p_pStat) noexcept {
  return Fails(CALL_STAT) ? -1 : REAL(stat)(p_szPath, p_pStat);
}
int stat64(const char* p_szPath, struct stat64* p_pStat) noexcept {
  return Fails(CALL_STAT) ? -1 : REAL(stat64)(p_szPath, p_pStat);
}

#ifndef __LP64__    // what setsockopt, select and stat are with 64-bit times
int __setsockopt64(int p_iSock, int p_iLevel, int p_iName, const void* p_pValue, socklen_t p_uLen) noexcept {
  return Fails(CALL_SETSOCKOPT) ? -1 : REAL(__setsockopt64)(p_iSock, p_iLevel, p_iName, p_pValue, p_uLen);
}
struct T_Time64 {
  long long llSec, llMicro;
};
int __select64(int p_iCount, fd_set* p_pRead, fd_set* p_pWrite, fd_set* p_pExcept, T_Time64* p_pTime) {
  return Select(REAL(__select64), p_iCount, p_pRead, p_pWrite, p_pExcept, p_pTime, &T_Time64::llSec);
}
int __stat64_time64(const char* p_szPath, void* p_pStat) noexcept {
  return Fails(CALL_STAT) ? -1 : REAL(__stat64_time64)(p_szPath, p_pStat);
}
#endif

FILE* fopen(const char* p_szPath, const char* p_szMode) {
  return Fails(CALL_FOPEN) ? nullptr : REAL(fopen)(p_szPath, p_szMode);
}
FILE* fopen64(const char* p_szPath, const char* p_szMode) {
  return Fails(CALL_FOPEN) ? nullptr : REAL(fopen64)(p_szPath, p_szMode);
}

char* fgets(char* p_szBuf, int p_iSize, FILE* p_pFile) {
  return Fails(CALL_FGETS) ? nullptr : REAL(fgets)(p_szBuf, p_iSize, p_pFile);
}

size_t fread(void* p_pBuf, size_t p_uSize, size_t p_uCount, FILE* p_pFile) {
  const T_Fault* pFault = Meet(CALL_FREAD);
  if (pFault != nullptr && pFault->eFault == FAULT_ERRNO) s_pBroken = p_pFile;
  const auto fnRead = [&](size_t p_uMany) { return REAL(fread)(p_pBuf, p_uSize, p_uMany, p_pFile); };
  return Move<size_t>(pFault, 0, p_uCount / 2, fnRead, p_uCount);
}

int ferror(FILE* p_pFile) noexcept { return p_pFile == s_pBroken ? 1 : REAL(ferror)(p_pFile); }

size_t fwrite(const void* p_pData, size_t p_uSize, size_t p_uCount, FILE* p_pFile) {
  const auto fnWrite = [&](size_t p_uMany) { return REAL(fwrite)(p_pData, p_uSize, p_uMany, p_pFile); };
  return Move<size_t>(Meet(CALL_FWRITE), 0, p_uCount - 1, fnWrite, p_uCount);
}

int fflush(FILE* p_pFile) { return Fails(CALL_FFLUSH) ? EOF : REAL(fflush)(p_pFile); }

int fclose(FILE* p_pFile) {
  if (p_pFile == s_pBroken) s_pBroken = nullptr;    // the next file may get its place
  const bool bFails = Fails(CALL_FCLOSE);
  const int iErrno = errno;
  const int iRet = REAL(fclose)(p_pFile);
  if (!bFails) return iRet;
  errno = iErrno;
  return EOF;
}

}    // extern "C"
#pragma GCC visibility pop
