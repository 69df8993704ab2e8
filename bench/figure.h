// How a figure is taken: the library and its floor in turn, in one process.
#ifndef BENCH_FIGURE_H
#define BENCH_FIGURE_H

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

enum { ROUNDS = 5 };    // the fewest, whatever time a figure is given

// The value below which p_dPart of the values lie.
inline double Quantile(std::vector<double> p_ad, double p_dPart) {
  const auto it = p_ad.begin() + static_cast<std::ptrdiff_t>(p_dPart * static_cast<double>(p_ad.size() - 1) + 0.5);
  std::nth_element(p_ad.begin(), it, p_ad.end());
  return *it;
}
inline double Median(const std::vector<double>& p_ad) { return Quantile(p_ad, 0.5); }

// WORK: processor time of the thread, which other programs on the machine do not lengthen. WALL: where others have a
// part in the work: a server, more threads. ALL_WORK: processor time of all threads.
enum E_Clock : clockid_t { WORK = CLOCK_THREAD_CPUTIME_ID, WALL = CLOCK_MONOTONIC, ALL_WORK = CLOCK_PROCESS_CPUTIME_ID };
inline double Now(E_Clock p_eClock) {
  timespec tNow;
  clock_gettime(p_eClock, &tNow);
  return 1e9 * static_cast<double>(tNow.tv_sec) + static_cast<double>(tNow.tv_nsec);
}

// Nanoseconds of p_iBatch calls of p_fn.
template <class F>
double NanosOf(E_Clock p_eClock, int p_iBatch, F& p_fn) {
  const double dStart = Now(p_eClock);
  for (int i = 0; i < p_iBatch; ++i) p_fn();
  return Now(p_eClock) - dStart;
}

// What is measured has no floor to be held against. p_iBatch: calls that are timed together.
template <class F>
void Measure(benchmark::State& p_cState, int p_iBatch, F p_fn) {
  std::vector<double> adTime;
  p_fn();
  for (auto tIgnored : p_cState) {
    double dSum = 0;
    for (int i = 0; i < ROUNDS; ++i) {
      adTime.push_back(NanosOf(WORK, p_iBatch, p_fn));
      dSum += adTime.back();
    }
    p_cState.SetIterationTime(dSum * 1e-9);
  }
  p_cState.counters["library_ns"] = Median(adTime) / p_iBatch;
}

// Library and floor in turn, each going first every other round; both functions return the nanoseconds that p_iBatch
// operations took. The ratio is the median of the rounds' ratios: a disturbance that is longer than a round hits both
// sides of it alike.
template <class FLOOR, class LIBRARY>
void CompareTimes(benchmark::State& p_cState, int p_iBatch, FLOOR p_fnFloor, LIBRARY p_fnLibrary) {
  std::vector<double> adFloor, adLibrary, adRatio;
  p_fnFloor();    // the first time is another matter: pages, caches, kept readers
  p_fnLibrary();
  for (auto tIgnored : p_cState) {
    double dSum = 0;
    for (int i = 0; i < ROUNDS; ++i) {
      const bool bFloorFirst = adRatio.size() % 2 == 0;
      double dFloor = bFloorFirst ? p_fnFloor() : 0;
      const double dLibrary = p_fnLibrary();
      if (!bFloorFirst) dFloor = p_fnFloor();
      adFloor.push_back(dFloor);
      adLibrary.push_back(dLibrary);
      adRatio.push_back(dLibrary / dFloor);
      dSum += dLibrary;
    }
    p_cState.SetIterationTime(dSum * 1e-9);
  }
  p_cState.counters["floor_ns"] = Median(adFloor) / p_iBatch;
  p_cState.counters["library_ns"] = Median(adLibrary) / p_iBatch;
  p_cState.counters["ratio"] = Median(adRatio);
  p_cState.counters["ratio_q1"] = Quantile(adRatio, 0.25);
  p_cState.counters["ratio_q3"] = Quantile(adRatio, 0.75);
}

// The same for functions that do one operation and are timed from outside.
template <class FLOOR, class LIBRARY>
void Compare(benchmark::State& p_cState, E_Clock p_eClock, int p_iBatch, FLOOR p_fnFloor, LIBRARY p_fnLibrary) {
  CompareTimes(
      p_cState, p_iBatch, [&] { return NanosOf(p_eClock, p_iBatch, p_fnFloor); },
      [&] { return NanosOf(p_eClock, p_iBatch, p_fnLibrary); });
}

template <class F>
benchmark::internal::Benchmark* Register(const std::string& p_sName, F p_fn) {
  return benchmark::RegisterBenchmark(p_sName.c_str(), p_fn)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

#endif
