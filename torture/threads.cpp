// 64 threads that call a server which plays faults: every reply belongs to its request, every fault shows as itself and
// as often as it was played, and no descriptor and no memory is left over.
#include <atomic>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "client.h"
#include "memory.h"
#include "played.h"

namespace {

enum {
  THREADS = 64,
  LONG_TEXT = 100000,
  LEFT_OVER = 64 * 1024    // bytes that may be in use more than before: what is kept between calls differs in size
};

// About 5 % together.
const Played s_atFast = {{"reset@1", END_RESET, 1}, {"close@1", END_CLOSED, 1}, {"truncate:200@1", END_CLOSED, 1},
                         {"checksum@1", END_CHECKSUM, 1}, {"zlib@1", END_ZLIB, 1}};
// Those that cost a time-out each, and others. For fewer calls.
const Played s_atSlow = {{"stall:0@1", END_SILENCE, 1}, {"stall:140@1", END_CUT_OFF, 1}, {"delay:100@1", END_REPLY, 1},
                         {"truncate:64@1", END_CLOSED, 1}, {"reject:7@1", END_REJECT, 1}};

class CRound {
 public:
  CRound(CClient& p_cClient, CTally& p_cTally, const Played& p_atFaults, int p_iTimeOut)
      : m_cTally(p_cTally), m_atFaults(p_atFaults), m_cServer(p_cClient.Dictionary(), Names(p_atFaults)) {
    p_cClient.SetUp(m_cServer.Port(), p_iTimeOut);
  }

  // Every other thread sends texts of p_uLong bytes, which are compressed.
  void Run(int p_iCallsEach, size_t p_uLong) {
    std::vector<std::thread> cThreads;
    for (int i = 0; i < THREADS; ++i) {
      cThreads.emplace_back([=] { CallOften(i, p_iCallsEach, i % 2 ? p_uLong : 0); });
    }
    for (std::thread& cThread : cThreads) cThread.join();
    m_lCalls += static_cast<long>(THREADS) * p_iCallsEach;
    Compare(m_cTally, "threads", m_alEnds, Expected(m_atFaults, m_lCalls));
  }

 private:
  CTally& m_cTally;
  const Played& m_atFaults;
  CServer m_cServer;
  std::mutex m_cMutex;
  Counts m_alEnds{};
  long m_lCalls = 0;

  void CallOften(int p_iThread, int p_iCalls, size_t p_uLen) {
    for (int iCall = 0; iCall < p_iCalls; ++iCall) {
      const std::string sWho = "thread " + std::to_string(p_iThread) + " call " + std::to_string(iCall);
      const std::string sText = sWho + ':' + std::string(p_uLen, '.');
      std::string sWhat;
      const E_End eEnd = EchoCall(p_iThread, sText, iCall, sWhat);
      const std::lock_guard<std::mutex> cLock(m_cMutex);
      ++m_alEnds[eEnd];
      m_cTally.Case(eEnd != END_WRONG, sWho + ": " + sWhat);
    }
  }
};

// Takes everything that is kept between calls into use at one moment, as large as calls make it: documents that are
// longer to read than a thread runs at a stretch, into messages that are there together.
void UseAllThatIsKept(CTally& p_cTally) {
  std::string sXml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><msg no=\"100\" ver=\"1.0\"><t1><![CDATA[" +
                     std::string(LONG_TEXT, '.') + "]]></t1>";    // a blank less than replies have, so that the parser reads it
  for (int i = 0; i < 200000; ++i) sXml += "<t2>1</t2>";
  sXml += "</msg>";
  std::vector<std::unique_ptr<CMsg>> apMsg;
  for (int i = 0; i < THREADS; ++i) apMsg.emplace_back(MA_NewMsg(0));
  std::atomic<int> iRead{0};
  std::vector<std::thread> cThreads;
  for (const std::unique_ptr<CMsg>& pMsg : apMsg) cThreads.emplace_back([&] { iRead += pMsg->LoadXml(&sXml[0]) == 0; });
  for (std::thread& cThread : cThreads) cThread.join();
  p_cTally.Case(iRead == THREADS, "long documents are not read");
}

int Threads(bool p_bQuick) {
  CTally cTally("threads");
  CClient cClient;
  {
    CRound cRound(cClient, cTally, s_atFast, 60);
    cRound.Run(20, LONG_TEXT);
    UseAllThatIsKept(cTally);    // a failure has its reader dropped; here and below as many are kept as may be
    const long lDescriptors = OpenDescriptors();
    const long long lBytes = BytesInUse();
    cRound.Run(p_bQuick ? 80 : 1900, 3000);
    UseAllThatIsKept(cTally);
    fprintf(stderr, "threads: descriptors %ld, %ld before; bytes %lld, %lld before\n", OpenDescriptors(), lDescriptors,
            BytesInUse(), lBytes);
    cTally.Case(OpenDescriptors() == lDescriptors, "descriptors are left over");
    if (MEMORY_IS_KNOWN) cTally.Case(BytesInUse() - lBytes <= LEFT_OVER, "memory is left over");
  }
  const long lDescriptors = OpenDescriptors();
  CRound(cClient, cTally, s_atSlow, 5).Run(p_bQuick ? 10 : 100, 3000);
  cTally.Case(OpenDescriptors() == lDescriptors, "descriptors are left over by calls that time out");
  return cTally.End();
}

}    // namespace

int main(int p_iArgs, char** p_pszArgs) try {
  return Threads(IsQuick(p_iArgs, p_pszArgs));
} catch (const std::exception& cError) {
  fprintf(stderr, "threads: %s\n", cError.what());
  return 1;
}
