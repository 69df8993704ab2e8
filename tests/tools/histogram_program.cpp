// Percentiles of the numbers on standard input, as `callorv call` finds them for latencies: one a line of each of the
// arguments, then the least and the greatest, the sum of all rows' counts, and the rows.
#include <cstdlib>
#include <iostream>

#include "common/histogram.h"

int main(int p_iArgs, char** p_apArgs) {
  CHistogram acPart[3], cAll;    // added up, as those of several seconds are
  uint64_t uValue = 0;
  for (size_t i = 0; std::cin >> uValue; ++i) acPart[i % 3].Record(uValue);
  for (CHistogram& c : acPart) {
    cAll.Add(c);
    c.Clear();
    cAll.Add(c);
  }
  for (int i = 1; i < p_iArgs; ++i) std::cout << cAll.Percentile(std::atof(p_apArgs[i])) << '\n';
  std::cout << cAll.Min() << '\n' << cAll.Max() << '\n' << std::fixed << cAll.Mean() << '\n';
  for (const bool bThree : {false, true}) {
    for (const auto& t : cAll.Buckets(bThree)) {
      std::cout << bThree << ' ' << t.uFrom << ' ' << t.uBelow << ' ' << t.uCount << '\n';
    }
  }
}
