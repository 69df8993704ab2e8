// callorv dict rekey: an encrypted dictionary from one SEED key to another.
#include "dict/dict_rekey.h"

#include <callorv/base/str.h>

#include <CLI/CLI.hpp>

#include "command.h"
#include "common/files.h"
#include "common/refusal.h"
#include "common/rekey.h"
#include "common/seal.h"

namespace {

void Rekey(const T_RekeyOptions& p_tOptions) {
  const std::string& sOut = p_tOptions.sOut.empty() ? p_tOptions.sFile : p_tOptions.sOut;
  if (!CString(sOut.c_str()).EndsWith(".exml")) {
    throw CUsage(sOut + ": the name must end in .exml, or the library takes the file for plain XML");
  }
  const CRekey cRekey(p_tOptions, SealedBytesReason);
  WriteFile(sOut, Reseal(cRekey.Bytes(), cRekey.From(), cRekey.To()), KeptMode(sOut));
}

}    // namespace

void AddDictRekey(CLI::App& p_cDict) {
  const auto pOptions = std::make_shared<T_RekeyOptions>();
  CLI::App* pCommand = p_cDict.add_subcommand("rekey", "Take an encrypted dictionary from one SEED key to another");
  AddRekeyOptions(*pCommand, pOptions, "Encrypted dictionary", "The new one, an .exml; without it, FILE is replaced");
  pCommand->footer(
      "A KEY file holds 32 hexadecimal digits and a line end. The new dictionary decrypts to the\n"
      "same bytes. callorv --version says which SEED key this command has.\n"
      "\n"
      "Examples:\n"
      "  callorv dict rekey --to new.seed msg_dic.exml\n"
      "  callorv dict rekey --from old.seed -o new.exml msg_dic.exml");
  pCommand->callback([pOptions] { Rekey(*pOptions); });
}
