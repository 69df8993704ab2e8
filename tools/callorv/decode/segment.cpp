// The TCP segment in a frame, whatever it is wrapped in.
#include "decode/segment.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

constexpr unsigned TYPE_IPV4 = 0x0800, TYPE_IPV6 = 0x86DD, PROTOCOL_TCP = 6;

// LINKTYPE_...
enum { LINK_NULL = 0, LINK_ETHERNET = 1, LINK_RAW_BSD = 12, LINK_RAW_OPENBSD = 14, LINK_RAW = 101, LINK_LOOP = 108,
       LINK_SLL = 113, LINK_IPV4 = 228, LINK_IPV6 = 229, LINK_SLL2 = 276 };

// Bytes of which perhaps not all were kept.
struct T_Bytes {
  std::string_view s;
  size_t iLength = 0;    // of all, also those that were not kept

  bool Has(size_t p_i) const { return s.size() >= p_i; }
  unsigned Get8(size_t p_iAt) const { return static_cast<unsigned char>(s[p_iAt]); }
  unsigned Get16(size_t p_iAt) const { return Get8(p_iAt) << 8 | Get8(p_iAt + 1); }
  uint32_t Get32(size_t p_iAt) const { return uint32_t{Get16(p_iAt)} << 16 | Get16(p_iAt + 2); }
  // Behind the first p_i bytes, which are there.
  T_Bytes From(size_t p_i) const { return {s.substr(p_i), iLength - p_i}; }
  // The first p_i, when there are more.
  T_Bytes First(size_t p_i) const { return {s.substr(0, p_i), std::min(iLength, p_i)}; }
};

void SetAddress(T_End& p_tEnd, std::string_view p_sBytes) {
  p_tEnd.bIpv6 = p_sBytes.size() == 16;
  std::copy(p_sBytes.begin(), p_sBytes.end(), p_tEnd.abAddress.begin());
}

E_Frame TakeTcp(const T_Bytes& p_t, T_Segment& p_tSegment) {
  constexpr size_t LEAST = 20;
  if (!p_t.Has(LEAST)) return E_Frame::SHORT;
  const size_t iHeader = size_t{p_t.Get8(12) >> 4} * 4;
  if (iHeader < LEAST || !p_t.Has(iHeader)) return E_Frame::SHORT;
  p_tSegment.tFrom.iPort = static_cast<uint16_t>(p_t.Get16(0));
  p_tSegment.tTo.iPort = static_cast<uint16_t>(p_t.Get16(2));
  p_tSegment.iSeq = p_t.Get32(4);
  p_tSegment.iAck = p_t.Get32(8);
  p_tSegment.iFlags = static_cast<int>(p_t.Get8(13));
  const T_Bytes tData = p_t.From(iHeader);
  p_tSegment.sData = tData.s;
  p_tSegment.iMissing = static_cast<uint32_t>(tData.iLength - tData.s.size());
  return E_Frame::SEGMENT;
}

E_Frame TakeIpv4(const T_Bytes& p_t, T_Segment& p_tSegment) {
  constexpr size_t LEAST = 20;
  if (!p_t.Has(LEAST)) return E_Frame::SHORT;
  const size_t iHeader = size_t{p_t.Get8(0) & 15} * 4, iTotal = p_t.Get16(2);
  if (iHeader < LEAST || !p_t.Has(iHeader)) return E_Frame::SHORT;
  if (p_t.Get8(9) != PROTOCOL_TCP) return E_Frame::OTHER;
  if ((p_t.Get16(6) & 0x3FFF) != 0) return E_Frame::FRAGMENT;    // more to come, or not the first
  if (iTotal != 0 && iTotal < iHeader) return E_Frame::SHORT;
  SetAddress(p_tSegment.tFrom, p_t.s.substr(12, 4));
  SetAddress(p_tSegment.tTo, p_t.s.substr(16, 4));
  // A system that leaves cutting into packets to its network card captures 0; padding stands behind short packets.
  return TakeTcp((iTotal == 0 ? p_t : p_t.First(iTotal)).From(iHeader), p_tSegment);
}

E_Frame TakeIpv6(const T_Bytes& p_t, T_Segment& p_tSegment) {
  constexpr size_t HEADER = 40;
  constexpr unsigned HOP_BY_HOP = 0, ROUTING = 43, FRAGMENT = 44, AUTHENTICATION = 51, DESTINATION = 60, MOBILITY = 135;
  if (!p_t.Has(HEADER)) return E_Frame::SHORT;
  SetAddress(p_tSegment.tFrom, p_t.s.substr(8, 16));
  SetAddress(p_tSegment.tTo, p_t.s.substr(24, 16));
  const size_t iPayload = p_t.Get16(4);
  T_Bytes t = (iPayload == 0 ? p_t : p_t.First(HEADER + iPayload)).From(HEADER);
  for (unsigned iNext = p_t.Get8(6); iNext != PROTOCOL_TCP;) {
    size_t iSize = 8;
    const bool bKnown = iNext == HOP_BY_HOP || iNext == ROUTING || iNext == DESTINATION || iNext == MOBILITY;
    if (!bKnown && iNext != FRAGMENT && iNext != AUTHENTICATION) return E_Frame::OTHER;
    if (!t.Has(iSize)) return E_Frame::SHORT;
    if (iNext == FRAGMENT && (t.Get16(2) & 0xFFF9) != 0) return E_Frame::FRAGMENT;
    if (bKnown) iSize = (size_t{t.Get8(1)} + 1) * 8;
    if (iNext == AUTHENTICATION) iSize = (size_t{t.Get8(1)} + 2) * 4;
    if (!t.Has(iSize)) return E_Frame::SHORT;
    iNext = t.Get8(0);
    t = t.From(iSize);
  }
  return TakeTcp(t, p_tSegment);
}

E_Frame TakeIp(const T_Bytes& p_t, T_Segment& p_tSegment) {
  if (!p_t.Has(1)) return E_Frame::SHORT;
  const unsigned iVersion = p_t.Get8(0) >> 4;
  if (iVersion == 4) return TakeIpv4(p_t, p_tSegment);
  return iVersion == 6 ? TakeIpv6(p_t, p_tSegment) : E_Frame::OTHER;
}

// What stands behind the type of an Ethernet frame, perhaps a VLAN's tags.
E_Frame TakeType(unsigned p_iType, T_Bytes p_t, T_Segment& p_tSegment) {
  while (p_iType == 0x8100 || p_iType == 0x88A8 || p_iType == 0x9100) {
    if (!p_t.Has(4)) return E_Frame::SHORT;
    p_iType = p_t.Get16(2);
    p_t = p_t.From(4);
  }
  return p_iType == TYPE_IPV4 || p_iType == TYPE_IPV6 ? TakeIp(p_t, p_tSegment) : E_Frame::OTHER;
}

}    // namespace

std::string T_End::Address() const {
  char szText[INET6_ADDRSTRLEN] = "";
  inet_ntop(bIpv6 ? AF_INET6 : AF_INET, abAddress.data(), szText, sizeof(szText));
  return szText;
}

std::string T_End::ToText() const {
  return (bIpv6 ? "[" + Address() + "]:" : Address() + ":") + std::to_string(iPort);
}

E_Frame TakeSegment(int p_iLink, std::string_view p_sBytes, uint32_t p_iLength, T_Segment& p_tSegment) {
  p_tSegment = T_Segment();
  const T_Bytes t = {p_sBytes, std::max<size_t>(p_iLength, p_sBytes.size())};
  // Where the type of what follows stands, and the length of all before that.
  size_t iType = 0, iHeader = 0;
  switch (p_iLink) {
    case LINK_RAW:
    case LINK_RAW_BSD:
    case LINK_RAW_OPENBSD:
    case LINK_IPV4:
    case LINK_IPV6: return TakeIp(t, p_tSegment);
    case LINK_NULL:    // its four bytes depend on system and machine; IP itself says which it is
    case LINK_LOOP: return t.Has(4) ? TakeIp(t.From(4), p_tSegment) : E_Frame::SHORT;
    case LINK_ETHERNET: iType = 12, iHeader = 14; break;
    case LINK_SLL: iType = 14, iHeader = 16; break;
    case LINK_SLL2: iType = 0, iHeader = 20; break;
    default: return E_Frame::UNKNOWN_LINK;
  }
  if (!t.Has(iHeader)) return E_Frame::SHORT;
  return TakeType(t.Get16(iType), t.From(iHeader), p_tSegment);
}
