// The server of many connections at once: a process of one thread, which answers and closes.
#include "crowd_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <stdexcept>

#include "figure.h"

namespace {

// A queue of connections holds 4096 as a rule, and what is too much for it is asked for a second later only: so one
// port has several.
enum { LISTENERS = 6 };

int Listener(int& p_iPort) {
  const int iSock = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), iOn = 1;
  sockaddr_in tAddr = {};
  tAddr.sin_family = AF_INET;
  tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  tAddr.sin_port = htons(static_cast<uint16_t>(p_iPort));
  socklen_t uLen = sizeof(tAddr);
  if (setsockopt(iSock, SOL_SOCKET, SO_REUSEPORT, &iOn, sizeof(iOn)) != 0 ||
      bind(iSock, reinterpret_cast<sockaddr*>(&tAddr), uLen) != 0 || listen(iSock, MOST_CONNECTIONS) != 0 ||
      getsockname(iSock, reinterpret_cast<sockaddr*>(&tAddr), &uLen) != 0) {
    throw std::runtime_error("cannot listen");
  }
  p_iPort = ntohs(tAddr.sin_port);
  return iSock;
}

class CLoop {
 public:
  CLoop(const std::vector<int>& p_aiListen, const std::vector<std::string>& p_asReply)
      : m_asReply(p_asReply), m_atPeer(2 * MOST_CONNECTIONS), m_iLastListen(p_aiListen.back()) {
    for (const int iListen : p_aiListen) Watch(EPOLL_CTL_ADD, iListen, EPOLLIN);
  }

  [[noreturn]] void Run() {
    for (;;) {
      epoll_event atEvent[256];
      const int iReady = epoll_wait(m_iEpoll, atEvent, 256, m_tLate.empty() ? -1 : static_cast<int>(MillisToFirst()) + 1);
      for (int i = 0; i < iReady; ++i) {
        const int iSock = atEvent[i].data.fd;
        if (iSock <= m_iLastListen) Accept(iSock);
        else if (Peer(iSock).pReply == nullptr) Receive(iSock);
        else Send(iSock);
      }
      while (!m_tLate.empty() && MillisToFirst() <= 0) {
        const int iSock = m_tLate.front().iSock;
        m_tLate.pop_front();
        Send(iSock);
      }
    }
  }

 private:
  struct T_Peer {
    std::string sIn;
    const std::string* pReply = nullptr;
    size_t uSent = 0;
  };
  struct T_Late {
    int iSock;
    double dDue;
  };
  const std::vector<std::string>& m_asReply;
  const int m_iEpoll = epoll_create1(EPOLL_CLOEXEC);
  std::vector<T_Peer> m_atPeer;    // by descriptor
  const int m_iLastListen;         // that of a connection is above it
  std::deque<T_Late> m_tLate;

  T_Peer& Peer(int p_iSock) { return m_atPeer.at(static_cast<size_t>(p_iSock)); }
  double MillisToFirst() const { return (m_tLate.front().dDue - Now(WALL)) / 1e6; }

  void Watch(int p_iHow, int p_iSock, uint32_t p_uEvents) {
    epoll_event tEvent = {};
    tEvent.events = p_uEvents;
    tEvent.data.fd = p_iSock;
    epoll_ctl(m_iEpoll, p_iHow, p_iSock, &tEvent);
  }

  void Accept(int p_iListen) {
    for (int iSock; (iSock = accept4(p_iListen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) {
      Peer(iSock) = {};
      Watch(EPOLL_CTL_ADD, iSock, EPOLLIN);
    }
  }

  void Receive(int p_iSock) {
    char szIn[4096];
    const ssize_t iGot = recv(p_iSock, szIn, sizeof(szIn), 0);
    if (iGot <= 0) {
      close(p_iSock);
      return;
    }
    T_Peer& tPeer = Peer(p_iSock);
    tPeer.sIn.append(szIn, static_cast<size_t>(iGot));
    if (tPeer.sIn.size() < 128 || tPeer.sIn.size() < std::stoul(tPeer.sIn.substr(12, 10)) + 3) return;
    const size_t uService = std::stoul(tPeer.sIn.substr(22, 4));
    tPeer.pReply = &m_asReply.at(uService % LATE);
    if (uService < LATE) {
      Send(p_iSock);
      return;
    }
    Watch(EPOLL_CTL_MOD, p_iSock, 0);
    m_tLate.push_back({p_iSock, Now(WALL) + LATE_BY_MS * 1e6});
  }

  void Send(int p_iSock) {
    T_Peer& tPeer = Peer(p_iSock);
    const ssize_t iSent =
        send(p_iSock, tPeer.pReply->data() + tPeer.uSent, tPeer.pReply->size() - tPeer.uSent, MSG_NOSIGNAL);
    if (iSent > 0) tPeer.uSent += static_cast<size_t>(iSent);
    if (iSent > 0 && tPeer.uSent < tPeer.pReply->size()) Watch(EPOLL_CTL_MOD, p_iSock, EPOLLOUT);
    else close(p_iSock);
  }
};

}    // namespace

void AllowManyDescriptors() {
  rlimit tLimit = {};
  getrlimit(RLIMIT_NOFILE, &tLimit);
  const rlim_t uWanted = MOST_CONNECTIONS + 100;
  if (tLimit.rlim_cur >= uWanted) return;
  tLimit.rlim_cur = uWanted;
  tLimit.rlim_max = std::max(tLimit.rlim_max, uWanted);
  if (setrlimit(RLIMIT_NOFILE, &tLimit) != 0) {
    throw std::runtime_error("the machine allows fewer than " + std::to_string(uWanted) + " descriptors (ulimit -n)");
  }
}

CCrowdServer::CCrowdServer(const std::vector<std::string>& p_asReply) {
  std::vector<int> aiListen;
  for (int i = 0; i < LISTENERS; ++i) aiListen.push_back(Listener(m_iPort));
  m_iProcess = fork();
  if (m_iProcess == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    CLoop(aiListen, p_asReply).Run();
  }
  for (const int iListen : aiListen) close(iListen);
  if (m_iProcess < 0) throw std::runtime_error("cannot fork");
}

CCrowdServer::~CCrowdServer() {
  kill(m_iProcess, SIGKILL);
  waitpid(m_iProcess, nullptr, 0);
}
