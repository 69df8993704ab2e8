// callorv dict diff: what changed, and whether programs go on working.
#include <callorv/base/exception.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "command.h"
#include "common/input.h"
#include "common/json_out.h"
#include "common/text.h"
#include "dict/dict_changes.h"
#include "dict/dict_file.h"
#include "dict/dict_parts.h"

namespace {

using Json = nlohmann::ordered_json;

enum { UNREADABLE = 2 };    // exit status

struct T_Options {
  std::string sOld;
  std::string sNew;
  bool bJson = false;
};

std::unique_ptr<CMsgDic> Load(const std::string& p_sPath) {
  try {
    return LoadInput(p_sPath);
  } catch (const CFailure& cError) {
    throw CFailure(cError.what(), UNREADABLE);
  } catch (const CException& cError) {
    throw CFailure(InputName(p_sPath) + ": " + cError.GetText(), UNREADABLE);
  }
}

std::string Place(const T_Change& p_t) {
  std::string sPlace = "message " + std::to_string(p_t.iMsg) + " '" + p_t.sMsg + "'";
  if (p_t.iTag >= 0) sPlace += ", tag " + std::to_string(p_t.iTag) + " '" + p_t.sTag + "'";
  return sPlace;
}

std::string What(const T_Change& p_t) {
  if (p_t.sKind == "message added") return "added";
  if (p_t.sKind == "tag added") return "added, " + p_t.sNew;
  if (p_t.sKind == "tag removed" || p_t.sKind == "message removed") return "removed";
  if (p_t.sKind == "order") return "the order of its tags changed";
  if (p_t.sKind == "tag name" || p_t.sKind == "message name") return "its name finds " + p_t.sNew + " now";
  if (p_t.sKind == "times") return "defined " + p_t.sNew + " times, not " + p_t.sOld;
  const std::string sWhat = p_t.sKind.substr(p_t.sKind.find(' ') + 1);    // of "tag renamed" the last word
  return sWhat + " from '" + p_t.sOld + "' to '" + p_t.sNew + "'";
}

// Whom it breaks.
std::string Verdict(const T_Change& p_t) {
  if (!p_t.Breaks()) return "compatible";
  const std::string sBoth = p_t.bByNumber && p_t.bByName ? " and" : "";
  return "BREAKS access" + std::string(p_t.bByNumber ? " by number" : "") + sBoth + (p_t.bByName ? " by name" : "");
}

Json AsJson(const T_Change& p_t) {
  Json c = {{"change", p_t.sKind}, {"message", p_t.iMsg}, {"name", ToUtf8(p_t.sMsg)}};
  if (p_t.iTag >= 0) {
    c["tag"] = p_t.iTag;
    c["tag_name"] = ToUtf8(p_t.sTag);
  }
  if (!p_t.sOld.empty() || !p_t.sNew.empty()) {
    c["old"] = ToUtf8(p_t.sOld);
    c["new"] = ToUtf8(p_t.sNew);
  }
  c["compatible"] = !p_t.Breaks();
  c["breaks"] = Json::array();
  if (p_t.bByNumber) c["breaks"].push_back("number");
  if (p_t.bByName) c["breaks"].push_back("name");
  c["why"] = ToUtf8(p_t.sWhy);
  return c;
}

// p_cObject: for --json.
void Diff(const T_Options& p_tOptions, Json& p_cObject) {
  p_cObject["old"] = InputName(p_tOptions.sOld);
  p_cObject["new"] = InputName(p_tOptions.sNew);
  const auto pOld = Load(p_tOptions.sOld), pNew = Load(p_tOptions.sNew);
  const std::vector<T_Change> atChange = Changes(*pOld, *pNew);
  const bool bBreaks = std::any_of(atChange.begin(), atChange.end(), [](const T_Change& p_t) { return p_t.Breaks(); });
  p_cObject["compatible"] = !bBreaks;
  p_cObject["changes"] = Json::array();
  for (const T_Change& t : atChange) {
    if (p_tOptions.bJson) {
      p_cObject["changes"].push_back(AsJson(t));
    } else {
      std::cout << Printable(Place(t) + ": " + What(t) + ": " + Verdict(t) + ": " + t.sWhy, false) << '\n';
    }
  }
  if (!p_tOptions.bJson) {
    const std::string sOld = InputName(p_tOptions.sOld);
    std::cout << Counted(atChange.size(), "change") << " from " << sOld << " to " << InputName(p_tOptions.sNew) << "; "
              << (bBreaks ? "not all" : "all") << " programs that were built for " << sOld << " go on working\n";
  }
  if (bBreaks) throw CFailure("");    // all is said
}

void Diff(const T_Options& p_tOptions) {
  if (p_tOptions.sOld == "-" && p_tOptions.sNew == "-") {
    throw CUsage("OLD and NEW are both standard input, which is there once");
  }
  const auto fnDiff = [&](Json& p_cObject) { Diff(p_tOptions, p_cObject); };
  Json cUnused;
  p_tOptions.bJson ? PrintObject(fnDiff) : fnDiff(cUnused);
}

}    // namespace

void AddDictDiff(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = p_cDict.add_subcommand("diff", "Say what changed, and whether programs go on working");
  pCommand->callback([pOptions] { Diff(*pOptions); });
  pCommand->add_option("OLD", pOptions->sOld, "Dictionary as it was, plain or .exml; - is standard input")->required();
  pCommand->add_option("NEW", pOptions->sNew, "Dictionary as it is now")->required();
  pCommand->add_flag("--json", pOptions->bJson, "As JSON");
  pCommand->footer(
      "Programs are those that were built for OLD and load NEW. Exit status 0 when all of them go\n"
      "on working, 1 when some do not, 2 when a file cannot be read.\n"
      "\n"
      "Examples:\n"
      "  callorv dict diff old/msg_dic.xml msg_dic.xml\n"
      "  git show HEAD~1:msg_dic.xml | callorv dict diff - msg_dic.xml");
}
