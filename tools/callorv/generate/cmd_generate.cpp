// callorv generate: typed code for C++, C or Python from a dictionary.
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
#include "generate/c_writer.h"
#include "generate/class_writer.h"
#include "generate/python_writer.h"

namespace {

struct T_Options {
  std::string sDictionary;
  std::string sDir;
  std::string sLanguage = "c++";
  std::string sNamespace = "msgs";
  bool bNamespace = false;    // was given
  std::vector<int> aMsg;
  bool bJson = false;
};

// A file that holds the text already keeps its time, so that nothing is compiled again for it.
bool IsUpToDate(const std::string& p_sPath, const std::string& p_sText) {
  std::error_code cIgnored;    // what is not there is not up to date
  return std::filesystem::is_regular_file(p_sPath, cIgnored) && ReadWholeFile(p_sPath) == p_sText;
}

// Of the language that was asked for. p_cDic is filled, and borrowed.
std::unique_ptr<CCodeWriter> Writer(const T_Options& p_tOptions, CMsgDic& p_cDic) {
  const bool bPython = p_tOptions.sLanguage == "python";
  const std::string& sNamespace = p_tOptions.sNamespace;
  if (bPython && p_tOptions.bNamespace) {
    throw CUsage("--namespace: Python has none; the classes are in the package that DIR is");
  }
  if (!IsNamespace(sNamespace)) throw CUsage("--namespace: '" + sNamespace + "' is no name for a name space");
  LoadDictionary(p_cDic, p_tOptions.sDictionary);
  if (bPython) return std::make_unique<CPythonWriter>(p_cDic);
  if (p_tOptions.sLanguage == "c") return std::make_unique<CCWriter>(p_cDic, sNamespace);
  return std::make_unique<CClassWriter>(p_cDic, sNamespace);
}

// p_cList: a line for each class, for --json.
void Generate(const T_Options& p_tOptions, nlohmann::ordered_json& p_cList) {
  const auto pDic = std::make_unique<CMsgDic>();
  const auto pWriter = Writer(p_tOptions, *pDic);
  const CCodeWriter& cWriter = *pWriter;
  const std::set<int> cMsgs = cWriter.WithSubMsgs(std::set<int>(p_tOptions.aMsg.begin(), p_tOptions.aMsg.end()));
  std::error_code cError;
  std::filesystem::create_directories(p_tOptions.sDir, cError);
  if (cError) throw CFailure(p_tOptions.sDir + ": " + cError.message());
  T_WriteMode tMode;
  tMode.bDurable = false;
  size_t iWritten = 0;
  for (int iMsg : cMsgs) {
    const std::string sPath = p_tOptions.sDir + "/" + cWriter.File(iMsg);
    const std::string sText = cWriter.Text(iMsg);
    const std::vector<std::string> aLeftOut = cWriter.LeftOut(iMsg);
    const bool bWrite = !IsUpToDate(sPath, sText);
    if (bWrite) WriteFile(sPath, sText, tMode);
    iWritten += bWrite;
    for (const std::string& s : aLeftOut) Warn("message " + std::to_string(iMsg) + ": " + s);
    p_cList.push_back({{"message", iMsg},
                       {"class", cWriter.Name(iMsg)},
                       {"file", sPath},
                       {"written", bWrite},
                       {"left_out", aLeftOut}});
  }
  const std::string sBeside = p_tOptions.sDir + "/" + cWriter.BesideName();
  if (!cWriter.BesideName().empty() && !std::filesystem::exists(sBeside)) {
    WriteFile(sBeside, cWriter.BesideText(), tMode);
  }
  if (p_tOptions.bJson) return;
  std::cout << Counted(cMsgs.size(), cWriter.WhatMany()) << " in " << p_tOptions.sDir << ", "
            << Counted(iWritten, cWriter.WhatFiles()) << " changed\n";
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
  CLI::App* pCommand =
      p_cApp.add_subcommand("generate", "Write typed code for the messages of a dictionary: C++, C or Python");
  pCommand->add_option("DICTIONARY", pOptions->sDictionary, "Dictionary, plain or .exml")->required();
  pCommand->add_option("-o,--output", pOptions->sDir, "Directory for the files; it is made when it is not there")
      ->type_name("DIR")
      ->required();
  pCommand->add_option("--message", pOptions->aMsg, "Only this message and what it holds; may be given several times")
      ->type_name("N")
      ->check(Between(1, CMsgDic::SLOTS - 1))
      ->allow_extra_args(false);
  pCommand->add_option("--language", pOptions->sLanguage, "What the code is for: c++, c or python")
      ->type_name("LANGUAGE")
      ->check(OneOf({"c++", "c", "python"}))
      ->capture_default_str();
  const CLI::Option* pNamespace =
      pCommand
          ->add_option("--namespace", pOptions->sNamespace, "Name space of the classes; in C, what names begin with")
          ->type_name("NAME")
          ->capture_default_str();
  pCommand->add_flag("--json", pOptions->bJson, "List messages, classes and files as JSON");
  pCommand->footer(
      "Each message becomes one file. C++: a header with a class, members by tag name (CStr,\n"
      "CInt, CDbl, CBool and CDate may be absent; several values are a std::vector; a\n"
      "sub-message is a class of its own), for CCallOrv::CallService. C: a header with functions,\n"
      "for C99 and C++. Python: a module with a dataclass, for the module callorv. A file that\n"
      "would not change is left alone.\n"
      "\n"
      "Examples:\n"
      "  callorv generate msg_dic.xml -o generated\n"
      "  callorv generate msg_dic.exml --message 3 --message 120 --namespace shop -o generated\n"
      "  callorv generate --language c msg_dic.xml -o generated\n"
      "  callorv generate --language python msg_dic.xml -o shop_messages\n"
      "\n"
      "  #include \"generated/quote_msg.h\"\n"
      "  shop::CQuote cIn;\n"
      "  cIn.code.Set(\"ABC\");\n"
      "  shop::CQuoteReply cOut;\n"
      "  CCallOrvError cError;\n"
      "  if (CCallOrv::CallService(1201, &cIn, &cOut, &cError) == 0 && cOut.price.IsSet()) ...\n"
      "\n"
      "With CMake: find_package(callorv) and callorv_generate(TARGET msg_dic.xml).");
  pCommand->callback([pOptions, pNamespace] {
    pOptions->bNamespace = pNamespace->count() > 0;
    Generate(*pOptions);
  });
}
