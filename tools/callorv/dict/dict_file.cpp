// What the parts of callorv dict share: a dictionary of a file, and one message of it.
#include "dict/dict_file.h"

#include <set>

#include "command.h"
#include "common/input.h"
#include "common/msg_names.h"
#include "common/refusal.h"
#include "common/tags.h"
#include "common/text.h"

using Json = nlohmann::ordered_json;

std::unique_ptr<CMsgDic> LoadInput(const std::string& p_sPath) {
  const CInputFile cFile(p_sPath);
  auto pDic = std::make_unique<CMsgDic>();
  try {
    LoadDictionary(*pDic, cFile.Path());
  } catch (const CFailure& cError) {
    throw CFailure(cFile.Named(cError.what()));
  }
  return pDic;
}

std::vector<const CMsgInfo*> Messages(const CMsgDic& p_cDic) {
  std::vector<const CMsgInfo*> aAll;
  for (int iMsg = 1; iMsg < CMsgDic::SLOTS; ++iMsg) {
    if (const CMsgInfo* pInfo = p_cDic.GetMsgInfo(iMsg)) aAll.push_back(pInfo);
  }
  return aAll;
}

std::map<std::string, int> NumbersByName(const CMsgDic& p_cDic) {
  std::map<std::string, int> cNumbers;
  for (const CMsgInfo* pInfo : Messages(p_cDic)) cNumbers.emplace(pInfo->GetMsgName().ToStr(), pInfo->GetMsgNum());
  return cNumbers;
}

const CMsgInfo& NamedMessage(const CMsgDic& p_cDic, const std::string& p_sMessage, const std::string& p_sPath) {
  try {
    return *p_cDic.GetMsgInfo(FindMessage(p_sMessage, p_cDic));
  } catch (const CFailure& cError) {
    throw CFailure(InputName(p_sPath) + ": " + cError.what());
  }
}

std::vector<const CMsgInfo*> MessagesIn(const CMsgDic& p_cDic, const CMsgInfo& p_cInfo) {
  std::vector<const CMsgInfo*> aFound{&p_cInfo};
  std::set<const CMsgInfo*> cSeen{&p_cInfo};
  for (size_t i = 0; i < aFound.size(); ++i) {
    for (const CTagInfo* pTag : FirstTags(*aFound[i])) {
      const CMsgInfo* pSub = pTag->m_eType == TAG_SUBMSG ? p_cDic.GetMsgInfo(pTag->m_iSubMsg) : nullptr;
      if (pSub != nullptr && cSeen.insert(pSub).second) aFound.push_back(pSub);
    }
  }
  aFound.erase(aFound.begin());
  return aFound;
}

Json MessageToJson(const CMsgInfo& p_cInfo) {
  Json cTags = Json::array();
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const CTagInfo& tTag = *p_cInfo.GetTagInfo(p_cInfo.GetTagNumAt(i));
    Json cTag = {{"number", tTag.m_iTagNum},
                 {"name", ToUtf8(tTag.m_sName.ToStr())},
                 {"type", CTagInfo::ReprType(tTag.m_eType).ToStr()},
                 {"array", tTag.m_bArray}};
    if (tTag.m_eType == TAG_SUBMSG) cTag["submessage"] = tTag.m_iSubMsg;
    cTags.push_back(cTag);
  }
  return {{"number", p_cInfo.GetMsgNum()},
          {"name", ToUtf8(p_cInfo.GetMsgName().ToStr())},
          {"version", ToUtf8(p_cInfo.GetVersion().ToStr())},
          {"hash", p_cInfo.GetHashKey()},
          {"tags", cTags}};
}
