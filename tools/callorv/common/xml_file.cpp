// XML files as people write them.
#include "common/xml_file.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <memory>
#include <utility>

#include "command.h"

namespace {

// The parser leaves references as they are: it would take an unknown one for text, and &#0; for the end of it.
constexpr unsigned PARSE = pugi::parse_cdata | pugi::parse_ws_pcdata | pugi::parse_eol | pugi::parse_wconv_attribute |
                           pugi::parse_doctype | pugi::parse_fragment;

struct T_Encoding {
  std::string sName;
  size_t iMark;    // bytes of a byte order mark
};

// What the XML declaration says, "" when there is none.
std::string DeclaredEncoding(const std::string& p_sData) {
  if (p_sData.rfind("<?xml", 0) != 0) return "";
  const std::string sHead = p_sData.substr(0, p_sData.find("?>"));
  const size_t iKey = sHead.find("encoding");
  if (iKey == std::string::npos) return "";
  const size_t iOpen = sHead.find_first_of("'\"", iKey);
  if (iOpen == std::string::npos) return "";
  return sHead.substr(iOpen + 1, sHead.find(sHead[iOpen], iOpen + 1) - iOpen - 1);
}

T_Encoding EncodingOf(const std::string& p_sData) {
  struct T_Begin {
    std::string_view sBytes;
    const char* szName;
    size_t iMark;
  };
  using namespace std::string_view_literals;
  static constexpr std::array<T_Begin, 9> s_atBegin{{{"\xFF\xFE\0\0"sv, "UTF-32LE", 4},
                                                     {"\0\0\xFE\xFF"sv, "UTF-32BE", 4},
                                                     {"<\0\0\0"sv, "UTF-32LE", 0},
                                                     {"\0\0\0<"sv, "UTF-32BE", 0},
                                                     {"\xFF\xFE"sv, "UTF-16LE", 2},
                                                     {"\xFE\xFF"sv, "UTF-16BE", 2},
                                                     {"<\0"sv, "UTF-16LE", 0},
                                                     {"\0<"sv, "UTF-16BE", 0},
                                                     {"\xEF\xBB\xBF"sv, "UTF-8", 3}}};
  for (const T_Begin& t : s_atBegin) {
    if (p_sData.compare(0, t.sBytes.size(), t.sBytes) == 0) return {t.szName, t.iMark};
  }
  std::string sDeclared = DeclaredEncoding(p_sData);
  return {sDeclared.empty() ? "UTF-8" : std::move(sDeclared), 0};
}

size_t LinesIn(std::string_view p_sText) {
  return static_cast<size_t>(std::count(p_sText.begin(), p_sText.end(), '\n'));
}

[[noreturn]] void FailAtLine(const std::string& p_sName, size_t p_iLine, const std::string& p_sWhy) {
  throw CFailure(p_sName + ':' + std::to_string(p_iLine) + ": " + p_sWhy);
}

// The bytes as UTF-8. Every one must be right: a text that is guessed is a text that is changed.
std::string Decode(const std::string& p_sName, const std::string& p_sData) {
  const T_Encoding tFrom = EncodingOf(p_sData);
  struct T_Close {
    void operator()(void* p_p) const { iconv_close(static_cast<iconv_t>(p_p)); }
  };
  const bool bName = tFrom.sName.find('/') == std::string::npos;    // behind one, iconv looks for other wishes
  const iconv_t pRaw = bName ? iconv_open("UTF-8", tFrom.sName.c_str()) : nullptr;
  if (pRaw == nullptr || reinterpret_cast<intptr_t>(pRaw) == -1) {
    FailAtLine(p_sName, 1, "the encoding '" + tFrom.sName + "' is unknown here: save the file as UTF-8");
  }
  const std::unique_ptr<void, T_Close> pCoder(pRaw);
  std::string sBytes = p_sData.substr(tFrom.iMark);
  std::string sOut;
  char* pIn = sBytes.data();
  size_t iLeft = sBytes.size();
  while (iLeft > 0) {
    char szPiece[4096];
    char* pOut = szPiece;
    size_t iRoom = sizeof szPiece;
    const size_t iRet = iconv(pRaw, &pIn, &iLeft, &pOut, &iRoom);
    const int iErrno = errno;
    sOut.append(szPiece, sizeof szPiece - iRoom);
    if (iRet == static_cast<size_t>(-1) && iErrno != E2BIG) {
      FailAtLine(p_sName, 1 + LinesIn(sOut), "here are bytes that are no " + tFrom.sName);
    }
  }
  return sOut;
}

bool IsXmlChar(unsigned p_i) {
  return p_i == '\t' || p_i == '\n' || p_i == '\r' || (p_i >= 0x20 && p_i < 0xD800) ||
         (p_i >= 0xE000 && p_i < 0xFFFE) || (p_i >= 0x10000 && p_i < 0x110000);
}

void AppendUtf8(std::string& p_sOut, unsigned p_i) {
  const auto fnTail = [&](unsigned p_iBits) { p_sOut += static_cast<char>(0x80 | (p_i >> p_iBits & 0x3F)); };
  if (p_i < 0x80) {
    p_sOut += static_cast<char>(p_i);
  } else if (p_i < 0x800) {
    p_sOut += static_cast<char>(0xC0 | p_i >> 6);
    fnTail(0);
  } else if (p_i < 0x10000) {
    p_sOut += static_cast<char>(0xE0 | p_i >> 12);
    fnTail(6);
    fnTail(0);
  } else {
    p_sOut += static_cast<char>(0xF0 | p_i >> 18);
    fnTail(12);
    fnTail(6);
    fnTail(0);
  }
}

// Appends the character of a reference, given what stands between & and ;. False when there is none.
bool AppendReference(std::string& p_sOut, std::string_view p_sName) {
  static constexpr std::array<std::pair<std::string_view, char>, 5> s_aNamed{
      {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
  for (const auto& [sName, c] : s_aNamed) {
    if (sName == p_sName) {
      p_sOut += c;
      return true;
    }
  }
  if (p_sName.size() < 2 || p_sName[0] != '#') return false;
  const bool bHex = p_sName[1] == 'x';
  const char* pEnd = p_sName.data() + p_sName.size();
  unsigned i = 0;
  const auto [pStop, eError] = std::from_chars(p_sName.data() + (bHex ? 2 : 1), pEnd, i, bHex ? 16 : 10);
  if (eError != std::errc() || pStop != pEnd || !IsXmlChar(i)) return false;
  AppendUtf8(p_sOut, i);
  return true;
}

bool IsText(const pugi::xml_node& p_cNode) {
  return p_cNode.type() == pugi::node_pcdata || p_cNode.type() == pugi::node_cdata;
}

}    // namespace

CXmlFile::CXmlFile(const std::string& p_sName, const std::string& p_sData)
    : m_sName(p_sName), m_sText(Decode(p_sName, p_sData)) {
  const size_t iNul = m_sText.find('\0');
  if (iNul != std::string::npos) FailAtLine(m_sName, LineAt(iNul), "here is a NUL character");
  const auto tResult = m_cDocument.load_buffer(m_sText.data(), m_sText.size(), PARSE, pugi::encoding_utf8);
  if (!tResult) {
    FailAtLine(m_sName, LineAt(static_cast<size_t>(tResult.offset)), std::string("no XML: ") + tResult.description());
  }
  for (const pugi::xml_node& cNode : m_cDocument.children()) {
    if (cNode.type() == pugi::node_doctype) Fail(cNode, "DOCTYPE is not allowed");
    if (IsText(cNode) && IsBlank(cNode.value())) continue;
    if (IsText(cNode)) Fail(cNode, "no XML: text outside the root element");
    if (m_cRoot) Fail(cNode, "no XML: a second root element");
    m_cRoot = cNode;
  }
  if (!m_cRoot) FailAtLine(m_sName, LineAt(m_sText.size()), "no XML: no root element");
}

bool CXmlFile::IsBlank(std::string_view p_sText) {
  return p_sText.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

size_t CXmlFile::LineAt(size_t p_iAt) const { return 1 + LinesIn(std::string_view(m_sText).substr(0, p_iAt)); }

size_t CXmlFile::LineOf(const pugi::xml_node& p_cNode) const {
  return LineAt(static_cast<size_t>(std::max<ptrdiff_t>(p_cNode.offset_debug(), 0)));
}

void CXmlFile::Fail(const pugi::xml_node& p_cNode, const std::string& p_sWhy) const {
  FailAtLine(m_sName, LineOf(p_cNode), p_sWhy);
}

std::string CXmlFile::Resolve(const pugi::xml_node& p_cNode, std::string_view p_sRaw) const {
  std::string sOut;
  for (size_t iDone = 0;;) {
    const size_t iText = std::min(p_sRaw.find('&', iDone), p_sRaw.size());
    sOut += p_sRaw.substr(iDone, iText - iDone);
    if (iText == p_sRaw.size()) return sOut;
    const size_t iEnd = std::min(p_sRaw.find_first_of("; \t\n&", iText + 1), p_sRaw.size());
    const std::string_view sReference = p_sRaw.substr(iText, iEnd - iText);
    if (iEnd == p_sRaw.size() || p_sRaw[iEnd] != ';' || !AppendReference(sOut, sReference.substr(1))) {
      FailAtLine(m_sName, LineOf(p_cNode) + LinesIn(p_sRaw.substr(0, iText)),
                 "'" + std::string(sReference) + "' is no reference that is known here: write &amp; for &");
    }
    iDone = iEnd + 1;
  }
}

std::string CXmlFile::TextOf(const pugi::xml_node& p_cElement) const {
  std::string sOut;
  for (const pugi::xml_node& cNode : p_cElement.children()) {
    if (cNode.type() == pugi::node_cdata) sOut += cNode.value();
    if (cNode.type() == pugi::node_pcdata) sOut += Resolve(cNode, cNode.value());
  }
  return sOut;
}

std::string CXmlFile::ValueOf(const pugi::xml_node& p_cElement, const pugi::xml_attribute& p_cAttribute) const {
  return Resolve(p_cElement, p_cAttribute.value());
}
