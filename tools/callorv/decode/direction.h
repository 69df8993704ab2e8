// One direction of a TCP connection: segments as they were captured, into bytes in their order.
#ifndef CALLORV_TOOLS_DIRECTION_H
#define CALLORV_TOOLS_DIRECTION_H

#include <cstdint>
#include <map>
#include <string>

#include "decode/framer.h"
#include "decode/segment.h"

class CDirection {
 public:
  explicit CDirection(const T_Wish& p_tWish) : m_cFramer(p_tWish) {}

  CFramer& Framer() { return m_cFramer; }
  void Add(const T_Segment& p_tSegment, const T_Moment& p_tMoment);
  // The other side has got everything before this number.
  void Acknowledged(uint32_t p_iAck);
  // What has come out of order is handed on with gaps, and no more will come.
  void Finish();

  bool Known() const { return m_bKnown; }        // some segment was seen
  bool Began() const { return m_bSyn; }          // from its first number on
  // For bytes that were sent before those that came, or that the other side has got.
  bool Waits() const { return !m_atLater.empty() || (!m_bClosed && m_iAcknowledged > m_iNext); }
  bool Closed() const { return m_bClosed; }      // its end (FIN) was reached
  // The end was sent and acknowledged, whether the capture has all before it or not.
  bool Over() const { return m_bClosed || (m_bFin && m_iAcknowledged > m_iFin); }
  // A connection that begins with this number is another one; one that is as this one began is not.
  bool IsOther(uint32_t p_iFirst) const { return m_bSyn && p_iFirst != static_cast<uint32_t>(m_iFirst); }
  // Bytes behind the end.
  bool IsBehind(const T_Segment& p_tSegment) const;
  size_t Held() const { return m_cFramer.Held() + m_iLater; }

 private:
  enum : size_t { LATER_BYTES = 4 * 1024 * 1024, LATER_COUNT = 4096 };    // of what waits for bytes before it

  struct T_Later {
    std::string sData;
    uint32_t iMissing = 0;
    T_Moment tMoment;
  };

  CFramer m_cFramer;
  bool m_bKnown = false, m_bSyn = false, m_bFin = false, m_bClosed = false;
  uint64_t m_iFirst = 0, m_iNext = 0, m_iFin = 0, m_iAcknowledged = 0;    // sequence numbers that do not wrap round
  std::map<uint64_t, T_Later> m_atLater;
  size_t m_iLater = 0;
  T_Moment m_tMoment;

  uint64_t Place(uint32_t p_iSeq) const;
  void Deliver(uint64_t p_iAt, std::string_view p_sData, uint32_t p_iMissing);
  void Keep(uint64_t p_iAt, std::string_view p_sData, uint32_t p_iMissing);
  void DeliverLater();
  void SkipGap();
};

#endif
