// The server that calls are measured against: a process that sends prepared bytes.
#ifndef BENCH_SERVER_H
#define BENCH_SERVER_H

#include <string>
#include <vector>

// Answers a packet for service n with the n-th reply, whatever stands in the packet. Its own process, so that neither
// its memory nor its locks are those of the caller.
class CBenchServer {
 public:
  // To be made before the process has threads. p_iThreads: connections that are served at once.
  CBenchServer(const std::vector<std::string>& p_asReply, int p_iThreads);
  ~CBenchServer();
  CBenchServer(const CBenchServer&) = delete;
  CBenchServer& operator=(const CBenchServer&) = delete;

  int Port() const { return m_iPort; }
  int Pid() const { return m_iProcess; }

 private:
  int m_iPort = 0;
  int m_iProcess = -1;
};

#endif
