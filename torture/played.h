// What a server that plays faults makes of many calls.
#ifndef TORTURE_PLAYED_H
#define TORTURE_PLAYED_H

#include <array>
#include <string>
#include <vector>

#include "client.h"
#include "tally.h"

struct T_Played {
  const char* szFault;    // as --fault takes it, for so many percent of the calls that come to it
  E_End eEnd;             // END_REPLY: a delay
  int iPercent;
};
using Played = std::vector<T_Played>;
using Counts = std::array<long, ENDS>;    // of each end

inline std::vector<std::string> Names(const Played& p_atPlayed) {
  std::vector<std::string> asNames;
  for (const T_Played& tPlayed : p_atPlayed) asNames.push_back(tPlayed.szFault);
  return asNames;
}

// How often each end is due in p_lCalls calls: each fault gets its part of the calls that come to it, rounded down.
inline Counts Expected(const Played& p_atPlayed, long p_lCalls) {
  Counts alCounts{};
  for (const T_Played& tPlayed : p_atPlayed) {
    if (tPlayed.eEnd == END_REPLY) continue;
    const long lHit = p_lCalls * tPlayed.iPercent / 100;
    alCounts[tPlayed.eEnd] += lHit;
    p_lCalls -= lHit;
  }
  alCounts[END_REPLY] = p_lCalls;
  return alCounts;
}

inline void Compare(CTally& p_cTally, const char* p_szWhat, const Counts& p_alEnds, const Counts& p_alExpected) {
  for (size_t i = 0; i < ENDS; ++i) {
    if (p_alExpected[i] == 0 && p_alEnds[i] == 0) continue;
    p_cTally.Case(p_alEnds[i] == p_alExpected[i], std::string(p_szWhat) + ": " + EndName(static_cast<int>(i)) + ": " +
                                                      std::to_string(p_alEnds[i]) + " calls instead of " +
                                                      std::to_string(p_alExpected[i]));
  }
}

#endif
