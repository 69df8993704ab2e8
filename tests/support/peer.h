// A TCP server for the tests: real sockets on 127.0.0.1, one thread.
#ifndef TESTS_SUPPORT_PEER_H
#define TESTS_SUPPORT_PEER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

inline const char* Loopback() { return "127.0.0.1"; }

// A socket bound to a free port of 127.0.0.1; p_iPort receives it.
inline int BoundSocket(int& p_iPort) {
  const int iSock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in tAddr = {};
  tAddr.sin_family = AF_INET;
  tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t uLen = sizeof(tAddr);
  if (bind(iSock, reinterpret_cast<sockaddr*>(&tAddr), uLen) != 0 ||
      getsockname(iSock, reinterpret_cast<sockaddr*>(&tAddr), &uLen) != 0) {
    throw std::runtime_error("no free port");
  }
  p_iPort = ntohs(tAddr.sin_port);
  return iSock;
}

// A port that is taken, but on which nobody listens.
class CDeafPort {
 public:
  CDeafPort() : m_iSock(BoundSocket(m_iPort)) {}
  ~CDeafPort() { close(m_iSock); }
  CDeafPort(const CDeafPort&) = delete;
  CDeafPort& operator=(const CDeafPort&) = delete;

  int Port() const { return m_iPort; }

 private:
  int m_iPort = 0;
  int m_iSock;
};

// Accepts connections one after the other and hands each to a function; closes it when the function returns.
class CPeer {
 public:
  explicit CPeer(std::function<void(int p_iSock)> p_fnServe) : m_fnServe(std::move(p_fnServe)) {
    m_iListen = BoundSocket(m_iPort);
    if (listen(m_iListen, 16) != 0) throw std::runtime_error("cannot listen");
    m_cThread = std::thread([this] { Accept(); });
  }
  // Cuts the connection that is being served, so that the function comes back.
  ~CPeer() {
    {
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_bEnd = true;
      shutdown(m_iListen, SHUT_RDWR);
      if (m_iSock >= 0) shutdown(m_iSock, SHUT_RDWR);
    }
    m_cThread.join();
    close(m_iListen);
  }
  CPeer(const CPeer&) = delete;
  CPeer& operator=(const CPeer&) = delete;

  int Port() const { return m_iPort; }

 private:
  std::function<void(int)> m_fnServe;
  int m_iListen = -1;
  int m_iPort = 0;
  std::mutex m_cMutex;
  bool m_bEnd = false;
  int m_iSock = -1;    // being served
  std::thread m_cThread;

  bool Serving(int p_iSock) {    // false: the peer is ending
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    m_iSock = p_iSock;
    return !m_bEnd;
  }

  void Accept() {
    for (;;) {
      const int iSock = accept4(m_iListen, nullptr, nullptr, SOCK_CLOEXEC);
      if (iSock < 0) return;
      const timeval tLimit = {20, 0};    // a broken test ends, too
      setsockopt(iSock, SOL_SOCKET, SO_RCVTIMEO, &tLimit, sizeof(tLimit));
      setsockopt(iSock, SOL_SOCKET, SO_SNDTIMEO, &tLimit, sizeof(tLimit));
      if (Serving(iSock)) m_fnServe(iSock);
      Serving(-1);
      close(iSock);
    }
  }
};

// What p_fnCall returns, which moves bytes. A socket with a time limit is not asked again by the system when a signal
// comes that nobody handles: SIGCHLD, where fork() holds it back.
template <class F>
ssize_t Uninterrupted(F p_fnCall) {
  ssize_t iMoved;
  do iMoved = p_fnCall();
  while (iMoved < 0 && errno == EINTR);
  return iMoved;
}

// Sends everything; false when the other side went away.
inline bool WriteAll(int p_iSock, const std::string& p_sBytes) {
  size_t uDone = 0;
  while (uDone < p_sBytes.size()) {
    const ssize_t iSent = Uninterrupted(
        [&] { return send(p_iSock, p_sBytes.data() + uDone, p_sBytes.size() - uDone, MSG_NOSIGNAL); });
    if (iSent <= 0) return false;
    uDone += static_cast<size_t>(iSent);
  }
  return true;
}

// The next p_uLen bytes, fewer when the connection ends before.
inline std::string ReadBytes(int p_iSock, size_t p_uLen) {
  std::string sBytes(p_uLen, '\0');
  size_t uHave = 0;
  while (uHave < p_uLen) {
    const ssize_t iGot = Uninterrupted([&] { return recv(p_iSock, &sBytes[uHave], p_uLen - uHave, 0); });
    if (iGot <= 0) break;
    uHave += static_cast<size_t>(iGot);
  }
  sBytes.resize(uHave);
  return sBytes;
}

// Everything up to the end of the connection. Also the way to keep a connection open until the client has closed it.
inline std::string ReadToEnd(int p_iSock) {
  std::string sBytes;
  char szPart[4096];
  for (;;) {
    const ssize_t iGot = Uninterrupted([&] { return recv(p_iSock, szPart, sizeof(szPart), 0); });
    if (iGot <= 0) return sBytes;
    sBytes.append(szPart, static_cast<size_t>(iGot));
  }
}

// Waits, without reading, until the other side closes or the peer ends.
inline void WaitForEnd(int p_iSock) {
  pollfd tPoll = {p_iSock, POLLRDHUP, 0};
  poll(&tPoll, 1, -1);
}

// Makes the close of the socket a reset (RST) instead of an orderly end.
inline void ResetOnClose(int p_iSock) {
  const linger tNow = {1, 0};
  setsockopt(p_iSock, SOL_SOCKET, SO_LINGER, &tNow, sizeof(tNow));
}

#endif
