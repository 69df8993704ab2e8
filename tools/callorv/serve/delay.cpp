// Delays by distribution.
#include "serve/delay.h"

#include <algorithm>
#include <cmath>

#include "serve/json_members.h"

namespace {

constexpr double HOUR = 3600000;    // ms
constexpr double WIDEST = 10;       // sigma of a lognormal

}    // namespace

CDelay::CDelay(const CJsonIn::CValue& p_cJson, unsigned long long p_iSeed) : m_cRandom(p_iSeed) {
  if (p_cJson.Kind() == JSON_NUMBER) {
    m_dA = DoubleOf(p_cJson, 0, HOUR);
    return;
  }
  if (p_cJson.Kind() != JSON_OBJECT) {
    p_cJson.Fail(p_cJson.Words() + " stands where a number of milliseconds or a distribution belongs");
  }
  CheckMembers(p_cJson, {"fixed", "uniform", "normal", "lognormal", "exponential"});
  const CJsonIn::CValue cKind = p_cJson.First();
  if (!cKind || cKind.Next()) p_cJson.Fail("it takes one of fixed, uniform, normal, lognormal, exponential");
  const auto fnTwo = [&](E_Kind p_eKind, const char* p_szA, const char* p_szB, double p_dMost) {
    m_eKind = p_eKind;
    CheckMembers(cKind, {p_szA, p_szB});
    m_dA = DoubleOf(Needed(cKind, p_szA), 0, HOUR);
    m_dB = DoubleOf(Needed(cKind, p_szB), 0, p_dMost);
  };
  if (cKind.Name() == "fixed") {
    m_dA = DoubleOf(cKind, 0, HOUR);
  } else if (cKind.Name() == "uniform") {
    fnTwo(UNIFORM, "from", "to", HOUR);
    if (m_dB < m_dA) cKind.Fail("'to' is less than 'from'");
  } else if (cKind.Name() == "normal") {
    fnTwo(NORMAL, "mean", "deviation", HOUR);
  } else if (cKind.Name() == "lognormal") {
    fnTwo(LOGNORMAL, "median", "sigma", WIDEST);
  } else {
    m_eKind = EXPONENTIAL;
    CheckMembers(cKind, {"mean"});
    m_dA = DoubleOf(Needed(cKind, "mean"), 0, HOUR);
  }
}

// What the standard says of the generator holds everywhere; of its distributions it does not.
double CDelay::Draw() { return (static_cast<double>(m_cRandom() >> 11) + 1) / 9007199254740992.0; }

double CDelay::Normal() {
  constexpr double PI = 3.14159265358979323846;
  const double dRadius = std::sqrt(-2 * std::log(Draw()));
  return dRadius * std::cos(2 * PI * Draw());
}

double CDelay::Millis() {
  switch (m_eKind) {
    case UNIFORM: return m_dA + (m_dB - m_dA) * Draw();
    case NORMAL: return m_dA + m_dB * Normal();
    case LOGNORMAL: return m_dA * std::exp(m_dB * Normal());
    case EXPONENTIAL: return -m_dA * std::log(Draw());
    default: return m_dA;
  }
}

std::chrono::microseconds CDelay::Next() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  return std::chrono::microseconds(std::llround(1000 * std::clamp(Millis(), 0.0, HOUR)));
}
