// A server in a process of its own, so that the tortured process has one thread and its own descriptors only.
#ifndef TORTURE_PEER_PROCESS_H
#define TORTURE_PEER_PROCESS_H

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "support/service_peer.h"

// Ended by the destructor, or when the process that made it ends.
class CPeerProcess {
 public:
  // p_fnAnswer: the bytes to send back for a request.
  explicit CPeerProcess(const std::function<std::string(const T_Request&)>& p_fnAnswer) {
    const int iListen = BoundSocket(m_iPort);
    if (listen(iListen, 128) != 0) throw std::runtime_error("cannot listen");
    m_iPid = fork();
    if (m_iPid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) Serve(accept(iListen, nullptr, nullptr), p_fnAnswer);
    }
    close(iListen);
  }
  ~CPeerProcess() {
    kill(m_iPid, SIGKILL);
    waitpid(m_iPid, nullptr, 0);
  }
  CPeerProcess(const CPeerProcess&) = delete;
  CPeerProcess& operator=(const CPeerProcess&) = delete;

  int Port() const { return m_iPort; }

 private:
  int m_iPort = 0;
  pid_t m_iPid;

  static void Serve(int p_iSock, const std::function<std::string(const T_Request&)>& p_fnAnswer) {
    T_Request tRequest;
    if (ReadRequest(p_iSock, tRequest)) WriteAll(p_iSock, p_fnAnswer(tRequest));
    close(p_iSock);
  }
};

#endif
