// callorv dict show: one message for somebody who is to call with it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <set>

#include "common/json_out.h"
#include "common/msg_json.h"
#include "common/options.h"
#include "common/tags.h"
#include "common/text.h"
#include "dict/dict_file.h"
#include "dict/dict_parts.h"
#include "dict/msg_sample.h"

namespace {

using Json = nlohmann::ordered_json;

struct T_Options {
  std::string sIn;
  std::string sMessage;
  std::string sConfig = "client.cfg";
  std::string sService = "SERVICE";
  bool bJson = false;
};

std::string ForPeople(const CString& p_sName) { return p_sName.IsEmpty() ? "\"\"" : Printable(p_sName.ToStr(), false); }

// Letters, for columns: a character of UTF-8 counts once.
size_t Width(const std::string& p_sText) {
  return static_cast<size_t>(std::count_if(p_sText.begin(), p_sText.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Padded(const std::string& p_sText, size_t p_iWidth) {
  return p_sText + std::string(p_iWidth - std::min(p_iWidth, Width(p_sText)), ' ');
}

// Lines of equal columns, two blanks apart; the last column is as wide as it is.
void PrintColumns(const std::vector<std::vector<std::string>>& p_asLine, const std::string& p_sIndent,
                  const std::function<void(size_t)>& p_fnBelow) {
  std::vector<size_t> aWidth;
  for (const auto& asColumn : p_asLine) {
    aWidth.resize(std::max(aWidth.size(), asColumn.size()));
    for (size_t i = 0; i < asColumn.size(); ++i) aWidth[i] = std::max(aWidth[i], Width(asColumn[i]));
  }
  for (size_t iLine = 0; iLine < p_asLine.size(); ++iLine) {
    std::string sLine = p_sIndent;
    for (size_t i = 0; i < p_asLine[iLine].size(); ++i) sLine += Padded(p_asLine[iLine][i], aWidth[i]) + "  ";
    std::cout << sLine.substr(0, sLine.find_last_not_of(' ') + 1) << '\n';
    p_fnBelow(iLine);
  }
}

// The tags of a message, below each that holds another the tags of that, each message once.
class CTree {
 public:
  explicit CTree(const CMsgDic& p_cDic) : m_cDic(p_cDic) {}

  void Print(const CMsgInfo& p_cInfo, size_t p_iDepth) {
    m_cShown.insert(&p_cInfo);
    m_cOpen.insert(&p_cInfo);
    const std::vector<const CTagInfo*> aTag = FirstTags(p_cInfo);
    std::vector<const CMsgInfo*> apBelow(aTag.size());
    std::vector<std::vector<std::string>> asLine;
    for (size_t i = 0; i < aTag.size(); ++i) {
      asLine.push_back({std::to_string(aTag[i]->m_iTagNum), ForPeople(aTag[i]->m_sName),
                        TypeText(*aTag[i], p_iDepth, apBelow[i])});
    }
    PrintColumns(asLine, std::string(2 + 4 * p_iDepth, ' '), [&](size_t p_iTag) {
      if (apBelow[p_iTag] != nullptr) Print(*apBelow[p_iTag], p_iDepth + 1);
    });
    m_cOpen.erase(&p_cInfo);
  }

 private:
  enum { MAX_DEPTH = 16 };    // what stands further to the right is read by nobody

  const CMsgDic& m_cDic;
  std::set<const CMsgInfo*> m_cShown;    // or about to be
  std::set<const CMsgInfo*> m_cOpen;     // around what is printed

  std::string TypeText(const CTagInfo& p_tTag, size_t p_iDepth, const CMsgInfo*& p_pBelow) {
    std::string sText = TypeWord(p_tTag);
    const CMsgInfo* pSub = p_tTag.m_eType == TAG_SUBMSG ? m_cDic.GetMsgInfo(p_tTag.m_iSubMsg) : nullptr;
    if (pSub != nullptr) sText += ' ' + ForPeople(pSub->GetMsgName());
    if (p_tTag.m_bArray) sText += ", array";
    if (p_tTag.m_eType != TAG_SUBMSG) return sText;
    if (pSub == nullptr) return sText + ", which the dictionary lacks";
    if (m_cOpen.count(pSub) != 0) return sText + " (recursive, shown above)";
    if (m_cShown.count(pSub) != 0) return sText + " (shown already)";
    if (p_iDepth == MAX_DEPTH) return sText + " (deeper ones are left out)";
    m_cShown.insert(pSub);
    p_pBelow = pSub;
    return sText;
  }
};

std::string Head(const CMsgInfo& p_cInfo) {
  std::string sHead = "message " + std::to_string(p_cInfo.GetMsgNum()) + ' ' + ForPeople(p_cInfo.GetMsgName());
  if (!p_cInfo.GetVersion().IsEmpty()) sHead += ", version " + Printable(p_cInfo.GetVersion().ToStr(), false);
  return sHead + ", " + Counted(FirstTags(p_cInfo).size(), "tag");
}

// As it is, or, when a terminal would not take it so, with escapes.
std::string JsonForPeople(const Json& p_cJson) {
  const std::string sText = p_cJson.dump(2);
  return PrintableFailure(sText) == sText ? sText : p_cJson.dump(2, ' ', true);
}

void List(const T_Options& p_tOptions) {
  const auto pDic = LoadInput(p_tOptions.sIn);
  std::vector<std::vector<std::string>> asLine;
  for (const CMsgInfo* pInfo : Messages(*pDic)) {
    asLine.push_back({std::to_string(pInfo->GetMsgNum()), ForPeople(pInfo->GetMsgName()),
                      Printable(pInfo->GetVersion().ToStr(), false), Counted(FirstTags(*pInfo).size(), "tag")});
  }
  PrintColumns(asLine, "", [](size_t) {});
}

void ListAsJson(const T_Options& p_tOptions, Json& p_cObject) {
  const auto pDic = LoadInput(p_tOptions.sIn);
  Json& cMessages = p_cObject["messages"] = Json::array();
  for (const CMsgInfo* pInfo : Messages(*pDic)) {
    cMessages.push_back({{"number", pInfo->GetMsgNum()},
                         {"name", ToUtf8(pInfo->GetMsgName().ToStr())},
                         {"version", ToUtf8(pInfo->GetVersion().ToStr())},
                         {"tags", FirstTags(*pInfo).size()}});
  }
}

void ShowMessage(const T_Options& p_tOptions) {
  const auto pDic = LoadInput(p_tOptions.sIn);
  const CMsgInfo& cInfo = NamedMessage(*pDic, p_tOptions.sMessage, p_tOptions.sIn);
  const T_Sample tSample = Sample(*pDic, cInfo);
  std::cout << Head(cInfo) << "\n\n";
  CTree(*pDic).Print(cInfo, 0);
  std::cout << "\nAs JSON, for callorv call --data:\n\n" << JsonForPeople(MsgToJson(*tSample.pMsg)["values"]) << '\n';
  if (!tSample.bWhole) std::cout << "\n(a part of it: there is more than anybody would read)\n";
  const bool bService = p_tOptions.sService != "SERVICE";
  std::cout << "\nA call" << (bService ? "" : ", with the number of your service for SERVICE") << ":\n\n"
            << CallLine(*pDic, cInfo, tSample, p_tOptions.sConfig, p_tOptions.sService) << '\n';
}

void ShowAsJson(const T_Options& p_tOptions, Json& p_cObject) {
  const auto pDic = LoadInput(p_tOptions.sIn);
  const CMsgInfo& cInfo = NamedMessage(*pDic, p_tOptions.sMessage, p_tOptions.sIn);
  const T_Sample tSample = Sample(*pDic, cInfo);
  p_cObject["message"] = MessageToJson(cInfo);
  Json& cSubs = p_cObject["submessages"] = Json::array();
  for (const CMsgInfo* pSub : MessagesIn(*pDic, cInfo)) cSubs.push_back(MessageToJson(*pSub));
  p_cObject["data"] = MsgToJson(*tSample.pMsg)["values"];
  p_cObject["whole"] = tSample.bWhole;
  p_cObject["call"] = CallLine(*pDic, cInfo, tSample, p_tOptions.sConfig, p_tOptions.sService);
}

void Show(const T_Options& p_tOptions) {
  const bool bList = p_tOptions.sMessage.empty();
  if (!p_tOptions.bJson) return bList ? List(p_tOptions) : ShowMessage(p_tOptions);
  PrintObject([&](Json& p_cObject) { bList ? ListAsJson(p_tOptions, p_cObject) : ShowAsJson(p_tOptions, p_cObject); });
}

}    // namespace

void AddDictShow(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = p_cDict.add_subcommand("show", "Show a message, with a request of it that can be sent");
  pCommand->callback([pOptions] { Show(*pOptions); });
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml; - is standard input")->required();
  pCommand->add_option("MESSAGE", pOptions->sMessage, "Message, by number or name; without it, a list of all");
  pCommand->add_option("--config", pOptions->sConfig, "Configuration file of the call that is shown")
      ->type_name("FILE")
      ->capture_default_str();
  pCommand->add_option("--service", pOptions->sService, "Service of the call that is shown")
      ->type_name("N")
      ->check(Between(0, 9999));
  pCommand->add_flag("--json", pOptions->bJson, "As JSON");
  pCommand->footer(
      "Examples:\n"
      "  callorv dict show msg_dic.xml\n"
      "  callorv dict show msg_dic.xml Quote\n"
      "  callorv dict show --service 1201 --config client.cfg msg_dic.exml 3");
}
