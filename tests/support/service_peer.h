// A server for the tests, on real sockets of 127.0.0.1.
#ifndef TESTS_SUPPORT_SERVICE_PEER_H
#define TESTS_SUPPORT_SERVICE_PEER_H

#include <zlib.h>

#include <cstdio>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/peer.h"

// A request as it came over the wire.
struct T_Request {
  std::string sHeader;     // 128 bytes
  std::string sSent;       // the body's bytes on the wire
  std::string sBody;       // the same, uncompressed
  std::string sTrailer;    // 3 bytes
  bool bIntact = false;    // lengths and checksum are right

  std::string Field(size_t p_iOffset, size_t p_iWidth) const { return sHeader.substr(p_iOffset, p_iWidth); }
  int SvcNum() const { return std::stoi(Field(22, 4)); }
  int MsgNum() const { return std::stoi(Field(26, 4)); }
  bool Compressed() const { return Field(88, 1) == "Y"; }
};

// What the peer does with a request: sends bytes, then closes, at once or only after the client has.
struct T_Answer {
  std::string sBytes;
  bool bStall = false;
};

inline unsigned ByteSum(const std::string& p_s) {
  unsigned iSum = 0;
  for (unsigned char c : p_s) iSum += c;
  return iSum;
}

inline std::string Checksum(const std::string& p_sHeader, const std::string& p_sSent) {
  char szText[16];
  snprintf(szText, sizeof(szText), "%03u", (ByteSum(p_sHeader) + ByteSum(p_sSent)) % 256);
  return szText;
}

// False when the connection ends before.
inline bool ReadExactly(int p_iSock, size_t p_uLen, std::string& p_sOut) {
  p_sOut = ReadBytes(p_iSock, p_uLen);
  return p_sOut.size() == p_uLen;
}

inline bool ReadRequest(int p_iSock, T_Request& p_tRequest) {
  if (!ReadExactly(p_iSock, 128, p_tRequest.sHeader)) return false;
  const size_t iPacket = std::stoul(p_tRequest.Field(12, 10));
  const size_t iBody = std::stoul(p_tRequest.Field(89, 10));
  if (iPacket < 128 || !ReadExactly(p_iSock, iPacket - 128, p_tRequest.sSent)) return false;
  if (!ReadExactly(p_iSock, 3, p_tRequest.sTrailer)) return false;
  p_tRequest.bIntact = p_tRequest.sTrailer == Checksum(p_tRequest.sHeader, p_tRequest.sSent);
  if (p_tRequest.Compressed()) {
    p_tRequest.sBody.resize(iBody + 1);
    uLongf iOut = p_tRequest.sBody.size();
    if (uncompress(reinterpret_cast<Bytef*>(&p_tRequest.sBody[0]), &iOut,
                   reinterpret_cast<const Bytef*>(p_tRequest.sSent.data()), p_tRequest.sSent.size()) != Z_OK) {
      p_tRequest.bIntact = false;
    }
    p_tRequest.sBody.resize(iOut);
  } else {
    p_tRequest.sBody = p_tRequest.sSent;
  }
  if (p_tRequest.sBody.size() != iBody) p_tRequest.bIntact = false;
  return true;
}

// A reply packet around a body; p_bCompress: by zlib.
inline std::string Packet(const std::string& p_sBody, bool p_bCompress = false) {
  std::string sSent = p_sBody;
  if (p_bCompress) {
    uLongf iLen = compressBound(p_sBody.size());
    sSent.resize(iLen);
    compress2(reinterpret_cast<Bytef*>(&sSent[0]), &iLen, reinterpret_cast<const Bytef*>(p_sBody.data()),
              p_sBody.size(), Z_BEST_SPEED);
    sSent.resize(iLen);
  }
  char szHeader[129];
  snprintf(szHeader, sizeof(szHeader), "QMX-SSP-V1.0%010zu%04d%04d%010d%-15s%-20s%-13s%c%010zu%-8s%-21s",
           128 + sSent.size(), 0, 0, 0, "20240628-120000", "", "", p_bCompress ? 'Y' : 'N', p_sBody.size(), "", "");
  const std::string sHeader = szHeader;
  return sHeader + sSent + Checksum(sHeader, sSent);
}

class CServicePeer {
 public:
  using Handler = std::function<T_Answer(const T_Request&)>;

  // Serves p_iThreads connections at once; p_fnHandler is called from all of these threads. Without a handler it
  // closes every connection without reading from it.
  explicit CServicePeer(Handler p_fnHandler, int p_iThreads = 4)
      : m_fnHandler(std::move(p_fnHandler)), m_iListen(BoundSocket(m_iPort)) {
    if (listen(m_iListen, 128) != 0) throw std::runtime_error("cannot listen");
    for (int i = 0; i < p_iThreads; ++i) m_cThreads.emplace_back([this] { Run(); });
  }
  // Waits for connections that still run.
  ~CServicePeer() {
    shutdown(m_iListen, SHUT_RDWR);    // ends every accept
    for (std::thread& cThread : m_cThreads) cThread.join();
    close(m_iListen);
  }
  CServicePeer(const CServicePeer&) = delete;
  CServicePeer& operator=(const CServicePeer&) = delete;

  int Port() const { return m_iPort; }

  // What came so far, in the order of arrival.
  std::vector<T_Request> Requests() {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    return m_cRequests;
  }
  T_Request LastRequest() {
    const std::lock_guard<std::mutex> cLock(m_cMutex);
    return m_cRequests.empty() ? T_Request() : m_cRequests.back();
  }

 private:
  Handler m_fnHandler;
  int m_iPort = 0;
  int m_iListen;
  std::mutex m_cMutex;
  std::vector<T_Request> m_cRequests;
  std::vector<std::thread> m_cThreads;

  void Run() {
    for (;;) {
      const int iSock = accept4(m_iListen, nullptr, nullptr, SOCK_CLOEXEC);
      if (iSock < 0) return;
      const timeval tLimit = {60, 0};    // a broken test ends, too
      setsockopt(iSock, SOL_SOCKET, SO_RCVTIMEO, &tLimit, sizeof(tLimit));
      if (m_fnHandler) Serve(iSock);
      close(iSock);
    }
  }

  void Serve(int p_iSock) {
    T_Request tRequest;
    if (!ReadRequest(p_iSock, tRequest)) return;
    {
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      m_cRequests.push_back(tRequest);
    }
    const T_Answer tAnswer = m_fnHandler(tRequest);
    WriteAll(p_iSock, tAnswer.sBytes);
    if (tAnswer.bStall) ReadToEnd(p_iSock);
  }
};

#endif
