// Values of a message by path: code, 1, list[2], rows[0].price.
#include "common/msg_path.h"

#include <climits>
#include <vector>

#include "command.h"
#include "common/msg_names.h"
#include "common/msg_value.h"
#include "common/text.h"

namespace {

constexpr int NO_INDEX = -1;

struct T_Step {
  std::string sTag;
  int iIndex;
};

// False when the text is no path.
bool ParsePath(const std::string& p_sPath, std::vector<T_Step>& p_aSteps) {
  for (size_t iStart = 0; iStart <= p_sPath.size();) {
    const size_t iEnd = std::min(p_sPath.find('.', iStart), p_sPath.size());
    std::string sTag = p_sPath.substr(iStart, iEnd - iStart);
    int iIndex = NO_INDEX;
    const size_t iOpen = sTag.find('[');
    if (iOpen != std::string::npos) {
      if (sTag.back() != ']') return false;
      const std::string sIndex = sTag.substr(iOpen + 1, sTag.size() - iOpen - 2);
      if (!ParseNumber(sIndex, 0, INT_MAX, iIndex)) return false;
      sTag.resize(iOpen);
    }
    if (sTag.empty()) return false;
    p_aSteps.push_back({sTag, iIndex});
    iStart = iEnd + 1;
  }
  return true;
}

int CountOf(CMsg& p_cMsg, int p_iTag) {
  const int iCount = p_cMsg.GetArrSize(p_iTag);
  return iCount < 0 ? 0 : iCount;
}

void CheckIndex(CMsg& p_cMsg, const CTagInfo& p_tTag, const T_Step& p_tStep, int p_iLast) {
  if (!p_tTag.m_bArray && p_tStep.iIndex != NO_INDEX) throw CFailure("tag '" + p_tStep.sTag + "' is no array");
  if (p_tStep.iIndex > p_iLast) {
    throw CFailure(p_tStep.sTag + '[' + std::to_string(p_tStep.iIndex) + "]: the next element is " + p_tStep.sTag +
                   '[' + std::to_string(CountOf(p_cMsg, p_tTag.m_iTagNum)) + ']');
  }
}

// The sub-message that a step enters; a missing one is made.
CMsg& Enter(CMsg& p_cMsg, const T_Step& p_tStep) {
  const CTagInfo& tTag = FindTag(p_cMsg, p_tStep.sTag);
  if (tTag.m_eType != TAG_SUBMSG) throw CFailure("tag '" + p_tStep.sTag + "' is no sub-message");
  const int iCount = CountOf(p_cMsg, tTag.m_iTagNum);
  CheckIndex(p_cMsg, tTag, p_tStep, iCount);
  if (tTag.m_bArray && p_tStep.iIndex == NO_INDEX) {
    throw CFailure("tag '" + p_tStep.sTag + "' has rows: write " + p_tStep.sTag + "[0]");
  }
  CMsg* pSub = nullptr;
  const int iRow = tTag.m_bArray ? p_tStep.iIndex : 0;
  if (iRow < iCount) p_cMsg.GetValueAt(tTag.m_iTagNum, iRow, &pSub);
  return pSub != nullptr ? *pSub : *p_cMsg.MakeSubMsgEntry(tTag.m_iTagNum);
}

}    // namespace

void SetByPath(CMsg& p_cMsg, const std::string& p_sAssignment) {
  const size_t iEqual = p_sAssignment.find('=');
  const std::string sPath = p_sAssignment.substr(0, iEqual);
  std::vector<T_Step> aSteps;
  if (iEqual == std::string::npos || !ParsePath(sPath, aSteps)) {
    throw CUsage("'" + p_sAssignment + "' is not TAG=VALUE (as in code=ABC or rows[0].price=1.5)");
  }
  CMsg* pMsg = &p_cMsg;
  for (size_t i = 0; i + 1 < aSteps.size(); ++i) pMsg = &Enter(*pMsg, aSteps[i]);
  const T_Step& tLast = aSteps.back();
  const CTagInfo& tTag = FindTag(*pMsg, tLast.sTag);
  const int iCount = CountOf(*pMsg, tTag.m_iTagNum);
  CheckIndex(*pMsg, tTag, tLast, iCount);
  if (tLast.iIndex != NO_INDEX && tLast.iIndex < iCount) throw CFailure(sPath + " has a value already");
  if (tTag.m_eType == TAG_SUBMSG) {
    throw CFailure(sPath + " is a sub-message: write " + sPath +
                   (tTag.m_bArray && tLast.iIndex == NO_INDEX ? "[0].TAG=VALUE" : ".TAG=VALUE"));
  }
  SetValue(*pMsg, tTag, sPath, p_sAssignment.substr(iEqual + 1));
}

bool IsPath(const std::string& p_sPath) {
  std::vector<T_Step> aSteps;
  return ParsePath(p_sPath, aSteps);
}

E_TagType TypeAt(CMsgDic& p_cDic, int p_iMsgNum, const std::string& p_sPath) {
  std::vector<T_Step> aSteps;
  if (!ParsePath(p_sPath, aSteps)) throw CFailure("'" + p_sPath + "' is no tag");
  for (size_t i = 0;; ++i) {
    if (p_cDic.GetMsgInfo(p_iMsgNum) == nullptr) {
      throw CFailure("no message '" + std::to_string(p_iMsgNum) + "' in the dictionary");
    }
    const CMsg cMsg(p_iMsgNum, 0, 0, &p_cDic);
    const CTagInfo& tTag = FindTag(cMsg, aSteps[i].sTag);
    if (i + 1 == aSteps.size()) return tTag.m_eType;
    if (tTag.m_eType != TAG_SUBMSG) throw CFailure("tag '" + aSteps[i].sTag + "' is no sub-message");
    p_iMsgNum = tTag.m_iSubMsg;
  }
}

std::string GetByPath(CMsg& p_cMsg, const std::string& p_sPath) {
  std::vector<T_Step> aSteps;
  if (!ParsePath(p_sPath, aSteps)) throw CFailure("'" + p_sPath + "' is no tag");
  CMsg* pMsg = &p_cMsg;
  for (size_t i = 0;; ++i) {
    const int iIndex = std::max(aSteps[i].iIndex, 0);
    const CTagInfo& tTag = FindTag(*pMsg, aSteps[i].sTag);
    if (i + 1 == aSteps.size()) return GetValue(*pMsg, tTag, iIndex, aSteps[i].sTag);
    if (tTag.m_eType != TAG_SUBMSG) throw CFailure("tag '" + aSteps[i].sTag + "' is no sub-message");
    CMsg* pSub = nullptr;
    if (pMsg->GetValueAt(tTag.m_iTagNum, iIndex, &pSub) < 0 || pSub == nullptr) return "";
    pMsg = pSub;
  }
}
