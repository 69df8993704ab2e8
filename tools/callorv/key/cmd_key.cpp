// callorv key: makes, checks and rekeys user-key files.
#include <callorv/client/callorv_client.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "command.h"
#include "common/files.h"
#include "common/json_out.h"
#include "common/refusal.h"
#include "common/seal.h"
#include "common/text.h"
#include "key/key_maker.h"
#include "key/key_rekey.h"

namespace {

struct T_MakeOptions {
  std::string sKey;
  std::string sFile;
  bool bForce = false;
};

struct T_CheckOptions {
  std::string sFile;
  bool bShow = false;
  bool bJson = false;
};

std::string TooLongForPacket(size_t p_iSize) {
  return "the key has " + std::to_string(p_iSize) + " characters, of which a packet carries " +
         std::to_string(KEY_PACKET_MAX);
}

bool HasControls(const std::string& p_sKey) {
  return std::any_of(p_sKey.begin(), p_sKey.end(), [](char c) { return (c & 0x7f) < ' ' || c == 0x7f; });
}

// "-" keeps the key out of the list of processes and of the shell's history.
std::string TheKey(const std::string& p_sOption) {
  if (p_sOption != "-") return ToLatin1(p_sOption);
  std::string sLine;
  if (!std::getline(std::cin, sLine)) throw CFailure("no key on standard input");
  return ToLatin1(sLine);
}

void Make(const T_MakeOptions& p_tOptions) {
  const std::string sKey = TheKey(p_tOptions.sKey);
  if (sKey.empty()) throw CUsage("--user-key: the key is empty");
  if (HasControls(sKey)) throw CUsage("--user-key: the key has control characters");
  if (sKey.size() > KEY_MAX) {
    throw CUsage("--user-key: the key has " + std::to_string(sKey.size()) + " characters, more than " +
                 std::to_string(KEY_MAX));
  }
  const T_KeyFile tFile = MakeKeyFile(Seal(sKey));
  T_WriteMode tMode;
  tMode.iPermissions = 0600;
  tMode.bReplace = p_tOptions.bForce;
  WriteFile(p_tOptions.sFile, View(tFile), tMode);
  if (sKey.size() > KEY_PACKET_MAX) Warn(TooLongForPacket(sKey.size()));
}

// What is suspicious about a file from which a key can be taken.
std::vector<std::string> Warnings(const std::string& p_sPath, int p_iFileSize, const std::string& p_sKey) {
  std::vector<std::string> asWarning;
  struct stat tStat;
  if (stat(p_sPath.c_str(), &tStat) == 0 && (tStat.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    asWarning.push_back("others than the owner may access the file: chmod 600");
  }
  if (p_iFileSize > CCrypt::KEY_FILE_SIZE) {
    const auto iMore = static_cast<size_t>(p_iFileSize - CCrypt::KEY_FILE_SIZE);
    asWarning.push_back(Counted(iMore, "byte") + " behind the key " + (iMore == 1 ? "is" : "are") + " ignored");
  }
  if (p_sKey.size() > KEY_PACKET_MAX) asWarning.push_back(TooLongForPacket(p_sKey.size()));
  if (HasControls(p_sKey)) {
    asWarning.push_back("the key has control characters, which a packet carries as they are");
  }
  return asWarning;
}

// The text that says why no key can be used; "" when p_sKey has it.
std::string TakeKey(const std::string& p_sPath, CStream& p_stFile, std::string& p_sKey) {
  CString sKey, sError;
  if (CCallOrv::ReadFileToStream(p_sPath.c_str(), p_stFile, sError) < 0 ||
      CCrypt::ExtractUserKey(p_stFile, sKey, sError) < 0) {
    return KeyRefusal(p_sPath, sError.ToStr());
  }
  p_sKey.assign(sKey.ToStr());
  if (p_sKey.empty()) return KeyRefusal(p_sPath, "Invalid UserKey");    // what the client says of it
  const std::string sReason = KeyReason(p_sPath);
  return sReason.empty() ? "" : p_sPath + ": " + sReason;
}

void Check(const T_CheckOptions& p_tOptions) {
  CStream stFile(0, 512);
  std::string sKey;
  const std::string sError = TakeKey(p_tOptions.sFile, stFile, sKey);
  nlohmann::ordered_json cResult = {{"file", p_tOptions.sFile}, {"sound", sError.empty()}};
  std::vector<std::string> asWarning;
  if (sError.empty()) {
    T_KeyFile tFile;
    memcpy(&tFile, stFile.GetData(), sizeof(tFile));
    asWarning = Warnings(p_tOptions.sFile, stFile.GetSize(), sKey);
    cResult["form"] = tFile.abIndex[CCrypt::CIPHER_BLOCK] != 0 ? 32 : 16;
    cResult["length"] = sKey.size();
    cResult["warnings"] = asWarning;
    if (p_tOptions.bShow) cResult["key"] = ToUtf8(sKey);
  } else {
    cResult["error"] = JsonError(sError);
  }
  if (p_tOptions.bJson) {
    PrintJson(cResult);
    if (!sError.empty()) throw CFailure("");
    return;
  }
  if (!sError.empty()) throw CFailure(sError);
  std::cout << p_tOptions.sFile << ": sound, a key of " << Counted(sKey.size(), "character") << " in the "
            << cResult["form"] << "-byte form\n";
  if (p_tOptions.bShow) std::cout << Printable(sKey, false) << '\n';
  for (const std::string& s : asWarning) Warn(s);
}

}    // namespace

void AddKey(CLI::App& p_cApp) {
  CLI::App* pKey = p_cApp.add_subcommand("key", "Make, check and rekey user-key files");
  pKey->require_subcommand(1);
  pKey->footer(
      "Examples:\n"
      "  callorv key make --user-key BRANCH-0042 -o user.key\n"
      "  callorv key check user.key");

  auto pMakeOptions = std::make_shared<T_MakeOptions>();
  CLI::App* pMake = pKey->add_subcommand("make", "Make a key file that holds a user key");
  pMake->add_option("--user-key", pMakeOptions->sKey, "The key, 1 to 31 characters; - reads it from standard input")
      ->type_name("TEXT")
      ->required();
  pMake->add_option("-o,--output", pMakeOptions->sFile, "The key file to make; only its owner may read it")
      ->type_name("FILE")
      ->required();
  pMake->add_flag("--force", pMakeOptions->bForce, "Replace a file that is there");
  pMake->footer(
      "The file is random but for the key: two files of one key have nothing in common. It fits\n"
      "libraries that were built with the same SEED key as this command. Packets carry the\n"
      "first 20 characters of the key.\n"
      "\n"
      "Examples:\n"
      "  callorv key make --user-key BRANCH-0042 -o user.key\n"
      "  systemd-ask-password 'User key:' | callorv key make --user-key - -o user.key");
  pMake->callback([pMakeOptions] { Make(*pMakeOptions); });

  auto pCheckOptions = std::make_shared<T_CheckOptions>();
  CLI::App* pCheck = pKey->add_subcommand("check", "Say whether a key file is sound");
  pCheck->add_option("FILE", pCheckOptions->sFile, "Key file")->required();
  pCheck->add_flag("--show", pCheckOptions->bShow, "Show the key");
  pCheck->add_flag("--json", pCheckOptions->bJson, "Report as JSON");
  pCheck->footer(
      "Exit status 0 when the file is sound, 1 when it is not.\n"
      "\n"
      "Examples:\n"
      "  callorv key check user.key\n"
      "  callorv key check user.key --show --json");
  pCheck->callback([pCheckOptions] { Check(*pCheckOptions); });
  AddKeyRekey(*pKey);
}
