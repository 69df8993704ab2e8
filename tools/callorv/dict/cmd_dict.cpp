// callorv dict: checks, shows, encrypts, decrypts and rekeys message dictionaries.
#include <callorv/base/exception.h>
#include <callorv/base/stream.h>
#include <callorv/crypt/crypt.h>
#include <callorv/dict/msg_dic.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <climits>
#include <iostream>
#include <memory>

#include "command.h"
#include "common/files.h"
#include "common/input.h"
#include "common/json_out.h"
#include "common/refusal.h"
#include "common/seal.h"
#include "common/text.h"
#include "dict/dict_check.h"
#include "dict/dict_file.h"
#include "dict/dict_html.h"
#include "dict/dict_parts.h"
#include "dict/dict_rekey.h"

namespace {

using Json = nlohmann::ordered_json;

struct T_Options {
  std::string sIn;
  std::vector<std::string> asIn;    // of check
  std::string sOut = "-";
  std::string sTitle;
  bool bStrict = false;
  bool bJson = false;
};

std::string_view View(const CStream& p_st) { return {p_st.GetData(), static_cast<size_t>(p_st.GetSize())}; }

void PrintReport(const std::string& p_sName, const T_DictReport& p_tReport) {
  for (const T_Finding& tFinding : p_tReport.atFinding) {
    std::cout << p_sName << ':' << tFinding.iLine << (tFinding.bError ? ": error: " : ": warning: ") << tFinding.sText
              << '\n';
  }
  std::cout << p_sName << ": " << Counted(p_tReport.iMessages, "message") << ", " << Counted(p_tReport.iTags, "tag")
            << ", " << Counted(p_tReport.Count(true), "error") << ", " << Counted(p_tReport.Count(false), "warning")
            << '\n';
}

void ReportAsJson(const T_DictReport& p_tReport, Json& p_cReport) {
  Json cFindings = Json::array();
  for (const T_Finding& tFinding : p_tReport.atFinding) {
    cFindings.push_back({{"line", tFinding.iLine},
                         {"severity", tFinding.bError ? "error" : "warning"},
                         {"text", tFinding.sText}});
  }
  p_cReport["messages"] = p_tReport.iMessages;
  p_cReport["tags"] = p_tReport.iTags;
  p_cReport["errors"] = p_tReport.Count(true);
  p_cReport["warnings"] = p_tReport.Count(false);
  p_cReport["findings"] = cFindings;
  if (!p_tReport.sLoader.empty()) p_cReport["library"] = PrintableFailure(p_tReport.sLoader);
}

// What stands in the file. Throws CFailure when the file as a whole is the matter.
T_DictReport Report(const CInputFile& p_cFile) {
  T_DictReport tReport;
  std::string sLibrary;
  try {
    tReport = CheckDictionary(p_cFile.Path());
    sLibrary = tReport.sLoader;
  } catch (const CException& cError) {
    sLibrary = cError.GetText();
  }
  const std::string sReason = sLibrary.empty() ? "" : DictionaryReason(p_cFile.Path());
  if (!sReason.empty() || sLibrary != tReport.sLoader) {
    throw CFailure(p_cFile.Named(Refusal(p_cFile.Name(), sReason, sLibrary)));
  }
  tReport.sLoader = p_cFile.Named(sLibrary);
  for (T_Finding& tFinding : tReport.atFinding) tFinding.sText = p_cFile.Named(tFinding.sText);
  return tReport;
}

// Throws CFailure when a file fails.
void CheckFile(const T_Options& p_tOptions, const std::string& p_sIn, Json& p_cReport) {
  const std::string sName = InputName(p_sIn);
  p_cReport["file"] = sName;
  const T_DictReport tReport = Report(CInputFile(p_sIn));
  p_tOptions.bJson ? ReportAsJson(tReport, p_cReport) : PrintReport(sName, tReport);
  const bool bRefused = !tReport.sLoader.empty();
  if (bRefused && !p_tOptions.bJson) throw CFailure(Refusal(sName, "", tReport.sLoader));
  if (bRefused || (p_tOptions.bStrict && !tReport.atFinding.empty())) throw CFailure("");    // the report says all
}

// One after the other, whatever is wrong with those before.
void CheckFiles(const T_Options& p_tOptions) {
  Json cReports = Json::array();
  std::string sSaid;
  bool bFailed = false;
  const auto fnFail = [&](Json& p_cReport, const std::string& p_sText) {
    bFailed = true;
    if (p_sText.empty()) return;
    p_cReport["error"] = JsonError(p_sText);
    sSaid += (sSaid.empty() ? "" : "\ncallorv: ") + p_sText;
  };
  for (const std::string& sIn : p_tOptions.asIn) {
    Json cReport = Json::object();
    try {
      CheckFile(p_tOptions, sIn, cReport);
    } catch (const CException& cError) {
      fnFail(cReport, cError.GetText());
    } catch (const CFailure& cError) {
      fnFail(cReport, cError.what());
    }
    cReports.push_back(std::move(cReport));
  }
  if (p_tOptions.bJson) PrintJson({{"files", std::move(cReports)}});
  if (bFailed) throw CFailure(sSaid);
}

void Check(const T_Options& p_tOptions) {
  const std::vector<std::string>& asIn = p_tOptions.asIn;
  if (std::count(asIn.begin(), asIn.end(), "-") > 1) throw CUsage("FILE - is standard input, which is there once");
  if (asIn.size() > 1) return CheckFiles(p_tOptions);
  const auto fnCheck = [&](Json& p_cReport) { CheckFile(p_tOptions, asIn[0], p_cReport); };
  Json cUnused;
  p_tOptions.bJson ? PrintObject(fnCheck) : fnCheck(cUnused);
}

void Dump(const T_Options& p_tOptions) {
  if (p_tOptions.bJson) {
    return PrintObject([&](Json& p_cObject) {
      const auto pDic = LoadInput(p_tOptions.sIn);
      Json& cMessages = p_cObject["messages"] = Json::array();
      for (const CMsgInfo* pInfo : Messages(*pDic)) cMessages.push_back(MessageToJson(*pInfo));
    });
  }
  CStream stOut(0, 512);
  LoadInput(p_tOptions.sIn)->Dump(&stOut);
  std::cout << Printable(View(stOut), true);
}

// What somebody who encrypts a dictionary would not have meant; "" when it is one.
std::string WhyNoDictionary(const std::string& p_sName, const std::string& p_sBytes) {
  if (IsSealedXml(p_sBytes)) return p_sName + ": encrypted already; now it is so twice, and no library reads it";
  if (!BeginsLikeXml(p_sBytes)) {
    const bool bSealed = !p_sBytes.empty() && p_sBytes.size() % CCrypt::CIPHER_BLOCK == 0 && HasNoise(p_sBytes);
    const char* szWhat = bSealed ? "encrypted already, under another SEED key?" : "it is encrypted all the same";
    return p_sName + ": no dictionary; " + szWhat;
  }
  try {
    const T_DictReport tReport = Report(CInputFile(p_sName, p_sBytes));
    if (tReport.sLoader.empty()) return "";
    return Refusal(p_sName, "", tReport.sLoader) + "; callorv dict check says everything";
  } catch (const CFailure& cError) {
    return cError.what();
  }
}

void Encrypt(const T_Options& p_tOptions) {
  if (!CString(p_tOptions.sOut.c_str()).EndsWith(".exml")) {
    throw CUsage(p_tOptions.sOut + ": the name must end in .exml, or the library takes the file for plain XML");
  }
  const std::string sPlain = ReadWholeFile(p_tOptions.sIn);
  if (sPlain.size() > INT_MAX) throw CFailure(InputName(p_tOptions.sIn) + ": longer than 2147483615 bytes");
  WriteFile(p_tOptions.sOut, Seal(sPlain));
  const std::string sWhy = WhyNoDictionary(InputName(p_tOptions.sIn), sPlain);
  if (!sWhy.empty()) Warn(sWhy);
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
  const std::string sName = InputName(p_tOptions.sIn.substr(p_tOptions.sIn.rfind('/') + 1));
  const std::string& sTitle = p_tOptions.sTitle.empty() ? sName : p_tOptions.sTitle;
  WriteFile(p_tOptions.sOut, DictionaryPage(*LoadInput(p_tOptions.sIn), sTitle));
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
  pCommand->add_option("FILE", pOptions->asIn, "Dictionaries, plain or .exml; - is standard input")->required();
  pCommand->add_flag("--strict", pOptions->bStrict, "Fail for warnings, too");
  pCommand->add_flag("--json", pOptions->bJson, "Report as JSON");
  pCommand->footer(
      "An error is what the library refuses to load; a warning is what it loads, but perhaps not\n"
      "as it was meant. Exit status 0 when the library loads every file, else 1.\n"
      "\n"
      "Examples:\n"
      "  callorv dict check msg_dic.xml msg_dic.exml\n"
      "  callorv dict check --strict --json msg_dic.exml");
}

void AddDump(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_Options>();
  CLI::App* pCommand = AddCommand(p_cDict, "dump", "Show what the library makes of a dictionary", Dump, pOptions);
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml; - is standard input")->required();
  pCommand->add_flag("--json", pOptions->bJson, "As JSON");
  pCommand->footer(
      "Examples:\n"
      "  callorv dict dump msg_dic.exml\n"
      "  callorv dict dump --json msg_dic.xml | jq '.messages[] | select(.number == 120)'");
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
  pCommand->add_option("FILE", pOptions->sIn, "Dictionary, plain or .exml; - is standard input")->required();
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
  CLI::App* pDict = p_cApp.add_subcommand("dict", "Check, show, encrypt, decrypt and rekey message dictionaries");
  pDict->require_subcommand(1);
  pDict->footer(
      "Examples:\n"
      "  callorv dict check msg_dic.xml\n"
      "  callorv dict show msg_dic.xml Quote\n"
      "  callorv dict encrypt msg_dic.xml msg_dic.exml\n"
      "  callorv dict html msg_dic.xml -o msg_dic.html");
  AddCheck(*pDict);
  AddDictShow(*pDict);
  AddDictDiff(*pDict);
  AddDictSchema(*pDict);
  AddDump(*pDict);
  AddEncrypt(*pDict);
  AddDecrypt(*pDict);
  AddDictRekey(*pDict);
  AddHtml(*pDict);
}
