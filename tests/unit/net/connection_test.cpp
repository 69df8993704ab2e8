// Connect, Disconnect and what stands between.
#include <dlfcn.h>
#include <doctest/doctest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "open_adaptor.h"
#include "support/child.h"
#include "support/descriptors.h"
#include "support/fail_alloc.h"
#include "support/peer.h"
#include "support/silent_port.h"

namespace {

// A name that leads to 127.0.0.1. Where the machine has no host names at all, an address that only a resolver reads.
const char* LocalName() {
  addrinfo tHints = {};
  tHints.ai_family = AF_INET;
  addrinfo* pList = nullptr;
  if (getaddrinfo("localhost", nullptr, &tHints, &pList) != 0) return "0177.1";
  freeaddrinfo(pList);
  return "localhost";
}

// The addresses that getaddrinfo finds for TWO_ADDRESSES, in this order; what it finds for other names is the
// resolver's.
const char TWO_ADDRESSES[] = "two.addresses.invalid";
const char* s_aszFound[2] = {};

bool SameFile(int p_iA, int p_iB) {
  struct stat tA, tB;
  return fstat(p_iA, &tA) == 0 && fstat(p_iB, &tB) == 0 && tA.st_ino == tB.st_ino;
}

// From now on setsockopt() fails in this process. 32-bit programs make the call through socketcall.
void ForbidSetSockOpt() {
  enum { CALL_SETSOCKOPT = 14 };
  sock_filter atFilter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
#ifdef __NR_socketcall
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_socketcall, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, CALL_SETSOCKOPT, 2, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
#endif
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_setsockopt, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOBUFS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog tProgram = {sizeof(atFilter) / sizeof(*atFilter), atFilter};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &tProgram);
}

}    // namespace

extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* p_szNode, const char* p_szService, const addrinfo* p_pHints,
                                                          addrinfo** p_ppResult) {
  static const auto s_fnReal = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const bool bTwo = p_szNode != nullptr && strcmp(p_szNode, TWO_ADDRESSES) == 0;
  const int iRet = s_fnReal(bTwo ? s_aszFound[0] : p_szNode, p_szService, p_pHints, p_ppResult);
  return bTwo && iRet == 0 ? s_fnReal(s_aszFound[1], p_szService, p_pHints, &(*p_ppResult)->ai_next) : iRet;
}

TEST_CASE("Connect tries a host's first address only") {
  CPeer cPeer([](int) {});    // on 127.0.0.1 alone
  COpenAdaptor cFirst, cSecond;
  s_aszFound[0] = "127.0.0.1";
  s_aszFound[1] = "127.0.0.2";
  CHECK(cFirst.Connect(TWO_ADDRESSES, cPeer.Port()) >= 0);
  std::swap(s_aszFound[0], s_aszFound[1]);
  CHECK(cSecond.Connect(TWO_ADDRESSES, cPeer.Port()) == -5);
  CHECK(cSecond.Error() == "Failed in connect()(-5)((connect))");
  CHECK(cSecond.iSock == -1);
}

TEST_CASE("a fresh adaptor") {
  COpenAdaptor cAdaptor;
  CHECK(cAdaptor.sHost == "");
  CHECK(cAdaptor.iPort == 0);
  CHECK(cAdaptor.iSock == -1);
  CHECK(cAdaptor.iSendTimeOut == 90);
  CHECK(cAdaptor.iRecvTimeOut == 60);
}

TEST_CASE("Connect by address and by name") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, ReadBytes(p_iSock, 4)); });
  for (const char* szHost : {"127.0.0.1", LocalName(), "127.1"}) {
    CAPTURE(szHost);
    COpenAdaptor cAdaptor;
    const int iSock = cAdaptor.Connect(szHost, cPeer.Port());
    REQUIRE(iSock >= 0);
    CHECK(cAdaptor.iSock == iSock);
    CHECK(cAdaptor.sHost == szHost);
    CHECK(cAdaptor.iPort == cPeer.Port());
    CHECK(cAdaptor.Error() == "");
    int iOn = 0;
    socklen_t uLen = sizeof(iOn);
    CHECK(getsockopt(iSock, IPPROTO_TCP, TCP_NODELAY, &iOn, &uLen) == 0);
    CHECK(iOn != 0);
    CHECK((fcntl(iSock, F_GETFL) & O_NONBLOCK) == 0);
    char szBuf[4];
    CHECK(cAdaptor.SendData("ping", 4, 5) == 0);
    CHECK(cAdaptor.ReceiveData(szBuf, 4, 5) == 4);
    CHECK(std::string(szBuf, 4) == "ping");
    CHECK(cAdaptor.Disconnect() == 0);
  }
}

TEST_CASE("Connect: what fails, and leaves the adaptor as it was") {
  CPeer cPeer([](int p_iSock) {
    WriteAll(p_iSock, "hi");
    WriteAll(p_iSock, ReadToEnd(p_iSock));
  });
  const CDeafPort cNobody;
  struct T_Row { const char* szHost; int iPort; int iCode; const char* szText; };
  const T_Row atRow[] = {
      {nullptr, cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname=(null)))"},
      {"", cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname=))"},
      {"256.1.1.1", cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname=256.1.1.1))"},
      {" 127.0.0.1", cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname= 127.0.0.1))"},
      {"no such host", cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname=no such host))"},
      {"::1", cPeer.Port(), -4, "Failed in gethostbyname()(-4)((hostname=::1))"},
      {"no such host", -1, -4, "Failed in gethostbyname()(-4)((hostname=no such host))"},
      {"127.2", cPeer.Port(), -5, "Failed in connect()(-5)((connect))"},    // 127.0.0.2: the peer is at 127.0.0.1 only
      {"127.0.0.1", cNobody.Port(), -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", 0, -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", -1, -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", INT_MIN, -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", 65536 + cPeer.Port(), -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", cPeer.Port() - 65536, -5, "Failed in connect()(-5)((connect))"},
      {"127.0.0.1", INT_MAX, -5, "Failed in connect()(-5)((connect))"},
  };
  COpenAdaptor cAdaptor;
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  const int iSock = cAdaptor.iSock;
  char szBuf[2];
  REQUIRE(cAdaptor.ReceiveData(szBuf, 2, 5) == 2);    // the peer has opened its side
  cAdaptor.Connect("", 1);                            // whatever a resolver opens for good is open now
  const long iOpen = OpenDescriptors();
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.iPort);
    CHECK(cAdaptor.Connect(tRow.szHost, tRow.iPort) == tRow.iCode);
    CHECK(cAdaptor.Error() == tRow.szText);
    CHECK(cAdaptor.iSock == iSock);
    CHECK(cAdaptor.sHost == "127.0.0.1");
    CHECK(cAdaptor.iPort == cPeer.Port());
  }
  CHECK(OpenDescriptors() == iOpen);
  CHECK(cAdaptor.SendData("ok", 2, 5) == 0);    // the old connection still works
  shutdown(iSock, SHUT_WR);
  CHECK(cAdaptor.ReceiveData(szBuf, 2, 5) == 2);
}

TEST_CASE("Connect without a descriptor to be had") {
  CPeer cPeer([](int) {});
  rlimit tOld;
  getrlimit(RLIMIT_NOFILE, &tOld);
  rlimit tNone = tOld;
  tNone.rlim_cur = 0;
  setrlimit(RLIMIT_NOFILE, &tNone);
  COpenAdaptor cAdaptor;
  const int iRet = cAdaptor.Connect("no such host", cPeer.Port());
  setrlimit(RLIMIT_NOFILE, &tOld);
  CHECK(iRet == -3);
  CHECK(cAdaptor.Error() == "Cannot open socket(-3)((iSock=-1))");
  CHECK(cAdaptor.iSock == -1);
}

TEST_CASE("Connect where TCP_NODELAY cannot be set") {
  const std::string sSeen = InChild([] {
    CPeer cPeer([](int) {});
    ForbidSetSockOpt();
    COpenAdaptor cAdaptor;
    const int iNoHost = cAdaptor.Connect("no such host", cPeer.Port());    // comes before, the port behind
    const long iOpen = OpenDescriptors();
    const int iNoPort = cAdaptor.Connect("127.0.0.1", -1);
    const int iRet = cAdaptor.Connect("127.0.0.1", cPeer.Port());
    const long iLeft = OpenDescriptors() - iOpen;
    return std::to_string(iNoHost) + " " + std::to_string(iNoPort) + " " + std::to_string(iRet) + " " +
           cAdaptor.Error() + " " + std::to_string(cAdaptor.iSock) + " " + std::to_string(iLeft);
  });
  CHECK(sSeen == "-4 -11 -11 Failed in setsockopt()(-11)((TCP_NODELAY)) -1 0");
}

TEST_CASE("Connect without memory for the name") {
  const CSilentPort cNobody;    // a peer that accepts would open a descriptor at a moment of its own
  static const char s_szHost[] = "000000000000177.0.0.1";    // too long for a short text; octal
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    COpenAdaptor cAdaptor;
    const long iOpen = OpenDescriptors();
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = cAdaptor.Connect(s_szHost, cNobody.Port()); }));
    if (p_cFail.HasFailed()) {
      CHECK(iRet == -1);
      CHECK(cAdaptor.Error() == "Memory error(-1)((Connect))");
      CHECK(cAdaptor.iSock == -1);
      CHECK(cAdaptor.sHost == "");
      CHECK(OpenDescriptors() == iOpen);
    } else {
      CHECK(iRet >= 0);
      CHECK(cAdaptor.sHost == "000000000000177.0.0.1");
    }
  });
  CHECK(iFailures == 1);
}

TEST_CASE("Connect again forgets the first connection without closing it") {
  CPeer cFirst([](int p_iSock) { WriteAll(p_iSock, "1"); });
  CPeer cSecond([](int p_iSock) { WriteAll(p_iSock, "2"); });
  COpenAdaptor cAdaptor;
  const int iFirst = cAdaptor.Connect("127.0.0.1", cFirst.Port());
  REQUIRE(iFirst >= 0);
  const int iSecond = cAdaptor.Connect("127.0.0.1", cSecond.Port());
  REQUIRE(iSecond >= 0);
  CHECK(iFirst != iSecond);
  char szBuf[1];
  CHECK(cAdaptor.ReceiveData(szBuf, 1, 5) == 1);
  CHECK(szBuf[0] == '2');
  CHECK(recv(iFirst, szBuf, 1, 0) == 1);
  CHECK(szBuf[0] == '1');
  CHECK(close(iFirst) == 0);
}

TEST_CASE("Disconnect ends both directions and can be repeated") {
  std::promise<std::string> cGot;
  CPeer cPeer([&](int p_iSock) { cGot.set_value(ReadToEnd(p_iSock) + "."); });
  COpenAdaptor cAdaptor;
  CHECK(cAdaptor.Disconnect() == -1);    // nothing was open
  CHECK(cAdaptor.Error() == "");
  REQUIRE(cAdaptor.Connect("127.0.0.1", cPeer.Port()) >= 0);
  const int iSock = cAdaptor.iSock;
  const int iCopy = fcntl(iSock, F_DUPFD_CLOEXEC, 0);
  REQUIRE(SameFile(iSock, iCopy));
  CHECK(cAdaptor.SendData("bye", 3, 5) == 0);
  CHECK(cAdaptor.Disconnect() == 0);
  char c;
  CHECK(recv(iCopy, &c, 1, MSG_DONTWAIT) == 0);    // shut down, although a copy of the descriptor is open
  CHECK(cGot.get_future().get() == "bye.");
  CHECK(cAdaptor.iSock == -1);
  CHECK_FALSE(SameFile(iSock, iCopy));    // closed, even if another thread has the number by now
  CHECK(cAdaptor.Disconnect() == -1);
  close(iCopy);
}

TEST_CASE("the destructor leaves the socket open") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, ReadBytes(p_iSock, 2)); });
  int iSock = -1;
  {
    CTcpAdaptor cAdaptor;
    iSock = cAdaptor.Connect("127.0.0.1", cPeer.Port());
    cAdaptor.SetLastError(-1, "x");
    REQUIRE(iSock >= 0);
  }
  char szBuf[2];
  CHECK(send(iSock, "ok", 2, 0) == 2);
  CHECK(recv(iSock, szBuf, 2, MSG_WAITALL) == 2);
  CHECK(close(iSock) == 0);
}

TEST_CASE("distinct adaptors in several threads") {
  CPeer cPeer([](int p_iSock) { WriteAll(p_iSock, ReadBytes(p_iSock, 1)); });
  const char* szName = LocalName();
  std::atomic<int> iGood{0};
  std::vector<std::thread> acThread;
  for (int i = 0; i < 8; ++i) {
    acThread.emplace_back([&cPeer, &iGood, szName, i] {
      for (int k = 0; k < 20; ++k) {
        COpenAdaptor cAdaptor;
        char szBuf[1] = {};
        if (cAdaptor.Connect(nullptr, 1) == -4 &&
            cAdaptor.Connect(i % 2 == 0 ? szName : "127.0.0.1", cPeer.Port()) >= 0 &&
            cAdaptor.SendData("x", 1, 20) == 0 && cAdaptor.ReceiveData(szBuf, 1, 20) == 1 && szBuf[0] == 'x' &&
            cAdaptor.Error() == "Failed in gethostbyname()(-4)((hostname=(null)))") {
          ++iGood;
        }
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  CHECK(iGood == 160);
}
