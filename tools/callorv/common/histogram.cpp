// Latencies that are counted, not kept.
#include "common/histogram.h"

#include <algorithm>
#include <cmath>

namespace {

enum { HALF_BITS = 10 };                          // 2 * 1,024 classes tell three digits apart: 1,000 is less
constexpr uint64_t HALF = uint64_t{1} << HALF_BITS;
constexpr uint64_t GREATEST = (uint64_t{1} << 42) - 1;

// The power of two by which values like this one are divided: 0 up to 2,047, 1 up to 4,095.
int ShiftOf(uint64_t p_uValue) { return 64 - __builtin_clzll(p_uValue | (2 * HALF - 1)) - (HALF_BITS + 1); }

size_t ClassOf(uint64_t p_uValue) {
  const int iShift = ShiftOf(p_uValue);
  return static_cast<size_t>((static_cast<uint64_t>(iShift) << HALF_BITS) + (p_uValue >> iShift));
}

uint64_t GreatestIn(size_t p_iClass) {
  if (p_iClass < 2 * HALF) return p_iClass;
  const uint64_t uShift = (p_iClass >> HALF_BITS) - 1;
  return ((p_iClass - (uShift << HALF_BITS) + 1) << uShift) - 1;
}

// The borders of rows: 1, 1.25, 1.6, ... times a power of ten, or 1, 2 and 5 times one.
uint64_t BorderAt(size_t p_iAt, bool p_bThree) {
  static constexpr uint64_t s_auTen[] = {100, 125, 160, 200, 250, 315, 400, 500, 630, 800};
  static constexpr uint64_t s_auThree[] = {100, 200, 500};
  const size_t iRows = p_bThree ? 3 : 10;
  uint64_t uBorder = p_bThree ? s_auThree[p_iAt % iRows] : s_auTen[p_iAt % iRows];
  for (size_t i = p_iAt / iRows; i > 0; --i) uBorder *= 10;
  return uBorder / 100;
}

}    // namespace

void CHistogram::Record(uint64_t p_uValue) {
  const uint64_t uValue = std::min(p_uValue, GREATEST);
  const size_t iClass = ClassOf(uValue);
  if (iClass >= m_auCounts.size()) m_auCounts.resize((iClass / HALF + 1) * HALF);
  ++m_auCounts[iClass];
  ++m_uCount;
  m_uSum += uValue;
  m_uMin = std::min(m_uMin, uValue);
  m_uMax = std::max(m_uMax, uValue);
}

void CHistogram::Add(const CHistogram& p_cOther) {
  if (p_cOther.m_auCounts.size() > m_auCounts.size()) m_auCounts.resize(p_cOther.m_auCounts.size());
  for (size_t i = 0; i < p_cOther.m_auCounts.size(); ++i) m_auCounts[i] += p_cOther.m_auCounts[i];
  m_uCount += p_cOther.m_uCount;
  m_uSum += p_cOther.m_uSum;
  m_uMin = std::min(m_uMin, p_cOther.m_uMin);
  m_uMax = std::max(m_uMax, p_cOther.m_uMax);
}

void CHistogram::Clear() {
  std::fill(m_auCounts.begin(), m_auCounts.end(), 0);
  m_uCount = m_uSum = m_uMax = 0;
  m_uMin = UINT64_MAX;
}

double CHistogram::Mean() const {
  return m_uCount == 0 ? 0 : static_cast<double>(m_uSum) / static_cast<double>(m_uCount);
}

uint64_t CHistogram::Percentile(double p_dPercent) const {
  const double dExact = p_dPercent / 100 * static_cast<double>(m_uCount);
  const double dRank = std::ceil(dExact - dExact * 1e-12);    // 99.9 has no exact double
  const auto uRank = std::max<uint64_t>(static_cast<uint64_t>(dRank), 1);
  uint64_t uSeen = 0;
  for (size_t i = 0; i < m_auCounts.size(); ++i) {
    uSeen += m_auCounts[i];
    if (uSeen >= uRank) return std::min(GreatestIn(i), m_uMax);
  }
  return m_uMax;
}

std::vector<CHistogram::T_Bucket> CHistogram::Buckets(bool p_bThree) const {
  std::vector<T_Bucket> atAll;
  size_t iBorder = 0;
  uint64_t uFrom = 0, uBelow = BorderAt(0, p_bThree);
  for (size_t i = 0; i < m_auCounts.size(); ++i) {
    if (m_auCounts[i] == 0) continue;
    while (GreatestIn(i) >= uBelow) {
      if (!atAll.empty()) atAll.push_back({uBelow, uBelow, 0});
      uFrom = uBelow;
      for (; uBelow == uFrom; ++iBorder) uBelow = BorderAt(iBorder + 1, p_bThree);    // small ones come more than once
      if (!atAll.empty()) atAll.back().uBelow = uBelow;
    }
    if (atAll.empty()) atAll.push_back({uFrom, uBelow, 0});
    atAll.back().uCount += m_auCounts[i];
  }
  return atAll;
}
