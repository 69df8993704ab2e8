// The request of `callorv call`.
#include "call/request.h"

#include <callorv/callorv.hpp>

#include "command.h"
#include "common/input.h"
#include "common/json_in.h"
#include "common/msg_file.h"
#include "common/msg_from_json.h"
#include "common/msg_names.h"
#include "common/msg_path.h"

namespace {

int MessageOf(const std::string& p_sMessage) {
  try {
    return FindMessage(p_sMessage);
  } catch (const CFailure&) {
    if (p_sMessage.find('=') == std::string::npos) throw;
    throw CFailure("no message '" + p_sMessage + "' in the dictionary: MESSAGE stands before TAG=VALUE");
  }
}

// The file that --data names, "" when it is the document itself.
std::string FileOf(const std::string& p_sData) {
  if (p_sData[0] == '@') return p_sData.substr(1);
  return p_sData == "-" ? "-" : "";
}

void ReadData(CMsg& p_cRequest, const T_CallOptions& p_tOptions, const std::string& p_sDocument) {
  const std::string sFile = FileOf(p_tOptions.sData);
  CJsonIn cDocument;
  try {
    cDocument.Read(sFile.empty() ? "--data" : InputName(sFile), p_sDocument);
  } catch (const CFailure& cError) {
    if (!sFile.empty() || !WhyUnreadable(p_sDocument).empty()) throw;
    throw CFailure(std::string(cError.what()) + "; for what stands in the file write --data @" + p_sDocument);
  }
  if (p_tOptions.sMessage.empty() && cDocument.Root().Kind() == JSON_OBJECT && !IsWholeMessage(cDocument.Root())) {
    throw CUsage("MESSAGE is needed, as --data brings values alone, not an object with message and values");
  }
  MsgFromJson(p_cRequest, cDocument.Root(), p_tOptions.sMessage.empty() ? 0 : MessageOf(p_tOptions.sMessage));
}

}    // namespace

std::string ReadDocument(const T_CallOptions& p_tOptions) {
  if (!p_tOptions.sXml.empty()) return ReadWholeFile(p_tOptions.sXml);
  if (p_tOptions.sData.empty()) return "";
  const std::string sFile = FileOf(p_tOptions.sData);
  return sFile.empty() ? p_tOptions.sData : ReadWholeFile(sFile);
}

std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sDocument) {
  auto pRequest = std::make_shared<CMsg>(0, 0, 0, MA_GetMsgDic());
  if (!p_tOptions.sData.empty()) {
    ReadData(*pRequest, p_tOptions, p_sDocument);
  } else if (p_tOptions.sXml.empty()) {
    pRequest->Init(MessageOf(p_tOptions.sMessage), 0, 0);
  } else if (p_tOptions.bAsLibrary) {
    try {
      pRequest->LoadXml(std::string(p_sDocument).data());
    } catch (const CException& cError) {
      throw CFailure(InputName(p_tOptions.sXml) + ": " + cError.GetText());
    }
  } else {
    ReadMsgFile(*pRequest, InputName(p_tOptions.sXml), p_sDocument);
  }
  for (const std::string& s : p_tOptions.asValues) SetByPath(*pRequest, s);
  return pRequest;
}
