// The TCP segment in a frame, whatever it is wrapped in.
#ifndef CALLORV_TOOLS_SEGMENT_H
#define CALLORV_TOOLS_SEGMENT_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>

// One end of a connection.
struct T_End {
  std::array<unsigned char, 16> abAddress{};    // of IPv4 the first four
  bool bIpv6 = false;
  uint16_t iPort = 0;

  std::string Address() const;
  std::string ToText() const;    // "192.0.2.1:7000", "[2001:db8::1]:7000"
  auto Key() const { return std::tie(abAddress, bIpv6, iPort); }
  bool operator<(const T_End& p_t) const { return Key() < p_t.Key(); }
  bool operator==(const T_End& p_t) const { return Key() == p_t.Key(); }
};

struct T_Segment {
  enum { FIN = 1, SYN = 2, RST = 4, ACK = 16 };

  T_End tFrom, tTo;
  uint32_t iSeq = 0, iAck = 0;
  int iFlags = 0;
  std::string_view sData;
  uint32_t iMissing = 0;    // bytes behind sData that the capture did not keep
};

enum class E_Frame { SEGMENT, OTHER, FRAGMENT, SHORT, UNKNOWN_LINK };

// What is in a frame of the kind p_iLink, of which p_sBytes were kept of p_iLength. OTHER: no TCP; FRAGMENT: a part of
// an IP packet; SHORT: the headers are cut off or wrong. p_tSegment is filled for SEGMENT only.
E_Frame TakeSegment(int p_iLink, std::string_view p_sBytes, uint32_t p_iLength, T_Segment& p_tSegment);

#endif
