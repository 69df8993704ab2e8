// Captured bytes, as people keep them.
#include "decode/capture.h"

#include <charconv>
#include <sstream>
#include <string_view>

namespace {

constexpr const char* s_szHex = "0123456789abcdefABCDEF";

int DigitValue(char p_c) { return p_c <= '9' ? p_c - '0' : (p_c | 0x20) - 'a' + 10; }

// The line without the offset at its front and the characters at its end; the line itself when it does not begin with
// the offset p_iOffset, the number of bytes before it.
std::string WithoutFrame(const std::string& p_sLine, size_t p_iOffset) {
  size_t iOffset = 0;
  const char* pLine = p_sLine.data();
  const auto [pStop, eError] = std::from_chars(pLine, pLine + p_sLine.size(), iOffset, 16);
  if (eError != std::errc() || pStop - pLine < 4 || iOffset != p_iOffset) return p_sLine;
  const size_t iEnd = static_cast<size_t>(pStop - pLine);
  const bool bColon = p_sLine[iEnd] == ':';    // as xxd writes it, which puts two blanks before the characters
  const size_t iStart = p_sLine.find_first_not_of(": \t\r", iEnd);
  if (iStart == std::string::npos) return "";    // the last line tells the length
  const size_t iText = bColon ? p_sLine.find("  ", iStart) : p_sLine.find_first_of("|>", iStart);
  return p_sLine.substr(iStart, iText == std::string::npos ? iText : iText - iStart);
}

}    // namespace

std::optional<std::string> FromHex(const std::string& p_sText, bool p_bCut, std::string& p_sWhy) {
  std::istringstream cLines(p_sText);
  std::string sDigits;
  size_t iLine = 0;
  for (std::string sLine; std::getline(cLines, sLine);) {
    ++iLine;
    for (const char c : WithoutFrame(sLine, sDigits.size() / 2)) {
      if (std::string_view(" \t\r:").find(c) != std::string_view::npos) continue;
      if (std::string_view(s_szHex).find(c) == std::string_view::npos) {
        p_sWhy = "line " + std::to_string(iLine) + " has something else than hexadecimal digits";
        return std::nullopt;
      }
      sDigits += c;
    }
  }
  if (p_bCut) sDigits.resize(sDigits.size() / 2 * 2);
  if (sDigits.empty() || sDigits.size() % 2 != 0) {
    p_sWhy = sDigits.empty() ? "no hexadecimal digits in it" : "half a byte at its end: is it cut off?";
    return std::nullopt;
  }
  std::string sBytes;
  for (size_t i = 0; i < sDigits.size(); i += 2) {
    sBytes += static_cast<char>(DigitValue(sDigits[i]) * 16 + DigitValue(sDigits[i + 1]));
  }
  return sBytes;
}
