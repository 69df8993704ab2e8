// A request with a plausible value in every tag.
#include "dict/msg_sample.h"

#include <algorithm>
#include <climits>

#include "common/msg_names.h"
#include "common/msg_path.h"
#include "common/tags.h"
#include "common/text.h"

namespace {

enum { MAX_VALUES = 1000, MAX_MESSAGES = 10000, MAX_DEPTH = 16 };    // of what somebody would look at

// By E_TagType, for the two elements of an array.
constexpr const char* s_aszValue[][2] = {{"", ""},       {"ABC", "DEF"},    {"7", "8"},
                                         {"1.5", "2.25"}, {"true", "false"}, {"20260131", "20260201"}};

// Whether a name can stand where a shell and the command's own forms see no more in it than a name.
bool IsPlain(const CString& p_sName, const char* p_szNot) {
  const std::string sName = p_sName.ToStr();
  int iUnused = 0;
  return !sName.empty() && sName[0] != '-' && sName.find_first_of(p_szNot) == std::string::npos &&
         !ParseNumber(sName, INT_MIN, INT_MAX, iUnused) && Printable(sName, false) == ToUtf8(sName);
}

class CSampler {
 public:
  CSampler(const CMsgDic& p_cDic, T_Sample& p_tSample) : m_cDic(p_cDic), m_tSample(p_tSample) {}

  void Add(const CMsgInfo& p_cInfo, const std::string& p_sPath) {
    m_apOpen.push_back(&p_cInfo);
    for (const CTagInfo* pTag : FirstTags(p_cInfo)) {
      const bool bName = IsFoundByName(p_cInfo, *pTag) && IsPlain(pTag->m_sName, ".[]=");
      AddTag(*pTag, p_sPath + (bName ? ToUtf8(pTag->m_sName.ToStr()) : std::to_string(pTag->m_iTagNum)));
    }
    m_apOpen.pop_back();
  }

 private:
  const CMsgDic& m_cDic;
  T_Sample& m_tSample;
  int m_iMessages = 0;                      // inside others
  std::vector<const CMsgInfo*> m_apOpen;    // around what is added

  void AddTag(const CTagInfo& p_tTag, const std::string& p_sPath) {
    if (p_tTag.m_eType != TAG_SUBMSG) {
      for (int i = 0; i <= (p_tTag.m_bArray ? 1 : 0); ++i) AddValue(p_sPath + '=' + s_aszValue[p_tTag.m_eType][i]);
      return;
    }
    const CMsgInfo* pSub = m_cDic.GetMsgInfo(p_tTag.m_iSubMsg);
    if (pSub == nullptr || std::find(m_apOpen.begin(), m_apOpen.end(), pSub) != m_apOpen.end()) return;
    // Those without values count, too: held several times each, they multiply with the depth.
    if (m_apOpen.size() == MAX_DEPTH || m_tSample.asValues.size() >= MAX_VALUES || ++m_iMessages > MAX_MESSAGES) {
      m_tSample.bWhole = false;
    } else {
      Add(*pSub, p_sPath + (p_tTag.m_bArray ? "[0]." : "."));
    }
  }

  void AddValue(std::string p_sValue) {
    if (m_tSample.asValues.size() >= MAX_VALUES) {
      m_tSample.bWhole = false;
    } else {
      m_tSample.asValues.push_back(std::move(p_sValue));
    }
  }
};

std::string Quoted(const std::string& p_sWord) {
  const bool bPlain = !p_sWord.empty() && std::all_of(p_sWord.begin(), p_sWord.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("_-./:=,+@%").find(c) != std::string_view::npos;
  });
  if (bPlain) return p_sWord;
  std::string sOut = "'";
  for (const char c : p_sWord) c == '\'' ? sOut += "'\\''" : sOut += c;
  return sOut + "'";
}

}    // namespace

T_Sample Sample(CMsgDic& p_cDic, const CMsgInfo& p_cInfo) {
  T_Sample tSample;
  CSampler(p_cDic, tSample).Add(p_cInfo, "");
  tSample.pMsg = std::make_unique<CMsg>(p_cInfo.GetMsgNum(), 0, 0, &p_cDic);
  for (const std::string& s : tSample.asValues) SetByPath(*tSample.pMsg, s);
  return tSample;
}

std::string CallLine(const CMsgDic& p_cDic, const CMsgInfo& p_cInfo, const T_Sample& p_tSample,
                     const std::string& p_sConfig, const std::string& p_sService) {
  const CString sName = p_cInfo.GetMsgName();
  const std::string sUtf8 = ToUtf8(sName.ToStr());
  const bool bName = IsPlain(sName, "=") && FindMessage(sUtf8, p_cDic) == p_cInfo.GetMsgNum();
  std::string sLine = "callorv call --config " + Quoted(p_sConfig) + ' ' + Quoted(p_sService) + ' ' +
                      (bName ? Quoted(sUtf8) : std::to_string(p_cInfo.GetMsgNum()));
  for (const std::string& s : p_tSample.asValues) sLine += ' ' + Quoted(s);
  return sLine;
}
