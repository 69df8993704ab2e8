// Latencies that are counted, not kept: memory stays the same however many there are.
#ifndef CALLORV_TOOLS_HISTOGRAM_H
#define CALLORV_TOOLS_HISTOGRAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Counts of values by the method of HdrHistogram: 1,024 classes of one width to each power of two, so that three
// significant digits of a value are kept. Up to 2,047 every value has a class of its own. At most 270 KB.
class CHistogram {
 public:
  void Record(uint64_t p_uValue);    // above 2^42 - 1, a million hours in milliseconds, as that
  void Add(const CHistogram& p_cOther);
  void Clear();

  uint64_t Count() const { return m_uCount; }
  uint64_t Min() const { return m_uCount == 0 ? 0 : m_uMin; }    // to the letter, as is the greatest
  uint64_t Max() const { return m_uMax; }
  double Mean() const;
  // A value that p_dPercent of all values do not exceed, at most a thousandth above the least such; 0 without values.
  uint64_t Percentile(double p_dPercent) const;

  struct T_Bucket {
    uint64_t uFrom, uBelow;    // the values from uFrom on, below uBelow
    uint64_t uCount;
  };
  // All values in rows from the least to the greatest one, ten to a power of ten (1, 1.25, 1.6, 2, 2.5, ...), or three
  // (1, 2, 5). A value that is less than a thousandth from a border may count on its other side.
  std::vector<T_Bucket> Buckets(bool p_bThree) const;

 private:
  std::vector<uint64_t> m_auCounts;    // by class, as far as there were values
  uint64_t m_uCount = 0;
  uint64_t m_uSum = 0;
  uint64_t m_uMin = UINT64_MAX, m_uMax = 0;
};

#endif
