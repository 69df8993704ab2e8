// Finds what may be a user key among bytes that are no whole packet.
#include "decode/key_guard.h"

#include <callorv/net/tcp_adaptor.h>

#include <algorithm>
#include <string>

#include "decode/capture.h"

namespace {

bool IsDigit(char p_c) { return p_c >= '0' && p_c <= '9'; }

// Whether p_iCount digits stand at p_iAt.
bool AreDigits(std::string_view p_s, size_t p_iAt, int p_iCount) {
  if (p_iAt > p_s.size()) return false;
  const std::string_view s = p_s.substr(p_iAt, static_cast<size_t>(p_iCount));
  return s.size() == static_cast<size_t>(p_iCount) && std::all_of(s.begin(), s.end(), IsDigit);
}

}    // namespace

std::vector<bool> MayBeKey(std::string_view p_sBytes) {
  constexpr int TIME_DIGITS = 6;    // behind the time stamp's hyphen, at the end of the field before the key
  const CTcpAdaptor::T_Field& tKey = *CTcpAdaptor::GetField(CTcpAdaptor::USER_KEY);
  const int iFlag = CTcpAdaptor::GetField(CTcpAdaptor::COMPRESSED)->iAt;
  const int iLength = CTcpAdaptor::GetField(CTcpAdaptor::BODY_LENGTH)->iWidth;
  const std::string_view sBegin = CTcpAdaptor::GetBeginString();
  std::vector<bool> abHidden(p_sBytes.size(), HoldsHexKey(p_sBytes));
  const auto fnHide = [&](size_t p_iAt, int p_iDistance) {    // where the key begins; perhaps before all bytes
    for (int i = p_iDistance; i < p_iDistance + tKey.iWidth; ++i) {
      const size_t iByte = p_iAt + static_cast<size_t>(i);
      if (iByte < abHidden.size()) abHidden[iByte] = true;
    }
  };
  for (size_t i = 0; i < p_sBytes.size(); ++i) {
    const char c = p_sBytes[i];
    if (p_sBytes.substr(i, sBegin.size()) == sBegin) fnHide(i, tKey.iAt);
    if (c == '-' && AreDigits(p_sBytes, i + 1, TIME_DIGITS)) fnHide(i, 1 + TIME_DIGITS);
    if ((c == 'Y' || c == 'N') && AreDigits(p_sBytes, i + 1, iLength)) fnHide(i, tKey.iAt - iFlag);
  }
  return abHidden;
}

bool HoldsHexKey(std::string_view p_sText) {
  constexpr char s_szDigits[] = "0123456789abcdef";
  std::string sBegin, sDigits;
  for (const char c : std::string_view(CTcpAdaptor::GetBeginString())) {
    sBegin += s_szDigits[static_cast<unsigned char>(c) >> 4];
    sBegin += s_szDigits[c & 15];
  }
  for (const char c : p_sText) {
    const char cLow = c >= 'A' && c <= 'F' ? static_cast<char>(c | 0x20) : c;
    if (std::string_view(" \t\r\n:").find(cLow) == std::string_view::npos) sDigits += cLow;
  }
  if (sDigits.find(sBegin) != std::string::npos) return true;
  std::string sIgnored;
  const std::optional<std::string> sBytes = FromHex(std::string(p_sText), true, sIgnored);
  if (!sBytes) return false;
  const std::vector<bool> abKey = MayBeKey(*sBytes);
  return std::find(abKey.begin(), abKey.end(), true) != abKey.end();
}
