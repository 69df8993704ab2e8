// Why the library refuses a file, in words by which one can act.
#include "common/refusal.h"

#include <callorv/base/exception.h>
#include <callorv/crypt/crypt.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>

#include "command.h"
#include "common/input.h"
#include "common/seal.h"
#include "common/text.h"

namespace {

constexpr size_t BLOCK = CCrypt::CIPHER_BLOCK;
constexpr char s_szForeign[] = "encrypted under another SEED key, or damaged; ";

// What to try, with the word before "rekey" and what else to do.
std::string Try(const char* p_szFile, const char* p_szElse) {
  const std::string sBegin = "try the callorv that was built with its SEED key, callorv ";
  return sBegin + p_szFile + " rekey --from KEY, or " + p_szElse;
}

std::string WhyNoFile(const std::string& p_sPath) {
  if (std::string sWhy = WhyUnreadable(p_sPath); !sWhy.empty()) return sWhy;
  if (!IsOrdinaryFile(p_sPath)) return "a pipe or device, of which the library reads nothing; make it a file";
  std::error_code cError;
  const bool bLong = std::filesystem::file_size(p_sPath, cError) > INT_MAX - 1 && !cError;
  return bLong ? "longer than the 2147483646 bytes that are read" : "";
}

// Whether what stands where the key should is no text that anybody would have encrypted.
bool IsNoKey(const T_Unsealed& p_t) {
  if (p_t.bPadded && p_t.iPadding > 1) return false;
  const std::string_view sAll = p_t.sPlain;
  std::string_view sKey = sAll.substr(0, sAll.find('\0'));
  if (sAll.find_first_not_of('\0', sKey.size()) != std::string_view::npos) return true;
  sKey = sKey.substr(0, sKey.find_last_not_of(" \t\r\n") + 1);    // as careless makers leave behind it
  return sKey.empty() || std::any_of(sKey.begin(), sKey.end(), [&](char c) {
    const auto u = static_cast<unsigned char>(c);
    return (u & 0x7F) < ' ' || u == 0x7F || (u > 0x7F && !p_t.bPadded);
  });
}

}    // namespace

std::string SealedReason(const std::string& p_sPath) {
  if (std::string sWhy = WhyNoFile(p_sPath); !sWhy.empty()) return sWhy;
  const std::string sTry = Try("dict", "encrypt the dictionary again: callorv dict encrypt");
  return SealedBytesReason(ReadWholeFile(p_sPath), nullptr, sTry);
}

std::string SealedBytesReason(const std::string& p_sBytes, const unsigned char* p_pSeedKey, const std::string& p_sTry) {
  if (p_sBytes.empty()) return "an empty file";
  if (BeginsLikeXml(p_sBytes)) return "plain XML, not encrypted; encrypt it: callorv dict encrypt";
  if (p_sBytes.size() % BLOCK != 0) {
    return Counted(p_sBytes.size(), "byte") + ", which is no multiple of 16; not encrypted, or cut off: copy it again";
  }
  const T_Unsealed t = Unseal(p_sBytes, p_pSeedKey);
  if (IsSealedXml(t.sPlain, p_pSeedKey)) return "encrypted twice; decrypt it once: callorv dict decrypt";
  const bool bNoise = HasNoise(t.sPlain);
  if (bNoise || IsForeign(t)) return s_szForeign + p_sTry;
  return BeginsLikeXml(t.sPlain) ? "" : "encrypted, but what was encrypted is no XML";
}

std::string DictionaryReason(const std::string& p_sPath) {
  if (CString(p_sPath.c_str()).EndsWith(".exml")) return SealedReason(p_sPath);
  if (std::string sWhy = WhyUnreadable(p_sPath); !sWhy.empty()) return sWhy;
  if (!IsOrdinaryFile(p_sPath)) return "";    // what came through a pipe has been read
  const std::string sFile = ReadWholeFile(p_sPath);
  if (sFile.empty()) return "an empty file";
  if (IsSealedXml(sFile)) return "encrypted, but its name does not end in .exml; rename it";
  return BeginsLikeXml(sFile) ? "" : "no XML; if it is encrypted, its name must end in .exml";
}

std::string KeyReason(const std::string& p_sPath) {
  if (std::string sWhy = WhyNoFile(p_sPath); !sWhy.empty()) return sWhy;
  const std::string sTry = Try("key", "make the key file again: callorv key make");
  return KeyBytesReason(ReadWholeFile(p_sPath), nullptr, sTry);
}

std::string KeyBytesReason(const std::string& p_sBytes, const unsigned char* p_pSeedKey, const std::string& p_sTry) {
  if (p_sBytes.size() < CCrypt::KEY_FILE_SIZE) {
    return Counted(p_sBytes.size(), "byte") + " instead of 4144: no key file, or cut off; copy it again, or make one: "
           "callorv key make";
  }
  CStream stFile(0, 512);
  CString sKey, sError;
  if (stFile.AppendData(p_sBytes.data(), CCrypt::KEY_FILE_SIZE) < 0) throw CFailure("out of memory");
  const int iRet = CCrypt::ExtractUserKey(stFile, sKey, sError);
  if (iRet == -2) return "no key file, or changed after it was made; copy it again, or make one: callorv key make";
  if (iRet < 0) return "made wrongly: its list of places ends before the key does; make it again: callorv key make";
  T_Unsealed t = Unseal(SealedKey(p_sBytes), p_pSeedKey);
  const bool bNone = IsNoKey(t), bEmpty = t.sPlain.empty() || t.sPlain[0] == '\0';
  explicit_bzero(t.sPlain.data(), t.sPlain.size());
  if (bNone) return s_szForeign + p_sTry;
  return bEmpty ? "the key in it is empty; make it again: callorv key make" : "";
}

std::string SealedKey(std::string_view p_sBytes) {
  T_KeyFile tFile;
  memcpy(&tFile, p_sBytes.data(), sizeof(tFile));
  std::string sSecret;
  const size_t iSize = tFile.abIndex[BLOCK] != 0 ? 2 * BLOCK : BLOCK;
  for (size_t i = 0; i < iSize; ++i) sSecret += static_cast<char>(tFile.abTable[tFile.abIndex[i]]);
  return sSecret;
}

std::string Refusal(const std::string& p_sName, const std::string& p_sReason, const std::string& p_sLibrary) {
  if (p_sReason.empty()) return p_sName + ": the library says: " + p_sLibrary;
  return p_sName + ": " + p_sReason + " (the library says: " + p_sLibrary + ")";
}

std::string DictionaryRefusal(const std::string& p_sPath, const std::string& p_sLibrary) {
  const std::string sReason = DictionaryReason(p_sPath);
  return Refusal(p_sPath, sReason, p_sLibrary) + (sReason.empty() ? "; callorv dict check says everything" : "");
}

std::string KeyRefusal(const std::string& p_sPath, const std::string& p_sLibrary) {
  return Refusal(p_sPath, KeyReason(p_sPath), p_sLibrary);
}

void LoadDictionary(CMsgDic& p_cDic, const std::string& p_sPath) {
  try {
    p_cDic.InitDictionary(p_sPath.c_str());
  } catch (const CException& cError) {
    throw CFailure(DictionaryRefusal(p_sPath, cError.GetText()));
  }
}
