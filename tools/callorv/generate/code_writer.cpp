// Code for the messages of a dictionary, in any language: one file for each message.
#include "generate/code_writer.h"

#include "command.h"
#include "common/tags.h"
#include "generate/names.h"

std::set<int> CCodeWriter::WithSubMsgs(const std::set<int>& p_cMsgs) const {
  std::set<int> cAll;
  std::vector<int> aNew(p_cMsgs.begin(), p_cMsgs.end());
  for (int iMsg = 1; p_cMsgs.empty() && iMsg < CMsgDic::SLOTS; ++iMsg) {
    if (IsMessage(iMsg)) cAll.insert(iMsg);
  }
  while (!aNew.empty()) {
    const int iMsg = aNew.back();
    aNew.pop_back();
    if (!IsMessage(iMsg)) throw CFailure("message " + std::to_string(iMsg) + " is not in the dictionary");
    if (!cAll.insert(iMsg).second) continue;
    for (int iSub : SubMsgs(iMsg)) aNew.push_back(iSub);
  }
  return cAll;
}

std::set<int> CCodeWriter::SubMsgs(int p_iMsg) const {
  std::set<int> cSubs;
  for (const CTagInfo* pTag : FirstTags(*m_cDic.GetMsgInfo(p_iMsg))) {
    if (pTag->m_eType == TAG_SUBMSG && IsMessage(pTag->m_iSubMsg)) cSubs.insert(pTag->m_iSubMsg);
  }
  return cSubs;
}

std::vector<std::string> CCodeWriter::LeftOut(int p_iMsg) const {
  std::vector<std::string> asText;
  for (const CTagInfo* pTag : FirstTags(*m_cDic.GetMsgInfo(p_iMsg))) {
    if (!IsLost(*pTag)) continue;
    asText.push_back(
        LeftOutText(*pTag, "message " + std::to_string(pTag->m_iSubMsg) + " is not in the dictionary"));
  }
  return asText;
}

std::string CCodeWriter::LeftOutText(const CTagInfo& p_tTag, const std::string& p_sWhy) {
  return "tag " + std::to_string(p_tTag.m_iTagNum) + " " + Quoted(p_tTag.m_sName) + " is left out: " + p_sWhy;
}

std::string CCodeWriter::Title(int p_iMsg) const {
  const CMsgInfo& cInfo = *m_cDic.GetMsgInfo(p_iMsg);
  const std::string sTitle = "Message " + std::to_string(p_iMsg) + " " + Quoted(cInfo.GetMsgName());
  return cInfo.GetVersion().IsEmpty() ? sTitle : sTitle + ", version " + Quoted(cInfo.GetVersion());
}

std::string Filled(std::string_view p_sText, const std::vector<std::pair<char, std::string>>& p_atWith) {
  std::string sOut;
  for (size_t i = 0; i < p_sText.size(); ++i) {
    const std::string* pWith = nullptr;
    for (const auto& [c, sWith] : p_atWith) {
      if (p_sText[i] == '%' && i + 1 < p_sText.size() && p_sText[i + 1] == c) pWith = &sWith;
    }
    if (pWith == nullptr) {
      sOut += p_sText[i];
    } else {
      sOut += *pWith;
      ++i;
    }
  }
  return sOut;
}
