// JSON that people and programs write.
#include "common/json_in.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "command.h"

namespace {

using Json = nlohmann::json;

enum { MAX_LEVELS = 4096 };    // a message of 1,023 levels, each an array, and what it stands in

std::string Escaped(std::string_view p_sName) {
  std::string s = "/";
  for (const char c : p_sName) {
    if (c == '~') s += "~0";
    else if (c == '/') s += "~1";
    else s += c;
  }
  return s;
}

// "[json.exception.parse_error.101] parse error at line 1, column 8: syntax error while parsing value - invalid
// literal; last read: '{"a": x'; expected ..." in fewer words: what was read last may be long.
std::string SyntaxError(const std::string& p_sWhat) {
  std::string s = p_sWhat.substr(p_sWhat.find("] ") + 2);
  const size_t iLine = s.find("line ");
  if (iLine != std::string::npos) s.erase(0, iLine);
  const size_t iWhile = s.find("syntax error while parsing "), iDash = s.find(" - ", iWhile);
  if (iDash != std::string::npos) s.erase(iWhile, iDash + 3 - iWhile);
  const size_t iRead = s.find("; last read: ");
  if (iRead != std::string::npos) {
    const size_t iExpected = s.rfind("'; expected ");
    s.erase(iRead, iExpected == std::string::npos ? std::string::npos : iExpected + 1 - iRead);
  }
  return s;
}

}    // namespace

// Takes what the parser finds, one value after the other.
class CJsonIn::CBuilder {
 public:
  explicit CBuilder(CJsonIn& p_cDocument) : m_c(p_cDocument) {}

  bool null() { return Add(JSON_NULL, "null"); }
  bool boolean(bool p_b) { return Add(JSON_BOOL, p_b ? "true" : "false"); }
  // The parser gives what has a sign to this one, and so loses that of -0, which a double has.
  bool number_integer(Json::number_integer_t p_i) { return Add(JSON_NUMBER, p_i == 0 ? "-0" : std::to_string(p_i)); }
  bool number_unsigned(Json::number_unsigned_t p_i) { return Add(JSON_NUMBER, std::to_string(p_i)); }
  bool number_float(Json::number_float_t, const std::string& p_sText) { return Add(JSON_NUMBER, p_sText); }
  bool string(const std::string& p_s) { return Add(JSON_TEXT, p_s); }
  bool binary(const Json::binary_t&) { return false; }    // JSON has none
  bool start_object(size_t) { return Open(JSON_OBJECT); }
  bool start_array(size_t) { return Open(JSON_ARRAY); }
  bool key(const std::string& p_s) {
    m_iName = m_c.m_sTexts.size();
    m_iNameSize = p_s.size();
    m_bNamed = true;
    m_c.m_sTexts += p_s;
    return true;
  }
  bool end_object() {
    RefuseTwins();
    return end_array();
  }
  bool end_array() {
    T_Node& tNode = m_c.m_atNode[m_iOpen];
    tNode.iEnd = m_c.m_atNode.size();
    m_iOpen = tNode.iParent;
    --m_iLevels;
    return true;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& p_cError) {
    const std::string sPlace = Here();
    throw CFailure(m_c.m_sName + ": " + (sPlace.empty() ? "" : sPlace + ": ") + SyntaxError(p_cError.what()));
  }

 private:
  CJsonIn& m_c;
  size_t m_iOpen = 0;    // the array or object that is being read
  int m_iLevels = 0;
  size_t m_iName = 0, m_iNameSize = 0;    // of the member that comes next
  bool m_bNamed = false;
  std::vector<std::pair<std::string_view, size_t>> m_aNames;    // kept for its memory

  bool Add(E_JsonKind p_eKind, std::string_view p_sText) {
    const size_t iNode = m_c.m_atNode.size();
    m_c.m_atNode.push_back({p_eKind, m_iName, m_iNameSize, m_c.m_sTexts.size(), p_sText.size(), m_iOpen, iNode + 1});
    m_c.m_sTexts += p_sText;
    m_iNameSize = 0;
    m_bNamed = false;
    return true;
  }

  bool Open(E_JsonKind p_eKind) {
    Add(p_eKind, "");
    m_iOpen = m_c.m_atNode.size() - 1;
    if (++m_iLevels > MAX_LEVELS) CValue(&m_c, m_iOpen).Fail("more than 4096 levels");
    return true;
  }

  void RefuseTwins() {
    m_aNames.clear();
    m_c.m_atNode[m_iOpen].iEnd = m_c.m_atNode.size();
    for (CValue c = CValue(&m_c, m_iOpen).First(); c; c = c.Next()) m_aNames.emplace_back(c.Name(), c.m_iNode);
    std::sort(m_aNames.begin(), m_aNames.end());
    const auto cTwin = std::adjacent_find(m_aNames.begin(), m_aNames.end(),
                                          [](const auto& p_a, const auto& p_b) { return p_a.first == p_b.first; });
    if (cTwin != m_aNames.end()) CValue(&m_c, std::next(cTwin)->second).Fail("the name comes twice");
  }

  // Where the parser stands.
  std::string Here() const {
    if (m_iLevels == 0) return "";
    m_c.m_atNode[m_iOpen].iEnd = m_c.m_atNode.size();
    const CValue cOpen(&m_c, m_iOpen);
    if (cOpen.Kind() == JSON_OBJECT) {
      return cOpen.Pointer() + (m_bNamed ? Escaped({m_c.m_sTexts.data() + m_iName, m_iNameSize}) : "");
    }
    size_t iCount = 0;
    for (CValue c = cOpen.First(); c; c = c.Next()) ++iCount;
    return cOpen.Pointer() + '/' + std::to_string(iCount);
  }
};

void CJsonIn::Read(const std::string& p_sName, std::string_view p_sText) {
  m_sName = p_sName;
  m_sTexts.clear();
  m_atNode.clear();
  // Newer parsers have another text for nothing at all, without a place.
  if (p_sText.empty()) {
    throw CFailure(p_sName + ": line 1, column 1: unexpected end of input; expected '[', '{', or a literal");
  }
  CBuilder cBuilder(*this);
  Json::sax_parse(p_sText.begin(), p_sText.end(), &cBuilder);
}

E_JsonKind CJsonIn::CValue::Kind() const { return m_pDocument->m_atNode[m_iNode].eKind; }

std::string_view CJsonIn::CValue::Text() const {
  const T_Node& tNode = m_pDocument->m_atNode[m_iNode];
  return std::string_view(m_pDocument->m_sTexts).substr(tNode.iText, tNode.iTextSize);
}

std::string_view CJsonIn::CValue::Name() const {
  const T_Node& tNode = m_pDocument->m_atNode[m_iNode];
  return std::string_view(m_pDocument->m_sTexts).substr(tNode.iName, tNode.iNameSize);
}

CJsonIn::CValue CJsonIn::CValue::First() const {
  return m_iNode + 1 < m_pDocument->m_atNode[m_iNode].iEnd ? CValue(m_pDocument, m_iNode + 1) : CValue();
}

CJsonIn::CValue CJsonIn::CValue::Next() const {
  const T_Node& tNode = m_pDocument->m_atNode[m_iNode];
  const bool bMore = m_iNode > 0 && tNode.iEnd < m_pDocument->m_atNode[tNode.iParent].iEnd;
  return bMore ? CValue(m_pDocument, tNode.iEnd) : CValue();
}

CJsonIn::CValue CJsonIn::CValue::Find(std::string_view p_sName) const {
  CValue cFound = Kind() == JSON_OBJECT ? First() : CValue();
  while (cFound && cFound.Name() != p_sName) cFound = cFound.Next();
  return cFound;
}

std::string CJsonIn::CValue::Pointer() const {
  std::vector<std::string> asStep;
  for (size_t i = m_iNode; i > 0; i = m_pDocument->m_atNode[i].iParent) {
    const CValue cOuter(m_pDocument, m_pDocument->m_atNode[i].iParent);
    if (cOuter.Kind() == JSON_OBJECT) {
      asStep.push_back(Escaped(CValue(m_pDocument, i).Name()));
      continue;
    }
    size_t iIndex = 0;
    for (CValue c = cOuter.First(); c && c.m_iNode != i; c = c.Next()) ++iIndex;
    asStep.push_back('/' + std::to_string(iIndex));
  }
  std::string s;
  for (size_t i = asStep.size(); i-- > 0;) s += asStep[i];
  return s;
}

std::string CJsonIn::CValue::Words() const {
  constexpr size_t MOST = 60;    // as many as one can take in
  std::string s(Text());
  switch (Kind()) {
    case JSON_ARRAY: return "an array";
    case JSON_OBJECT: return "an object";
    case JSON_TEXT:
    case JSON_NUMBER:
      if (s.size() > MOST) {
        size_t iEnd = MOST;
        while ((static_cast<unsigned char>(s[iEnd]) & 0xC0) == 0x80) --iEnd;    // whole characters
        s.resize(iEnd);
        s += "...";
      }
      return Kind() == JSON_TEXT ? '\'' + s + '\'' : s;
    default: return s;
  }
}

std::string CJsonIn::CValue::Placed(const std::string& p_sWhy) const {
  const std::string sPointer = Pointer();
  return m_pDocument->m_sName + ": " + (sPointer.empty() ? "" : sPointer + ": ") + p_sWhy;
}

void CJsonIn::CValue::Fail(const std::string& p_sWhy) const { throw CFailure(Placed(p_sWhy)); }

void CJsonIn::CValue::WarnOf(const std::string& p_sWhy) const { Warn(Placed(p_sWhy)); }
