// Packets over a socket, from a peer that closes, stalls or goes away behind the last byte.
#include <sys/socket.h>

#include "packet_model.h"
#include "support.h"

namespace {

// Receives from any connected socket, which it closes.
class CReceiver : public CTcpAdaptor {
 public:
  explicit CReceiver(int p_iSock) { iSock = p_iSock; }
  ~CReceiver() override { Disconnect(); }
};

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  const std::string sPacket = PacketOf(p_pData, p_uSize);
  const int iBits = p_uSize > 0 ? *p_pData : 0;
  const E_End eEnd = (iBits & RESET_AFTER) != 0 ? END_RESET : (iBits & CLOSE_AFTER) != 0 ? END_CLOSED : END_STALLED;

  int aiSock[2];
  Expect(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSock) == 0, "no sockets");
  CReceiver cReceiver(aiSock[0]);
  const int iPeer = aiSock[1];
  // What the peer will not read.
  if (eEnd == END_RESET) ExpectSame(Again([&] { return send(aiSock[0], "?", 1, 0); }), 1, "request");
  if (!sPacket.empty()) {
    const ssize_t iSent = Again([&] { return send(iPeer, sPacket.data(), sPacket.size(), 0); });
    ExpectSame(iSent, static_cast<long long>(sPacket.size()), "peer's bytes");
  }
  if (eEnd != END_STALLED) close(iPeer);

  CAdaptor::T_PacketInfo tInfo;
  const int iCode = cReceiver.ReceiveFrom(&tInfo, 0);
  if (cReceiver.GetLastError() != std::string_view(INTERRUPTED)) {
    ExpectOutcome(iCode, cReceiver, tInfo, ReadModel(sPacket, eEnd));
  }
  if (eEnd == END_STALLED) close(iPeer);
  return 0;
}
