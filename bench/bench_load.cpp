// What the first use of the library costs a process. Linked with neither the library nor the parser: both are loaded by
// children that have loaded nothing yet.
#include <callorv/callorv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <stdexcept>

#include "figure.h"
#include "floors/bare_load.h"

namespace {

bool LoadLibrary() {
  void* pLibrary = dlopen(BENCH_LIBRARY, RTLD_NOW);
  if (pLibrary == nullptr) return false;
  const auto fnInitialize =
      reinterpret_cast<decltype(&CallOrv_Initialize)>(dlsym(pLibrary, "CallOrv_Initialize"));
  CallOrv_Error tErr;
  return fnInitialize != nullptr && fnInitialize(BENCH_FILES "/client.cfg", &tErr) == 0;
}

// Nanoseconds that p_fnLoad took in a process of its own.
template <class F>
double InChild(F p_fnLoad) {
  int aiPipe[2];
  if (pipe(aiPipe) != 0) throw std::runtime_error("no pipe");
  const pid_t iChild = fork();
  if (iChild == 0) {
    bool bLoaded = false;
    const auto fnLoad = [&] { bLoaded = p_fnLoad(); };
    const double dTook = NanosOf(WORK, 1, fnLoad);
    _exit(bLoaded && write(aiPipe[1], &dTook, sizeof(dTook)) == sizeof(dTook) ? 0 : 1);
  }
  close(aiPipe[1]);
  double dTook = 0;
  const bool bRead = read(aiPipe[0], &dTook, sizeof(dTook)) == sizeof(dTook);
  close(aiPipe[0]);
  if (iChild > 0) waitpid(iChild, nullptr, 0);
  if (!bRead) throw std::runtime_error("a child could not load");
  return dTook;
}

}    // namespace

int main(int p_iArgs, char** p_aszArg) try {
  benchmark::Initialize(&p_iArgs, p_aszArg);
  if (benchmark::ReportUnrecognizedArguments(p_iArgs, p_aszArg)) return 1;
  Register("first_use", [](benchmark::State& p_c) {
    CompareTimes(
        p_c, 1, [] { return InChild([] { return LoadBareParser(BENCH_PARSER); }); },
        [] { return InChild(LoadLibrary); });
  });
  benchmark::RunSpecifiedBenchmarks();
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "bench_load: %s\n", cError.what());
  return 1;
}
