// Feeds replies to calls in flight byte by byte, with a step for each, as torture/replies.py orders.
//
// Standard input has one order a line:
//   packet LENGTH            the next LENGTH bytes are the reply from now on
//   keep|close|cancel CUT    one case: the reply's first CUT bytes; then the deadline passes, the peer closes, or the call is
//                            cancelled
//   end                      prints a line for each case since the last `end`: result, code, text and reply, with blanks between
//                            them; or "cancelled" and the number of descriptors that are left over
// Texts are as driver_text.h writes them. The deadline is DEADLINE_MS.
#include <callorv/callorv.hpp>
#include <netinet/tcp.h>
#include <poll.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "driver_text.h"
#include "support/client_files.h"
#include "support/descriptors.h"
#include "support/peer.h"
#include "support/temp_file.h"

namespace {

enum { DEADLINE_MS = 500, LONG_MS = 600000 };

const char s_szDictionary[] = R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<msg_dictionary>
  <msg no="3" name="Reply" ver="1.0"><tag no="1" name="text" type="string" /><tag no="6" name="rows" type="m4" array="Y" /></msg>
  <msg no="4" name="Row" ver="1.0"><tag no="1" name="text" type="string" /><tag no="2" name="number" type="integer" /></msg>
</msg_dictionary>
)";

// A call, and the server's end of its connection.
struct T_Case {
  CPendingCall cCall;
  int iPeer = -1;
  long iLeftOver = -1;    // descriptors, when it was cancelled

  T_Case() = default;
  T_Case(T_Case&& p_t) noexcept { *this = std::move(p_t); }
  T_Case& operator=(T_Case&& p_t) noexcept {
    cCall = std::move(p_t.cCall);
    std::swap(iPeer, p_t.iPeer);
    iLeftOver = p_t.iLeftOver;
    return *this;
  }
  ~T_Case() { ClosePeer(); }
  void ClosePeer() {
    if (iPeer >= 0) close(std::exchange(iPeer, -1));
  }
};

class CDriver {
 public:
  CDriver() {
    const CTempDir cDir;
    const std::string sKey = cDir.Write("user.key", KeyFile("USER")), sDic = cDir.Write("dic.xml", s_szDictionary);
    int iPort = 0;
    m_iListen = BoundSocket(iPort);
    CCallOrvError cErr;
    if (listen(m_iListen, 16) != 0 ||
        CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), Loopback(), iPort, 60, &cErr) != 0) {
      throw std::runtime_error(std::string("not set up: ") + cErr.sText.ToStr());
    }
  }

  void Run() {
    std::string sOrder, sReply;
    while (std::cin >> sOrder) {
      if (sOrder == "end") {
        End();
        continue;
      }
      size_t uNumber = 0;
      std::cin >> uNumber;
      if (sOrder == "packet") {
        std::cin.get();
        sReply.resize(uNumber);
        std::cin.read(&sReply[0], static_cast<std::streamsize>(uNumber));
      } else {
        Feed(sReply.substr(0, uNumber), sOrder);
      }
    }
  }

 private:
  int m_iListen;
  std::vector<T_Case> m_tCases;

  void Feed(const std::string& p_sBytes, const std::string& p_sEnd) {
    const long iDescriptors = OpenDescriptors();
    T_Case tCase;
    do {    // again when the machine has other work and lets the deadline pass too early
      tCase = Fed(p_sBytes, p_sEnd == "keep" ? DEADLINE_MS : LONG_MS);
    } while (tCase.cCall.GetEvents() != 0 && tCase.cCall.GetTimeLeft() == 0);
    if (p_sEnd != "keep") tCase.ClosePeer();
    if (p_sEnd == "cancel") {
      tCase.cCall.Cancel();
      tCase.iLeftOver = OpenDescriptors() - iDescriptors;
    }
    m_tCases.push_back(std::move(tCase));
  }

  T_Case Fed(const std::string& p_sBytes, int p_iDeadlineMs) const {
    CMsg cRequest(3, 0, 0, MA_GetMsgDic());
    CCallOrvError cErr;
    T_Case tCase;
    tCase.cCall = CCallOrv::Start(7, &cRequest, p_iDeadlineMs, &cErr);
    if (tCase.cCall.GetFd() < 0) throw std::runtime_error("not started");
    tCase.iPeer = accept4(m_iListen, nullptr, nullptr, SOCK_CLOEXEC);
    const int iOn = 1;
    setsockopt(tCase.iPeer, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
    while (tCase.cCall.GetEvents() == POLLOUT) tCase.cCall.Step();
    char szRequest[4096];
    if (recv(tCase.iPeer, szRequest, sizeof(szRequest), 0) <= 0) throw std::runtime_error("no request");
    for (const char c : p_sBytes) {
      pollfd tPoll = {tCase.cCall.GetFd(), POLLIN, 0};
      if (send(tCase.iPeer, &c, 1, MSG_NOSIGNAL) != 1 || poll(&tPoll, 1, -1) != 1) throw std::runtime_error("not sent");
      tCase.cCall.Step();
    }
    return tCase;
  }

  void End() {
    for (T_Case& tCase : m_tCases) {
      if (!tCase.cCall) {
        printf("cancelled %ld\n", tCase.iLeftOver);
        continue;
      }
      CMsg cReply(0, 0, 0, MA_GetMsgDic());
      CCallOrvError cErr;
      const int iRet = tCase.cCall.Finish(&cReply, &cErr);
      printf("%d %d ", iRet, cErr.GetCode());
      PrintText(cErr.sText.ToStr());
      CStream stXml(0, 512);
      if (iRet == 0) cReply.ToXml(&stXml, false, false, 1);
      PrintText(stXml.GetData());
      printf("\n");
    }
    m_tCases.clear();
    fflush(stdout);    // it is waited for
  }
};

}    // namespace

int main() try {
  std::ios::sync_with_stdio(false);
  CDriver().Run();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "step_driver: %s\n", cError.what());
  return 1;
}
