// An hour of calls to a server that plays faults and is killed and started again every few seconds. What each call
// returned must be right, and memory and descriptors of the calling process must stay flat.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "client.h"
#include "memory.h"
#include "tally.h"

namespace {

using Clock = std::chrono::steady_clock;

enum {
  THREADS = 4,
  TIME_OUT = 1    // second, of a call that meets a stall
};

// The bytes by which memory may grow between the second and the last quarter. A short run sees few of the largest
// messages, which come and go, and what is kept between calls has not been filled when it begins.
long long Growth(int p_iSeconds) { return (p_iSeconds < 600 ? 16 : 1) * 1024 * 1024; }

const std::vector<std::string> s_asFaults = {"reset@2",    "close@2",   "truncate:200@2", "checksum@2", "zlib@2",
                                             "reject:7@2", "stall:0@1", "stall:140@1",    "delay:20@5"};

// What the process has at a moment when no call is going on.
struct T_Sample {
  double dSeconds;
  long long lResident;    // bytes
  long lDescriptors;
  long long lCalls, lReplies;    // so far
};

// A port from which no connection starts by itself: with one from that range a client could connect to itself while
// the server is down, and the server could not come back.
int FixedPort() {
  std::ifstream cIn("/proc/sys/net/ipv4/ip_local_port_range");
  int iFirst = 32768;
  cIn >> iFirst;
  for (int iPort = iFirst - 1; iPort > 1024; --iPort) {
    const int iSock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in tAddr = {};
    tAddr.sin_family = AF_INET;
    tAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    tAddr.sin_port = htons(static_cast<uint16_t>(iPort));
    const bool bFree = bind(iSock, reinterpret_cast<sockaddr*>(&tAddr), sizeof(tAddr)) == 0;
    close(iSock);
    if (bFree) return iPort;
  }
  throw std::runtime_error("no free port");
}

// Threads that call without end, at a modest rate, and can be made to hold still.
class CCallers {
 public:
  CCallers(CTally& p_cTally, unsigned p_uSeed) : m_cTally(p_cTally) {
    for (unsigned i = 0; i < THREADS; ++i) m_cThreads.emplace_back([this, i, p_uSeed] { Run(i, p_uSeed + i); });
  }
  ~CCallers() { End(); }
  CCallers(const CCallers&) = delete;
  CCallers& operator=(const CCallers&) = delete;

  // Runs p_fn at a moment when no call is going on. The tally is the threads' own at any other.
  template <class FN>
  void AtRest(FN p_fn) {
    const std::lock_guard<std::mutex> cNoNewCall(m_cTurnstile);
    const std::unique_lock<std::shared_mutex> cNoCall(m_cCalling);
    p_fn();
  }

  void End() {
    m_bEnd = true;
    for (std::thread& cThread : m_cThreads) cThread.join();
    m_cThreads.clear();
  }

  long long Ends(int p_iEnd) const { return m_alEnds[static_cast<size_t>(p_iEnd)]; }
  long long Calls() const {
    long long lAll = 0;
    for (const auto& lEnd : m_alEnds) lAll += lEnd;
    return lAll;
  }

 private:
  CTally& m_cTally;
  std::mutex m_cTallying;
  std::mutex m_cTurnstile;
  std::shared_mutex m_cCalling;
  std::atomic<bool> m_bEnd{false};
  std::array<std::atomic<long long>, ENDS> m_alEnds{};
  std::vector<std::thread> m_cThreads;

  // Mostly short, some long enough to be compressed, a few that take memory of their own.
  static std::string Text(std::mt19937& p_cRandom, int p_iThread, int p_iCall) {
    std::string sText = "thread " + std::to_string(p_iThread) + " call " + std::to_string(p_iCall) + ':';
    const unsigned uKind = p_cRandom() % 100;
    const size_t uMost = uKind < 70 ? 100 : uKind < 90 ? 3000 : uKind < 99 ? 60000 : 1000000;
    const size_t uLen = p_cRandom() % uMost;
    while (sText.size() < uLen) sText += std::to_string(p_cRandom());
    return sText;
  }

  void Run(unsigned p_uThread, unsigned p_uSeed) {
    std::mt19937 cRandom(p_uSeed);
    for (int iCall = 0; !m_bEnd; ++iCall) {
      const int iThread = static_cast<int>(p_uThread);
      const std::string sText = Text(cRandom, iThread, iCall);
      std::string sWhat;
      m_cTurnstile.lock();
      m_cTurnstile.unlock();
      {
        const std::shared_lock<std::shared_mutex> cCalling(m_cCalling);
        const E_End eEnd = EchoCall(iThread, sText, iCall, sWhat);
        const std::lock_guard<std::mutex> cTallying(m_cTallying);
        ++m_alEnds[eEnd];
        m_cTally.Case(eEnd != END_WRONG,
                      "thread " + std::to_string(iThread) + " call " + std::to_string(iCall) + ": " + sWhat);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(cRandom() % 30));
    }
  }
};

// The middle value of p_lOf over one quarter (0 to 3) of the samples' time.
template <class GET>
long long Median(const std::vector<T_Sample>& p_atSamples, int p_iQuarter, GET p_fnOf) {
  std::vector<long long> alValues;
  const double dLast = p_atSamples.back().dSeconds;
  for (const T_Sample& tSample : p_atSamples) {
    if (std::min(3, static_cast<int>(4 * tSample.dSeconds / dLast)) == p_iQuarter) {
      alValues.push_back(p_fnOf(tSample));
    }
  }
  if (alValues.empty()) throw std::runtime_error("a quarter without a sample");
  std::sort(alValues.begin(), alValues.end());
  return alValues[alValues.size() / 2];
}

int Soak(int p_iSeconds, unsigned p_uSeed, const std::string& p_sCsv) {
  CTally cTally("soak");
  CClient cClient;
  const int iPort = FixedPort();
  cClient.SetUp(iPort, TIME_OUT);
  std::ofstream cCsv(p_sCsv);
  cCsv << "seconds,resident_bytes,descriptors,calls,replies\n";

  std::mt19937 cRandom(p_uSeed);
  std::vector<T_Sample> atSamples;
  const Clock::time_point tStart = Clock::now();
  const auto fnSeconds = [&] { return std::chrono::duration<double>(Clock::now() - tStart).count(); };
  CCallers cCallers(cTally, p_uSeed + 1);
  const unsigned uLife = p_iSeconds < 600 ? 500 : 2000;    // milliseconds, at least
  int iLives = 0;
  while (fnSeconds() < p_iSeconds) {
    const long long lReplies = cCallers.Ends(END_REPLY);
    {
      const CServer cServer(cClient.Dictionary(), s_asFaults, iPort);
      std::this_thread::sleep_for(std::chrono::milliseconds(uLife + cRandom() % (2 * uLife)));
      cCallers.AtRest([&] {
        atSamples.push_back({fnSeconds(), ResidentBytes(), OpenDescriptors(), cCallers.Calls(),
                             cCallers.Ends(END_REPLY)});
      });
      const T_Sample& tLast = atSamples.back();
      cCsv << tLast.dSeconds << ',' << tLast.lResident << ',' << tLast.lDescriptors << ',' << tLast.lCalls << ','
           << tLast.lReplies << std::endl;
      std::this_thread::sleep_for(std::chrono::milliseconds(cRandom() % 100));    // killed while calls are going on
    }
    ++iLives;
    cCallers.AtRest([&] {
      cTally.Case(cCallers.Ends(END_REPLY) > lReplies, "no reply from server " + std::to_string(iLives));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(cRandom() % 300));    // nobody listens
  }

  cCallers.End();
  fprintf(stderr, "soak: %.0f s, %d servers, %lld calls:", fnSeconds(), iLives, cCallers.Calls());
  for (int i = 0; i < ENDS; ++i) fprintf(stderr, " %s %lld", EndName(i), cCallers.Ends(i));
  fprintf(stderr, "\n");
  const auto fnResident = [](const T_Sample& p_t) { return p_t.lResident; };
  const long long lSecond = Median(atSamples, 1, fnResident), lLast = Median(atSamples, 3, fnResident);
  fprintf(stderr, "soak: resident memory: %lld bytes in the second quarter, %lld in the last\n", lSecond, lLast);
  if (MEMORY_IS_KNOWN) cTally.Case(lLast - lSecond <= Growth(p_iSeconds), "resident memory grows");
  const auto fnMore = [](const T_Sample& p_tA, const T_Sample& p_tB) { return p_tA.lDescriptors < p_tB.lDescriptors; };
  const auto tRange = std::minmax_element(atSamples.begin(), atSamples.end(), fnMore);
  fprintf(stderr, "soak: descriptors at rest: %ld to %ld; samples in %s\n", tRange.first->lDescriptors,
          tRange.second->lDescriptors, p_sCsv.c_str());
  cTally.Case(tRange.first->lDescriptors == tRange.second->lDescriptors, "the number of descriptors changes");
  return cTally.End();
}

}    // namespace

// torture_soak [--quick | --seconds N] [--seed N] [--csv FILE]
int main(int p_iArgs, char** p_pszArgs) try {
  int iSeconds = 3600;
  unsigned uSeed = std::random_device()();
  std::string sCsv = TORTURE_DIR "/soak.csv";
  for (int i = 1; i < p_iArgs; ++i) {
    const std::string sArg = p_pszArgs[i];
    if (sArg == "--quick") {
      iSeconds = 30;
    } else if (i + 1 == p_iArgs) {
      throw std::runtime_error("usage: torture_soak [--quick | --seconds N] [--seed N] [--csv FILE]");
    } else if (sArg == "--seconds") {
      iSeconds = std::stoi(p_pszArgs[++i]);
    } else if (sArg == "--seed") {
      uSeed = static_cast<unsigned>(std::stoul(p_pszArgs[++i]));
    } else if (sArg == "--csv") {
      sCsv = p_pszArgs[++i];
    }
  }
  fprintf(stderr, "soak: %d s, --seed %u\n", iSeconds, uSeed);
  return Soak(iSeconds, uSeed, sCsv);
} catch (const std::exception& cError) {
  fprintf(stderr, "soak: %s\n", cError.what());
  return 1;
}
