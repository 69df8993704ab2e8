// A port that nobody should connect to.
#ifndef TESTS_UNIT_MSG_SILENT_PORT_H
#define TESTS_UNIT_MSG_SILENT_PORT_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

// Listens on 127.0.0.1. A connection is made by the kernel, so whoever tried is seen afterwards.
class CSilentPort {
 public:
  CSilentPort() : m_iSock(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    sockaddr_in tAddr = {};
    tAddr.sin_family = AF_INET;
    tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t iSize = sizeof tAddr;
    sockaddr* pAddr = reinterpret_cast<sockaddr*>(&tAddr);
    if (m_iSock < 0 || bind(m_iSock, pAddr, iSize) != 0 || listen(m_iSock, 5) != 0 ||
        getsockname(m_iSock, pAddr, &iSize) != 0) {
      throw std::runtime_error("no port");
    }
    m_iPort = ntohs(tAddr.sin_port);
  }
  ~CSilentPort() { close(m_iSock); }
  CSilentPort(const CSilentPort&) = delete;
  CSilentPort& operator=(const CSilentPort&) = delete;

  std::string Url() const { return "http://127.0.0.1:" + std::to_string(m_iPort) + "/doc.xml"; }

  // Whether anybody has connected since the last call.
  bool WasCalled() const {
    const int iPeer = accept(m_iSock, nullptr, nullptr);
    if (iPeer >= 0) close(iPeer);
    return iPeer >= 0;
  }

 private:
  int m_iSock;
  int m_iPort;
};

#endif
