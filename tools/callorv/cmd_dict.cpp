// callorv dict: checks, shows, encrypts and decrypts message dictionaries.
#include <callorv/base/exception.h>
#include <callorv/base/stream.h>
#include <callorv/crypt/crypt.h>
#include <callorv/msg/msg_dic.h>

#include <CLI/CLI.hpp>
#include <climits>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "command.h"
#include "dict_check.h"
#include "dict_html.h"
#include "files.h"
#include "input.h"
#include "refusal.h"
#include "seal.h"
#include "text.h"

namespace {

using Json = nlohmann::ordered_json;

struct T_Options {
  std::string sIn;
  std::string sOut = "-";
  std::string sTitle;
  bool bStrict = false;
  bool bJson = false;
};

std::string_view View(const CStream& p_st) { return {p_st.GetData(), static_cast<size_t>(p_st.GetSize())}; }

std::string Dump(const Json& p_cJson) {
  return p_cJson.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::unique_ptr<CMsgDic> Load(const std::string& p_sPath) {
  auto pDic = std::make_unique<CMsgDic>();
  LoadDictionary(*pDic, p_sPath);
  return pDic;
}

void PrintReport(const T_Options& p_tOptions, const T_DictReport& p_tReport) {
  for (const T_Finding& tFinding : p_tReport.atFinding) {
    std::cout << p_tOptions.sIn << ':' << tFinding.iLine << (tFinding.bError ? ": error: " : ": warning: ")
              << tFinding.sText << '\n';
  }
  std::cout << p_tOptions.sIn << ": " << Counted(p_tReport.iMessages, "message") << ", "
            << Counted(p_tReport.iTags, "tag") << ", " << Counted(p_tReport.Count(true), "error") << ", "
            << Counted(p_tReport.Count(false), "warning") << '\n';
}

void PrintReportAsJson(const T_Options& p_tOptions, const T_DictReport& p_tReport) {
  Json cFindings = Json::array();
  for (const T_Finding& tFinding : p_tReport.atFinding) {
    cFindings.push_back({{"line", tFinding.iLine},
                         {"severity", tFinding.bError ? "error" : "warning"},
                         {"text", tFinding.sText}});
  }
  Json cReport = {{"file", p_tOptions.sIn},         {"messages", p_tReport.iMessages},
                            {"tags", p_tReport.iTags},        {"errors", p_tReport.Count(true)},
                            {"warnings", p_tReport.Count(false)}, {"findings", cFindings}};
  if (!p_tReport.sLoader.empty()) cReport["library"] = PrintableFailure(p_tReport.sLoader);
  std::cout << Dump(cReport);
}

// What stands in the file. Throws CFailure when the file as a whole is the matter.
T_DictReport Report(const std::string& p_sPath) {
  T_DictReport tReport;
  std::string sLibrary;
  try {
    tReport = CheckDictionary(p_sPath);
    sLibrary = tReport.sLoader;
  } catch (const CException& cError) {
    sLibrary = cError.GetText();
  }
  const std::string sReason = sLibrary.empty() ? "" : DictionaryReason(p_sPath);
  if (!sReason.empty() || sLibrary != tReport.sLoader) throw CFailure(Refusal(p_sPath, sReason, sLibrary));
  return tReport;
}

void Check(const T_Options& p_tOptions) {
  const T_DictReport tReport = Report(p_tOptions.sIn);
  p_tOptions.bJson ? PrintReportAsJson(p_tOptions, tReport) : PrintReport(p_tOptions, tReport);
  if (!tReport.sLoader.empty()) throw CFailure(p_tOptions.bJson ? "" : Refusal(p_tOptions.sIn, "", tReport.sLoader));
  if (p_tOptions.bStrict && !tReport.atFinding.empty()) throw CFailure("");
}

Json MessageAsJson(const CMsgInfo& p_cInfo) {
  Json cTags = Json::array();
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const CTagInfo& tTag = *p_cInfo.GetTagInfo(p_cInfo.GetTagNumAt(i));
    Json cTag = {{"number", tTag.m_iTagNum},
                           {"name", ToUtf8(tTag.m_sName.ToStr())},
                           {"type", CTagInfo::ReprType(tTag.m_eType).ToStr()},
                           {"array", tTag.m_bArray}};
    if (tTag.m_eType == TAG_SUBMSG) cTag["submessage"] = tTag.m_iSubMsg;
    cTags.push_back(cTag);
  }
  return {{"number", p_cInfo.GetMsgNum()},
          {"name", ToUtf8(p_cInfo.GetMsgName().ToStr())},
          {"version", ToUtf8(p_cInfo.GetVersion().ToStr())},
          {"hash", p_cInfo.GetHashKey()},
          {"tags", cTags}};
}

void Show(const T_Options& p_tOptions) {
  const auto pDic = Load(p_tOptions.sIn);
  Json cMessages = Json::array();
  if (p_tOptions.bJson) {
    for (int iMsg = 1; iMsg < CMsgDic::SLOTS; ++iMsg) {
      if (const CMsgInfo* pInfo = pDic->GetMsgInfo(iMsg)) cMessages.push_back(MessageAsJson(*pInfo));
    }
    std::cout << Dump(cMessages);
    return;
  }
  CStream stOut(0, 512);
  pDic->Dump(&stOut);
  std::cout << Printable(View(stOut), true);
}

void Encrypt(const T_Options& p_tOptions) {
  if (!CString(p_tOptions.sOut.c_str()).EndsWith(".exml")) {
    throw CUsage(p_tOptions.sOut + ": the name must end in .exml, or the library takes the file for plain XML");
  }
  const std::string sPlain = ReadWholeFile(p_tOptions.sIn);
  CStream stPlain(0, 512), stSecret(0, 512);
  CString sError;
  if (sPlain.size() > INT_MAX || stPlain.AppendData(sPlain.data(), static_cast<int>(sPlain.size())) < 0) {
    throw CFailure(InputName(p_tOptions.sIn) + ": too long");
  }
  if (CCrypt::EncryptStream(stPlain, stSecret, sError) < 0) throw CFailure(sError.ToStr());
  WriteFile(p_tOptions.sOut, View(stSecret));
}

void Decrypt(const T_Options& p_tOptions) {
  CStream stPlain(0, 512);
  CString sError;
  if (CCrypt::DecryptFileToStream(p_tOptions.sIn.c_str(), stPlain, sError) < 0) {
    throw CFailure(Refusal(p_tOptions.sIn, SealedReason(p_tOptions.sIn), sError.ToStr()));
  }
  const std::string sSecret = ReadWholeFile(p_tOptions.sIn);
  const T_Unsealed tPlain = sSecret.empty() ? T_Unsealed() : Unseal(sSecret);
  if (IsForeign(tPlain)) throw CFailure(p_tOptions.sIn + ": " + SealedReason(p_tOptions.sIn));
  WriteFile(p_tOptions.sOut, View(stPlain));
  const bool bDamaged = BeginsLikeXml(tPlain.sPlain) && HasNoise(tPlain.sPlain);
  if (bDamaged) Warn(p_tOptions.sIn + ": " + SealedReason(p_tOptions.sIn));
}

void Html(const T_Options& p_tOptions) {
  const std::string sName = p_tOptions.sIn.substr(p_tOptions.sIn.rfind('/') + 1);
  const std::string& sTitle = p_tOptions.sTitle.empty() ? sName : p_tOptions.sTitle;
  WriteFile(p_tOptions.sOut, DictionaryPage(*Load(p_tOptions.sIn), sTitle));
}

using T_OptionsPtr = std::shared_ptr<T_Options>;

CLI::App* AddCommand(CLI::App& p_cDict, const char* p_szName, const char* p_szWhat, void (*p_fnRun)(const T_Options&),
                     const T_OptionsPtr& p_pOptions) {
  CLI::App* pCommand = p_cDict.add_subcommand(p_szName, p_szWhat);
  pCommand->callback([p_fnRun, p_pOptions] { p_fnRun(*p_pOptions); });
  return pCommand;
}

void AddCheck(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "check", "Say everything that is wrong or suspicious", Check, pOptions);
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml")->required();
  pCommand->add_flag("--strict", pOptions->bStrict, "Fail for warnings, too");
  pCommand->add_flag("--json", pOptions->bJson, "Report as JSON");
  pCommand->footer(
      "An error is what the library refuses to load; a warning is what it loads, but perhaps not\n"
      "as it was meant. Exit status 0 when the library loads the file, else 1.\n"
      "\n"
      "Examples:\n"
      "  callorv dict check msg_dic.xml\n"
      "  callorv dict check --strict --json msg_dic.exml");
}

void AddDump(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "dump", "Show what the library makes of a dictionary", Show, pOptions);
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml")->required();
  pCommand->add_flag("--json", pOptions->bJson, "As JSON");
  pCommand->footer(
      "Examples:\n"
      "  callorv dict dump msg_dic.exml\n"
      "  callorv dict dump --json msg_dic.xml | jq '.[] | select(.number == 120)'");
}

void AddEncrypt(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "encrypt", "Encrypt a dictionary", Encrypt, pOptions);
  pCommand->add_option("IN", pOptions->sIn, "File to encrypt; - is standard input")->required();
  pCommand->add_option("OUT", pOptions->sOut, "Encrypted file, whose name ends in .exml")->required();
  pCommand->footer(
      "It fits libraries that were built with the same SEED key as this command.\n"
      "\n"
      "Example:\n"
      "  callorv dict encrypt msg_dic.xml msg_dic.exml");
}

void AddDecrypt(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "decrypt", "Decrypt a dictionary", Decrypt, pOptions);
  pCommand->add_option("IN", pOptions->sIn, "Encrypted file")->required();
  pCommand->add_option("OUT", pOptions->sOut, "Decrypted file; without it, standard output");
  pCommand->footer(
      "Examples:\n"
      "  callorv dict decrypt msg_dic.exml msg_dic.xml\n"
      "  callorv dict decrypt msg_dic.exml | grep Quote");
}

void AddHtml(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "html", "Write a page on which to find messages and tags", Html, pOptions);
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml")->required();
  pCommand->add_option("-o,--output", pOptions->sOut, "The page; - is standard output")->type_name("OUT")->required();
  pCommand->add_option("--title", pOptions->sTitle, "Title of the page; without it, the dictionary's file name")
      ->type_name("TEXT");
  pCommand->footer(
      "The page is one file that needs no other and no network.\n"
      "\n"
      "Example:\n"
      "  callorv dict html msg_dic.xml -o msg_dic.html");
}

}    // namespace

void AddDict(CLI::App& p_cApp) {
  CLI::App* pDict = p_cApp.add_subcommand("dict", "Check, show, encrypt and decrypt message dictionaries");
  pDict->require_subcommand(1);
  pDict->footer(
      "Examples:\n"
      "  callorv dict check msg_dic.xml\n"
      "  callorv dict encrypt msg_dic.xml msg_dic.exml\n"
      "  callorv dict html msg_dic.xml -o msg_dic.html");
  AddCheck(*pDict);
  AddDump(*pDict);
  AddEncrypt(*pDict);
  AddDecrypt(*pDict);
  AddHtml(*pDict);
}
