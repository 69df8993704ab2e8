// The request of `callorv call`.
#include "call/request.h"

#include <callorv/callorv.hpp>

#include <climits>

#include "command.h"
#include "common/input.h"
#include "common/msg_file.h"
#include "common/msg_path.h"
#include "common/text.h"

int FindMessage(const std::string& p_sMessage) {
  int iFound = 0;
  if (!ParseNumber(p_sMessage, 0, INT_MAX, iFound)) {
    const std::string sName = ToLatin1(p_sMessage);
    for (int i = 1; i < CMsgDic::SLOTS && iFound == 0; ++i) {
      const CMsgInfo* pInfo = MA_GetMsgDic()->GetMsgInfo(i);
      if (pInfo != nullptr && pInfo->GetMsgName() == sName.c_str()) iFound = i;
    }
  }
  if (MA_GetMsgDic()->GetMsgInfo(iFound) == nullptr)
    throw CFailure("no message '" + p_sMessage + "' in the dictionary" +
                   (p_sMessage.find('=') == std::string::npos ? "" : ": MESSAGE stands before TAG=VALUE"));
  return iFound;
}

std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sXml) {
  auto pRequest = std::make_shared<CMsg>(0, 0, 0, MA_GetMsgDic());
  if (p_tOptions.sXml.empty()) {
    pRequest->Init(FindMessage(p_tOptions.sMessage), 0, 0);
  } else if (p_tOptions.bAsLibrary) {
    try {
      pRequest->LoadXml(std::string(p_sXml).data());
    } catch (const CException& cError) {
      throw CFailure(InputName(p_tOptions.sXml) + ": " + cError.GetText());
    }
  } else {
    ReadMsgFile(*pRequest, InputName(p_tOptions.sXml), p_sXml);
  }
  for (const std::string& s : p_tOptions.asValues) SetByPath(*pRequest, s);
  return pRequest;
}
