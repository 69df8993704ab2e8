// Frames of a capture file, pcap or pcapng, one after the other.
#include "decode/capture_reader.h"

#include <algorithm>

namespace {

constexpr uint32_t MICROSECONDS = 0xA1B2C3D4, NANOSECONDS = 0xA1B23C4D;    // pcap, by the unit of its times
constexpr uint32_t BLOCK_SECTION = 0x0A0D0D0A, ORDER = 0x1A2B3C4D;         // pcapng
constexpr uint32_t BLOCK_INTERFACE = 1, BLOCK_PACKET = 2, BLOCK_SIMPLE = 3, BLOCK_ENHANCED = 6;
constexpr uint16_t OPTION_RESOLUTION = 9, OPTION_OFFSET = 14;
constexpr size_t INTERFACES = 65536;
constexpr int64_t BILLION = 1000000000;

uint32_t Number(std::string_view p_s, size_t p_iAt, size_t p_iWidth, bool p_bBig) {
  uint32_t i = 0;
  for (size_t j = 0; j < p_iWidth; ++j) {
    const auto b = static_cast<unsigned char>(p_s[p_iAt + (p_bBig ? j : p_iWidth - 1 - j)]);
    i = i << 8 | b;
  }
  return i;
}

size_t Padded(size_t p_i) { return (p_i + 3) / 4 * 4; }

}    // namespace

uint16_t CCaptureReader::Get16(std::string_view p_s, size_t p_iAt) const {
  return static_cast<uint16_t>(Number(p_s, p_iAt, 2, m_bBig));
}

uint32_t CCaptureReader::Get32(std::string_view p_s, size_t p_iAt) const { return Number(p_s, p_iAt, 4, m_bBig); }

bool CCaptureReader::IsCapture(std::string_view p_sBegin) {
  if (p_sBegin.size() < 4) return false;
  const uint32_t iLittle = Number(p_sBegin, 0, 4, false), iBig = Number(p_sBegin, 0, 4, true);
  return iLittle == MICROSECONDS || iLittle == NANOSECONDS || iBig == MICROSECONDS || iBig == NANOSECONDS ||
         iBig == BLOCK_SECTION;
}

bool CCaptureReader::Fail(const std::string& p_sWhy) {
  m_sWhy = p_sWhy;
  return false;
}

bool CCaptureReader::FailFrame(const std::string& p_sWhy) {
  return Fail("frame " + std::to_string(m_iCount + 1) + ": " + p_sWhy);
}

bool CCaptureReader::Next(T_Frame& p_tFrame) {
  if (!m_sWhy.empty()) return false;
  if (m_eFormat == E_Format::UNKNOWN) {
    const bool bSections = Number(m_cSource.Peek(4), 0, 4, true) == BLOCK_SECTION;
    m_eFormat = bSections ? E_Format::PCAPNG : E_Format::PCAP;
    if (!bSections && !ReadPcapHeader()) return false;
  }
  p_tFrame = T_Frame();
  const bool bFrame = m_eFormat == E_Format::PCAP ? NextPcap(p_tFrame) : NextPcapng(p_tFrame);
  m_iCount += bFrame;
  return bFrame;
}

bool CCaptureReader::ReadPcapHeader() {
  constexpr size_t HEADER = 24;
  const std::string_view s = m_cSource.Take(HEADER);
  if (s.size() < HEADER) return Fail("the capture ends inside its header");
  m_bBig = (s[0] & 0xFF) == 0xA1;
  if (Get16(s, 4) != 2) return Fail("pcap of version " + std::to_string(Get16(s, 4)) + ", which is not known");
  T_Interface tInterface;
  tInterface.iLink = Get16(s, m_bBig ? 22 : 20);    // the upper half says how long check sums of frames are
  tInterface.iPerSecond = Get32(s, 0) == NANOSECONDS ? BILLION : 1000000;
  m_atInterface = {tInterface};
  return true;
}

bool CCaptureReader::NextPcap(T_Frame& p_tFrame) {
  constexpr size_t HEADER = 16;
  const std::string_view s = m_cSource.Take(HEADER);
  if (s.empty()) return false;
  if (s.size() < HEADER) return FailFrame("the capture is cut off here");
  const uint32_t iKept = Get32(s, 8);
  p_tFrame.iLength = Get32(s, 12);
  const T_Interface& tInterface = m_atInterface[0];
  SetTime(tInterface, Get32(s, 0) * tInterface.iPerSecond + Get32(s, 4), p_tFrame);
  p_tFrame.iLink = tInterface.iLink;
  if (iKept > MOST) return FailFrame(std::to_string(iKept) + " bytes cannot be: the capture is damaged here");
  p_tFrame.sBytes = m_cSource.Take(iKept);
  return p_tFrame.sBytes.size() == iKept || FailFrame("the capture is cut off here");
}

// The section header's first bytes tell the order of all bytes behind them, those of its own length among them.
bool CCaptureReader::ReadSection(size_t& p_iLength) {
  const std::string_view s = m_cSource.Peek(12);
  if (s.size() < 12) return FailFrame("the capture is cut off here");
  m_bBig = Number(s, 8, 4, true) == ORDER;
  if (Get32(s, 8) != ORDER) return FailFrame("a section of an unknown order of bytes");
  p_iLength = Get32(s, 4);
  m_atInterface.clear();
  return true;
}

bool CCaptureReader::NextPcapng(T_Frame& p_tFrame) {
  constexpr size_t HEADER = 8, TRAILER = 4, LEAST = HEADER + TRAILER;
  while (true) {
    const std::string_view s = m_cSource.Peek(HEADER);
    if (s.empty()) return false;
    if (s.size() < HEADER) return FailFrame("the capture is cut off here");
    const uint32_t iType = Get32(s, 0);
    size_t iLength = Get32(s, 4);
    if (iType == BLOCK_SECTION && !ReadSection(iLength)) return false;
    if (iLength < LEAST || iLength % 4 != 0) {
      return FailFrame("a block of " + std::to_string(iLength) + " bytes cannot be: the capture is damaged here");
    }
    const bool bPacket = iType == BLOCK_PACKET || iType == BLOCK_SIMPLE || iType == BLOCK_ENHANCED;
    if (!bPacket && iType != BLOCK_INTERFACE) {
      if (m_cSource.Skip(iLength) < iLength) return FailFrame("the capture is cut off here");
      continue;
    }
    if (iLength > MOST) {
      return FailFrame("a block of " + std::to_string(iLength) + " bytes cannot be: the capture is damaged here");
    }
    const std::string_view sBlock = m_cSource.Take(iLength);
    if (sBlock.size() < iLength) return FailFrame("the capture is cut off here");
    if (Get32(sBlock, iLength - TRAILER) != iLength) {
      return FailFrame("a block's two lengths differ: the capture is damaged here");
    }
    const std::string_view sBody = sBlock.substr(HEADER, iLength - LEAST);
    if (bPacket) return ReadPacket(iType, sBody, p_tFrame);
    if (!ReadInterface(sBody)) return false;
  }
}

bool CCaptureReader::ReadInterface(std::string_view p_sBody) {
  constexpr size_t FIXED = 8, OPTION = 4;
  if (p_sBody.size() < FIXED) return FailFrame("an interface's block is too short");
  if (m_atInterface.size() == INTERFACES) return FailFrame("more than 65536 interfaces");
  T_Interface tInterface;
  tInterface.iLink = Get16(p_sBody, 0);
  tInterface.iSnap = Get32(p_sBody, 4);
  for (size_t iAt = FIXED; iAt + OPTION <= p_sBody.size();) {
    const uint16_t iCode = Get16(p_sBody, iAt), iSize = Get16(p_sBody, iAt + 2);
    iAt += OPTION;
    if (iCode == 0) break;
    if (iSize > p_sBody.size() - iAt) return FailFrame("an interface's option is longer than its block");
    if (!ReadOption(iCode, p_sBody.substr(iAt, iSize), tInterface)) return false;
    iAt += Padded(iSize);
  }
  m_atInterface.push_back(tInterface);
  return true;
}

bool CCaptureReader::ReadOption(uint16_t p_iCode, std::string_view p_sValue, T_Interface& p_tInterface) {
  if (p_iCode == OPTION_RESOLUTION && p_sValue.size() == 1) {
    const auto iValue = static_cast<unsigned char>(p_sValue[0]);
    const unsigned iPower = iValue & 0x7FU;
    const bool bBinary = (iValue & 0x80U) != 0;
    if (iPower > (bBinary ? 63U : 19U)) return FailFrame("an interface's times have an unknown unit");
    p_tInterface.iPerSecond = 1;
    for (unsigned i = 0; i < iPower; ++i) p_tInterface.iPerSecond *= bBinary ? 2 : 10;
  } else if (p_iCode == OPTION_OFFSET && p_sValue.size() == 8) {
    const uint64_t iHigh = Get32(p_sValue, m_bBig ? 0 : 4), iLow = Get32(p_sValue, m_bBig ? 4 : 0);
    p_tInterface.iOffset = static_cast<int64_t>(iHigh << 32 | iLow);
  }
  return true;
}

void CCaptureReader::SetTime(const T_Interface& p_tInterface, uint64_t p_iTicks, T_Frame& p_tFrame) {
  const uint64_t iUnit = p_tInterface.iPerSecond, iSeconds = p_iTicks / iUnit, iRest = p_iTicks % iUnit;
  const double dPart = static_cast<double>(iRest) / static_cast<double>(iUnit);
  const uint64_t iNano = iUnit <= BILLION ? iRest * BILLION / iUnit : static_cast<uint64_t>(dPart * 1e9);
  constexpr int64_t LATEST = INT64_MAX / BILLION / 2 - 1;    // a sum of two still fits; in the year 2116
  const auto iAll = static_cast<int64_t>(std::min<uint64_t>(iSeconds, LATEST));
  const int64_t iOffset = std::clamp(p_tInterface.iOffset, -LATEST, LATEST);
  p_tFrame.bTime = true;
  p_tFrame.bNano = iUnit > 1000000;
  p_tFrame.iTime = (iAll + iOffset) * BILLION + static_cast<int64_t>(std::min<uint64_t>(iNano, BILLION - 1));
}

bool CCaptureReader::ReadPacket(uint32_t p_iType, std::string_view p_sBody, T_Frame& p_tFrame) {
  const size_t iFixed = p_iType == BLOCK_SIMPLE ? 4 : 20;
  if (p_sBody.size() < iFixed) return FailFrame("a packet's block is too short");
  size_t iInterface = 0;
  if (p_iType == BLOCK_ENHANCED) iInterface = Get32(p_sBody, 0);
  if (p_iType == BLOCK_PACKET) iInterface = Get16(p_sBody, 0);
  const bool bKnown = iInterface < m_atInterface.size();
  const T_Interface tInterface = bKnown ? m_atInterface[iInterface] : T_Interface();
  p_tFrame.iLink = tInterface.iLink;
  p_tFrame.iLength = Get32(p_sBody, p_iType == BLOCK_SIMPLE ? 0 : 16);
  size_t iKept = p_iType == BLOCK_SIMPLE ? p_tFrame.iLength : Get32(p_sBody, 12);
  if (p_iType == BLOCK_SIMPLE) {
    if (tInterface.iSnap > 0) iKept = std::min<size_t>(iKept, tInterface.iSnap);
    iKept = std::min(iKept, p_sBody.size() - iFixed);
  } else {
    SetTime(tInterface, static_cast<uint64_t>(Get32(p_sBody, 4)) << 32 | Get32(p_sBody, 8), p_tFrame);
  }
  if (iKept > p_sBody.size() - iFixed) {
    return FailFrame("a packet is longer than its block: the capture is damaged here");
  }
  p_tFrame.sBytes = p_sBody.substr(iFixed, iKept);
  return true;
}
