// What the library's operations cost, each beside its floor. Names that begin with "growth" are points of a plot.
#include <callorv/dict/msg_dic.h>

#include <cstdio>
#include <exception>

#include "figure.h"
#include "figures.h"

int main(int p_iArgs, char** p_aszArg) try {
  benchmark::Initialize(&p_iArgs, p_aszArg);
  if (benchmark::ReportUnrecognizedArguments(p_iArgs, p_aszArg)) return 1;
  RegisterCalls();
  RegisterXml();
  RegisterDictionary();
  RegisterValues();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "bench_time: %s\n", cError.what());
  return 1;
}
