// Rules: which reply a request gets.
#include "serve/rules.h"

#include <algorithm>

#include "command.h"
#include "common/msg_path.h"

// The values of a request that conditions ask for, each looked up once.
class CRules::CRequestValues {
 public:
  CRequestValues(const std::vector<std::string>& p_asPaths, CMsg& p_cRequest)
      : m_asPaths(p_asPaths), m_cRequest(p_cRequest) {}

  const std::string& At(size_t p_iPath) {
    m_asValues.resize(m_asPaths.size());
    std::optional<std::string>& sValue = m_asValues[p_iPath];
    if (!sValue) {
      try {
        sValue = GetByPath(m_cRequest, m_asPaths[p_iPath]);
      } catch (const CFailure&) {    // another message, which has no such tag
        sValue = "";
      }
    }
    return *sValue;
  }

 private:
  const std::vector<std::string>& m_asPaths;
  CMsg& m_cRequest;
  std::vector<std::optional<std::string>> m_asValues;
};

bool T_Rule::Covers(int p_iSvcNum) const {
  return aServices.empty() || std::any_of(aServices.begin(), aServices.end(), [=](const std::pair<int, int>& p_a) {
           return p_iSvcNum >= p_a.first && p_iSvcNum <= p_a.second;
         });
}

CRules::CRules(std::vector<std::unique_ptr<T_Rule>> p_apRules, std::vector<std::string> p_asPaths,
               std::vector<std::string> p_asUserKeys)
    : m_apRules(std::move(p_apRules)), m_asPaths(std::move(p_asPaths)), m_asUserKeys(std::move(p_asUserKeys)) {
  for (const auto& pRule : m_apRules) {
    bool bOthers = pRule->aServices.empty();
    for (const auto& [iFrom, iTo] : pRule->aServices) {
      if (iFrom == iTo) m_cByService[iFrom];
      else bOthers = true;
    }
    if (bOthers) m_apOthers.push_back(pRule.get());
  }
  for (const auto& pRule : m_apRules) {
    for (auto& [iSvcNum, apRules] : m_cByService) {
      if (pRule->Covers(iSvcNum)) apRules.push_back(pRule.get());
    }
  }
}

const CRules::CRuleList& CRules::RulesOf(int p_iSvcNum) const {
  const auto it = m_cByService.find(p_iSvcNum);
  return it == m_cByService.end() ? m_apOthers : it->second;
}

bool CRules::Fits(const T_Rule& p_tRule, const T_Incoming& p_t, CRequestValues& p_cValues) const {
  const auto fnHolds = [&](const std::pair<size_t, CCondition>& p_a) {
    return p_a.second.Holds(p_cValues.At(p_a.first));
  };
  const std::vector<std::string>& asKeys = p_tRule.asUserKeys;
  return p_tRule.Covers(p_t.iSvcNum) && (p_tRule.iMsgNum == 0 || p_tRule.iMsgNum == p_t.cRequest.GetMsgNum()) &&
         (asKeys.empty() || std::find(asKeys.begin(), asKeys.end(), p_t.sUserKey) != asKeys.end()) &&
         std::all_of(p_tRule.aValues.begin(), p_tRule.aValues.end(), fnHolds);
}

bool CRules::Fits(const T_Rule& p_tRule, const CStateValues& p_cState) {
  if (p_tRule.eThen == T_Rule::NEXT && p_tRule.iReplies >= p_tRule.atReplies.size()) return false;
  return std::all_of(p_tRule.cWhen.begin(), p_tRule.cWhen.end(),
                     [&](const auto& p_a) { return StateValue(p_cState, p_a.first) == p_a.second; });
}

void CRules::Take(T_Rule& p_tRule, const T_Incoming& p_t, T_State& p_tState, T_Choice& p_tChoice) {
  CStateValues cNew;
  for (const auto& [sName, sText] : p_tRule.cSet) cNew[sName] = FillText(sText, {p_t.cRequest, p_tState.cValues}, true);
  for (const auto& [sName, sValue] : cNew) {
    if (sValue.empty()) p_tState.cValues.erase(sName);
    else p_tState.cValues[sName] = sValue;
  }
  p_tChoice.pRule = &p_tRule;
  p_tChoice.cState = p_tState.cValues;
  const size_t iCount = p_tRule.atReplies.size();
  if (iCount == 0) return;
  size_t& iGiven = p_tRule.iReplies;
  p_tChoice.pReply = &p_tRule.atReplies[iGiven];
  if (iGiven + 1 < iCount || p_tRule.eThen == T_Rule::NEXT) ++iGiven;
  else if (p_tRule.eThen == T_Rule::REPEAT) iGiven = 0;
}

T_Choice CRules::Choose(const T_Incoming& p_t, T_State& p_tState) const {
  T_Choice tChoice;
  const auto itEnd = m_asUserKeys.end();
  tChoice.bKeyRefused = !m_asUserKeys.empty() && std::find(m_asUserKeys.begin(), itEnd, p_t.sUserKey) == itEnd;
  if (tChoice.bKeyRefused) return tChoice;
  CRequestValues cValues(m_asPaths, p_t.cRequest);
  for (T_Rule* pRule : RulesOf(p_t.iSvcNum)) {
    if (!Fits(*pRule, p_t, cValues)) continue;
    // Between what it wants of the state and what it sets, no other call comes.
    const std::lock_guard<std::mutex> cLock(p_tState.cMutex);
    if (!Fits(*pRule, p_tState.cValues)) continue;
    Take(*pRule, p_t, p_tState, tChoice);
    break;
  }
  return tChoice;
}
