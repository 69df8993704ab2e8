// The request of `callorv call`.
#include "call/request.h"

#include <callorv/callorv.hpp>

#include <algorithm>

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
    std::string sText = cError.what();
    if (sFile.empty() && WhyUnreadable(p_sDocument).empty()) {
      sText += "; for what stands in the file write --data @" + p_sDocument;
    } else if (sFile.empty() && sText.find("expected string literal") != std::string::npos) {
      sText += "; names and texts stand in double quotes, "
               "which the shell takes away unless single ones stand around all";
    }
    throw CFailure(sText);
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

std::shared_ptr<CMsg> MakeRequest(const T_CallOptions& p_tOptions, const std::string& p_sDocument,
                                  const std::function<std::string(const std::string&)>& p_fnText) {
  auto pRequest = std::make_shared<CMsg>(0, 0, 0, MA_GetMsgDic());
  if (!p_tOptions.sData.empty()) {
    ReadData(*pRequest, p_tOptions, p_fnText ? p_fnText(p_sDocument) : p_sDocument);
  } else if (p_tOptions.sXml.empty()) {
    pRequest->Init(MessageOf(p_tOptions.sMessage), 0, 0);
  } else if (p_tOptions.bAsLibrary) {
    try {
      pRequest->LoadXml(std::string(p_sDocument).data());
    } catch (const CException& cError) {
      throw CFailure(InputName(p_tOptions.sXml) + ": " + cError.GetText());
    }
  } else {
    ReadMsgFile(*pRequest, InputName(p_tOptions.sXml), p_sDocument, [&](std::string& p_sText) {
      if (p_fnText) p_sText = p_fnText(p_sText);
      return true;
    });
  }
  for (const std::string& s : p_tOptions.asValues) SetByPath(*pRequest, p_fnText ? p_fnText(s) : s);
  return pRequest;
}

void WarnOfPlaceholders(const T_CallOptions& p_tOptions, const std::string& p_sDocument) {
  std::string sFound = FindPlaceholder(p_sDocument);
  for (const std::string& s : p_tOptions.asValues) sFound = sFound.empty() ? FindPlaceholder(s) : sFound;
  if (sFound.empty()) return;
  Warn(sFound + " is sent as it stands: it is replaced with --repeat, --duration and --stream");
}

CRequestMaker::CRequestMaker(const T_CallOptions& p_tOptions, const std::string& p_sDocument)
    : m_tOptions(p_tOptions), m_sDocument(p_sDocument) {
  CVariables cVariables;
  MakeRequest(p_tOptions, p_sDocument, [&](const std::string& p_sText) {
    const E_Quoting eQuoting = !p_tOptions.sData.empty() && p_sText == p_sDocument ? QUOTE_JSON : QUOTE_NONE;
    return m_cTexts.emplace(p_sText, cVariables.Compile(p_sText, eQuoting)).first->second.ForCall(1);
  });
  for (uint64_t i = 2; i <= cVariables.Rows(); ++i) Make(i);
}

bool CRequestMaker::Varies() const {
  return std::any_of(m_cTexts.begin(), m_cTexts.end(), [](const auto& t) { return t.second.Varies(); });
}

std::shared_ptr<CMsg> CRequestMaker::Make(uint64_t p_uCall) const {
  try {
    return MakeRequest(m_tOptions, m_sDocument,
                       [&](const std::string& p_sText) { return m_cTexts.at(p_sText).ForCall(p_uCall); });
  } catch (const CFailure& cError) {
    throw CFailure("the request of call " + std::to_string(p_uCall) + ": " + cError.what());
  }
}
