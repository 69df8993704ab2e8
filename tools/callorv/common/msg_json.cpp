// A message as JSON.
#include "common/msg_json.h"

#include <climits>

#include "common/text.h"

namespace {

using Json = nlohmann::ordered_json;

Json ValuesOf(CMsg& p_cMsg);

Json JsonOf(const CString& p_s) { return ToUtf8(p_s.ToStr()); }
Json JsonOf(int p_i) { return p_i; }
Json JsonOf(double p_d) { return p_d; }    // null when it is no number
Json JsonOf(bool p_b) { return p_b; }
Json JsonOf(const CDate& p_c) { return ToUtf8(p_c.ToStr()); }
Json JsonOf(CMsg* p_pMsg) { return p_pMsg == nullptr ? Json() : ValuesOf(*p_pMsg); }

template <class T>
Json ElementsOf(CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iCount) {
  Json cAll = Json::array();
  for (int i = 0; i < p_iCount; ++i) {
    T Value{};
    p_cMsg.GetValueAt(p_tTag.m_iTagNum, i, &Value);
    cAll.push_back(JsonOf(Value));
  }
  return p_tTag.m_bArray ? cAll : cAll[0];
}

Json ElementsOf(CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iCount) {
  switch (p_tTag.m_eType) {
    case TAG_STRING: return ElementsOf<CString>(p_cMsg, p_tTag, p_iCount);
    case TAG_INTEGER: return ElementsOf<int>(p_cMsg, p_tTag, p_iCount);
    case TAG_DOUBLE: return ElementsOf<double>(p_cMsg, p_tTag, p_iCount);
    case TAG_BOOL: return ElementsOf<bool>(p_cMsg, p_tTag, p_iCount);
    case TAG_DATE: return ElementsOf<CDate>(p_cMsg, p_tTag, p_iCount);
    case TAG_SUBMSG: return ElementsOf<CMsg*>(p_cMsg, p_tTag, p_iCount);
    default: return nullptr;
  }
}

}    // namespace

std::string JsonName(const CMsgInfo& p_cInfo, const CTagInfo& p_tTag) {
  const char* szName = p_tTag.m_sName.ToStr();
  int iOther = 0;
  const bool bNumber = ParseNumber(szName, 0, INT_MAX, iOther);
  const bool bFound = *szName != 0 && !bNumber && p_cInfo.GetTagNumByName(szName) == p_tTag.m_iTagNum;
  return bFound ? ToUtf8(szName) : std::to_string(p_tTag.m_iTagNum);
}

namespace {

Json ValuesOf(CMsg& p_cMsg) {
  Json cValues = Json::object();
  const CMsgInfo* pInfo = p_cMsg.GetMsgInfo();
  for (int i = 0; pInfo != nullptr && i < pInfo->GetNoTags(); ++i) {
    const CTagInfo* pTag = pInfo->GetTagInfo(pInfo->GetTagNumAt(i));
    const int iCount = p_cMsg.GetArrSize(pTag->m_iTagNum);
    if (iCount < 0) continue;
    cValues[JsonName(*pInfo, *pTag)] = ElementsOf(p_cMsg, *pTag, iCount);
  }
  return cValues;
}

}    // namespace

nlohmann::ordered_json MsgToJson(CMsg& p_cMsg) {
  const CMsgInfo* pInfo = p_cMsg.GetMsgInfo();
  return {{"message", p_cMsg.GetMsgNum()},
          {"name", ToUtf8(pInfo == nullptr ? "" : pInfo->GetMsgName().ToStr())},
          {"version", ToUtf8(p_cMsg.GetVer())},
          {"values", ValuesOf(p_cMsg)}};
}
