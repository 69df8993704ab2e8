// The C functions of calls in flight under random programs: some calls in an array, servers that send any packets in
// any pieces, and WaitAny. Each call ends as the packet's model and the reader of its body say, and each has its turn.
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <vector>

#include "callorv/callorv.h"
#include "callorv/callorv.hpp"
#include "packet_model.h"
#include "support.h"
#include "tests/support/client_files.h"
#include "tests/support/peer.h"
#include "tests/support/temp_file.h"

namespace {

enum { SLOTS = 6, DEADLINE_MS = 60000, MOST_REPLY = 600 };

// A port that calls go to. Another one now and then: a connection that is closed keeps its pair of ports for a minute.
class CPort {
 public:
  CPort() : m_iListen(BoundSocket(m_iPort)) {
    static const CTempDir s_cDir;
    static const std::string s_sKey = s_cDir.Write("user.key", KeyFile("USER"));
    static std::string s_sDictionary = s_cDir.Write("full.xml", ClientDictionary());
    CallOrv_Error tErr = {};
    Expect(listen(m_iListen, 8) == 0 && CallOrv_InitializeEx(s_sKey.c_str(), s_sDictionary.c_str(), Loopback(), m_iPort, 60,
                                                             &tErr) == 0,
           tErr.szText);
    s_sDictionary = s_cDir.Write("empty.xml", "<msg_dictionary/>");
  }
  ~CPort() { close(m_iListen); }
  CPort(const CPort&) = delete;
  CPort& operator=(const CPort&) = delete;

  int Accept() const {
    const int iPeer = Again([this] { return accept(m_iListen, nullptr, nullptr); }), iOn = 1;
    Expect(iPeer >= 0, "not accepted");
    Expect(setsockopt(iPeer, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn)) == 0, "no option");
    return iPeer;
  }

 private:
  int m_iPort = 0;
  int m_iListen;
};

const CPort& Port() {
  static std::unique_ptr<CPort> s_pPort;
  static int s_iUses = 0;
  if (s_iUses++ % 8192 == 0) s_pPort = std::make_unique<CPort>();
  return *s_pPort;
}

struct T_FreeMsg {
  void operator()(CMsg* p_pMsg) const { MSG_Destroy(p_pMsg); }
};
using CMsgPtr = std::unique_ptr<CMsg, T_FreeMsg>;

std::string Xml(CMsg& p_cMsg) {
  CStream stXml(0, 512);
  Expect(p_cMsg.ToXml(&stXml, false, false, 1) == 0, "no XML");
  return std::string(stXml.GetData(), static_cast<size_t>(stXml.GetSize()));
}

// A call's server: what it has to send, and how far it is.
struct T_Peer {
  int iSock = -1;
  std::string sPacket;
  size_t uSent = 0;

  void Send(size_t p_uLen) {    // the other side may be through already
    p_uLen = std::min(p_uLen, sPacket.size() - uSent);
    const ssize_t iSent = p_uLen > 0 ? send(iSock, &sPacket[uSent], p_uLen, MSG_NOSIGNAL | MSG_DONTWAIT) : 0;
    if (iSent > 0) uSent += static_cast<size_t>(iSent);
  }
  void Close() {
    if (iSock >= 0) close(std::exchange(iSock, -1));
  }
};

class CProgram {
 public:
  explicit CProgram(CInput& p_cInput) : m_cInput(p_cInput) {}
  ~CProgram() {
    for (T_Peer& tPeer : m_atPeer) tPeer.Close();
  }
  CProgram(const CProgram&) = delete;
  CProgram& operator=(const CProgram&) = delete;

  void Run() {
    for (int i = 0; i < 200 && !m_cInput.IsEmpty(); ++i) Operate();
    for (size_t u = 0; u < SLOTS; ++u) {
      if (m_apCall[u] == nullptr) continue;
      m_atPeer[u].Send(m_atPeer[u].sPacket.size());
      m_atPeer[u].Close();
    }
    // All are over or will be: each is found once.
    for (int iOver; (iOver = WaitAny(-1)) != -1;) TakeTurn(iOver);
    for (const CallOrv_Call* pCall : m_apCall) Expect(pCall == nullptr, "WaitAny forgot a call");
  }

 private:
  CInput& m_cInput;
  std::array<CallOrv_Call*, SLOTS> m_apCall{};
  std::array<T_Peer, SLOTS> m_atPeer;

  void Operate() {
    const size_t u = m_cInput.Byte() % SLOTS;
    CallOrv_Call*& pCall = m_apCall[u];
    T_Peer& tPeer = m_atPeer[u];
    const uint8_t uOperation = m_cInput.Byte();
    if (pCall == nullptr) {
      Start(u);
      return;
    }
    switch (uOperation % 8) {
      case 0: {
        const bool bOver = CallOrv_Step(pCall) == 0;
        ExpectSame(bOver, CallOrv_GetEvents(pCall) == 0, "Step");
        break;
      }
      case 1: tPeer.Send(uOperation / 8 + 1u); break;
      case 2: tPeer.Send(uOperation * 16u); break;
      case 3: TakeTurn(WaitAny(0)); break;
      case 4:
        CallOrv_Cancel(std::exchange(pCall, nullptr));
        tPeer.Close();
        break;
      case 5:
        tPeer.Send(tPeer.sPacket.size());
        Drain(tPeer);
        tPeer.Close();
        Finish(u);
        break;
      case 6: {    // moved within the array
        const size_t uTo = uOperation / 8 % SLOTS;
        std::swap(pCall, m_apCall[uTo]);
        std::swap(tPeer, m_atPeer[uTo]);
        break;
      }
      default: CallOrv_SetUser(pCall, &tPeer);
    }
    for (const CallOrv_Call* pOther : m_apCall) ExpectSound(pOther);
  }

  static void ExpectSound(const CallOrv_Call* p_pCall) {
    if (p_pCall == nullptr) return;
    const int iEvents = CallOrv_GetEvents(p_pCall);
    Expect(iEvents == 0 || iEvents == POLLIN || iEvents == POLLOUT, "events");
    ExpectSame(CallOrv_GetTimeLeft(p_pCall) == 0, iEvents == 0, "time left");
    Expect(CallOrv_GetFd(p_pCall) >= 0, "descriptor");
  }

  void Start(size_t p_u) {
    const CPort& cPort = Port();    // the set-up, the first time
    const CMsgPtr pIn(MSG_GetNewMsg(100, nullptr));
    CallOrv_Error tErr = {};
    m_apCall[p_u] = CallOrv_Start(7, pIn.get(), DEADLINE_MS, &tErr);
    Expect(m_apCall[p_u] != nullptr, tErr.szText);
    Expect(CallOrv_GetUser(m_apCall[p_u]) == nullptr, "user");
    const std::string sInput = m_cInput.Bytes(m_cInput.Number<uint16_t>() % MOST_REPLY);
    m_atPeer[p_u] = {cPort.Accept(), PacketOf(reinterpret_cast<const uint8_t*>(sInput.data()), sInput.size()), 0};
    // A busy machine takes its time to connect, also to itself; a server that closes before it is asked is another case.
    while (CallOrv_GetEvents(m_apCall[p_u]) == POLLOUT) {
      Expect(IsReady(CallOrv_GetFd(m_apCall[p_u]), POLLOUT), "not sent");
      CallOrv_Step(m_apCall[p_u]);
    }
    Expect(IsReady(m_atPeer[p_u].iSock, POLLIN), "not asked");
  }

  static void Drain(const T_Peer& p_tPeer) {    // else closing is a reset
    char szRequest[512];
    while (recv(p_tPeer.iSock, szRequest, sizeof(szRequest), MSG_DONTWAIT) > 0) {
    }
  }

  // The fuzzer's timer, which looks for hangs, interrupts waits now and then.
  int WaitAny(int p_iTimeOutMs) {
    int iOver;
    do iOver = CallOrv_WaitAny(m_apCall.data(), SLOTS, p_iTimeOutMs);
    while (iOver == -2);
    return iOver;
  }
  static bool IsReady(int p_iSock, short p_iEvents) {
    pollfd tPoll = {p_iSock, p_iEvents, 0};
    return Again([&] { return poll(&tPoll, 1, DEADLINE_MS); }) == 1;
  }

  void TakeTurn(int p_iOver) {
    if (p_iOver == -1) {
      for (const CallOrv_Call* pCall : m_apCall) Expect(pCall == nullptr || CallOrv_GetEvents(pCall) != 0, "one is over");
      return;
    }
    Expect(p_iOver >= 0 && p_iOver < SLOTS && m_apCall[static_cast<size_t>(p_iOver)] != nullptr, "no call there");
    ExpectSame(CallOrv_GetEvents(m_apCall[static_cast<size_t>(p_iOver)]), 0, "a call under way");
    Finish(static_cast<size_t>(p_iOver));
    m_atPeer[static_cast<size_t>(p_iOver)].Close();
  }

  void Finish(size_t p_u) {
    const T_Peer& tPeer = m_atPeer[p_u];
    const CMsgPtr pOut(MSG_GetNewMsg(0, nullptr)), pShould(MSG_GetNewMsg(0, nullptr));
    CallOrv_Error tErr = {};
    const int iRet = CallOrv_Finish(std::exchange(m_apCall[p_u], nullptr), pOut.get(), &tErr);
    const std::string sText = tErr.szText;
    if (sText == "Socket closed(-9)((Connection reset by peer))") return;    // may overtake what was sent before it
    if (sText == INTERRUPTED) return;
    T_Outcome tShould = ReadModel(tPeer.sPacket.substr(0, tPeer.uSent), END_CLOSED);
    if (tShould.iCode != 0) {
      ExpectSame(iRet, -3, "result");
      ExpectSame(tErr.iCode, -5, "code");
      ExpectSame(sText, tShould.sText, "text");
      return;
    }
    tShould.sBody.push_back(0);
    bool bRead = false;
    try {
      bRead = pShould->LoadXml(&tShould.sBody[0]) == 0;
    } catch (const CException&) {
    }
    const bool bRejected = bRead && pShould->GetRootNum() == 10;
    ExpectSame(iRet, bRejected ? -4 : bRead ? 0 : -3, "result of a reply that came");
    if (bRead) ExpectSame(Xml(*pOut), Xml(*pShould), "reply");
    else Expect(tErr.iCode == -6 || tErr.iCode == -7, "code of a reply that is no message");
  }
};

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  CInput cInput(p_pData, p_uSize);
  CProgram(cInput).Run();
  return 0;
}
