// The fields of a packet: where they stand, and how they are written and read.
#ifndef CALLORV_NET_PACKET_FIELDS_H
#define CALLORV_NET_PACKET_FIELDS_H

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/number.h"
#include "callorv/net/tcp_adaptor.h"

namespace callorv::detail {

using E_Field = CTcpAdaptor::E_Field;
using T_Field = CTcpAdaptor::T_Field;

inline constexpr T_Field s_atFields[] = {
    {"begin string", 0, 12},  {"packet length", 12, 10}, {"service", 22, 4},      {"message", 26, 4},
    {"extra", 30, 10},        {"time stamp", 40, 15},    {"user key", 55, 20},    {"aux13", 75, 13},
    {"compressed", 88, 1},    {"body length", 89, 10},   {"aux8", 99, 8},         {"aux21", 107, 21},
};
static_assert(std::size(s_atFields) == CTcpAdaptor::FIELDS);
static_assert(s_atFields[CTcpAdaptor::AUX21].iAt + s_atFields[CTcpAdaptor::AUX21].iWidth == CTcpAdaptor::HEADER_SIZE);

inline constexpr char s_szBegin[] = "QMX-SSP-V1.0";

// Writes a number as "%0*d" does; returns its end.
inline char* PutPadded(char* p_pOut, int p_iWidth, int p_iValue) {
  unsigned uLeft = p_iValue < 0 ? 0u - static_cast<unsigned>(p_iValue) : static_cast<unsigned>(p_iValue);
  char* pFirst = p_pOut;
  if (p_iValue < 0) *pFirst++ = '-';
  char* pEnd = p_pOut + p_iWidth;
  char* p = pEnd;
  for (; uLeft != 0 && p > pFirst; uLeft /= 10) *--p = static_cast<char>('0' + uLeft % 10);
  while (p > pFirst) *--p = '0';
  return uLeft == 0 ? pEnd : FormatInt(p_pOut, p_iValue);    // too wide: in full
}

// Writes fields as printf would, each at its place, and counts the characters. A number too wide for its field is
// written in full, its end to be covered by the next field; the count tells.
class CFieldWriter {
 public:
  explicit CFieldWriter(char* p_pOut) : m_pOut(p_pOut) { memset(p_pOut, ' ', CTcpAdaptor::HEADER_SIZE); }

  int Count() const { return m_iCount; }

  void Number(E_Field p_eField, int p_iValue) {
    char* pOut = m_pOut + s_atFields[p_eField].iAt;
    m_iCount += static_cast<int>(PutPadded(pOut, s_atFields[p_eField].iWidth, p_iValue) - pOut);
  }

  // A text of the library's own, no longer than its field.
  template <size_t N>
  void Literal(E_Field p_eField, const char (&p_sz)[N]) {
    memcpy(m_pOut + s_atFields[p_eField].iAt, p_sz, N - 1);
    m_iCount += s_atFields[p_eField].iWidth;
  }

  // "%-*.*s". What follows a number that may be too wide is never a text that leaves its end uncovered.
  void Text(E_Field p_eField, const char* p_szText) {
    const T_Field& tField = s_atFields[p_eField];
    const size_t uWidth = static_cast<size_t>(tField.iWidth);
    if (*p_szText != 0) memcpy(m_pOut + tField.iAt, p_szText, strnlen(p_szText, uWidth));
    m_iCount += tField.iWidth;
  }

 private:
  char* m_pOut;
  int m_iCount = 0;
};

// Writes the header of a packet whose body, of p_iPlainLen bytes, is sent in p_iSentLen. How many characters that
// took: as many as a header has, unless a number is too wide.
[[gnu::always_inline]] inline int WriteHeader(char* p_pOut, const CAdaptor::T_PacketInfo& p_tInfo, int p_iPlainLen,
                                              int p_iSentLen) {
  CFieldWriter cHeader(p_pOut);
  cHeader.Literal(CTcpAdaptor::BEGIN_STRING, s_szBegin);
  cHeader.Number(CTcpAdaptor::PACKET_LENGTH, CTcpAdaptor::HEADER_SIZE + p_iSentLen);
  cHeader.Number(CTcpAdaptor::SERVICE, p_tInfo.iSvcNum);
  cHeader.Number(CTcpAdaptor::MESSAGE, p_tInfo.iMsgNum);
  cHeader.Number(CTcpAdaptor::EXTRA, p_tInfo.iExtra);
  cHeader.Text(CTcpAdaptor::TIME_STAMP, p_tInfo.sTimeStamp.ToStr());
  cHeader.Text(CTcpAdaptor::USER_KEY, p_tInfo.sUserKey.ToStr());
  cHeader.Text(CTcpAdaptor::AUX13, p_tInfo.sAux13.ToStr());
  p_tInfo.bCompressed ? cHeader.Literal(CTcpAdaptor::COMPRESSED, "Y") : cHeader.Literal(CTcpAdaptor::COMPRESSED, "N");
  cHeader.Number(CTcpAdaptor::BODY_LENGTH, p_iPlainLen);
  cHeader.Text(CTcpAdaptor::AUX8, p_tInfo.sAux8.ToStr());
  cHeader.Text(CTcpAdaptor::AUX21, p_tInfo.sAux21.ToStr());
  return cHeader.Count();
}

// Reads fields out of bytes that nobody has checked.
class CFieldReader {
 public:
  explicit CFieldReader(const char* p_pIn) : m_pIn(p_pIn) {}

  int Number(E_Field p_eField) const {    // 0 for junk
    const T_Field& tField = s_atFields[p_eField];
    char szNumber[12] = {};
    std::copy_n(m_pIn + tField.iAt, tField.iWidth, szNumber);
    return ParseInt32(szNumber);
  }

  bool IsCompressed() const { return m_pIn[s_atFields[CTcpAdaptor::COMPRESSED].iAt] == 'Y'; }

  void Text(E_Field p_eField, CString& p_sOut) const {    // with its padding; a NUL ends it
    const std::string_view sText = Field(p_eField);
    p_sOut.Set(sText.data(), static_cast<int>(sText.size()));
  }

  void TrimmedText(E_Field p_eField, CString& p_sOut) const {
    std::string_view sText = Field(p_eField);
    while (!sText.empty() && IsWhite(sText.front())) sText.remove_prefix(1);
    while (!sText.empty() && IsWhite(sText.back())) sText.remove_suffix(1);
    p_sOut.Set(sText.data(), static_cast<int>(sText.size()));
  }

 private:
  const char* m_pIn;

  std::string_view Field(E_Field p_eField) const {
    const T_Field& tField = s_atFields[p_eField];
    return {m_pIn + tField.iAt, strnlen(m_pIn + tField.iAt, static_cast<size_t>(tField.iWidth))};
  }
};

// What a header says of itself, without the lengths. Throws std::bad_alloc.
[[gnu::always_inline]] inline void ReadHeader(const CFieldReader& p_cHeader, CAdaptor::T_PacketInfo& p_tInfo) {
  p_tInfo.iSvcNum = p_cHeader.Number(CTcpAdaptor::SERVICE);
  p_tInfo.iMsgNum = p_cHeader.Number(CTcpAdaptor::MESSAGE);
  p_tInfo.iExtra = p_cHeader.Number(CTcpAdaptor::EXTRA);
  p_cHeader.Text(CTcpAdaptor::TIME_STAMP, p_tInfo.sTimeStamp);
  p_cHeader.TrimmedText(CTcpAdaptor::USER_KEY, p_tInfo.sUserKey);
  p_cHeader.Text(CTcpAdaptor::AUX13, p_tInfo.sAux13);
  p_tInfo.bCompressed = p_cHeader.IsCompressed();
  p_cHeader.Text(CTcpAdaptor::AUX8, p_tInfo.sAux8);
  p_cHeader.Text(CTcpAdaptor::AUX21, p_tInfo.sAux21);
}

}    // namespace callorv::detail

#endif
