// One direction of a TCP connection: segments as they were captured, into bytes in their order.
#include "decode/direction.h"

#include <algorithm>

namespace {

constexpr uint64_t START = uint64_t{1} << 33;    // so that what is before the first byte has a place, too
constexpr size_t ENTRY = 96;                     // bytes that a segment takes besides its data

}    // namespace

uint64_t CDirection::Place(uint32_t p_iSeq) const {
  return m_iNext + static_cast<uint64_t>(int64_t{static_cast<int32_t>(p_iSeq - static_cast<uint32_t>(m_iNext))});
}

bool CDirection::IsBehind(const T_Segment& p_tSegment) const {
  return m_bKnown && !p_tSegment.sData.empty() && Place(p_tSegment.iSeq) >= std::max(m_iNext, m_iFin);
}

void CDirection::Add(const T_Segment& p_tSegment, const T_Moment& p_tMoment) {
  const bool bSyn = (p_tSegment.iFlags & T_Segment::SYN) != 0;
  const uint32_t iSeq = p_tSegment.iSeq + (bSyn ? 1 : 0);
  m_tMoment = p_tMoment;
  if (!m_bKnown) {
    m_bKnown = true;
    m_bSyn = bSyn;
    m_iFirst = m_iNext = START + iSeq;
    if (bSyn) m_cFramer.StartsHere();
  }
  const uint64_t iAt = Place(iSeq);
  if ((p_tSegment.iFlags & T_Segment::FIN) != 0 && !m_bFin) {
    m_bFin = true;
    m_iFin = iAt + p_tSegment.sData.size() + p_tSegment.iMissing;
  }
  if (!m_bClosed) Deliver(iAt, p_tSegment.sData, p_tSegment.iMissing);
  if (m_bFin && !m_bClosed && m_iNext >= m_iFin) {
    m_bClosed = true;
    m_cFramer.End();
  }
}

void CDirection::Acknowledged(uint32_t p_iAck) {
  if (m_bKnown) m_iAcknowledged = std::max(m_iAcknowledged, Place(p_iAck));
}

// What has been there before is left out, whatever it says now.
void CDirection::Deliver(uint64_t p_iAt, std::string_view p_sData, uint32_t p_iMissing) {
  const uint64_t iEnd = p_iAt + p_sData.size() + p_iMissing;
  if (iEnd <= m_iNext) return;
  if (p_iAt > m_iNext) return Keep(p_iAt, p_sData, p_iMissing);
  const uint64_t iOld = m_iNext - p_iAt;
  const std::string_view sNew = p_sData.substr(static_cast<size_t>(std::min<uint64_t>(iOld, p_sData.size())));
  m_iNext += sNew.size();
  m_cFramer.Feed(sNew, m_tMoment);
  if (iEnd > m_iNext) m_cFramer.Gap(iEnd - m_iNext, m_tMoment);
  m_iNext = iEnd;
  DeliverLater();
}

void CDirection::Keep(uint64_t p_iAt, std::string_view p_sData, uint32_t p_iMissing) {
  const auto [pPlace, bNew] = m_atLater.try_emplace(p_iAt);
  T_Later& t = pPlace->second;
  if (!bNew && p_sData.size() <= t.sData.size()) return;
  m_iLater += p_sData.size() - t.sData.size() + (bNew ? ENTRY : 0);
  t.sData = p_sData;
  t.iMissing = p_iMissing;
  t.tMoment = m_tMoment;
  if (m_iLater > LATER_BYTES || m_atLater.size() > LATER_COUNT) SkipGap();
}

void CDirection::DeliverLater() {
  while (!m_atLater.empty() && m_atLater.begin()->first <= m_iNext) {
    const uint64_t iAt = m_atLater.begin()->first;
    const T_Later t = std::move(m_atLater.begin()->second);
    m_atLater.erase(m_atLater.begin());
    m_iLater -= t.sData.size() + ENTRY;
    const uint64_t iEnd = iAt + t.sData.size() + t.iMissing;
    if (iEnd <= m_iNext) continue;
    const size_t iOld = static_cast<size_t>(std::min<uint64_t>(m_iNext - iAt, t.sData.size()));
    m_cFramer.Feed(std::string_view(t.sData).substr(iOld), t.tMoment);
    m_iNext = std::max(m_iNext, iAt + t.sData.size());
    if (iEnd > m_iNext) m_cFramer.Gap(iEnd - m_iNext, t.tMoment);
    m_iNext = iEnd;
  }
}

void CDirection::SkipGap() {
  const uint64_t iTo = m_atLater.begin()->first;
  m_cFramer.Gap(iTo - m_iNext, m_atLater.begin()->second.tMoment);
  m_iNext = iTo;
  DeliverLater();
}

void CDirection::Finish() {
  if (m_bClosed) return;
  while (!m_atLater.empty()) SkipGap();
  if (m_bFin && m_iFin > m_iNext) m_cFramer.Gap(m_iFin - m_iNext, m_tMoment);
  m_bClosed = true;
  m_cFramer.End();
}
