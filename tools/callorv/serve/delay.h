// Delays by distribution.
#ifndef CALLORV_TOOLS_DELAY_H
#define CALLORV_TOOLS_DELAY_H

#include <chrono>
#include <mutex>
#include <random>

#include "common/json_in.h"

// Draws one time after the other, the same row for the same seed. Any thread.
class CDelay {
 public:
  // p_cJson: milliseconds, or an object with the one member fixed, uniform, normal, lognormal or exponential.
  // Throws CFailure with the place.
  CDelay(const CJsonIn::CValue& p_cJson, unsigned long long p_iSeed);

  std::chrono::microseconds Next();    // at most an hour

 private:
  enum E_Kind { FIXED, UNIFORM, NORMAL, LOGNORMAL, EXPONENTIAL };
  E_Kind m_eKind = FIXED;
  double m_dA = 0, m_dB = 0;    // milliseconds, or the shape of a lognormal
  std::mutex m_cMutex;
  std::mt19937_64 m_cRandom;

  double Draw();       // above 0, at most 1
  double Normal();     // of mean 0 and deviation 1
  double Millis();
};

#endif
