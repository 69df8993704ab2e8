// The server of many connections at once: a process of one thread, which answers and closes.
#ifndef BENCH_CROWD_SERVER_H
#define BENCH_CROWD_SERVER_H

#include <string>
#include <vector>

enum { LATE = 1000 };             // added to a service's number: the same reply, but later
enum { LATE_BY_MS = 1000 };       // so much
enum { MOST_CONNECTIONS = 10000 };

// Lets this process, and those that it forks, have a descriptor for each of MOST_CONNECTIONS. Throws
// std::runtime_error.
void AllowManyDescriptors();

// Answers a packet for service n with the n-th reply, whatever stands in the packet. It closes first, so that no port
// of the clients is left waiting.
class CCrowdServer {
 public:
  // To be made before the process has threads.
  explicit CCrowdServer(const std::vector<std::string>& p_asReply);
  ~CCrowdServer();
  CCrowdServer(const CCrowdServer&) = delete;
  CCrowdServer& operator=(const CCrowdServer&) = delete;

  int Port() const { return m_iPort; }

 private:
  int m_iPort = 0;
  int m_iProcess = -1;
};

#endif
