// Identifiers out of the names of a dictionary, in any language.
#include "generate/names.h"

#include "common/text.h"

std::string Words(const char* p_szName) {
  std::string sWords;
  bool bGap = false;
  for (; *p_szName != 0; ++p_szName) {
    if (!IsUpper(*p_szName) && !IsLower(*p_szName) && !IsDigit(*p_szName)) {
      bGap = true;
      continue;
    }
    if (bGap && !sWords.empty()) sWords += '_';
    bGap = false;
    sWords += *p_szName;
  }
  return sWords;
}

std::string Stem(const std::string& p_sName) {
  std::string sStem;
  for (size_t i = 0; i < p_sName.size(); ++i) {
    if (i > 0 && IsUpper(p_sName[i]) && p_sName[i - 1] != '_' && !IsUpper(p_sName[i - 1])) sStem += '_';
    sStem += ToLower(p_sName[i]);
  }
  return sStem;
}

void MakeUnique(std::map<int, std::string>& p_cNames, const std::function<std::string(const std::string&)>& p_fnKey,
                const char* p_szBefore) {
  for (bool bAgain = true; bAgain;) {
    std::map<std::string, int> cCount;
    for (const auto& [iNum, sName] : p_cNames) ++cCount[p_fnKey(sName)];
    bAgain = false;
    for (auto& [iNum, sName] : p_cNames) {
      if (cCount[p_fnKey(sName)] == 1) continue;
      if (*p_szBefore != '_' || sName.back() != '_') sName += p_szBefore;
      sName += std::to_string(iNum);
      bAgain = true;
    }
  }
}

std::map<int, std::string> TagNames(const CMsgInfo& p_cInfo,
                                    const std::function<std::string(const std::string&)>& p_fnFix) {
  std::map<int, std::string> cNames;
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const int iTag = p_cInfo.GetTagNumAt(i);
    const std::string sWords = Words(p_cInfo.GetTagName(iTag));
    cNames[iTag] = p_fnFix(sWords.empty() ? std::to_string(iTag) : sWords);
  }
  MakeUnique(cNames, [](const std::string& p_sName) { return p_sName; }, "_");
  return cNames;
}

std::map<int, std::string> CamelNames(const CMsgDic& p_cDic) {
  static constexpr std::string_view s_aszTaken[] = {"False", "None", "True"};
  std::map<int, std::string> cNames;
  for (int iMsg = 1; iMsg < CMsgDic::SLOTS; ++iMsg) {
    const CMsgInfo* pInfo = p_cDic.GetMsgInfo(iMsg);
    if (pInfo == nullptr) continue;
    const std::string sWords = Words(pInfo->GetMsgName().ToStr());
    std::string sName;
    bool bFirst = true;    // of a word
    for (const char c : sWords) {
      if (c != '_') sName += bFirst ? ToUpper(c) : c;
      bFirst = c == '_';
    }
    if (sName.empty()) sName = "Msg" + std::to_string(iMsg);
    if (IsDigit(sName[0])) sName.insert(0, "M");
    if (IsIn(s_aszTaken, sName)) sName += "Msg";
    cNames[iMsg] = sName;
  }
  MakeUnique(cNames, Stem, "No");
  return cNames;
}

std::string Guard(const std::string& p_sNamespace, const std::string& p_sHeader) {
  std::string sGuard;
  for (const char c : p_sNamespace + "_" + p_sHeader) {
    const bool bMark = c == ':' || c == '.';
    if (bMark && sGuard.back() == '_') continue;
    sGuard += bMark ? '_' : ToUpper(c);
  }
  return sGuard;
}

std::string Quoted(const CString& p_sName) { return '"' + Printable(p_sName.ToStr(), false) + '"'; }
