// callorv dict schema: JSON Schema of what callorv call --data takes and --json prints.
#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>
#include <memory>

#include "common/input.h"
#include "common/json_out.h"
#include "common/msg_json.h"
#include "common/tags.h"
#include "common/text.h"
#include "dict/dict_file.h"
#include "dict/dict_parts.h"

namespace {

using Json = nlohmann::ordered_json;

// What common/msg_value.cpp lets through: of texts and of versions the characters, and what looks like a date.
constexpr char s_szText[] = "^(?![\\s\\S]*\\]\\]>)[\\t\\n -\u00ff]*$";
constexpr char s_szVersion[] = "^[ !#-%(-;=-\u00ff]{0,16}$";
constexpr char s_szDate[] = "^[-0-9/.: ]{0,8}$";

struct T_Options {
  std::string sIn;
  std::string sMessage;
};

std::string Key(int p_iMsg) { return "m" + std::to_string(p_iMsg); }
Json Reference(const std::string& p_sKey) { return {{"$ref", "#/$defs/" + p_sKey}}; }

// A name as a step of a JSON pointer in a URI.
std::string Step(const std::string& p_sName) {
  std::string sStep;
  for (const char c : p_sName) {
    const bool bPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    char szHex[4];
    snprintf(szHex, sizeof szHex, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    bPlain ? sStep += c : c == '~' ? sStep += "~0" : c == '/' ? sStep += "~1" : sStep += szHex;
  }
  return sStep;
}

Json OrNull(Json p_cSchema) { return {{"anyOf", {std::move(p_cSchema), {{"type", "null"}}}}}; }

class CSchema {
 public:
  explicit CSchema(const CMsgDic& p_cDic) : m_cDic(p_cDic), m_cByName(NumbersByName(p_cDic)) {}

  Json Values(const CMsgInfo& p_cInfo) const {
    Json cProperties = Json::object();
    for (const CTagInfo* pTag : FirstTags(p_cInfo)) {
      const std::string sName = JsonName(p_cInfo, *pTag), sNumber = std::to_string(pTag->m_iTagNum);
      cProperties[sName] = pTag->m_bArray ? Array(*pTag) : OneOrNull(*pTag);
      if (sName != sNumber) cProperties[sNumber] = Reference(Key(p_cInfo.GetMsgNum()) + "/properties/" + Step(sName));
    }
    return {{"title", ToUtf8(p_cInfo.GetMsgName().ToStr())},
            {"type", "object"},
            {"properties", cProperties},
            {"additionalProperties", false}};
  }

  // The object with message, name, version and values.
  Json Whole(const CMsgInfo& p_cInfo) const {
    Json cWhole = {{"type", "object"}, {"required", {"message", "values"}}};
    cWhole["properties"] = {{"message", {{"enum", Numbers(p_cInfo)}}},
                            {"name", {{"enum", {ToUtf8(p_cInfo.GetMsgName().ToStr()), nullptr}}}},
                            {"version", {{"type", {"string", "null"}}, {"pattern", s_szVersion}}},
                            {"values", OrNull(Reference(Key(p_cInfo.GetMsgNum())))}};
    cWhole["additionalProperties"] = false;
    return cWhole;
  }

  // What names the message.
  Json Numbers(const CMsgInfo& p_cInfo) const {
    const int iMsg = p_cInfo.GetMsgNum();
    const std::string sName = p_cInfo.GetMsgName().ToStr();
    Json cNumbers = {iMsg, std::to_string(iMsg)};
    int iUnused = 0;
    const bool bNumber = ParseNumber(sName, 0, INT_MAX, iUnused);
    if (!bNumber && !sName.empty() && m_cByName.at(sName) == iMsg) cNumbers.push_back(ToUtf8(sName));
    return cNumbers;
  }

 private:
  const CMsgDic& m_cDic;
  const std::map<std::string, int> m_cByName;

  Json One(const CTagInfo& p_tTag) const {
    switch (p_tTag.m_eType) {
      case TAG_STRING: return {{"type", "string"}, {"pattern", s_szText}};
      case TAG_INTEGER: return {{"type", "integer"}, {"minimum", INT_MIN}, {"maximum", INT_MAX}};
      case TAG_DOUBLE: return {{"type", "number"}};
      case TAG_BOOL: return {{"type", "boolean"}};
      case TAG_DATE: return {{"type", "string"}, {"pattern", s_szDate}};
      default: return m_cDic.GetMsgInfo(p_tTag.m_iSubMsg) == nullptr ? Json(false) : Reference(Key(p_tTag.m_iSubMsg));
    }
  }

  Json OneOrNull(const CTagInfo& p_tTag) const {
    Json cOne = One(p_tTag);
    if (!cOne.contains("type")) return cOne.is_boolean() ? Json{{"type", "null"}} : OrNull(cOne);
    cOne["type"] = {cOne["type"], "null"};
    return cOne;
  }

  Json Array(const CTagInfo& p_tTag) const {
    Json cElement = One(p_tTag);
    if (cElement.contains("pattern")) cElement["minLength"] = 1;
    return {{"type", {"array", "null"}}, {"items", std::move(cElement)}};
  }
};

Json Schema(const T_Options& p_tOptions) {
  const auto pDic = LoadInput(p_tOptions.sIn);
  const CSchema cSchema(*pDic);
  Json cRoot = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                {"$comment", "Made by callorv dict schema from a message dictionary: changes are lost."}};
  std::vector<const CMsgInfo*> apInfo;
  if (p_tOptions.sMessage.empty()) {
    apInfo = Messages(*pDic);
    Json cKnown = Json::array(), cRules = Json::array();
    for (const CMsgInfo* pInfo : apInfo) {
      const Json cNumbers = cSchema.Numbers(*pInfo);
      cKnown.insert(cKnown.end(), cNumbers.begin(), cNumbers.end());
      const Json cIs = {{"properties", {{"message", {{"enum", cNumbers}}}}}};
      cRules.push_back({{"if", cIs}, {"then", cSchema.Whole(*pInfo)}});
    }
    cRoot["title"] = InputName(p_tOptions.sIn);
    cRoot["type"] = "object";
    cRoot["required"] = {"message", "values"};
    cRoot["properties"] = {{"message", {{"enum", std::move(cKnown)}}}};
    if (!cRules.empty()) cRoot["allOf"] = std::move(cRules);
  } else {
    const CMsgInfo& cInfo = NamedMessage(*pDic, p_tOptions.sMessage, p_tOptions.sIn);
    apInfo = MessagesIn(*pDic, cInfo);
    apInfo.insert(apInfo.begin(), &cInfo);
    cRoot["title"] = ToUtf8(cInfo.GetMsgName().ToStr());
    cRoot["if"] = {{"required", {"message", "values"}}};
    cRoot["then"] = cSchema.Whole(cInfo);
    cRoot["else"] = Reference(Key(cInfo.GetMsgNum()));
  }
  // As a vector, which it is: each other way in looks through all members first.
  Json::object_t cDefs;
  for (const CMsgInfo* pInfo : apInfo) {
    cDefs.Json::object_t::Container::emplace_back(Key(pInfo->GetMsgNum()), cSchema.Values(*pInfo));
  }
  cRoot["$defs"] = std::move(cDefs);
  return cRoot;
}

}    // namespace

void AddDictSchema(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = p_cDict.add_subcommand("schema", "Print a JSON Schema of the messages' JSON");
  pCommand->callback([pOptions] { PrintJson(Schema(*pOptions)); });
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml; - is standard input")->required();
  pCommand->add_option("MESSAGE", pOptions->sMessage, "Only this message, by number or name, and what it holds");
  pCommand->footer(
      "Examples:\n"
      "  callorv dict schema msg_dic.xml >messages.schema.json\n"
      "  callorv dict schema msg_dic.xml Quote >quote.schema.json");
}
