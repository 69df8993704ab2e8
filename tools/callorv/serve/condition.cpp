// What a rule wants of one value of the request.
#include "serve/condition.h"

#include <algorithm>
#include <charconv>

#include "command.h"
#include "common/json_number.h"
#include "common/msg_value.h"
#include "common/text.h"
#include "serve/json_members.h"

namespace {

constexpr size_t LONGEST_PATTERN = 1000;
constexpr size_t LONGEST_TEXT = 64 << 10;
constexpr long long MOST_REPEATS = 255;     // of all counts multiplied: each is compiled as often as it says

std::optional<double> NumberOf(const std::string& p_sText) {
  double d = 0;
  const char* pEnd = p_sText.data() + p_sText.size();
  const auto [pStop, eError] = std::from_chars(p_sText.data(), pEnd, d);
  return eError == std::errc() && pStop == pEnd ? std::optional<double>(d) : std::nullopt;
}

// The greatest number between braces that begin at p_i; at least 1.
int MostRepeats(const std::string& p_s, size_t p_i) {
  int iMost = 1, iNumber = 0;
  for (++p_i; p_i < p_s.size() && p_s[p_i] != '}'; ++p_i) {
    const bool bDigit = p_s[p_i] >= '0' && p_s[p_i] <= '9';
    iNumber = !bDigit ? 0 : std::min(iNumber * 10 + (p_s[p_i] - '0'), 1000000);
    iMost = std::max(iMost, iNumber);
  }
  return iMost;
}

// The place behind a bracket expression that begins at p_i.
size_t BehindBracket(const std::string& p_s, size_t p_i) {
  if (++p_i < p_s.size() && p_s[p_i] == '^') ++p_i;
  for (bool bFirst = true; p_i < p_s.size() && (bFirst || p_s[p_i] != ']'); ++p_i, bFirst = false) {
    const char c = p_s[p_i] == '[' && p_i + 1 < p_s.size() ? p_s[p_i + 1] : '\0';
    if (c != ':' && c != '.' && c != '=') continue;    // as in [:alpha:]
    p_i = std::min(p_s.find(std::string(1, c) + ']', p_i + 2), p_s.size() - 2) + 1;
  }
  return p_i + 1;
}

// Refuses what other dialects have and this one takes for something else, and what would take memory or time.
void CheckPattern(const std::string& p_s) {
  if (p_s.size() > LONGEST_PATTERN) throw CFailure("a pattern of more than 1000 characters");
  long long iRepeats = 1;
  int iOpen = 0;
  for (size_t i = 0; i < p_s.size(); ++i) {
    switch (p_s[i]) {
      case '[': i = BehindBracket(p_s, i) - 1; break;
      case '(': ++iOpen; break;
      case ')':
        if (--iOpen < 0) throw CFailure("no pattern: ) without (");
        break;
      case '\\':
        if (++i == p_s.size()) break;
        if (p_s[i] >= '0' && p_s[i] <= '9') throw CFailure("a pattern cannot refer back to what it found");
        if (p_s[i] == 'd' || p_s[i] == 'D') throw CFailure("there is no \\d in patterns: write [0-9] or [^0-9]");
        break;
      case '{':
        iRepeats *= MostRepeats(p_s, i);
        if (iRepeats > MOST_REPEATS) throw CFailure("a pattern that counts to more than 255, all counts multiplied");
        break;
      default: break;
    }
  }
}

}    // namespace

// What is anchored is tried at one place only, where all of it is found in one pass; anything else would be tried at
// every byte of the text.
CPattern::CPattern(const std::string& p_sPattern) : m_sPattern(ToLatin1(p_sPattern)), m_tRegex() {
  CheckPattern(m_sPattern);
  m_sPattern = "^.*(" + m_sPattern + ")";
  Compile();
}

void CPattern::Compile() {
  const int iRet = regcomp(&m_tRegex, m_sPattern.c_str(), REG_EXTENDED | REG_NOSUB);
  if (iRet == 0) return;
  char szWhy[128];
  regerror(iRet, &m_tRegex, szWhy, sizeof szWhy);
  throw CFailure(std::string("no pattern: ") + szWhy);
}

bool CPattern::IsIn(const std::string& p_sText) {
  if (p_sText.size() > LONGEST_TEXT) return false;
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  m_iRead += p_sText.size();
  if (m_iRead > LONGEST_TEXT) {    // what it remembers grows with what it reads
    regfree(&m_tRegex);
    m_tRegex = regex_t();
    Compile();
    m_iRead = p_sText.size();
  }
  return regexec(&m_tRegex, p_sText.c_str(), 0, nullptr, 0) == 0;
}

CCondition::T_Wanted CCondition::Wanted(const CJsonIn::CValue& p_cJson) {
  double d = 0;
  switch (p_cJson.Kind()) {
    case JSON_TEXT: return {At(p_cJson, [&] { return ToLatin1(p_cJson.Text()); }), std::nullopt};
    case JSON_BOOL: return {std::string(p_cJson.Text()), std::nullopt};
    case JSON_NUMBER:
      if (ToDouble(p_cJson.Text(), d) == FIT_NOT) p_cJson.Fail("does not fit into a double to its last digit");
      return {"", d};
    default: p_cJson.Fail(p_cJson.Words() + " stands where a text, a number, true or false belongs");
  }
}

CCondition::CCondition(const CJsonIn::CValue& p_cJson) {
  if (p_cJson.Kind() == JSON_OBJECT) ReadObject(p_cJson);
  else ReadEqual(p_cJson);
}

void CCondition::ReadEqual(const CJsonIn::CValue& p_cJson) {
  if (p_cJson.Kind() != JSON_ARRAY) {
    m_atOneOf.push_back(Wanted(p_cJson));
  } else if (!p_cJson.First()) {
    p_cJson.Fail("an empty list, which no value is in");
  } else {
    for (CJsonIn::CValue c = p_cJson.First(); c; c = c.Next()) m_atOneOf.push_back(Wanted(c));
  }
}

void CCondition::ReadObject(const CJsonIn::CValue& p_cJson) {
  CheckMembers(p_cJson, {"equal", "pattern", "from", "to", "present"});
  const CJsonIn::CValue cEqual = p_cJson.Find("equal"), cPattern = p_cJson.Find("pattern");
  const CJsonIn::CValue cPresent = p_cJson.Find("present");
  const CJsonIn::CValue cFrom = p_cJson.Find("from"), cTo = p_cJson.Find("to");
  if ((cEqual ? 1 : 0) + (cPattern ? 1 : 0) + (cPresent ? 1 : 0) + (cFrom || cTo ? 1 : 0) != 1) {
    p_cJson.Fail("it takes equal, pattern, a range (from, to or both) or present, one of them");
  }
  if (cEqual) ReadEqual(cEqual);
  if (cPattern) {
    const std::string sPattern = TextOf(cPattern);
    m_pPattern = At(cPattern, [&] { return std::make_shared<CPattern>(sPattern); });
  }
  if (cPresent) m_bPresent = BoolOf(cPresent);
  const auto fnReadEnd = [](const CJsonIn::CValue& p_cEnd, std::optional<T_Wanted>& p_tEnd) {
    if (!p_cEnd) return;
    p_tEnd = Wanted(p_cEnd);
    if (p_cEnd.Kind() != JSON_NUMBER &&
        (p_cEnd.Kind() != JSON_TEXT || !IsDate(p_cEnd.Text()) || p_cEnd.Text().empty())) {
      p_cEnd.Fail(p_cEnd.Words() + " is neither a number nor a text with a date (YYYYMMDD)");
    }
  };
  fnReadEnd(cFrom, m_tFrom);
  fnReadEnd(cTo, m_tTo);
  if (m_tFrom && m_tTo && m_tFrom->dNumber.has_value() != m_tTo->dNumber.has_value()) {
    p_cJson.Fail("one end of the range is a number, the other a date");
  }
}

void CCondition::CheckType(E_TagType p_eType) const {
  if (p_eType == TAG_SUBMSG) throw CFailure("it is a sub-message, which has no value");
  if (!m_tFrom && !m_tTo) return;
  const bool bFits = IsNumeric() ? p_eType == TAG_INTEGER || p_eType == TAG_DOUBLE : p_eType == TAG_DATE;
  if (!bFits) throw CFailure(IsNumeric() ? "its values are no numbers" : "its values are no dates");
}

bool CCondition::Holds(const std::string& p_sValue) const {
  if (m_bPresent) return *m_bPresent == !p_sValue.empty();
  if (p_sValue.empty()) return false;
  if (m_pPattern) return m_pPattern->IsIn(p_sValue);
  if (m_tFrom || m_tTo) {
    if (!IsNumeric()) return (!m_tFrom || p_sValue >= m_tFrom->sText) && (!m_tTo || p_sValue <= m_tTo->sText);
    const std::optional<double> d = NumberOf(p_sValue);
    return d && (!m_tFrom || *d >= *m_tFrom->dNumber) && (!m_tTo || *d <= *m_tTo->dNumber);
  }
  return std::any_of(m_atOneOf.begin(), m_atOneOf.end(), [&](const T_Wanted& p_t) {
    return p_t.dNumber ? NumberOf(p_sValue) == p_t.dNumber : p_sValue == p_t.sText;
  });
}
