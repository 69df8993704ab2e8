// What `key rekey` and `dict rekey` share: two SEED keys out of files, and the file that goes from one to the other.
#ifndef CALLORV_TOOLS_REKEY_H
#define CALLORV_TOOLS_REKEY_H

#include <callorv/crypt/crypt.h>

#include <memory>
#include <string>

namespace CLI {
class App;
}

struct T_RekeyOptions {
  std::string sFile;
  std::string sFrom, sTo;    // files with SEED keys; "" is the key of this command
  std::string sOut;          // "" replaces sFile
};

// A SEED key out of a file, wiped when it goes; without a name the key of this command.
class CSeedKey {
 public:
  // Throws CFailure when the file holds something else than 32 hexadecimal digits and a line end.
  explicit CSeedKey(const std::string& p_sPath);
  ~CSeedKey();
  CSeedKey(const CSeedKey&) = delete;
  CSeedKey& operator=(const CSeedKey&) = delete;

  const unsigned char* Bytes() const { return m_bBuiltIn ? nullptr : m_ab; }    // for CCrypt

 private:
  unsigned char m_ab[CCrypt::SEED_KEY_SIZE] = {};
  bool m_bBuiltIn;
};

// Why a file's bytes cannot be rekeyed from a SEED key, "" when they can. p_sTry: what to do about another key.
using RekeyReason = std::string (*)(const std::string& p_sBytes, const unsigned char* p_pSeedKey,
                                    const std::string& p_sTry);

// A file that goes from one SEED key to another. The constructor throws CUsage and CFailure when it cannot.
class CRekey {
 public:
  CRekey(const T_RekeyOptions& p_tOptions, RekeyReason p_fnReason);

  const std::string& Bytes() const { return m_sBytes; }    // as they stand in the file
  const unsigned char* From() const { return m_cFrom.Bytes(); }
  const unsigned char* To() const { return m_cTo.Bytes(); }

 private:
  CSeedKey m_cFrom, m_cTo;
  std::string m_sBytes;
};

// Adds FILE, --from, --to and -o.
void AddRekeyOptions(CLI::App& p_cCommand, const std::shared_ptr<T_RekeyOptions>& p_pOptions, const char* p_szFile,
                     const char* p_szOut);

#endif
