// callorv key rekey: a user-key file from one SEED key to another.
#include "key/key_rekey.h"

#include <CLI/CLI.hpp>

#include "common/files.h"
#include "common/refusal.h"
#include "common/rekey.h"
#include "common/seal.h"
#include "key/key_maker.h"

namespace {

// The file is random anew but for the key: who sees both learns no more than from one. What is behind the key stays.
void Rekey(const T_RekeyOptions& p_tOptions) {
  const CRekey cRekey(p_tOptions, KeyBytesReason);
  const std::string sSecret = Reseal(SealedKey(cRekey.Bytes()), cRekey.From(), cRekey.To());
  std::string sFile(View(MakeKeyFile(sSecret)));
  sFile += cRekey.Bytes().substr(sFile.size());
  T_WriteMode tMode;
  tMode.iPermissions = 0600;
  tMode.bReplace = p_tOptions.sOut.empty();
  tMode.bKeepOwner = true;
  WriteFile(p_tOptions.sOut.empty() ? p_tOptions.sFile : p_tOptions.sOut, sFile, tMode);
}

}    // namespace

void AddKeyRekey(CLI::App& p_cKey) {
  const auto pOptions = std::make_shared<T_RekeyOptions>();
  CLI::App* pCommand = p_cKey.add_subcommand("rekey", "Take a key file from one SEED key to another");
  AddRekeyOptions(*pCommand, pOptions, "Key file", "The new key file; without it, FILE is replaced");
  pCommand->footer(
      "A KEY file holds 32 hexadecimal digits and a line end. The user key stays the same; only its\n"
      "owner may read the new file. callorv --version says which SEED key this command has.\n"
      "\n"
      "Examples:\n"
      "  callorv key rekey --to new.seed user.key\n"
      "  callorv key rekey --from old.seed -o new.key user.key");
  pCommand->callback([pOptions] { Rekey(*pOptions); });
}
