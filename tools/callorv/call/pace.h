// When calls are due.
#ifndef CALLORV_TOOLS_PACE_H
#define CALLORV_TOOLS_PACE_H

#include <chrono>
#include <cstdint>
#include <string>

// Calls at a fixed rate. Each due time is reckoned from the start, in whole numbers, so that none drifts.
class CPace {
 public:
  enum : int64_t { PER_CALL = 1000, GREATEST = 1000000 * PER_CALL };    // a rate is kept in thousandths of a call

  explicit CPace(int64_t p_iThousandths = 0) : m_uRate(static_cast<uint64_t>(p_iThousandths)) {}

  bool IsOpen() const { return m_uRate != 0; }    // else the next call begins when one is over
  double PerSecond() const { return static_cast<double>(m_uRate) / PER_CALL; }
  // Behind the start, of the call p_uAt, the first being 0.
  std::chrono::nanoseconds DueAt(uint64_t p_uAt) const;
  // How many calls are due before p_tEnd.
  uint64_t DueBefore(std::chrono::nanoseconds p_tEnd) const;

 private:
  uint64_t m_uRate;
};

// "500", "0.5", "1234.567": up to three decimals, from 0.001 to 1000000. Returns 0 for anything else.
int64_t ParseRate(const std::string& p_sText);

// "250ms", "30s", "5m", "1.5h": digits, perhaps a decimal point, and a unit; up to 168 h. Returns 0 for anything else.
std::chrono::nanoseconds ParseDuration(const std::string& p_sText);

#endif
