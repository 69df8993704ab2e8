// Messages and tags of the dictionary by number or by name.
#include "common/msg_names.h"

#include <callorv/client/callorv_client.h>

#include <climits>
#include <vector>

#include "command.h"
#include "common/near.h"
#include "common/text.h"

int FindMessage(const std::string& p_sMessage, const CMsgDic& p_cDic) {
  int iFound = 0;
  std::vector<std::string> asName;
  if (!ParseNumber(p_sMessage, 0, INT_MAX, iFound)) {
    const std::string sName = ToLatin1(p_sMessage);
    for (int i = 1; i < CMsgDic::SLOTS && iFound == 0; ++i) {
      const CMsgInfo* pInfo = p_cDic.GetMsgInfo(i);
      if (pInfo == nullptr) continue;
      const CString sKnown = pInfo->GetMsgName();
      if (sKnown == sName.c_str()) iFound = i;
      else asName.push_back(ToUtf8(sKnown.ToStr()));
    }
  }
  if (p_cDic.GetMsgInfo(iFound) != nullptr) return iFound;
  throw CFailure("no message '" + p_sMessage + "' in the dictionary" + DidYouMean(p_sMessage, asName));
}

const CTagInfo& FindTag(const CMsg& p_cMsg, const std::string& p_sTag) {
  const CMsgInfo& cInfo = *p_cMsg.GetMsgInfo();
  int iTag = 0;
  if (!ParseNumber(p_sTag, 0, INT_MAX, iTag)) iTag = cInfo.GetTagNumByName(ToLatin1(p_sTag).c_str());
  const CTagInfo* pTag = iTag < 0 ? nullptr : cInfo.GetTagInfo(iTag);
  if (pTag != nullptr) return *pTag;
  std::vector<std::string> asName;
  for (int i = 0; iTag < 0 && i < cInfo.GetNoTags(); ++i) {
    asName.push_back(ToUtf8(cInfo.GetTagName(cInfo.GetTagNumAt(i))));
  }
  throw CFailure("message " + std::to_string(p_cMsg.GetMsgNum()) + " has no tag '" + p_sTag + '\'' +
                 DidYouMean(p_sTag, asName));
}
