// The server that calls are measured against: a process that sends prepared bytes.
#include "server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <stdexcept>
#include <thread>

#include "support/peer.h"

namespace {

void Serve(int p_iSock, const std::vector<std::string>& p_asReply) {
  const std::string sHeader = ReadBytes(p_iSock, 128);
  if (sHeader.size() != 128) return;
  const size_t uRest = std::stoul(sHeader.substr(12, 10)) - 128 + 3;
  if (ReadBytes(p_iSock, uRest).size() != uRest) return;
  WriteAll(p_iSock, p_asReply.at(std::stoul(sHeader.substr(22, 4))));
}

[[noreturn]] void Run(int p_iListen, const std::vector<std::string>& p_asReply, int p_iThreads) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<std::thread> aThread;
  for (int i = 0; i < p_iThreads; ++i) {
    aThread.emplace_back([&] {
      for (;;) {
        const int iSock = accept(p_iListen, nullptr, nullptr);
        if (iSock < 0) continue;
        Serve(iSock, p_asReply);
        close(iSock);
      }
    });
  }
  for (;;) pause();
}

}    // namespace

CBenchServer::CBenchServer(const std::vector<std::string>& p_asReply, int p_iThreads) {
  const int iListen = BoundSocket(m_iPort);
  if (listen(iListen, 128) != 0) throw std::runtime_error("cannot listen");
  m_iProcess = fork();
  if (m_iProcess == 0) Run(iListen, p_asReply, p_iThreads);
  close(iListen);
  if (m_iProcess < 0) throw std::runtime_error("cannot fork");
}

CBenchServer::~CBenchServer() {
  kill(m_iProcess, SIGKILL);
  waitpid(m_iProcess, nullptr, 0);
}
