// Frames of a capture file, pcap or pcapng, one after the other.
#ifndef CALLORV_TOOLS_CAPTURE_READER_H
#define CALLORV_TOOLS_CAPTURE_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "decode/byte_source.h"

struct T_Frame {
  bool bTime = false;        // whether the capture tells when it was
  bool bNano = false;        // to the nanosecond, else to the microsecond
  int64_t iTime = 0;         // nanoseconds since 1970
  int iLink = -1;            // LINKTYPE_...; -1 is an interface that was not described
  uint32_t iLength = 0;      // as it was on the wire
  std::string_view sBytes;   // what was kept of it; valid until the next frame
};

// Holds one frame at a time, of at most MOST bytes, whatever the file claims.
class CCaptureReader {
 public:
  enum { MOST = 16 * 1024 * 1024 };

  explicit CCaptureReader(CByteSource& p_cSource) : m_cSource(p_cSource) {}

  static bool IsCapture(std::string_view p_sBegin);    // whether a file begins so; four bytes are enough
  // The next frame; false at the end of the file or of what can be read of it.
  bool Next(T_Frame& p_tFrame);
  uint64_t Count() const { return m_iCount; }             // frames so far
  const std::string& Why() const { return m_sWhy; }       // what ended it before the end of the file, else ""

 private:
  struct T_Interface {
    int iLink = -1;
    uint32_t iSnap = 0;
    uint64_t iPerSecond = 1000000;
    int64_t iOffset = 0;    // seconds
  };

  CByteSource& m_cSource;
  enum class E_Format { UNKNOWN, PCAP, PCAPNG } m_eFormat = E_Format::UNKNOWN;
  bool m_bBig = false;    // byte order
  std::vector<T_Interface> m_atInterface;
  uint64_t m_iCount = 0;
  std::string m_sWhy;

  uint16_t Get16(std::string_view p_s, size_t p_iAt) const;
  uint32_t Get32(std::string_view p_s, size_t p_iAt) const;
  bool Fail(const std::string& p_sWhy);
  bool FailFrame(const std::string& p_sWhy);
  bool ReadPcapHeader();
  bool NextPcap(T_Frame& p_tFrame);
  bool NextPcapng(T_Frame& p_tFrame);
  bool ReadSection(size_t& p_iLength);
  bool ReadInterface(std::string_view p_sBody);
  bool ReadOption(uint16_t p_iCode, std::string_view p_sValue, T_Interface& p_tInterface);
  bool ReadPacket(uint32_t p_iType, std::string_view p_sBody, T_Frame& p_tFrame);
  static void SetTime(const T_Interface& p_tInterface, uint64_t p_iTicks, T_Frame& p_tFrame);
};

#endif
