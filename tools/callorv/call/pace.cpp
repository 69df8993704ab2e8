// When calls are due.
#include "call/pace.h"

#include "common/text.h"

namespace {

using std::chrono::nanoseconds;

// Digits with up to three decimals behind a point, times 1,000; -1 for anything else, and above p_iMax whole ones.
int64_t ParseThousandths(const std::string& p_sText, int p_iMax) {
  const size_t iPoint = p_sText.find('.');
  const std::string sWhole = p_sText.substr(0, iPoint);
  std::string sRest = iPoint == std::string::npos ? "0" : p_sText.substr(iPoint + 1);
  if (sWhole.find_first_not_of("0123456789") != std::string::npos || sRest.empty() || sRest.size() > 3 ||
      sRest.find_first_not_of("0123456789") != std::string::npos) {
    return -1;
  }
  sRest.resize(3, '0');
  int iWhole = 0, iRest = 0;
  if (!ParseNumber(sWhole, 0, p_iMax, iWhole) || !ParseNumber(sRest, 0, 999, iRest)) return -1;
  return iWhole * int64_t{1000} + iRest;
}

}    // namespace

// p_uAt * 10^12 / m_uRate without a product that 64 bits do not hold: up to 10^9 thousandths, times 10^6, twice.
nanoseconds CPace::DueAt(uint64_t p_uAt) const {
  constexpr uint64_t MILLION = 1000000;
  const uint64_t uSeconds = p_uAt / m_uRate * PER_CALL, uRest = p_uAt % m_uRate;
  const uint64_t uMillis = uRest * MILLION / m_uRate, uLeft = uRest * MILLION % m_uRate;
  return std::chrono::seconds(uSeconds) + nanoseconds(uMillis * MILLION + uLeft * MILLION / m_uRate);
}

uint64_t CPace::DueBefore(nanoseconds p_tEnd) const {
  if (p_tEnd <= nanoseconds(0)) return 0;
  auto uCalls = static_cast<uint64_t>(static_cast<double>(p_tEnd.count()) * 1e-9 * PerSecond());    // or nearly
  while (uCalls > 0 && DueAt(uCalls - 1) >= p_tEnd) --uCalls;
  while (DueAt(uCalls) < p_tEnd) ++uCalls;
  return uCalls;
}

int64_t ParseRate(const std::string& p_sText) {
  const int64_t iRate = ParseThousandths(p_sText, CPace::GREATEST / CPace::PER_CALL);
  return iRate > 0 && iRate <= CPace::GREATEST ? iRate : 0;
}

nanoseconds ParseDuration(const std::string& p_sText) {
  static constexpr struct {
    const char* szUnit;
    int64_t iNanos;    // of a thousandth of it
  } s_atUnits[] = {{"ms", 1000}, {"s", 1000000}, {"m", 60000000}, {"h", 3600000000}};
  constexpr int GREATEST_MS = 604800000;    // 168 h
  const size_t iUnit = p_sText.find_first_not_of("0123456789.");
  if (iUnit == std::string::npos) return nanoseconds(0);
  const int64_t iThousandths = ParseThousandths(p_sText.substr(0, iUnit), GREATEST_MS);
  for (const auto& t : s_atUnits) {
    if (p_sText.compare(iUnit, std::string::npos, t.szUnit) != 0) continue;
    const bool bFits = iThousandths > 0 && iThousandths <= GREATEST_MS * int64_t{1000000} / t.iNanos;
    return nanoseconds(bFits ? iThousandths * t.iNanos : 0);
  }
  return nanoseconds(0);
}
