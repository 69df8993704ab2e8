// A call's exchange under random programs of operations, against a peer that sends its packet in any pieces: it ends as
// the packet's model says, whatever came when.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "net/exchange.h"
#include "packet_model.h"
#include "support.h"

namespace {

using callorv::detail::CExchange;

enum { DEADLINE_MS = 60000 };    // never reached
const std::string s_sRequest = "what is asked";

// A port that accepts.
class CListener {
 public:
  CListener() {
    sockaddr_in tAddr = {};
    tAddr.sin_family = AF_INET;
    tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uLen = sizeof(tAddr);
    Expect(bind(m_iSock, reinterpret_cast<sockaddr*>(&tAddr), uLen) == 0 && listen(m_iSock, 8) == 0 &&
               getsockname(m_iSock, reinterpret_cast<sockaddr*>(&tAddr), &uLen) == 0,
           "no port");
    m_iPort = ntohs(tAddr.sin_port);
  }
  ~CListener() { close(m_iSock); }
  CListener(const CListener&) = delete;
  CListener& operator=(const CListener&) = delete;

  int Port() const { return m_iPort; }
  int Accept() const {
    const int iPeer = Again([this] { return accept(m_iSock, nullptr, nullptr); });
    Expect(iPeer >= 0, "not accepted");
    const int iOn = 1;    // else what waits for an acknowledgement is lost by a reset
    Expect(setsockopt(iPeer, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn)) == 0, "no option");
    return iPeer;
  }

 private:
  int m_iSock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int m_iPort = 0;
};

// Another port now and then: a connection that is closed keeps its pair of ports for a minute.
const CListener& Listener() {
  static std::unique_ptr<CListener> s_pListener;
  static int s_iUses = 0;
  if (s_iUses++ % 8192 == 0) s_pListener = std::make_unique<CListener>();
  return *s_pListener;
}

// What holds of an exchange at any time.
void ExpectSound(const CExchange& p_cExchange, int p_iFd) {
  ExpectSame(p_cExchange.GetFd(), p_iFd, "descriptor");
  ExpectSame(p_cExchange.GetEvents() == 0, p_cExchange.IsOver(), "events");
  ExpectSame(p_cExchange.GetTimeLeft() == 0, p_cExchange.IsOver(), "time left");
}

// A busy machine takes its time to connect, also to itself.
void AwaitSent(CExchange& p_cExchange) {
  for (pollfd tPoll = {p_cExchange.GetFd(), POLLOUT, 0}; p_cExchange.GetEvents() == POLLOUT; p_cExchange.Step()) {
    Expect(Again([&] { return poll(&tPoll, 1, DEADLINE_MS); }) == 1, "not sent");
  }
}

}    // namespace

// The first byte says how many operations there are, one a byte; the packet's input follows them.
int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  if (p_uSize == 0) return 0;
  const size_t uOps = std::min<size_t>(*p_pData, p_uSize - 1);
  const uint8_t* const pOps = p_pData + 1;
  const uint8_t* const pInput = pOps + uOps;
  const size_t uInput = p_uSize - 1 - uOps;
  const std::string sPacket = PacketOf(pInput, uInput);
  const E_End eEnd = uInput > 0 && (*pInput & RESET_AFTER) != 0 ? END_RESET : END_CLOSED;

  auto pExchange = std::make_unique<CExchange>(DEADLINE_MS);
  Expect(pExchange->Packet().AppendData(s_sRequest.data(), static_cast<int>(s_sRequest.size())) == 0, "no memory");
  const CListener& cListener = Listener();
  pExchange->Open("127.0.0.1", cListener.Port());
  const int iFd = pExchange->GetFd();
  Expect(iFd >= 0, "not connected");
  const int iPeer = cListener.Accept();

  size_t uSent = 0;
  const auto fnSend = [&](size_t p_uLen) {    // the other side may be through already
    p_uLen = std::min(p_uLen, sPacket.size() - uSent);
    const ssize_t iSent = p_uLen > 0 ? send(iPeer, &sPacket[uSent], p_uLen, MSG_NOSIGNAL | MSG_DONTWAIT) : 0;
    if (iSent > 0) uSent += static_cast<size_t>(iSent);
  };
  for (size_t i = 0; i < uOps && pExchange != nullptr; ++i) {
    switch (pOps[i] % 4) {
      case 0: pExchange->Step(); break;
      case 1: fnSend(pOps[i] / 4 + 1u); break;
      case 2: fnSend(pOps[i] * 256u); break;
      default:
        if (pOps[i] == 255) pExchange = nullptr;    // cancelled
    }
    if (pExchange != nullptr) ExpectSound(*pExchange, iFd);
  }
  if (pExchange == nullptr) {
    close(iPeer);
    return 0;
  }
  while (uSent < sPacket.size() && !pExchange->IsOver()) {
    fnSend(sPacket.size());
    pExchange->Step();
  }
  AwaitSent(*pExchange);
  std::string sGot(s_sRequest.size(), '\0');
  const int iPeek = eEnd == END_RESET ? MSG_PEEK : 0;    // closing is a reset when the request was not read
  const ssize_t iGot = Again([&] { return recv(iPeer, &sGot[0], sGot.size(), MSG_WAITALL | iPeek); });
  ExpectSame(iGot, static_cast<long long>(sGot.size()), "size");
  ExpectSame(sGot, s_sRequest, "request");
  close(iPeer);
  pExchange->Await();
  ExpectSound(*pExchange, iFd);

  const T_Outcome tShould = ReadModel(sPacket, eEnd);
  CStream stRoom(0, 512);
  CString sText;
  const CStream* pBody = pExchange->Finish(stRoom, sText);
  if (sText == INTERRUPTED) return 0;
  // A reset may overtake what was sent before it.
  if (eEnd == END_RESET && sText == "Socket closed(-9)((Connection reset by peer))") return 0;
  ExpectSame(pBody != nullptr, tShould.iCode == 0, "success");
  ExpectSame(std::string(sText.ToStr()), tShould.sText, "text");
  if (pBody != nullptr) {
    ExpectSame(std::string(pBody->GetData(), static_cast<size_t>(pBody->GetSize())), tShould.sBody, "body");
  }
  return 0;
}
