// A message as JSON.
#include "common/msg_json.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <string_view>

#include "common/json_text.h"
#include "common/text.h"

namespace {

void AppendValues(std::string& p_sOut, CMsg& p_cMsg);

void Append(std::string& p_sOut, const CString& p_s) { AppendText(p_sOut, ToUtf8(p_s.ToStr())); }
void Append(std::string& p_sOut, const CDate& p_c) { AppendText(p_sOut, ToUtf8(p_c.ToStr())); }
void Append(std::string& p_sOut, int p_i) { p_sOut += std::to_string(p_i); }
void Append(std::string& p_sOut, bool p_b) { p_sOut += p_b ? "true" : "false"; }
void Append(std::string& p_sOut, CMsg* p_pMsg) {
  if (p_pMsg == nullptr) {
    p_sOut += "null";
  } else {
    AppendValues(p_sOut, *p_pMsg);
  }
}
// As few digits as tell it from every other double, and one behind the point; null when it is no number.
void Append(std::string& p_sOut, double p_d) {
  if (!std::isfinite(p_d)) {
    p_sOut += "null";
    return;
  }
  char sz[32];
  const std::string_view sDigits(sz, static_cast<size_t>(std::to_chars(sz, sz + sizeof sz, p_d).ptr - sz));
  p_sOut += sDigits;
  if (sDigits.find_first_of(".e") == std::string_view::npos) p_sOut += ".0";
}

template <class T>
void AppendElements(std::string& p_sOut, CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iCount) {
  if (p_tTag.m_bArray) p_sOut += '[';
  for (int i = 0; i < p_iCount; ++i) {
    T Value{};
    p_cMsg.GetValueAt(p_tTag.m_iTagNum, i, &Value);
    if (i > 0) p_sOut += ',';
    Append(p_sOut, Value);
  }
  if (p_tTag.m_bArray) p_sOut += ']';
}

void AppendElements(std::string& p_sOut, CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iCount) {
  switch (p_tTag.m_eType) {
    case TAG_STRING: return AppendElements<CString>(p_sOut, p_cMsg, p_tTag, p_iCount);
    case TAG_INTEGER: return AppendElements<int>(p_sOut, p_cMsg, p_tTag, p_iCount);
    case TAG_DOUBLE: return AppendElements<double>(p_sOut, p_cMsg, p_tTag, p_iCount);
    case TAG_BOOL: return AppendElements<bool>(p_sOut, p_cMsg, p_tTag, p_iCount);
    case TAG_DATE: return AppendElements<CDate>(p_sOut, p_cMsg, p_tTag, p_iCount);
    case TAG_SUBMSG: return AppendElements<CMsg*>(p_sOut, p_cMsg, p_tTag, p_iCount);
    default: p_sOut += "null";
  }
}

// Whether the definition has the tag before already.
bool IsAgain(const CMsgInfo& p_cInfo, int p_iAt) {
  int i = 0;
  while (p_cInfo.GetTagNumAt(i) != p_cInfo.GetTagNumAt(p_iAt)) ++i;
  return i < p_iAt;
}

void AppendValues(std::string& p_sOut, CMsg& p_cMsg) {
  const CMsgInfo* pInfo = p_cMsg.GetMsgInfo();
  bool bFirst = true;
  p_sOut += '{';
  for (int i = 0; pInfo != nullptr && i < pInfo->GetNoTags(); ++i) {
    const CTagInfo* pTag = pInfo->GetTagInfo(pInfo->GetTagNumAt(i));
    const int iCount = p_cMsg.GetArrSize(pTag->m_iTagNum);
    if (iCount < 0 || IsAgain(*pInfo, i)) continue;
    if (!bFirst) p_sOut += ',';
    bFirst = false;
    AppendText(p_sOut, JsonName(*pInfo, *pTag));
    p_sOut += ':';
    AppendElements(p_sOut, p_cMsg, *pTag, iCount);
  }
  p_sOut += '}';
}

}    // namespace

std::string JsonName(const CMsgInfo& p_cInfo, const CTagInfo& p_tTag) {
  const char* szName = p_tTag.m_sName.ToStr();
  int iOther = 0;
  const bool bNumber = ParseNumber(szName, 0, INT_MAX, iOther);
  const bool bFound = *szName != 0 && !bNumber && p_cInfo.GetTagNumByName(szName) == p_tTag.m_iTagNum;
  return bFound ? ToUtf8(szName) : std::to_string(p_tTag.m_iTagNum);
}

void AppendMsg(std::string& p_sOut, CMsg& p_cMsg) {
  const CMsgInfo* pInfo = p_cMsg.GetMsgInfo();
  p_sOut += "{\"message\":" + std::to_string(p_cMsg.GetMsgNum()) + ",\"name\":";
  AppendText(p_sOut, ToUtf8(pInfo == nullptr ? "" : pInfo->GetMsgName().ToStr()));
  p_sOut += ",\"version\":";
  AppendText(p_sOut, ToUtf8(p_cMsg.GetVer()));
  p_sOut += ",\"values\":";
  AppendValues(p_sOut, p_cMsg);
  p_sOut += '}';
}

nlohmann::ordered_json MsgToJson(CMsg& p_cMsg) {
  std::string s;
  AppendMsg(s, p_cMsg);
  return nlohmann::ordered_json::parse(s);
}
