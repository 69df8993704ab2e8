// An adaptor whose fields a test can see and set, and waits that need no clock.
#ifndef TESTS_UNIT_ADAPTOR_OPEN_ADAPTOR_H
#define TESTS_UNIT_ADAPTOR_OPEN_ADAPTOR_H

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

#include "callorv/net/tcp_adaptor.h"

class COpenAdaptor : public CTcpAdaptor {
 public:
  using CAdaptor::iPort;
  using CAdaptor::iRecvTimeOut;
  using CAdaptor::iSendTimeOut;
  using CAdaptor::iSock;
  using CAdaptor::sHost;

  COpenAdaptor() {}
  ~COpenAdaptor() override {
    if (iSock >= 0) Disconnect();
  }

  std::string Error() { return GetLastError(); }

  void SetNonBlocking() { fcntl(iSock, F_SETFL, O_NONBLOCK); }

  // Puts bytes into the kernel's buffers until they are full and stay so: what is left of the peer's window, less than
  // a segment, the kernel fills some 200 ms later. A later close resets the connection: behind all these bytes the peer
  // would not learn of an orderly end.
  void Fill() {
    SetNonBlocking();
    const linger tNow = {1, 0};
    setsockopt(iSock, SOL_SOCKET, SO_LINGER, &tNow, sizeof(tNow));
    char szPart[65536] = {};
    for (int iQuiet = 0; iQuiet < 30; ++iQuiet) {
      while (send(iSock, szPart, sizeof(szPart), 0) > 0 || errno != EAGAIN) iQuiet = 0;
      poll(nullptr, 0, 20);
    }
  }

  // Waits until at least p_iCount bytes can be received without waiting, or the connection ends.
  void AwaitBytes(int p_iCount) {
    for (;;) {
      int iHave = 0;
      ioctl(iSock, FIONREAD, &iHave);
      pollfd tPoll = {iSock, POLLRDHUP, 0};
      if (iHave >= p_iCount || poll(&tPoll, 1, 1) != 0) return;
    }
  }
};

inline std::string Bytes(const CStream& p_st) {
  return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize()));
}

inline void SetBody(CAdaptor::T_PacketInfo& p_tInfo, const std::string& p_sBody) {
  p_tInfo.stBody.Clear();
  p_tInfo.stBody.AppendData(p_sBody.data(), static_cast<int>(p_sBody.size()));
}

// Bytes without a pattern that zlib could use, the same in every run.
inline std::string Noise(size_t p_uLen) {
  std::string sBytes(p_uLen, '\0');
  unsigned uState = 12345;
  for (char& c : sBytes) {
    uState = uState * 1664525u + 1013904223u;
    c = static_cast<char>(uState >> 24);
  }
  return sBytes;
}

// A packet with its checksum behind it.
inline std::string WithCheckSum(const std::string& p_sPacket) {
  unsigned uSum = 0;
  for (const unsigned char u : p_sPacket) uSum += u;
  const std::string sDigits = std::to_string(1000 + uSum % 256);
  return p_sPacket + sDigits.substr(1);
}

#endif
