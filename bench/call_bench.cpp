// Whole calls against the bare exchange of the same bytes.
#include <iterator>
#include <memory>

#include "client.h"
#include "crowd.h"
#include "figure.h"
#include "figures.h"
#include "floors/bare_parse.h"
#include "floors/plain_writer.h"
#include "floors/raw_exchange.h"
#include "server.h"

namespace {

constexpr int s_aiRows[] = {1, 10, 100, 1000, 10000, 100000};    // of the reply of service 0, 1, ...
enum { ONE_ROW, TEN_ROWS, HUNDRED_ROWS, THOUSAND_ROWS, TEN_THOUSAND_ROWS };
enum { CROWD = 8, MOST_THREADS = 16, CALLS_EACH = 20 };

// Everything that the figures of this file share, made once.
struct T_Calls {
  std::vector<std::string> asXml, asReply;
  std::unique_ptr<CBenchServer> pServer;

  T_Calls() {
    for (const int iRows : s_aiRows) {
      asXml.push_back(WritePlainly(MakeRows(iRows)));
      asReply.push_back(Packet(asXml.back()));
    }
    pServer = std::make_unique<CBenchServer>(asReply, MOST_THREADS);
    InitializeClient(pServer->Port());
  }
};
T_Calls& Calls() {
  static T_Calls s_tCalls;
  return s_tCalls;
}

enum E_Parse { NO_PARSE, FRESH_READER, KEPT_READER };    // what the floor does with the reply

void OneThread(benchmark::State& p_cState, int p_iSvcNum, E_Parse p_eParse, int p_iBatch) {
  static const auto s_pReader = CBareParser::NewReader();
  const T_Calls& tCalls = Calls();
  const CMsgPtr pRequest = NewRequest();
  const std::string sRequest = RequestPacket(p_iSvcNum, *pRequest);
  const std::string& sXml = tCalls.asXml[static_cast<size_t>(p_iSvcNum)];
  std::vector<char> aReply(tCalls.asReply[static_cast<size_t>(p_iSvcNum)].size());
  Compare(
      p_cState, WALL, p_iBatch,
      [&] {
        ExchangeRaw(tCalls.pServer->Port(), sRequest, aReply);
        if (p_eParse == FRESH_READER) CBareParser::Parse(sXml);
        if (p_eParse == KEPT_READER) CBareParser::Parse(*s_pReader, sXml);
      },
      [&] { Call(p_iSvcNum, *pRequest); });
}

// Wall time of a call while this many threads call.
void ManyThreads(benchmark::State& p_cState, int p_iThreads) {
  const T_Calls& tCalls = Calls();
  const std::string sRequest = RequestPacket(ONE_ROW, *NewRequest());
  CCrowd cCrowd(p_iThreads);
  const auto fnAll = [&](auto p_fn) {
    cCrowd.Run([&] {
      for (int i = 0; i < CALLS_EACH; ++i) p_fn();
    });
  };
  const auto fnTime = [&](auto p_fn) {
    const auto fnRun = [&] { fnAll(p_fn); };
    return NanosOf(WALL, 1, fnRun);
  };
  CompareTimes(
      p_cState, p_iThreads * CALLS_EACH,
      [&] {
        return fnTime([&] {
          thread_local std::vector<char> s_aReply;
          s_aReply.resize(tCalls.asReply[ONE_ROW].size());
          ExchangeRaw(tCalls.pServer->Port(), sRequest, s_aReply);
        });
      },
      [&] {
        return fnTime([&] {
          thread_local const CMsgPtr s_pRequest = NewRequest();
          Call(ONE_ROW, *s_pRequest);
        });
      });
}

}    // namespace

void RegisterCalls() {
  static const CBareParser s_cParser;
  Calls();
  Register("call/1", [](benchmark::State& p_c) { OneThread(p_c, ONE_ROW, NO_PARSE, 10); });
  Register("call/100", [](benchmark::State& p_c) { OneThread(p_c, HUNDRED_ROWS, NO_PARSE, 10); });
  Register("call_and_kept_parse/1", [](benchmark::State& p_c) { OneThread(p_c, ONE_ROW, KEPT_READER, 10); });
  Register("call_and_kept_parse/100", [](benchmark::State& p_c) { OneThread(p_c, HUNDRED_ROWS, KEPT_READER, 10); });
  Register("call_and_parse/10000", [](benchmark::State& p_c) { OneThread(p_c, TEN_THOUSAND_ROWS, FRESH_READER, 1); });
  Register("call_threads/8", [](benchmark::State& p_c) { ManyThreads(p_c, CROWD); });
  for (size_t i = 0; i < std::size(s_aiRows); ++i) {
    Register("growth/call/" + std::to_string(s_aiRows[i]), [i](benchmark::State& p_c) {
      OneThread(p_c, static_cast<int>(i), FRESH_READER, i <= HUNDRED_ROWS ? 10 : 1);
    });
  }
  for (int i = 1; i <= MOST_THREADS; i *= 2) {
    Register("growth/threads/" + std::to_string(i), [i](benchmark::State& p_c) { ManyThreads(p_c, i); });
  }
}
