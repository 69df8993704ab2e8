// What was seen of many calls.
#include "call/measurement.h"

void CRecorder::Count(uint64_t p_uSecond, uint64_t p_uMicros, int p_iCode, const std::string& p_sText) {
  while (m_tAll.atSeconds.size() < p_uSecond) EndSecond();    // a thread that was overtaken counts in the next one
  m_cSecond.Record(p_uMicros);
  if (p_iCode == 0) return;
  ++m_uSecondFailed;
  T_Failure& tFailure = m_tAll.cFailures[p_iCode];
  if (tFailure.uCount++ == 0) tFailure.sText = p_sText;
}

T_Measurement CRecorder::Take() {
  if (m_cSecond.Count() > 0) EndSecond();
  return std::move(m_tAll);
}

void CRecorder::EndSecond() {
  const CHistogram& c = m_cSecond;
  if (c.Count() == 0) return m_tAll.atSeconds.push_back({});    // hours may pass between two calls
  m_tAll.atSeconds.push_back(
      {c.Count(), m_uSecondFailed, c.Percentile(50), c.Percentile(90), c.Percentile(99), c.Max()});
  m_tAll.uCalls += c.Count();
  m_tAll.uFailed += m_uSecondFailed;
  m_tAll.cMicros.Add(c);
  m_cSecond.Clear();
  m_uSecondFailed = 0;
}
