// The floor of a call: the same bytes there and back over a connection of their own, and nothing else.
#include "floors/raw_exchange.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

namespace {

struct T_Socket {
  const int iSock = socket(AF_INET, SOCK_STREAM, 0);
  T_Socket() = default;
  ~T_Socket() { close(iSock); }
  T_Socket(const T_Socket&) = delete;
  T_Socket& operator=(const T_Socket&) = delete;
};

}    // namespace

void ExchangeRaw(int p_iPort, const std::string& p_sRequest, std::vector<char>& p_aReply) {
  const T_Socket tSocket;
  sockaddr_in tAddr = {};
  tAddr.sin_family = AF_INET;
  tAddr.sin_port = htons(static_cast<uint16_t>(p_iPort));
  tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int iOn = 1;
  if (setsockopt(tSocket.iSock, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn)) != 0 ||
      connect(tSocket.iSock, reinterpret_cast<const sockaddr*>(&tAddr), sizeof(tAddr)) != 0) {
    throw std::runtime_error("cannot connect");
  }
  for (size_t uSent = 0; uSent < p_sRequest.size();) {
    const ssize_t iSent = send(tSocket.iSock, p_sRequest.data() + uSent, p_sRequest.size() - uSent, MSG_NOSIGNAL);
    if (iSent <= 0) throw std::runtime_error("cannot send");
    uSent += static_cast<size_t>(iSent);
  }
  for (size_t uHave = 0; uHave < p_aReply.size();) {
    const ssize_t iGot = recv(tSocket.iSock, p_aReply.data() + uHave, p_aReply.size() - uHave, 0);
    if (iGot <= 0) throw std::runtime_error("cannot receive");
    uHave += static_cast<size_t>(iGot);
  }
}
