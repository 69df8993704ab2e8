// What a call costs `callorv serve`, beside a minimal server: processor time of the two processes, in turn.
#include <callorv/net/tcp_adaptor.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <thread>

#include "client.h"
#include "figure.h"
#include "floors/raw_exchange.h"
#include "server.h"
#include "support/child.h"
#include "support/temp_file.h"

namespace {

enum { SERVICE = 1, ROWS = 100, RULES = 100, BENCH_ROUNDS = 15 };

// Microseconds of processor time that a process has taken.
double MicrosOf(pid_t p_iPid) {
  clockid_t iClock = 0;
  timespec tNow = {};
  if (clock_getcpuclockid(p_iPid, &iClock) != 0 || clock_gettime(iClock, &tNow) != 0) {
    throw std::runtime_error("no clock of process " + std::to_string(p_iPid));
  }
  return 1e6 * static_cast<double>(tNow.tv_sec) + 1e-3 * static_cast<double>(tNow.tv_nsec);
}

class CServe {
 public:
  explicit CServe(std::vector<std::string> p_asMore) : m_cProgram(Words(std::move(p_asMore))) {
    if (sscanf(m_cProgram.ReadLine().c_str(), "listening on 127.0.0.1 %d", &m_iPort) != 1) {
      throw std::runtime_error("callorv serve does not start");
    }
  }
  int Port() const { return m_iPort; }
  pid_t Pid() const { return m_cProgram.Pid(); }

 private:
  CProgram m_cProgram;
  int m_iPort = 0;

  static std::vector<std::string> Words(std::vector<std::string> p_asMore) {
    p_asMore.insert(p_asMore.begin(), {CALLORV_COMMAND, "serve", "--quiet"});
    return p_asMore;
  }
};

std::string RequestFor(int p_iSvcNum) {
  CAdaptor::T_PacketInfo tInfo;
  tInfo.iSvcNum = p_iSvcNum;
  tInfo.iMsgNum = REQUEST_MSG;
  NewRequest()->ToXml(&tInfo.stBody, false, false, 1);
  CStream stPacket(0, 512);
  CTcpAdaptor cBuilder;
  Expect(cBuilder.BuildPacket(&tInfo, stPacket), "BuildPacket");
  return std::string(stPacket.GetData(), static_cast<size_t>(stPacket.GetSize()));
}

// The packet that a server answers with.
std::string ReplyOf(int p_iPort, const std::string& p_sRequest) {
  std::vector<char> aHeader(CTcpAdaptor::HEADER_SIZE);
  ExchangeRaw(p_iPort, p_sRequest, aHeader);
  const size_t uRest = std::stoul(std::string(&aHeader[12], 10)) + CTcpAdaptor::TRAILER_SIZE;
  std::vector<char> aWhole(uRest);
  ExchangeRaw(p_iPort, p_sRequest, aWhole);
  return std::string(aWhole.data(), aWhole.size());
}

// The last of RULES fits: each has a service of its own, or all have the same and differ by a value.
std::string Rules(bool p_bOneService) {
  std::string sRules;
  for (int i = RULES; i-- > 0;) {
    sRules += std::string(sRules.empty() ? "{\"rules\": [" : ",") + "\n{\"service\": " +
              std::to_string(p_bOneService ? SERVICE : SERVICE + i);
    if (p_bOneService && i > 0) sRules += ", \"values\": {\"FieldNumber1\": \"none" + std::to_string(i) + "\"}";
    sRules += ", \"reply\": \"1.xml\"}";
  }
  return sRules + "]}";
}

void Run(int p_iCalls) {
  const CTempDir cDir;
  const std::string sDictionary = cDir.Write("dictionary.xml", ServiceDictionary());
  MA_GetMsgDic()->InitDictionary(sDictionary.c_str());
  cDir.Write("1.xml", ToXml(*NewReply(MakeRows(ROWS))));
  const std::string sRequest = RequestFor(SERVICE);
  const std::string sByService = cDir.Write("by_service.json", Rules(false));
  const std::string sByValue = cDir.Write("by_value.json", Rules(true));
  std::this_thread::sleep_for(std::chrono::seconds(4));    // a file that was just written is read at every call
  const CServe cFolder({"--dictionary", sDictionary, "--replies", cDir.Path()});
  const CServe cByService({"--dictionary", sDictionary, "--replies", cDir.Path(), "--rules", sByService});
  const CServe cByValue({"--dictionary", sDictionary, "--replies", cDir.Path(), "--rules", sByValue});
  const std::string sReply = ReplyOf(cFolder.Port(), sRequest);
  const CBenchServer cMinimal({sReply, sReply}, 1);
  const auto fnMicros = [&](int p_iPort, pid_t p_iPid) {
    std::vector<char> aReply(sReply.size());
    const double dBefore = MicrosOf(p_iPid);
    for (int i = 0; i < p_iCalls; ++i) ExchangeRaw(p_iPort, sRequest, aReply);
    return (MicrosOf(p_iPid) - dBefore) / p_iCalls;
  };
  std::vector<double> adMinimal, adFolder, adByService, adByValue, adFolderRatio, adServiceRatio, adValueRatio;
  for (int i = 0; i < BENCH_ROUNDS; ++i) {
    adMinimal.push_back(fnMicros(cMinimal.Port(), cMinimal.Pid()));
    adFolder.push_back(fnMicros(cFolder.Port(), cFolder.Pid()));
    adByService.push_back(fnMicros(cByService.Port(), cByService.Pid()));
    adByValue.push_back(fnMicros(cByValue.Port(), cByValue.Pid()));
    adFolderRatio.push_back(adFolder.back() / adMinimal.back());
    adServiceRatio.push_back(adByService.back() / adFolder.back());
    adValueRatio.push_back(adByValue.back() / adFolder.back());
  }
  printf("processor time of a call, %d rows, median of %d rounds of %d calls\n", ROWS, BENCH_ROUNDS, p_iCalls);
  printf("  minimal server                      %6.1f us\n", Median(adMinimal));
  printf("  folder                              %6.1f us, %.2f times\n", Median(adFolder), Median(adFolderRatio));
  printf("  %d rules of as many services       %6.1f us, %.2f times a folder\n", RULES, Median(adByService),
         Median(adServiceRatio));
  printf("  %d rules of one service, the last  %6.1f us, %.2f times a folder\n", RULES, Median(adByValue),
         Median(adValueRatio));
}

}    // namespace

int main(int p_iArgs, char** p_aszArg) try {
  Run(p_iArgs > 1 ? atoi(p_aszArg[1]) : 2000);
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "bench_serve: %s\n", cError.what());
  return 1;
}
