// A socket and its way to a connection.
#ifndef CALLORV_NET_SOCKET_H
#define CALLORV_NET_SOCKET_H

#include <utility>

#include "net/fault.h"

namespace callorv::detail {

enum { SEND_TIME_OUT = 90, RECV_TIME_OUT = 60 };    // seconds that a negative time-out counts as

// Shuts a socket down and closes it; what close() returned.
int ShutAndClose(int p_iSock);

// Closes a socket, unless Release takes it out.
class CSocket {
 public:
  CSocket() = default;
  ~CSocket() {
    if (m_iSock >= 0) ShutAndClose(m_iSock);
  }
  CSocket(const CSocket&) = delete;
  CSocket& operator=(const CSocket&) = delete;

  int Get() const { return m_iSock; }
  void Take(int p_iSock) { m_iSock = p_iSock; }    // only into an empty one
  int Release() { return std::exchange(m_iSock, -1); }

 private:
  int m_iSock = -1;
};

// The first IPv4 address of a host, dotted. 0 or the code of the fault.
int LookUp(const char* p_szHost, CString& p_sDotted, T_Fault& p_tFault);
int ConnectFault(T_Fault& p_tFault);

// Opens a connection into p_cSocket, which is empty and stays so on failure. 0 or the code of the fault.
//   p_iFlags  for socket(); with SOCK_NONBLOCK the connection may still be under way at the end
int Connect(const char* p_szHost, int p_iPort, int p_iFlags, CSocket& p_cSocket, T_Fault& p_tFault);

}    // namespace callorv::detail

#endif
