// A dictionary as one page for a browser.
#include "dict/dict_html.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "common/text.h"
#include "dict/dict_page.h"

namespace {

// [number, name, version, hash, [[tag, name, type word or number of the sub-message, 1 for several values], ...]]
nlohmann::json Message(const CMsgInfo& p_cInfo) {
  nlohmann::json cTags = nlohmann::json::array();
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const CTagInfo& tTag = *p_cInfo.GetTagInfo(p_cInfo.GetTagNumAt(i));
    nlohmann::json cType = CTagInfo::ReprType(tTag.m_eType).ToStr();
    if (tTag.m_eType == TAG_SUBMSG) cType = tTag.m_iSubMsg;
    cTags.push_back({tTag.m_iTagNum, ToUtf8(tTag.m_sName.ToStr()), cType, tTag.m_bArray ? 1 : 0});
  }
  return {p_cInfo.GetMsgNum(), ToUtf8(p_cInfo.GetMsgName().ToStr()), ToUtf8(p_cInfo.GetVersion().ToStr()),
          p_cInfo.GetHashKey(), cTags};
}

// For text and for JSON inside a script element: no character is left that could end either.
std::string Escape(const std::string& p_sText, const char* p_szLess, const char* p_szAmpersand) {
  std::string sOut;
  for (char c : p_sText) {
    if (c == '<') {
      sOut += p_szLess;
    } else if (c == '&') {
      sOut += p_szAmpersand;
    } else {
      sOut += c;
    }
  }
  return sOut;
}

}    // namespace

std::string DictionaryPage(const CMsgDic& p_cDic, const std::string& p_sTitle) {
  nlohmann::json cMessages = nlohmann::json::array();
  for (int iMsg = 1; iMsg < CMsgDic::SLOTS; ++iMsg) {
    if (const CMsgInfo* pInfo = p_cDic.GetMsgInfo(iMsg)) cMessages.push_back(Message(*pInfo));
  }
  std::string sPage;
  std::string_view sRest = s_sDictPage;
  const auto fnUpTo = [&](std::string_view p_sMark, const std::string& p_sText) {
    const size_t iAt = sRest.find(p_sMark);
    sPage.append(sRest.substr(0, iAt)).append(p_sText);
    sRest.remove_prefix(iAt + p_sMark.size());
  };
  fnUpTo("{{TITLE}}", Escape(p_sTitle, "&lt;", "&amp;"));    // of the window
  fnUpTo("{{TITLE}}", Escape(p_sTitle, "&lt;", "&amp;"));    // and above the page
  fnUpTo("{{DICTIONARY}}", Escape(cMessages.dump(), "\\u003c", "\\u0026"));
  return sPage.append(sRest);
}
