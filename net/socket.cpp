// A socket and its way to a connection.
#include "net/socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "base/cancel.h"

namespace callorv::detail {

namespace {

// The first IPv4 address of a host. A dotted address needs no resolver; gethostbyname would share one buffer among all
// threads.
int Resolve(const char* p_szHost, in_addr& p_tAddr, T_Fault& p_tFault) {
  if (p_szHost == nullptr) return p_tFault.Set(ADAPT_HOST, "(hostname=(null))");
  if (inet_pton(AF_INET, p_szHost, &p_tAddr) == 1) return 0;
  addrinfo tHints = {};
  tHints.ai_family = AF_INET;
  tHints.ai_socktype = SOCK_STREAM;
  addrinfo* pList = nullptr;
  if (getaddrinfo(p_szHost, nullptr, &tHints, &pList) != 0) return p_tFault.Set(ADAPT_HOST, "(hostname=%s)", p_szHost);
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> cOwner(pList, freeaddrinfo);
  p_tAddr = reinterpret_cast<const sockaddr_in*>(pList->ai_addr)->sin_addr;
  return 0;
}

}    // namespace

int ShutAndClose(int p_iSock) {
  const CNoCancel cWhole;
  shutdown(p_iSock, SHUT_RDWR);
  return close(p_iSock);
}

int LookUp(const char* p_szHost, CString& p_sDotted, T_Fault& p_tFault) {
  in_addr tAddr = {};
  if (Resolve(p_szHost, tAddr, p_tFault) < 0) return p_tFault.iCode;
  char szDotted[INET_ADDRSTRLEN];
  p_sDotted = inet_ntop(AF_INET, &tAddr, szDotted, sizeof(szDotted));
  return 0;
}

int ConnectFault(T_Fault& p_tFault) { return p_tFault.Set(ADAPT_CONNECT, "(connect)"); }

int Connect(const char* p_szHost, int p_iPort, int p_iFlags, CSocket& p_cSocket, T_Fault& p_tFault) {
  CSocket cSocket;
  cSocket.Take(socket(AF_INET, SOCK_STREAM | p_iFlags, 0));
  if (cSocket.Get() < 0) return p_tFault.Set(ADAPT_SOCKET, "(iSock=%d)", cSocket.Get());

  sockaddr_in tAddr = {};
  tAddr.sin_family = AF_INET;
  tAddr.sin_port = htons(static_cast<uint16_t>(p_iPort));
  if (Resolve(p_szHost, tAddr.sin_addr, p_tFault) < 0) return p_tFault.iCode;
  const int iOn = 1;
  if (setsockopt(cSocket.Get(), IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn)) < 0) {
    return p_tFault.Set(ADAPT_SOCKOPT, "(TCP_NODELAY)");
  }
  if (p_iPort < 0 || p_iPort > UINT16_MAX) return ConnectFault(p_tFault);
  const int iRet = connect(cSocket.Get(), reinterpret_cast<const sockaddr*>(&tAddr), sizeof(tAddr));
  if (iRet < 0 && (errno != EINPROGRESS || (p_iFlags & SOCK_NONBLOCK) == 0)) return ConnectFault(p_tFault);
  p_cSocket.Take(cSocket.Release());
  return 0;
}

}    // namespace callorv::detail
