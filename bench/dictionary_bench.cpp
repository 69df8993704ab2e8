// Dictionaries read from files.
#include <callorv/dict/msg_dic.h>

#include <memory>

#include "figure.h"
#include "figures.h"
#include "floors/bare_parse.h"
#include "payload.h"
#include "support/temp_file.h"

namespace {

enum { TAGS = 20, MOST_MSGS = 9999 };

void Load(benchmark::State& p_cState, int p_iMsgs) {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("dictionary.xml", LongDictionary(p_iMsgs, TAGS));
  const auto fnParse = [&] { CBareParser::ParseFile(sPath); };
  CompareTimes(
      p_cState, 1, [&] { return NanosOf(WORK, 1, fnParse); },
      [&] {
        const auto pDic = std::make_unique<CMsgDic>();    // freed when the time has been taken
        const auto fnLoad = [&] { pDic->InitDictionary(sPath.c_str()); };
        return NanosOf(WORK, 1, fnLoad);
      });
}

}    // namespace

void RegisterDictionary() {
  Register("dictionary/9999", [](benchmark::State& p_c) { Load(p_c, MOST_MSGS); });
  for (const int iMsgs : {1, 10, 100, 1000, 3000, +MOST_MSGS}) {
    Register("growth/dictionary/" + std::to_string(iMsgs), [=](benchmark::State& p_c) { Load(p_c, iMsgs); });
  }
}
