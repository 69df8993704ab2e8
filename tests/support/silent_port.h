// A port at which nothing in the process accepts.
#ifndef TESTS_SUPPORT_SILENT_PORT_H
#define TESTS_SUPPORT_SILENT_PORT_H

#include <fcntl.h>

#include "support/peer.h"

// Listens on 127.0.0.1. A connection is made by the kernel, so whoever tried is seen afterwards, and until then the
// process has no descriptor for it.
class CSilentPort {
 public:
  CSilentPort() : m_iSock(BoundSocket(m_iPort)) {
    if (listen(m_iSock, 5) != 0 || fcntl(m_iSock, F_SETFL, O_NONBLOCK) != 0) throw std::runtime_error("cannot listen");
  }
  ~CSilentPort() { close(m_iSock); }
  CSilentPort(const CSilentPort&) = delete;
  CSilentPort& operator=(const CSilentPort&) = delete;

  int Port() const { return m_iPort; }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(m_iPort) + "/doc.xml"; }

  // Whether anybody has connected since the last call.
  bool WasCalled() const {
    const int iPeer = accept(m_iSock, nullptr, nullptr);
    if (iPeer >= 0) close(iPeer);
    return iPeer >= 0;
  }

 private:
  int m_iPort = 0;
  int m_iSock;
};

#endif
