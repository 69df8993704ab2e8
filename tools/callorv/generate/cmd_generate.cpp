// callorv generate: typed C++ classes from a dictionary.
#include <callorv/dict/msg_dic.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>

#include "command.h"
#include "common/files.h"
#include "common/input.h"
#include "common/json_out.h"
#include "common/options.h"
#include "common/refusal.h"
#include "common/text.h"
#include "generate/class_writer.h"

namespace {

struct T_Options {
  std::string sDictionary;
  std::string sDir;
  std::string sNamespace = "msgs";
  std::vector<int> aMsg;
  bool bJson = false;
};

// A file that holds the text already keeps its time, so that nothing is compiled again for it.
bool IsUpToDate(const std::string& p_sPath, const std::string& p_sText) {
  std::error_code cIgnored;    // what is not there is not up to date
  return std::filesystem::is_regular_file(p_sPath, cIgnored) && ReadWholeFile(p_sPath) == p_sText;
}

// p_cList: a line for each class, for --json.
void Generate(const T_Options& p_tOptions, nlohmann::ordered_json& p_cList) {
  if (!IsNamespace(p_tOptions.sNamespace)) {
    throw CUsage("--namespace: '" + p_tOptions.sNamespace + "' is no name for a name space");
  }
  const auto pDic = std::make_unique<CMsgDic>();
  LoadDictionary(*pDic, p_tOptions.sDictionary);
  const CClassWriter cWriter(*pDic, p_tOptions.sNamespace);
  const std::set<int> cMsgs = cWriter.WithSubMsgs(std::set<int>(p_tOptions.aMsg.begin(), p_tOptions.aMsg.end()));
  std::error_code cError;
  std::filesystem::create_directories(p_tOptions.sDir, cError);
  if (cError) throw CFailure(p_tOptions.sDir + ": " + cError.message());
  T_WriteMode tMode;
  tMode.bDurable = false;
  size_t iWritten = 0;
  for (int iMsg : cMsgs) {
    const T_ClassName& tName = cWriter.Name(iMsg);
    const std::string sPath = p_tOptions.sDir + "/" + tName.sHeader;
    const std::string sText = cWriter.Header(iMsg);
    const std::vector<std::string> aLeftOut = cWriter.LeftOut(iMsg);
    const bool bWrite = !IsUpToDate(sPath, sText);
    if (bWrite) WriteFile(sPath, sText, tMode);
    iWritten += bWrite;
    for (const std::string& s : aLeftOut) Warn("message " + std::to_string(iMsg) + ": " + s);
    p_cList.push_back({{"message", iMsg},
                       {"class", p_tOptions.sNamespace + "::" + tName.sClass},
                       {"file", sPath},
                       {"written", bWrite},
                       {"left_out", aLeftOut}});
  }
  if (p_tOptions.bJson) return;
  std::cout << Counted(cMsgs.size(), "class") << " in " << p_tOptions.sDir << ", " << Counted(iWritten, "header")
            << " changed\n";
}

void Generate(const T_Options& p_tOptions) {
  nlohmann::ordered_json cUnused;
  if (!p_tOptions.bJson) return Generate(p_tOptions, cUnused);
  PrintObject([&](nlohmann::ordered_json& p_cObject) {
    Generate(p_tOptions, p_cObject["classes"] = nlohmann::ordered_json::array());
  });
}

}    // namespace

void AddGenerate(CLI::App& p_cApp) {
  auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = p_cApp.add_subcommand("generate", "Write typed C++ classes for the messages of a dictionary");
  pCommand->add_option("DICTIONARY", pOptions->sDictionary, "Dictionary, plain or .exml")->required();
  pCommand->add_option("-o,--output", pOptions->sDir, "Directory for the headers; it is made when it is not there")
      ->type_name("DIR")
      ->required();
  pCommand->add_option("--message", pOptions->aMsg, "Only this message and what it holds; may be given several times")
      ->type_name("N")
      ->check(Between(1, CMsgDic::SLOTS - 1))
      ->allow_extra_args(false);
  pCommand->add_option("--namespace", pOptions->sNamespace, "Name space of the classes")
      ->type_name("NAME")
      ->capture_default_str();
  pCommand->add_flag("--json", pOptions->bJson, "List messages, classes and files as JSON");
  pCommand->footer(
      "Each message becomes one header with one class: members by tag name (CStr, CInt, CDbl,\n"
      "CBool and CDate may be absent; several values are a std::vector; a sub-message is a\n"
      "class of its own), for use with CCallOrv::CallService. A header that would not change\n"
      "is left alone.\n"
      "\n"
      "Examples:\n"
      "  callorv generate msg_dic.xml -o generated\n"
      "  callorv generate msg_dic.exml --message 3 --message 120 --namespace shop -o generated\n"
      "\n"
      "  #include \"generated/quote_msg.h\"\n"
      "  shop::CQuote cIn;\n"
      "  cIn.code.Set(\"ABC\");\n"
      "  shop::CQuoteReply cOut;\n"
      "  CCallOrvError cError;\n"
      "  if (CCallOrv::CallService(1201, &cIn, &cOut, &cError) == 0 && cOut.price.IsSet()) ...\n"
      "\n"
      "With CMake: find_package(callorv) and callorv_generate(TARGET msg_dic.xml).");
  pCommand->callback([pOptions] { Generate(*pOptions); });
}
