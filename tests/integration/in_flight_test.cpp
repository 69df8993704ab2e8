// Calls that hold no thread: what they come to, whatever the server does.
#include <dlfcn.h>
#include <doctest/doctest.h>
#include <netdb.h>
#include <sys/epoll.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/in_flight.h"
#include "support/long_text.h"
#include "support/service_peer.h"

namespace {

const char* const HOST = "a.name.that.is.looked.up";
std::atomic<int> s_iLookUps{0};

}    // namespace

// In front of the library's.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* p_szNode, const char* p_szService,
                                                          const addrinfo* p_pHints, addrinfo** p_ppResult) {
  static const auto s_fnReal = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const bool bHost = p_szNode != nullptr && strcmp(p_szNode, HOST) == 0;
  s_iLookUps += bHost;
  return s_fnReal(bHost ? "127.0.0.1" : p_szNode, p_szService, p_pHints, p_ppResult);
}

namespace {

T_Answer Echo(const T_Request& p_tRequest) { return {Packet(p_tRequest.sBody)}; }

// Sends an answer byte after byte, each when the one before has arrived.
void Trickle(int p_iSock, const std::string& p_sBytes) {
  for (const char c : p_sBytes) {
    if (!WriteAll(p_iSock, std::string(1, c))) return;
  }
}

// A port whose queue of connections is full, so that no more are made.
class CFullPort {
 public:
  CFullPort() : m_iListen(BoundSocket(m_iPort)) {
    if (listen(m_iListen, 0) != 0) throw std::runtime_error("cannot listen");
    for (;;) {
      m_aiClient.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      sockaddr_in tAddr = {};
      tAddr.sin_family = AF_INET;
      tAddr.sin_port = htons(static_cast<uint16_t>(m_iPort));
      tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      connect(m_aiClient.back(), reinterpret_cast<sockaddr*>(&tAddr), sizeof(tAddr));
      pollfd tPoll = {m_aiClient.back(), POLLOUT, 0};
      if (poll(&tPoll, 1, 100) == 0) return;
    }
  }
  ~CFullPort() {
    Close();
    for (const int iSock : m_aiClient) close(iSock);
  }
  CFullPort(const CFullPort&) = delete;
  CFullPort& operator=(const CFullPort&) = delete;

  int Port() const { return m_iPort; }
  void Close() {    // from now on who wants to connect is refused
    if (m_iListen >= 0) close(std::exchange(m_iListen, -1));
  }
  // Takes connections until p_iSock's, and resets that one at once.
  void Reset(int p_iSock) const {
    sockaddr_in tOurs = {}, tPeer = {};
    socklen_t uSize = sizeof(tOurs);
    getsockname(p_iSock, reinterpret_cast<sockaddr*>(&tOurs), &uSize);
    while (tPeer.sin_port != tOurs.sin_port) {
      const int iTaken = accept(m_iListen, reinterpret_cast<sockaddr*>(&tPeer), &uSize);
      if (iTaken < 0) throw std::runtime_error("cannot accept");
      ResetOnClose(iTaken);
      close(iTaken);
    }
    pollfd tPoll = {p_iSock, 0, 0};
    poll(&tPoll, 1, 60000);    // until it knows
  }

 private:
  int m_iPort = 0;
  int m_iListen;
  std::vector<int> m_aiClient;
};

}    // namespace

TEST_CASE("a stepped call carries its request and its reply") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("stepped");
  CPendingCall cCall = Started(1234, pIn.get());
  pIn.reset();    // it was sent as it was
  const int iFd = cCall.GetFd();
  CHECK(iFd >= 0);
  CHECK(cCall.GetTimeLeft() > 0);
  CHECK(cCall.GetTimeLeft() <= 20000);
  while (cCall.Step()) {
    CHECK(cCall.GetFd() == iFd);
    CHECK((cCall.GetEvents() == POLLIN || cCall.GetEvents() == POLLOUT));
    pollfd tPoll = {iFd, static_cast<short>(cCall.GetEvents()), 0};
    poll(&tPoll, 1, cCall.GetTimeLeft());
  }
  CHECK(cCall.GetFd() == iFd);
  CHECK(cCall.GetEvents() == 0);
  CHECK(cCall.GetTimeLeft() == 0);
  CHECK_FALSE(cCall.Step());
  const T_End tEnd = Finished(std::move(cCall));
  CheckEnd(tEnd, 0, 0, "", 0);
  CHECK(tEnd.sXml == Body100("stepped"));
  CHECK_FALSE(static_cast<bool>(cCall));

  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.bIntact);
  CHECK(tRequest.sBody == Body100("stepped"));
  CHECK(tRequest.Field(22, 8) == "12340100");
  CHECK(tRequest.Field(30, 10) == "0000000000");
  CHECK(tRequest.Field(55, 20) == "TEST-USER-1         ");
  CHECK_FALSE(tRequest.Compressed());
}

TEST_CASE("a stepped call compresses as a blocking one does, and reads compressed replies") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody, true)}; });
  SetUp(cPeer.Port());
  for (const size_t uLen : {10u, 1000u, 100000u, 3000000u}) {
    CAPTURE(uLen);
    const std::string sText = RandomText(uLen);
    const CMsgPtr pIn = NewRequest(sText.c_str());
    const T_End tStepped = Stepped(7, pIn.get(), 600000);
    CHECK(tStepped.iRet == 0);
    CHECK((tStepped.sXml == Body100(sText)));
    CHECK(cPeer.LastRequest().Compressed() == (uLen >= 1000));
    const std::string sSent = cPeer.LastRequest().sSent;
    CHECK((Blocking(7, pIn.get()) == tStepped));
    CHECK((cPeer.LastRequest().sSent == sSent));
  }
}

TEST_CASE("Finish steps and waits itself") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("not stepped");
  const T_End tEnd = Finished(Started(7, pIn.get()));
  CheckEnd(tEnd, 0, 0, "", 0);
  CHECK(tEnd.sXml == Body100("not stepped"));
}

TEST_CASE("a call without a deadline of its own takes the configured time-out, once for all") {
  CServicePeer cPeer(Echo);
  const CMsgPtr pIn = (SetUp(cPeer.Port(), 7), NewRequest("x"));
  for (const int iDeadline : {0, -1, -2147483647}) {
    CPendingCall cCall = Started(7, pIn.get(), iDeadline);
    CHECK(cCall.GetTimeLeft() <= 7000);
    CHECK(cCall.GetTimeLeft() > 0);
  }
  SetUp(cPeer.Port(), -1);    // counts as 60
  CPendingCall cCall = Started(7, pIn.get(), 0);
  CHECK(cCall.GetTimeLeft() <= 60000);
  CHECK(cCall.GetTimeLeft() > 7000);
  SetUp(cPeer.Port(), 2147483647);
  cCall = Started(7, pIn.get(), 0);
  CHECK(cCall.GetTimeLeft() > 2000000000);
  SetUp(cPeer.Port(), 0);
  CheckEnd(Stepped(7, pIn.get(), 0), -3, -3, "Socket timeout(-8)((connect, 0 ms))", -1);
}

TEST_CASE("what goes wrong with a reply is told as by a blocking call") {
  std::string sBadChecksum = Packet(Body100("x"));
  sBadChecksum.replace(sBadChecksum.size() - 3, 3, "xyz");
  std::string sForeign = Packet(Body100("x"));
  sForeign.replace(0, 12, "XYZ-SSP-V2.0");
  const auto fnLength = [](const char* p_szDigits) { return Packet(Body100("x")).replace(12, 10, p_szDigits); };
  std::string sNoZLib = Packet(Body100("x"));
  sNoZLib[88] = 'Y';
  struct T_Row {
    std::string sReply;
    int iRet, iCode;
    std::string sText;
    int iRefSvcNum;
  };
  const std::vector<T_Row> cRows = {
      {"", -3, -5, "Socket closed(-9)(OK)", -1},
      {Packet(Body100("x")).substr(0, 127), -3, -5, "Socket closed(-9)(OK)", -1},
      {Packet(Body100("x")).substr(0, 150), -3, -5, "Socket closed(-9)(OK)", -1},
      {Packet(Body100("x")).substr(0, 223), -3, -5, "Socket closed(-9)(OK)", -1},
      {sForeign, -3, -5, "Header format is incorrect(-15)(Unknown BeginString[XYZ-SSP-V2.0])", -1},
      {sBadChecksum, -3, -5, "Checksum is incorrect(-13)((M:" +
           std::to_string(std::stoi(Packet(Body100("x")).substr(221))) + ",C:0))", -1},
      {fnLength("0000000127"), -3, -5, "", -1},
      {fnLength("0000000120"), -3, -5, "Packet is corrupted(-17)(uncompleted packet timeout(body))", -1},
      {fnLength("-999999999"), -3, -5, "", -1},
      {sNoZLib, -3, -5, "Compression failed(-16)(ReceiveFrom(-3)(0))", -1},
      {sNoZLib.substr(0, 221), -3, -5, "Compression failed(-16)(ReceiveFrom(-3)(0))", -1},    // its checksum never comes
      {sNoZLib.substr(0, 220), -3, -5, "Socket closed(-9)(OK)", -1},
      {Packet(""), -3, -7, "-21, XML parsing failed(Handler error : [F]MemData (L:1, C:1) invalid document structure)", -1},
      {Packet(R"(<msg no="100">stray</msg>)"), -3, -7, "-18, Not defined tag in dictionary(Handler error : tagnum=0)", -1},
      {Packet(R"(<msg no="10"><t6>4017</t6><t7>no funds</t7><t8>1234</t8></msg>)"), -4, 4017, "no funds", 1234},
      {Packet(Body100("x")) + "more", 0, 0, "", 0}};
  for (const T_Row& tRow : cRows) {
    CAPTURE(tRow.sText);
    CServicePeer cPeer([&](const T_Request&) { return T_Answer{tRow.sReply}; });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x");
    const T_End tStepped = Stepped(7, pIn.get());
    CheckEnd(tStepped, tRow.iRet, tRow.iCode, tRow.sText, tRow.iRefSvcNum);
    CHECK((Blocking(7, pIn.get()) == tStepped));
  }
}

TEST_CASE("a reply may come in any pieces") {
  const std::string sText(3000, 't');
  for (const bool bCompressed : {false, true}) {
    CPeer cPeer([&](int p_iSock) {
      T_Request tRequest;
      if (ReadRequest(p_iSock, tRequest)) Trickle(p_iSock, Packet(Body100(sText), bCompressed));
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x");
    const T_End tEnd = Stepped(7, pIn.get());
    CheckEnd(tEnd, 0, 0, "", 0);
    CHECK(tEnd.sXml == Body100(sText));
  }
}

TEST_CASE("a step reads a long reply piece by piece, and edge-triggered events are armed anew for the next one") {
  const std::string sText(4000000, 'l');
  CServicePeer cPeer([&](const T_Request&) { return T_Answer{Packet(Body100(sText))}; });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  const int iEpoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event tEvent = {};
  REQUIRE(epoll_ctl(iEpoll, EPOLL_CTL_ADD, cCall.GetFd(), &tEvent) == 0);
  int iSteps = 0;
  for (; cCall.Step(); ++iSteps) {
    tEvent.events = static_cast<uint32_t>(cCall.GetEvents()) | EPOLLET;
    REQUIRE(epoll_ctl(iEpoll, EPOLL_CTL_MOD, cCall.GetFd(), &tEvent) == 0);
    epoll_event tReady;
    REQUIRE(epoll_wait(iEpoll, &tReady, 1, cCall.GetTimeLeft()) == 1);
  }
  close(iEpoll);
  CHECK(iSteps >= 4000000 / 65536);
  const T_End tEnd = Finished(std::move(cCall));
  CHECK(tEnd.iRet == 0);
  CHECK((tEnd.sXml == Body100(sText)));
}

TEST_CASE("a reset at any time is told as by a blocking call") {
  const std::string sReply = Packet(Body100("x"));
  for (const size_t uCut : {0u, 1u, 127u, 128u, 200u, 223u}) {
    CAPTURE(uCut);
    CPeer cPeer([&](int p_iSock) {
      T_Request tRequest;
      if (!ReadRequest(p_iSock, tRequest)) return;
      WriteAll(p_iSock, sReply.substr(0, uCut));
      ResetOnClose(p_iSock);
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x");
    CheckEnd(Stepped(7, pIn.get()), -3, -5, "Socket closed(-9)((Connection reset by peer))", -1);
    CheckEnd(Blocking(7, pIn.get()), -3, -5, "Socket closed(-9)((Connection reset by peer))", -1);
  }
}

TEST_CASE("a server that goes away while a request is sent raises no signal in flight either") {
  CServicePeer cPeer(nullptr);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest(TextBeyondBuffers().c_str());
  const T_End tEnd = Stepped(7, pIn.get(), 600000);
  CHECK(tEnd.iRet == -3);
  CHECK(tEnd.iCode == -4);
  CHECK(tEnd.sText.substr(0, 33) == "Failed in send()(-6)((send errno=");
}

TEST_CASE("a server that is not there when a call starts") {
  const CDeafPort cNobody;
  SetUp(cNobody.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(cCall.GetFd() == -1);
  CHECK(cCall.GetEvents() == 0);
  CHECK(cCall.GetTimeLeft() == 0);
  CHECK_FALSE(cCall.Step());
  CheckEnd(Finished(std::move(cCall)), -3, -3, "Failed in connect()(-5)((connect))", -1);
  CHECK((Blocking(7, pIn.get()) == Stepped(7, pIn.get())));
}

TEST_CASE("a server that refuses only later") {
  CFullPort cPort;
  SetUp(cPort.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  const int iFd = cCall.GetFd();
  CHECK(iFd >= 0);
  CHECK(cCall.GetEvents() == POLLOUT);
  CHECK(cCall.Step());    // not made, and not refused either
  cPort.Close();
  StepToEnd(cCall);
  CHECK(cCall.GetFd() == iFd);
  CheckEnd(Finished(std::move(cCall)), -3, -3, "Failed in connect()(-5)((connect))", -1);
}

TEST_CASE("a server that takes a call only later, and resets it before anything is sent") {
  CFullPort cPort;
  SetUp(cPort.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get());
  CHECK(cCall.Step());    // not made yet
  cPort.Reset(cCall.GetFd());
  StepToEnd(cCall);
  CheckEnd(Finished(std::move(cCall)), -3, -4, "Failed in send()(-6)((send errno=104,Connection reset by peer))", -1);
}

TEST_CASE("no descriptor, and a host without an address") {
  struct T_Row {
    const char* szHost;
    int iPort;
    const char* szText;
  };
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER")), sDic = cDir.Write("empty.xml", "<msg_dictionary/>");
  SetUp(1);
  const CMsgPtr pIn = NewRequest("x");
  for (const T_Row& tRow : {T_Row{"256.1.1.1", 1, "Failed in gethostbyname()(-4)((hostname=256.1.1.1))"},
                            T_Row{"no such host", 1, "Failed in gethostbyname()(-4)((hostname=no such host))"},
                            T_Row{"127.0.0.1", 65536, "Failed in connect()(-5)((connect))"},
                            T_Row{"127.0.0.1", -1, "Failed in connect()(-5)((connect))"}}) {
    CCallOrvError cErr;
    REQUIRE(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), tRow.szHost, tRow.iPort, 30, &cErr) == 0);
    CPendingCall cCall = Started(7, pIn.get());
    CHECK(cCall.GetFd() == -1);
    CHECK_FALSE(cCall.Step());
    CheckEnd(Finished(std::move(cCall)), -3, -3, tRow.szText, -1);
    CheckEnd(Blocking(7, pIn.get()), -3, -3, tRow.szText, -1);
  }
}

TEST_CASE("an address that was looked up is kept until the server is another one") {
  CServicePeer cPeer(Echo);
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER")), sDic = cDir.Write("empty.xml", "<msg_dictionary/>");
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CallOrv_Error tErr = {99, "old", 77};
  CHECK(CallOrv_Resolve(nullptr) == -12);
  CHECK(CallOrv_Resolve(&tErr) == 0);
  CHECK(tErr.iCode == 99);
  CHECK(Stepped(7, pIn.get()).iRet == 0);
  CCallOrvError cErr;
  CHECK(CCallOrv::Resolve(nullptr) == -12);
  REQUIRE(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "no such host", cPeer.Port(), 30, &cErr) == 0);
  const char* szText = "Failed in gethostbyname()(-4)((hostname=no such host))";
  CheckEnd(Stepped(7, pIn.get()), -3, -3, szText, -1);    // not where the old one was
  CHECK(CCallOrv::Resolve(&cErr) == -3);
  CHECK(cErr.GetCode() == -3);
  CHECK(cErr.GetText() == szText);
  CHECK(cErr.GetRefSvcNum() == -1);
  SetUp(cPeer.Port());
  CHECK(Stepped(7, pIn.get()).iRet == 0);
}

TEST_CASE("a name is looked up for each call, or once when it is resolved") {
  CServicePeer cPeer(Echo);
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER")), sDic = cDir.Write("empty.xml", "<msg_dictionary/>");
  CCallOrvError cErr;
  SetUp(cPeer.Port());    // the messages
  REQUIRE(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), HOST, cPeer.Port(), 30, &cErr) == 0);
  const CMsgPtr pIn = NewRequest("x");
  const int iBefore = s_iLookUps;
  CHECK(Stepped(7, pIn.get()).iRet == 0);
  CHECK(Stepped(7, pIn.get()).iRet == 0);
  CHECK(s_iLookUps == iBefore + 2);
  CHECK(CCallOrv::Resolve(&cErr) == 0);
  CHECK(s_iLookUps == iBefore + 3);
  CHECK(Stepped(7, pIn.get()).iRet == 0);
  CHECK(Stepped(7, pIn.get()).iRet == 0);
  CHECK(s_iLookUps == iBefore + 3);
  CHECK(Blocking(7, pIn.get()).iRet == 0);    // as ever
  CHECK(s_iLookUps == iBefore + 4);
}

TEST_CASE("what cannot be started") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, pIn.get(), 1000, nullptr)));
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, static_cast<CMsg*>(nullptr), 1000, nullptr)));
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, static_cast<CMsg*>(nullptr), 1000, &cErr)));
  CHECK(cErr.GetCode() == -12);
  CHECK(cErr.GetText() == "Parameter is NULL");
  CHECK(cErr.GetRefSvcNum() == 7);
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(10000, pIn.get(), 1000, &cErr)));
  CHECK(cErr.GetCode() == -4);
  CHECK(cErr.GetText().StartsWith("Header format is incorrect(-15)((SendTo) size mismatch(128, 129)[QMX-SSP-V1.0"));
  CHECK(cErr.GetRefSvcNum() == -1);

  CallOrv_Error tErr = {99, "old", 77};
  CHECK(CallOrv_Start(7, pIn.get(), 1000, nullptr) == nullptr);
  CHECK(CallOrv_Start(7, nullptr, 1000, &tErr) == nullptr);
  CHECK(tErr.iCode == -12);
  CHECK(tErr.szText == std::string("Parameter is NULL"));
  CHECK(tErr.iRefSvcNum == 7);
  CHECK(cPeer.Requests().empty());
}

TEST_CASE("the time is up while connecting") {
  const CFullPort cPort;
  SetUp(cPort.Port());
  const CMsgPtr pIn = NewRequest("x");
  CheckEnd(Stepped(7, pIn.get(), 200), -3, -3, "Socket timeout(-8)((connect, 200 ms))", -1);
  CheckEnd(Finished(Started(7, pIn.get(), 201)), -3, -3, "Socket timeout(-8)((connect, 201 ms))", -1);
}

TEST_CASE("the time is up while sending to a server that never reads") {
  CPeer cPeer(WaitForEnd);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest(TextBeyondBuffers().c_str());
  const auto cStart = std::chrono::steady_clock::now();
  Started(7, pIn.get(), 600000).Cancel();
  const std::chrono::duration<double, std::milli> cPacket = std::chrono::steady_clock::now() - cStart;
  const int iDeadline = static_cast<int>(3 * cPacket.count()) + 1000;    // making the packet counts
  CheckEnd(Stepped(7, pIn.get(), iDeadline), -3, -4, "Socket timeout(-8)((send, " + std::to_string(iDeadline) + " ms))", -1);
}

TEST_CASE("the time is up while a reply comes, however often a byte does") {
  struct T_Row {
    size_t uAtOnce;
    const char* szText;
  };
  const std::string sReply = Packet(Body100(std::string(100000, 'x')));
  for (const T_Row& tRow : {T_Row{0, "Socket timeout(-8)((header, 1000 ms))"},
                            T_Row{128, "Socket timeout(-8)((body, 1000 ms))"},
                            T_Row{90000, "Socket timeout(-8)((body, 1000 ms))"},
                            T_Row{sReply.size() - 3, "Socket timeout(-8)((checksum, 1000 ms))"}}) {
    CAPTURE(tRow.szText);
    CPeer cPeer([&](int p_iSock) {
      T_Request tRequest;
      if (!ReadRequest(p_iSock, tRequest)) return;
      WriteAll(p_iSock, sReply.substr(0, tRow.uAtOnce));
      for (size_t u = tRow.uAtOnce; u < sReply.size(); ++u) {
        pollfd tPoll = {p_iSock, POLLRDHUP, 0};
        if (poll(&tPoll, 1, 400) != 0 || !WriteAll(p_iSock, sReply.substr(u, 1))) return;
      }
    });
    SetUp(cPeer.Port());
    const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    const auto cStart = std::chrono::steady_clock::now();
    CheckEnd(Stepped(7, pIn.get(), 1000), -3, -5, tRow.szText, -1);
    CHECK(std::chrono::steady_clock::now() - cStart >= std::chrono::milliseconds(1000));
    CCallOrvError cErr;
    CHECK(CCallOrv::CallServiceByMsgWithin(7, pIn.get(), pOut.get(), 1000, &cErr) == -3);
    CHECK(cErr.GetCode() == -5);
    CHECK(cErr.GetText() == tRow.szText);
    CHECK(cErr.GetRefSvcNum() == -1);
  }
}

TEST_CASE("past the deadline a reply that has come does not count") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get(), 300);
  AwaitReply(cCall);
  while (cCall.GetTimeLeft() > 0) poll(nullptr, 0, cCall.GetTimeLeft());
  CHECK_FALSE(cCall.Step());
  CheckEnd(Finished(std::move(cCall)), -3, -5, "Socket timeout(-8)((header, 300 ms))", -1);
}

TEST_CASE("a call that was over in time is finished whenever") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CPendingCall cCall = Started(7, pIn.get(), 2000);
  StepToEnd(cCall);
  REQUIRE(poll(nullptr, 0, 2001) == 0);
  CHECK(Finished(std::move(cCall)).iRet == 0);
}

TEST_CASE("a call within a deadline is a blocking call otherwise") {
  CServicePeer cPeer([](const T_Request& p_tRequest) {
    return p_tRequest.SvcNum() == 7 ? Echo(p_tRequest) : T_Answer{Packet("<msg no='10'><t6>5</t6></msg>")};
  });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  CHECK(CCallOrv::CallServiceByMsgWithin(7, pIn.get(), pOut.get(), 20000, &cErr) == 0);
  CHECK((EndOf(0, cErr, *pOut) == Blocking(7, pIn.get())));
  CHECK(CCallOrv::CallServiceByMsgWithin(8, pIn.get(), pOut.get(), 20000, &cErr) == -4);
  CHECK((EndOf(-4, cErr, *pOut) == Blocking(8, pIn.get())));
  const size_t uRequests = cPeer.Requests().size();
  CHECK(CCallOrv::CallServiceByMsgWithin(7, nullptr, pOut.get(), 20000, &cErr) == -2);
  CHECK(CCallOrv::CallServiceByMsgWithin(7, pIn.get(), nullptr, 20000, &cErr) == -2);
  CHECK(cErr.GetCode() == -12);
  CHECK(cErr.GetText() == "Parameter is NULL");
  CHECK(cErr.GetRefSvcNum() == 7);
  CHECK(CCallOrv::CallServiceByMsgWithin(7, pIn.get(), pOut.get(), 20000, nullptr) == -12);
  CHECK(CCallOrv::CallServiceByMsgWithin(10000, pIn.get(), pOut.get(), 20000, &cErr) == -3);
  CHECK(cErr.GetCode() == -4);
  CHECK(cPeer.Requests().size() == uRequests);
}

TEST_CASE("Finish frees the call whatever it is given") {
  CServicePeer cPeer([](const T_Request&) { return T_Answer{"", true}; });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  const long iBefore = OpenDescriptors();
  CallOrv_Error tErr = {99, "old", 77};
  CHECK(CallOrv_Finish(Started(7, pIn.get()).Release(), pOut.get(), nullptr) == -12);
  CHECK(CallOrv_Finish(Started(7, pIn.get()).Release(), nullptr, nullptr) == -12);
  CHECK(CallOrv_Finish(Started(7, pIn.get()).Release(), nullptr, &tErr) == -2);
  CHECK(tErr.iCode == -12);
  CHECK(tErr.szText == std::string("Parameter is NULL"));
  CHECK(tErr.iRefSvcNum == 7);
  CHECK(CallOrv_Finish(nullptr, pOut.get(), &tErr) == -2);
  CHECK(tErr.iRefSvcNum == 0);
  CHECK(CallOrv_Finish(nullptr, pOut.get(), nullptr) == -12);
  CHECK(Started(7, pIn.get()).Finish(pOut.get(), nullptr) == -12);
  CHECK(OpenDescriptors() <= iBefore + 8);    // the peer's ends, as yet
}

TEST_CASE("without a call there is nothing to do") {
  CPendingCall cNone;
  CHECK_FALSE(static_cast<bool>(cNone));
  CHECK(cNone.GetFd() == -1);
  CHECK(cNone.GetEvents() == 0);
  CHECK(cNone.GetTimeLeft() == 0);
  CHECK_FALSE(cNone.Step());
  cNone.SetUser(&cNone);
  CHECK(cNone.GetUser() == nullptr);
  cNone.Cancel();
  CHECK(cNone.Release() == nullptr);
  CHECK(CallOrv_GetFd(nullptr) == -1);
  CHECK(CallOrv_GetEvents(nullptr) == 0);
  CHECK(CallOrv_GetTimeLeft(nullptr) == 0);
  CHECK(CallOrv_Step(nullptr) == 0);
  CallOrv_SetUser(nullptr, &cNone);
  CHECK(CallOrv_GetUser(nullptr) == nullptr);
  CallOrv_Cancel(nullptr);
}

TEST_CASE("a typed message starts a call, and another takes its reply") {
  class CText : public CMsgBase {
   public:
    std::string sText;
    bool bFails = false;
    int LoadFromMsg(CMsg* p_pMsg) override {
      CString sValue;
      if (bFails) return -18;
      if (p_pMsg->GetValue(1, &sValue) < 0) throw CException("no text", -5);
      sText = sValue.ToStr();
      return 0;
    }
    CMsg* CreateMsg() override { return bFails ? nullptr : NewRequest(sText.c_str()).release(); }
  };
  CServicePeer cPeer([](const T_Request& p_tRequest) {
    return p_tRequest.SvcNum() == 7 ? Echo(p_tRequest) : T_Answer{Packet("<msg no='101'><t2>5</t2></msg>")};
  });
  SetUp(cPeer.Port());
  CText cIn, cOut;
  cIn.sText = "typed";
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  const auto fnStart = [&](int p_iSvcNum) { return CCallOrv::Start(p_iSvcNum, &cIn, 20000, &cErr); };
  CHECK(fnStart(7).Finish(&cOut, &cErr) == 0);
  CHECK(cErr.GetCode() == 0);
  CHECK(cOut.sText == "typed");
  CHECK_THROWS_AS(fnStart(8).Finish(&cOut, &cErr), CException);
  CHECK(fnStart(7).Finish(&cOut, nullptr) == -12);
  CHECK(fnStart(7).Finish(static_cast<CMsgBase*>(nullptr), &cErr) == -1);
  CHECK(cErr.GetText() == "Output Msg(p_pOut) is NULL");
  CHECK(CPendingCall().Finish(&cOut, &cErr) == -4);
  CHECK(cErr.GetText() == "Parameter is NULL");
  cOut.bFails = true;
  cOut.sLastError = "no price";
  CHECK(fnStart(7).Finish(&cOut, &cErr) == -5);
  CHECK(cErr.GetCode() == -1);
  CHECK(cErr.GetText() == "no price");
  CHECK(cErr.GetRefSvcNum() == 7);
  cIn.bFails = true;
  cIn.sLastError = "no symbol";
  CHECK_FALSE(static_cast<bool>(fnStart(7)));
  CHECK(cErr.GetCode() == -1);
  CHECK(cErr.GetText() == "Input Msg is corrupted(no symbol)");
  CHECK(cErr.GetRefSvcNum() == 7);
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, static_cast<CMsgBase*>(nullptr), 20000, &cErr)));
  CHECK(cErr.GetText() == "Input Msg(p_pIn) is NULL");
  CHECK_FALSE(static_cast<bool>(CCallOrv::Start(7, &cIn, 20000, nullptr)));
}

TEST_CASE("10,000 random exchanges end as those of a blocking call") {
  std::mt19937 cRandom(1);
  const auto fnBelow = [&](size_t p_uEnd) { return cRandom() % p_uEnd; };
  struct T_Exchange {
    std::string sReply;
    bool bReset;
  };
  std::mutex cMutex;
  T_Exchange tCurrent;
  CPeer cPeer([&](int p_iSock) {
    T_Request tRequest;
    if (!ReadRequest(p_iSock, tRequest)) return;
    cMutex.lock();
    const T_Exchange tExchange = tCurrent;    // the client may be through with it before all is sent
    cMutex.unlock();
    WriteAll(p_iSock, tExchange.sReply);
    if (tExchange.bReset) ResetOnClose(p_iSock);
  });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  for (int i = 0; i < 10000; ++i) {
    std::string sReply = Packet(Body100(RandomText(fnBelow(8) == 0 ? fnBelow(100000) : fnBelow(100))), fnBelow(2) == 0);
    for (size_t u = fnBelow(4); u > 0; --u) {
      const bool bHeader = fnBelow(2) == 0;
      const size_t uAt = fnBelow(bHeader ? 128 : sReply.size());
      if (bHeader && uAt >= 12 && uAt < 22) sReply[uAt] = "0123456789 -"[fnBelow(12)];
      else sReply[uAt] = static_cast<char>(cRandom());
    }
    if (fnBelow(3) == 0) sReply.resize(fnBelow(sReply.size() + 1));
    cMutex.lock();
    tCurrent = {sReply, fnBelow(8) == 0};
    cMutex.unlock();
    const T_End tStepped = Stepped(7, pIn.get());
    const T_End tBlocking = Blocking(7, pIn.get());
    const char* szReset = "Socket closed(-9)((Connection reset by peer))";    // which may overtake what was sent before it
    if (tCurrent.bReset && (tStepped.sText == szReset) != (tBlocking.sText == szReset)) continue;
    CAPTURE(i);
    CAPTURE(tStepped.sText);
    CAPTURE(tBlocking.sText);
    CAPTURE(sReply.substr(0, 128));
    CHECK(tStepped == tBlocking);
  }
}
