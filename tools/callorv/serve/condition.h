// What a rule wants of one value of the request.
#ifndef CALLORV_TOOLS_CONDITION_H
#define CALLORV_TOOLS_CONDITION_H

#include <callorv/dict/tag_info.h>
#include <regex.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/json_in.h"

// A POSIX extended regular expression, which takes time in proportion to the text, and bounded memory. Any thread.
class CPattern {
 public:
  // Throws CFailure.
  explicit CPattern(const std::string& p_sPattern);
  ~CPattern() { regfree(&m_tRegex); }
  CPattern(const CPattern&) = delete;
  CPattern& operator=(const CPattern&) = delete;

  bool IsIn(const std::string& p_sText);    // never in one of more than 64 KB

 private:
  std::string m_sPattern;    // as it is compiled
  std::mutex m_cMutex;
  regex_t m_tRegex;
  size_t m_iRead = 0;    // bytes of texts since it was compiled

  void Compile();
};

class CCondition {
 public:
  // Throws CFailure with the place.
  explicit CCondition(const CJsonIn::CValue& p_cJson);

  // Throws CFailure when no value of the type can be what is wanted.
  void CheckType(E_TagType p_eType) const;
  // p_sValue: as the wire has it, "" when there is none.
  bool Holds(const std::string& p_sValue) const;

 private:
  struct T_Wanted {
    std::string sText;                // as the wire has it
    std::optional<double> dNumber;    // then the text does not count
  };
  std::vector<T_Wanted> m_atOneOf;
  std::shared_ptr<CPattern> m_pPattern;
  std::optional<T_Wanted> m_tFrom, m_tTo;
  std::optional<bool> m_bPresent;

  static T_Wanted Wanted(const CJsonIn::CValue& p_cJson);
  void ReadEqual(const CJsonIn::CValue& p_cJson);
  void ReadObject(const CJsonIn::CValue& p_cJson);
  bool IsNumeric() const { return (m_tFrom ? m_tFrom : m_tTo)->dNumber.has_value(); }
};

#endif
