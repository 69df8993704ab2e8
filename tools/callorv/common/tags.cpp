// The tags of a message's definition, as they count.
#include "common/tags.h"

#include <set>

std::vector<const CTagInfo*> FirstTags(const CMsgInfo& p_cInfo) {
  std::vector<const CTagInfo*> aTag;
  std::set<int> cSeen;
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const int iTag = p_cInfo.GetTagNumAt(i);
    if (cSeen.insert(iTag).second) aTag.push_back(p_cInfo.GetTagInfo(iTag));
  }
  return aTag;
}

bool IsFoundByName(const CMsgInfo& p_cInfo, const CTagInfo& p_tTag) {
  return !p_tTag.m_sName.IsEmpty() && p_cInfo.GetTagNumByName(p_tTag.m_sName.ToStr()) == p_tTag.m_iTagNum;
}

std::string TypeWord(const CTagInfo& p_tTag) {
  return p_tTag.m_eType == TAG_SUBMSG ? "m" + std::to_string(p_tTag.m_iSubMsg)
                                      : CTagInfo::ReprType(p_tTag.m_eType).ToStr();
}
