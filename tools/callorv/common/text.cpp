// Text as the wire, the terminal and JSON have it.
#include "common/text.h"

#include <charconv>

#include "command.h"

namespace {

void AppendUtf8(std::string& p_sOut, unsigned char p_c) {
  if (p_c < 0x80) {
    p_sOut += static_cast<char>(p_c);
  } else {
    p_sOut += static_cast<char>(0xC0 | p_c >> 6);
    p_sOut += static_cast<char>(0x80 | (p_c & 0x3F));
  }
}

constexpr char s_szReplacement[] = "\xEF\xBF\xBD";    // U+FFFD

bool IsControl(unsigned char p_c) { return p_c < 0x20 || (p_c >= 0x7F && p_c < 0xA0); }

// The length of the UTF-8 character at the start of p_s, 0 when there is none. Overlong forms count as none.
size_t Utf8Length(std::string_view p_s) {
  const auto c = static_cast<unsigned char>(p_s[0]);
  const size_t iLen = c < 0x80                ? 1
                      : c >= 0xC2 && c < 0xE0 ? 2
                      : c >= 0xE0 && c < 0xF0 ? 3
                      : c >= 0xF0 && c < 0xF5 ? 4
                                              : 0;
  if (iLen == 0 || iLen > p_s.size()) return 0;
  for (size_t i = 1; i < iLen; ++i) {
    if ((static_cast<unsigned char>(p_s[i]) & 0xC0) != 0x80) return 0;
  }
  return iLen;
}

// Whether the UTF-8 character p_s cannot be shown. Those of C1 take two bytes.
bool IsUtf8Control(std::string_view p_s) {
  if (p_s.size() == 1) return p_s[0] != '\n' && p_s[0] != '\t' && IsControl(static_cast<unsigned char>(p_s[0]));
  return p_s.size() == 2 && p_s[0] == '\xC2' && IsControl(static_cast<unsigned char>(p_s[1]));
}

}    // namespace

std::string ToUtf8(std::string_view p_sLatin1) {
  std::string sOut;
  sOut.reserve(p_sLatin1.size());
  for (const char c : p_sLatin1) AppendUtf8(sOut, static_cast<unsigned char>(c));
  return sOut;
}

namespace {

// Sets p_bFits to false for a character that becomes "?".
std::string Narrow(std::string_view p_sText, bool& p_bFits) {
  std::string sOut;
  for (size_t i = 0; i < p_sText.size();) {
    const size_t iLen = Utf8Length(p_sText.substr(i));
    if (iLen == 0) return std::string(p_sText);
    if (iLen == 1) {
      sOut += p_sText[i];
    } else if (const auto cLead = static_cast<unsigned char>(p_sText[i]); iLen > 2 || cLead >= 0xC4) {
      p_bFits = false;
      sOut += '?';
    } else {
      sOut += static_cast<char>((cLead << 6 & 0xC0) | (p_sText[i + 1] & 0x3F));
    }
    i += iLen;
  }
  return sOut;
}

}    // namespace

std::string NearestLatin1(std::string_view p_sText) {
  bool bFits = true;
  return Narrow(p_sText, bFits);
}

std::string ToLatin1(std::string_view p_sText) {
  bool bFits = true;
  std::string sOut = Narrow(p_sText, bFits);
  if (!bFits) throw CFailure("'" + std::string(p_sText) + "' has a character that ISO-8859-1 cannot write");
  return sOut;
}

std::string Printable(std::string_view p_sLatin1, bool p_bLines) {
  std::string sOut;
  sOut.reserve(p_sLatin1.size());
  for (const char c : p_sLatin1) {
    const bool bKeep = !IsControl(static_cast<unsigned char>(c)) || (p_bLines && (c == '\n' || c == '\t'));
    bKeep ? AppendUtf8(sOut, static_cast<unsigned char>(c)) : void(sOut += s_szReplacement);
  }
  return sOut;
}

std::string PrintableFailure(std::string_view p_sText) {
  std::string sOut;
  for (size_t i = 0; i < p_sText.size();) {
    const size_t iLen = Utf8Length(p_sText.substr(i));
    if (iLen == 0) return Printable(p_sText, true);
    const std::string_view sChar = p_sText.substr(i, iLen);
    sOut += IsUtf8Control(sChar) ? s_szReplacement : sChar;
    i += iLen;
  }
  return sOut;
}

std::string Counted(uint64_t p_uCount, const char* p_szNoun) {
  const std::string sNoun(p_szNoun);
  const char* szEnd = p_uCount == 1 ? "" : sNoun.back() == 's' ? "es" : "s";
  return std::to_string(p_uCount) + ' ' + sNoun + szEnd;
}

std::string MaskKey(std::string_view p_sKey) {
  const size_t iShown = p_sKey.size() > 4 ? 2 : 0;
  return Printable(p_sKey.substr(0, iShown), false) + std::string(p_sKey.size() - iShown, '*');
}

bool ParseNumber(std::string_view p_sText, int p_iMin, int p_iMax, int& p_iOut) {
  int i = 0;
  const char* pEnd = p_sText.data() + p_sText.size();
  const auto [pStop, eError] = std::from_chars(p_sText.data(), pEnd, i);
  if (eError != std::errc() || pStop != pEnd || i < p_iMin || i > p_iMax) return false;
  p_iOut = i;
  return true;
}
