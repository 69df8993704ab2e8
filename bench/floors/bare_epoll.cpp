// The floor of calls in flight: the same bytes there and back over non-blocking sockets and epoll, and nothing else.
#include "floors/bare_epoll.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace {

struct T_Slot {
  int iSock = -1;
};

class CBareLoop {
 public:
  CBareLoop(int p_iPort, const std::string& p_sRequest, size_t p_uReply, int p_iInFlight)
      : m_sRequest(p_sRequest), m_uReply(p_uReply), m_atSlot(static_cast<size_t>(p_iInFlight)),
        m_aReply(p_uReply + 1) {
    m_tAddr.sin_family = AF_INET;
    m_tAddr.sin_port = htons(static_cast<uint16_t>(p_iPort));
    m_tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  ~CBareLoop() {
    for (const T_Slot& tSlot : m_atSlot) {
      if (tSlot.iSock >= 0) close(tSlot.iSock);
    }
    close(m_iEpoll);
  }
  CBareLoop(const CBareLoop&) = delete;
  CBareLoop& operator=(const CBareLoop&) = delete;

  // What takes the places of those that are over is begun together, so that a server that sleeps is woken once.
  void Run(int p_iExchanges, const std::function<void(char*)>& p_fnDone) {
    std::vector<uint32_t> auFree(m_atSlot.size());
    std::iota(auFree.begin(), auFree.end(), 0);
    for (int iStarted = 0, iDone = 0; iDone < p_iExchanges;) {
      for (const uint32_t uSlot : auFree) {
        if (iStarted == p_iExchanges) break;
        Start(uSlot);
        ++iStarted;
      }
      auFree.clear();
      epoll_event atEvent[256];
      const int iReady = epoll_wait(m_iEpoll, atEvent, 256, -1);
      for (int i = 0; i < iReady; ++i) {
        const uint32_t uSlot = atEvent[i].data.u32;
        if ((atEvent[i].events & EPOLLOUT) != 0) {
          if (Send(m_atSlot[uSlot].iSock)) Watch(EPOLL_CTL_MOD, uSlot, EPOLLIN);
        } else if (Receive(m_atSlot[uSlot])) {
          p_fnDone(m_aReply.data());
          ++iDone;
          auFree.push_back(uSlot);
        }
      }
    }
  }

 private:
  const std::string& m_sRequest;
  const size_t m_uReply;
  const int m_iEpoll = epoll_create1(EPOLL_CLOEXEC);
  sockaddr_in m_tAddr = {};
  std::vector<T_Slot> m_atSlot;
  std::vector<char> m_aReply;    // replies are short: each comes in one piece

  void Watch(int p_iHow, uint32_t p_uSlot, uint32_t p_uEvents) {
    epoll_event tEvent = {};
    tEvent.events = p_uEvents;
    tEvent.data.u32 = p_uSlot;
    if (epoll_ctl(m_iEpoll, p_iHow, m_atSlot[p_uSlot].iSock, &tEvent) != 0) throw std::runtime_error("epoll_ctl");
  }

  void Start(uint32_t p_uSlot) {
    const int iSock = m_atSlot[p_uSlot].iSock = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int iOn = 1;
    if (setsockopt(iSock, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn)) != 0 ||
        (connect(iSock, reinterpret_cast<const sockaddr*>(&m_tAddr), sizeof(m_tAddr)) != 0 && errno != EINPROGRESS)) {
      throw std::runtime_error("cannot connect");
    }
    Watch(EPOLL_CTL_ADD, p_uSlot, Send(iSock) ? EPOLLIN : EPOLLOUT);
  }

  bool Send(int p_iSock) const {
    const ssize_t iSent = send(p_iSock, m_sRequest.data(), m_sRequest.size(), MSG_NOSIGNAL);
    if (iSent < 0 && errno == EAGAIN) return false;
    if (iSent != static_cast<ssize_t>(m_sRequest.size())) throw std::runtime_error("cannot send");
    return true;
  }

  bool Receive(T_Slot& p_tSlot) {
    const ssize_t iGot = recv(p_tSlot.iSock, m_aReply.data(), m_uReply, 0);
    if (iGot < 0 && errno == EAGAIN) return false;
    if (iGot != static_cast<ssize_t>(m_uReply)) throw std::runtime_error("cannot receive");
    close(p_tSlot.iSock);
    p_tSlot.iSock = -1;
    return true;
  }
};

}    // namespace

void ExchangeInFlight(int p_iPort, const std::string& p_sRequest, size_t p_uReply, int p_iExchanges, int p_iInFlight,
                      const std::function<void(char*)>& p_fnDone) {
  CBareLoop(p_iPort, p_sRequest, p_uReply, p_iInFlight).Run(p_iExchanges, p_fnDone);
}
