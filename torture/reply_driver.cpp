// Feeds damaged packets to the library over sockets and prints what it makes of each, as torture/replies.py orders.
//
// Standard input has one order a line:
//   packet LENGTH                  the next LENGTH bytes are the packet that is damaged from now on
//   keep|close CUT [AT HEX]...     one case: the packet's first CUT bytes, with the bytes HEX instead of those at AT;
//                                  then the connection stays open (the library waits for no time) or is closed
// Each case is answered by one line: code, text, the fields, the body's length and its sum, with blanks between them.
// Texts are as driver_text.h writes them.
#include <callorv/net/tcp_adaptor.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "driver_text.h"
#include "support/peer.h"

namespace {

enum { FITS = 64 * 1024 };    // bytes that a socket surely takes before anybody reads

// An adaptor on a socket that is there already, which it closes.
class CReader final : public CTcpAdaptor {
 public:
  explicit CReader(int p_iSock) { iSock = p_iSock; }
  ~CReader() override { Disconnect(); }
};

// The sum of the bytes, each counted by its place, so that it is quickly adjusted for a byte that changes. In blocks of
// a fixed size, which the compiler makes wide.
uint64_t PlacedSum(const unsigned char* p_p, size_t p_uLen) {
  enum { BLOCK = 256 };
  uint64_t uSum = 0;
  size_t uAt = 0;
  for (; p_uLen - uAt >= BLOCK; uAt += BLOCK) {
    uint32_t uBytes = 0, uPlaced = 0;
    for (uint32_t i = 0; i < BLOCK; ++i) {
      uBytes += p_p[uAt + i];
      uPlaced += p_p[uAt + i] * (i + 1);
    }
    uSum += static_cast<uint64_t>(uAt) * uBytes + uPlaced;
  }
  for (; uAt < p_uLen; ++uAt) uSum += static_cast<uint64_t>(p_p[uAt]) * (uAt + 1);
  return uSum;
}

void Print(int p_iRet, const char* p_szText, CAdaptor::T_PacketInfo& p_tInfo) {
  printf("%d ", p_iRet);
  PrintText(p_szText);
  printf("%d %d %d ", p_tInfo.iSvcNum, p_tInfo.iMsgNum, p_tInfo.iExtra);
  for (CString* p : {&p_tInfo.sTimeStamp, &p_tInfo.sUserKey, &p_tInfo.sAux13}) PrintText(p->ToStr());
  printf("%c ", p_tInfo.bCompressed ? 'Y' : 'N');
  for (CString* p : {&p_tInfo.sAux8, &p_tInfo.sAux21}) PrintText(p->ToStr());
  const unsigned char* pBody = reinterpret_cast<const unsigned char*>(p_tInfo.stBody.GetData());
  const size_t uLen = static_cast<size_t>(p_tInfo.stBody.GetSize());
  printf("%zu %llu\n", uLen, static_cast<unsigned long long>(PlacedSum(pBody, uLen)));
  fflush(stdout);    // the answer is waited for
}

void Case(const std::string& p_sBytes, bool p_bClose) {
  int aiSocks[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiSocks) != 0) throw std::runtime_error("no sockets");
  const int iPeer = aiSocks[0];
  const auto fnFeed = [&] {
    WriteAll(iPeer, p_sBytes);
    if (p_bClose) close(iPeer);
  };
  CAdaptor::T_PacketInfo tInfo;
  const auto fnRead = [&] {
    CReader cReader(aiSocks[1]);
    const int iRet = cReader.ReceiveFrom(&tInfo, p_bClose ? 60 : 0);
    Print(iRet, cReader.GetLastError(), tInfo);
  };
  if (p_sBytes.size() <= FITS) {
    fnFeed();
    fnRead();
  } else {
    if (!p_bClose) throw std::runtime_error("too long for a connection that stays open");
    std::thread cFeeder(fnFeed);
    fnRead();
    cFeeder.join();
  }
  if (!p_bClose) close(iPeer);
}

char Byte(const char* p_szHex) { return static_cast<char>(std::stoi(std::string(p_szHex, 2), nullptr, 16)); }

void Run() {
  std::string sLine, sPacket;
  while (std::getline(std::cin, sLine)) {
    std::istringstream cLine(sLine);
    std::string sOrder, sHex;
    size_t uNumber = 0;
    cLine >> sOrder >> uNumber;
    if (sOrder == "packet") {
      sPacket.resize(uNumber);
      std::cin.read(&sPacket[0], static_cast<std::streamsize>(uNumber));
      continue;
    }
    std::string sBytes(sPacket, 0, uNumber);
    size_t uAt = 0;
    while (cLine >> uAt >> sHex) {
      for (size_t i = 0; i < sHex.size() / 2; ++i) sBytes.at(uAt + i) = Byte(&sHex[2 * i]);
    }
    Case(sBytes, sOrder == "close");
  }
}

}    // namespace

int main() try {
  std::ios::sync_with_stdio(false);
  Run();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "reply_driver: %s\n", cError.what());
  return 1;
}
