// What the library takes from memory: peaks, bytes a row, allocations. Counts, not times; every count is exact or the
// kernel's own.
#include <callorv/client/pending_call.h>
#include <callorv/dict/msg_dic.h>
#include <callorv/net/tcp_adaptor.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>

#include <atomic>
#include <cstring>
#include <fstream>

#include "client.h"
#include "figure.h"
#include "floors/bare_parse.h"
#include "floors/plain_writer.h"
#include "server.h"
#include "support/temp_file.h"

// Every allocation of the process, also the parser's, comes through here.
namespace {
std::atomic<long> s_iAllocations{0}, s_iLive{0}, s_iLiveBytes{0};
void* Count(void* p_p, int p_iLive) {
  if (p_p == nullptr) return nullptr;
  s_iAllocations.fetch_add(1, std::memory_order_relaxed);
  s_iLive.fetch_add(p_iLive, std::memory_order_relaxed);
  s_iLiveBytes.fetch_add(static_cast<long>(malloc_usable_size(p_p)), std::memory_order_relaxed);
  return p_p;
}
void Uncount(void* p_p, int p_iLive) {
  if (p_p == nullptr) return;
  s_iLive.fetch_sub(p_iLive, std::memory_order_relaxed);
  s_iLiveBytes.fetch_sub(static_cast<long>(malloc_usable_size(p_p)), std::memory_order_relaxed);
}
}    // namespace
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
void* malloc(size_t p_uSize) { return Count(__libc_malloc(p_uSize), 1); }
void* calloc(size_t p_uCount, size_t p_uSize) { return Count(__libc_calloc(p_uCount, p_uSize), 1); }
void* realloc(void* p_p, size_t p_uSize) {
  const int iNew = p_p == nullptr ? 1 : 0;
  Uncount(p_p, 0);
  return Count(__libc_realloc(p_p, p_uSize), iNew);
}
void free(void* p_p) {
  Uncount(p_p, 1);
  __libc_free(p_p);
}
}

namespace {

enum { ROWS = 10000, MSGS = 9999, TAGS = 20, ONE_ROW = 0 };

// The most memory that this process has had resident, in kB.
double PeakResident() {
  std::ifstream cStatus("/proc/self/status");
  std::string sWord;
  double dPeak = 0;
  while (cStatus >> sWord) {
    if (sWord == "VmHWM:") cStatus >> dPeak;
  }
  return dPeak;
}

double BytesOfRow() {
  CMsgDic cDic;
  cDic.InitDictionary(BENCH_FILES "/dictionary.xml");
  std::string sXml = WritePlainly(MakeRows(ROWS)), sOne = WritePlainly(MakeRows(1));
  CMsg cFirst(0, 0, 0, &cDic), cMsg(0, 0, 0, &cDic);
  Expect(cFirst.LoadXml(&sOne[0]), "LoadXml");    // leaves the reader that is kept
  const long iBefore = s_iLiveBytes;
  Expect(cMsg.LoadXml(&sXml[0]), "LoadXml");
  return static_cast<double>(s_iLiveBytes - iBefore) / ROWS;
}

// Page faults of a packet whose body is compressed, after some: memory that the heap has given back to the kernel.
double FaultsOfPacket() {
  CTcpAdaptor cAdaptor;
  CAdaptor::T_PacketInfo tInfo;
  FillPacket(tInfo);
  const auto fnPackets = [&](int p_iPackets) {
    for (int i = 0; i < p_iPackets; ++i) {
      CStream stPacket(0, 512);
      Expect(cAdaptor.BuildPacket(&tInfo, stPacket), "BuildPacket");
    }
    rusage tUsage = {};
    getrusage(RUSAGE_SELF, &tUsage);
    return static_cast<double>(tUsage.ru_minflt);
  };
  const double dBefore = fnPackets(10);
  return (fnPackets(1000) - dBefore) / 1000;
}

// What has to be measured in a process that has done nothing before: it prints the number.
int Child(const std::string& p_sWhat, const std::string& p_sPath) {
  double dResult = 0;
  if (p_sWhat == "row") {
    dResult = BytesOfRow();
  } else if (p_sWhat == "packet") {
    dResult = FaultsOfPacket();
  } else if (p_sWhat == "bare") {
    const CBareParser cParser;
    CBareParser::ParseFile(p_sPath);
    dResult = PeakResident();
  } else {
    CMsgDic cDic;
    cDic.InitDictionary(p_sPath.c_str());
    dResult = PeakResident();
  }
  printf("%.1f\n", dResult);
  return 0;
}

double InChild(const std::string& p_sWhat, const std::string& p_sPath) {
  char szSelf[4096] = {};
  if (readlink("/proc/self/exe", szSelf, sizeof(szSelf) - 1) < 0) throw std::runtime_error("no /proc/self/exe");
  const std::string sCommand = std::string(szSelf) + " --child " + p_sWhat + " " + p_sPath;
  FILE* pPipe = popen(sCommand.c_str(), "r");
  double dResult = 0;
  const bool bRead = pPipe != nullptr && fscanf(pPipe, "%lf", &dResult) == 1;
  if (pPipe == nullptr || pclose(pPipe) != 0 || !bRead) throw std::runtime_error("failed: " + sCommand);
  return dResult;
}

void Dictionary(benchmark::State& p_cState) {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("dictionary.xml", LongDictionary(MSGS, TAGS));
  for (auto tIgnored : p_cState) {
    const double dFloor = InChild("bare", sPath), dLibrary = InChild("library", sPath);
    p_cState.counters["floor_kb"] = dFloor;
    p_cState.counters["library_kb"] = dLibrary;
    p_cState.counters["beyond_mb"] = (dLibrary - dFloor) / 1024;
  }
}

void Row(benchmark::State& p_cState) {
  for (auto tIgnored : p_cState) {
    const double dBytes = InChild("row", "-");
    p_cState.counters["bytes"] = dBytes;
    p_cState.counters["beyond_bytes"] = dBytes - static_cast<double>(sizeof(CMsg));
  }
}

void FaultsOfPackets(benchmark::State& p_cState) {
  for (auto tIgnored : p_cState) p_cState.counters["faults"] = InChild("packet", "-");
}

// Allocations of one call, without those of a bare parse with a kept reader and those that the reply holds.
void Allocations(benchmark::State& p_cState, const std::string& p_sXml) {
  const CBareParser cParser;
  const auto pReader = CBareParser::NewReader();
  const CMsgPtr pRequest = NewRequest();
  CCallOrvError cErr;
  for (int i = 0; i < 3; ++i) {    // from the second on nothing is made for later
    CBareParser::Parse(*pReader, p_sXml);
    Call(ONE_ROW, *pRequest);
  }
  for (auto tIgnored : p_cState) {
    const long iParseStart = s_iAllocations;
    CBareParser::Parse(*pReader, p_sXml);
    const long iParse = s_iAllocations - iParseStart;

    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    const long iCallStart = s_iAllocations, iLiveStart = s_iLive;
    Expect(CCallOrv::CallServiceByMsg(ONE_ROW, pRequest.get(), &cReply, &cErr), "call");
    const long iCall = s_iAllocations - iCallStart, iHeld = s_iLive - iLiveStart;
    p_cState.counters["call"] = static_cast<double>(iCall);
    p_cState.counters["parser"] = static_cast<double>(iParse);
    p_cState.counters["held"] = static_cast<double>(iHeld);
    p_cState.counters["beyond"] = static_cast<double>(iCall - iParse - iHeld);
  }
}

// Memory of a call that waits for its reply, without its message.
void WaitingCall(benchmark::State& p_cState) {
  const CMsgPtr pRequest = NewRequest();
  CCallOrvError cErr;
  const auto fnStart = [&] {
    CPendingCall cCall = CCallOrv::Start(ONE_ROW, pRequest.get(), 60000, &cErr);
    while (cCall.GetEvents() == POLLOUT) cCall.Step();
    return cCall;
  };
  fnStart();    // leaves what is kept
  for (auto tIgnored : p_cState) {
    std::vector<CPendingCall> cCalls(100);
    const long iBefore = s_iLiveBytes;
    for (CPendingCall& cCall : cCalls) cCall = fnStart();
    p_cState.counters["bytes"] = static_cast<double>(s_iLiveBytes - iBefore) / static_cast<double>(cCalls.size());
  }
}

}    // namespace

int main(int p_iArgs, char** p_aszArg) try {
  if (p_iArgs == 4 && strcmp(p_aszArg[1], "--child") == 0) return Child(p_aszArg[2], p_aszArg[3]);
  benchmark::Initialize(&p_iArgs, p_aszArg);
  if (benchmark::ReportUnrecognizedArguments(p_iArgs, p_aszArg)) return 1;
  const std::string sXml = WritePlainly(MakeRows(1));
  const CBenchServer cServer({Packet(sXml)}, 1);
  InitializeClient(cServer.Port());
  Register("memory/dictionary", Dictionary)->Iterations(1);
  Register("memory/row", Row)->Iterations(1);
  Register("memory/packet", FaultsOfPackets)->Iterations(1);
  Register("memory/allocations", [&](benchmark::State& p_c) { Allocations(p_c, sXml); })->Iterations(1);
  Register("memory/waiting_call", WaitingCall)->Iterations(1);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "bench_memory: %s\n", cError.what());
  return 1;
}
