// What `key rekey` and `dict rekey` share: two SEED keys out of files, and the file that goes from one to the other.
#include "common/rekey.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>

#include "command.h"
#include "common/input.h"
#include "common/seal.h"

namespace {

constexpr size_t DIGITS = 2 * static_cast<size_t>(CCrypt::SEED_KEY_SIZE);

int DigitValue(char p_c) {
  if (p_c >= '0' && p_c <= '9') return p_c - '0';
  const char cLow = static_cast<char>(p_c | 0x20);
  return cLow >= 'a' && cLow <= 'f' ? cLow - 'a' + 10 : -1;
}

// The bytes that digits write; whether they are digits.
bool ReadDigits(const char* p_szDigits, unsigned char* p_pOut) {
  for (size_t i = 0; i < DIGITS; i += 2) {
    const int iHigh = DigitValue(p_szDigits[i]), iLow = DigitValue(p_szDigits[i + 1]);
    if (iHigh < 0 || iLow < 0) return false;
    p_pOut[i / 2] = static_cast<unsigned char>(iHigh << 4 | iLow);
  }
  return true;
}

// Up to p_iRoom bytes of a file, without a buffer that keeps the key: their number, or -1 with errno.
ssize_t ReadBytes(const char* p_szPath, char* p_pOut, size_t p_iRoom) {
  const int iFd = open(p_szPath, O_RDONLY | O_CLOEXEC);
  if (iFd < 0) return -1;
  size_t iDone = 0;
  ssize_t iNow = 0;
  while (iDone < p_iRoom && ((iNow = read(iFd, p_pOut + iDone, p_iRoom - iDone)) > 0 || (iNow < 0 && errno == EINTR))) {
    if (iNow > 0) iDone += static_cast<size_t>(iNow);
  }
  const int iErrno = errno;
  close(iFd);
  errno = iErrno;
  return iNow < 0 ? -1 : static_cast<ssize_t>(iDone);
}

}    // namespace

CSeedKey::CSeedKey(const std::string& p_sPath) : m_bBuiltIn(p_sPath.empty()) {
  if (m_bBuiltIn) return;
  char acText[DIGITS + 2];    // one more than there should be
  const ssize_t iLen = ReadBytes(p_sPath.c_str(), acText, sizeof(acText));
  const int iErrno = errno;
  const bool bKey = iLen == DIGITS + 1 && acText[DIGITS] == '\n' && ReadDigits(acText, m_ab);
  explicit_bzero(acText, sizeof(acText));
  if (bKey) {
    struct stat tStat;
    if (stat(p_sPath.c_str(), &tStat) == 0 && S_ISREG(tStat.st_mode) && (tStat.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
      Warn(p_sPath + ": others than the owner may access the SEED key: chmod 600");
    }
    return;
  }
  explicit_bzero(m_ab, sizeof(m_ab));    // no destructor runs
  if (iLen < 0) throw CFailure(p_sPath + ": " + FileErrorText(iErrno));
  throw CFailure(p_sPath + ": no SEED key, which is " + std::to_string(DIGITS) + " hexadecimal digits and a line end");
}

CSeedKey::~CSeedKey() { explicit_bzero(m_ab, sizeof(m_ab)); }

CRekey::CRekey(const T_RekeyOptions& p_tOptions, RekeyReason p_fnReason)
    : m_cFrom(p_tOptions.sFrom), m_cTo(p_tOptions.sTo) {
  if (p_tOptions.sFrom.empty() && p_tOptions.sTo.empty()) {
    throw CUsage("--from or --to is needed: which other SEED key is there?");
  }
  const std::string sFrom = SeedFingerprint(From());
  const std::string sBlock(CCrypt::CIPHER_BLOCK, '\0');
  if (Reseal(sBlock, From(), To()) == sBlock) {
    throw CFailure("--from and --to are the same SEED key, " + sFrom);
  }
  if (!IsOrdinaryFile(p_tOptions.sFile)) {
    const std::string sWhy = WhyUnreadable(p_tOptions.sFile);
    throw CFailure(p_tOptions.sFile + ": " + (sWhy.empty() ? "a pipe or device, not a file" : sWhy));
  }
  m_sBytes = ReadWholeFile(p_tOptions.sFile);
  const std::string sWhy = p_fnReason(m_sBytes, From(), "it is not under SEED key " + sFrom + ": try another --from");
  if (sWhy.empty()) return;
  if (p_fnReason(m_sBytes, To(), "").empty()) {
    throw CFailure(p_tOptions.sFile + ": encrypted under SEED key " + SeedFingerprint(To()) + " already");
  }
  throw CFailure(p_tOptions.sFile + ": " + sWhy);
}

void AddRekeyOptions(CLI::App& p_cCommand, const std::shared_ptr<T_RekeyOptions>& p_pOptions, const char* p_szFile,
                     const char* p_szOut) {
  p_cCommand.add_option("FILE", p_pOptions->sFile, p_szFile)->required();
  p_cCommand.add_option("--from", p_pOptions->sFrom, "File with the SEED key of FILE; without it, this command's")
      ->type_name("KEY");
  p_cCommand.add_option("--to", p_pOptions->sTo, "File with the new SEED key; without it, this command's")
      ->type_name("KEY");
  p_cCommand.add_option("-o,--output", p_pOptions->sOut, p_szOut)->type_name("OUT");
}
