// Names of messages and tags for completion.
#include "complete/names.h"

#include <callorv/base/exception.h>
#include <callorv/client/cfg_reader.h>
#include <callorv/dict/msg_dic.h>

#include <memory>

#include "command.h"
#include "common/input.h"
#include "common/msg_names.h"
#include "common/tags.h"
#include "common/text.h"

namespace {

// Null without a dictionary that can be read at once: nobody waits for a pipe behind a key of the keyboard.
std::unique_ptr<CMsgDic> Dictionary(const T_Given& p_tGiven) {
  std::string sPath = p_tGiven.sDictionary;
  CCfgReader cConfig;
  CString sInConfig;
  if (!p_tGiven.sConfig.empty() && IsOrdinaryFile(p_tGiven.sConfig) && cConfig.Load(p_tGiven.sConfig.c_str()) == 0 &&
      cConfig.GetStrVal("msg_dic", &sInConfig) == 0 && sPath.empty()) {
    sPath = sInConfig.ToStr();
  }
  if (!IsOrdinaryFile(sPath)) return nullptr;
  try {
    auto pDic = std::make_unique<CMsgDic>();
    pDic->InitDictionary(sPath.c_str());
    return pDic;
  } catch (const CException&) {
    return nullptr;
  }
}

template <class F>
std::vector<T_Name> Messages(const T_Given& p_tGiven, F p_fnName) {
  std::vector<T_Name> at;
  const std::unique_ptr<CMsgDic> pDic = Dictionary(p_tGiven);
  for (int i = 1; pDic != nullptr && i < CMsgDic::SLOTS; ++i) {
    if (const CMsgInfo* pInfo = pDic->GetMsgInfo(i)) at.push_back(p_fnName(*pInfo));
  }
  return at;
}

std::string NameOf(const CMsgInfo& p_cInfo) { return ToUtf8(p_cInfo.GetMsgName().ToStr()); }

// The definition of a step of a path, "rows[0]" or "3"; null when there is none.
const CTagInfo* TagOfStep(const CMsgInfo& p_cInfo, const std::string& p_sStep) {
  const std::string sName = NearestLatin1(p_sStep.substr(0, p_sStep.find('[')));
  int iTag = 0;
  if (!ParseNumber(sName, 0, INT32_MAX, iTag)) iTag = p_cInfo.GetTagNumByName(sName.c_str());
  return p_cInfo.GetTagInfo(iTag);
}

}    // namespace

std::vector<T_Name> MessageNames(const T_Given& p_tGiven) {
  return Messages(p_tGiven, [](const CMsgInfo& p_cInfo) {
    return T_Name{NameOf(p_cInfo), "message " + std::to_string(p_cInfo.GetMsgNum())};
  });
}

std::vector<T_Name> MessageNumbers(const T_Given& p_tGiven) {
  return Messages(p_tGiven, [](const CMsgInfo& p_cInfo) {
    return T_Name{std::to_string(p_cInfo.GetMsgNum()), NameOf(p_cInfo)};
  });
}

std::vector<T_Name> TagPaths(const T_Given& p_tGiven, const std::string& p_sWord) {
  const std::unique_ptr<CMsgDic> pDic = Dictionary(p_tGiven);
  if (pDic == nullptr || p_sWord.find('=') != std::string::npos) return {};
  const CMsgInfo* pInfo = nullptr;
  try {
    pInfo = pDic->GetMsgInfo(FindMessage(p_tGiven.sMessage, *pDic));
  } catch (const CFailure&) {    // somebody else says that
  }
  size_t iAt = 0;
  for (size_t iDot; pInfo != nullptr && (iDot = p_sWord.find('.', iAt)) != std::string::npos; iAt = iDot + 1) {
    const CTagInfo* pTag = TagOfStep(*pInfo, p_sWord.substr(iAt, iDot - iAt));
    pInfo = pTag != nullptr && pTag->m_eType == TAG_SUBMSG ? pDic->GetMsgInfo(pTag->m_iSubMsg) : nullptr;
  }
  std::vector<T_Name> at;
  if (pInfo == nullptr) return at;
  for (const CTagInfo* pTag : FirstTags(*pInfo)) {
    if (!IsFoundByName(*pInfo, *pTag)) continue;
    const bool bSub = pTag->m_eType == TAG_SUBMSG;
    const char* szBehind = !bSub ? "=" : pTag->m_bArray ? "[0]." : ".";
    at.push_back({p_sWord.substr(0, iAt) + ToUtf8(pTag->m_sName.ToStr()) + szBehind,
                  TypeWord(*pTag) + (pTag->m_bArray ? ", array" : "")});
  }
  return at;
}
