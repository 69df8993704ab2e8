// What is encrypted under the SEED key, as far as its bytes tell.
#include "common/seal.h"

#include <callorv/crypt/crypt.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "command.h"

namespace {

using Operation = int (*)(CStream&, CStream&, CString&, const unsigned char*);

// A stream that is wiped: a user key may have stood in it.
struct T_WipedStream : CStream {
  T_WipedStream() : CStream(0, 512) {}
  ~T_WipedStream() { explicit_bzero(GetData(), static_cast<size_t>(GetSize())); }
  T_WipedStream(const T_WipedStream&) = delete;
  T_WipedStream& operator=(const T_WipedStream&) = delete;
};

std::string Run(Operation p_fnRun, std::string_view p_sIn, const unsigned char* p_pSeedKey) {
  T_WipedStream stIn, stOut;
  CString sError("Input data is too long");
  if (p_sIn.size() > INT_MAX || stIn.AppendData(p_sIn.data(), static_cast<int>(p_sIn.size())) < 0 ||
      p_fnRun(stIn, stOut, sError, p_pSeedKey) < 0) {
    throw CFailure(sError.ToStr());
  }
  return {stOut.GetData(), static_cast<size_t>(stOut.GetSize())};
}

// The blocks as they were encrypted, with their padding: that of a block of nothing but padding behind them goes.
std::string Blocks(std::string_view p_sSecret, const unsigned char* p_pSeedKey) {
  return Run(CCrypt::DecryptStream, std::string(p_sSecret) + Run(CCrypt::EncryptStream, "", p_pSeedKey), p_pSeedKey);
}

bool StartsWith(std::string_view p_sText, std::string_view p_sStart) {
  return p_sText.substr(0, p_sStart.size()) == p_sStart;
}

bool IsUtf16(std::string_view p_sText) {
  using namespace std::string_view_literals;
  for (const std::string_view sStart : {"\xFE\xFF"sv, "\xFF\xFE"sv, "<\0"sv, "\0<"sv}) {
    if (StartsWith(p_sText, sStart)) return true;
  }
  return false;
}

}    // namespace

T_Unsealed Unseal(std::string_view p_sSecret, const unsigned char* p_pSeedKey) {
  T_Unsealed t;
  t.sPlain = Blocks(p_sSecret, p_pSeedKey);
  t.iPadding = static_cast<unsigned char>(t.sPlain.back());
  const size_t iCut = static_cast<size_t>(std::min(t.iPadding, +CCrypt::CIPHER_BLOCK));
  const std::string sBefore(iCut > 0 ? iCut - 1 : 0, static_cast<char>(iCut));    // the padding without its last byte
  const std::string sFound = t.sPlain.substr(t.sPlain.size() - 1 - sBefore.size(), sBefore.size());
  t.bPadded = t.iPadding > 0 && t.iPadding <= CCrypt::CIPHER_BLOCK &&
              (sFound == sBefore || sFound == std::string(sBefore.size(), '\0'));
  t.sPlain.resize(t.sPlain.size() - iCut);
  return t;
}

std::string Seal(std::string_view p_sPlain) { return Run(CCrypt::EncryptStream, p_sPlain, nullptr); }

std::string Reseal(std::string_view p_sSecret, const unsigned char* p_pFrom, const unsigned char* p_pTo) {
  std::string sBlocks = Blocks(p_sSecret, p_pFrom);
  std::string sSecret = Run(CCrypt::EncryptStream, sBlocks, p_pTo);
  explicit_bzero(sBlocks.data(), sBlocks.size());
  sSecret.resize(p_sSecret.size());    // without the padding behind the padding
  return sSecret;
}

std::string SeedFingerprint(const unsigned char* p_pSeedKey) {
  const std::string sBlock = Run(CCrypt::EncryptStream, std::string(CCrypt::CIPHER_BLOCK, '\0'), p_pSeedKey);
  std::string sDigits;
  for (size_t i = 0; i < 3; ++i) sDigits += CFormat("%02x", static_cast<unsigned char>(sBlock[i])).ToStr();
  return sDigits;
}

bool BeginsLikeXml(std::string_view p_sText) {
  if (IsUtf16(p_sText)) return true;
  if (StartsWith(p_sText, "\xEF\xBB\xBF")) p_sText.remove_prefix(3);
  const size_t iFirst = p_sText.find_first_not_of(" \t\r\n");
  return iFirst != std::string_view::npos && p_sText[iFirst] == '<';
}

bool HasNoise(std::string_view p_sText) {
  return !IsUtf16(p_sText) && std::any_of(p_sText.begin(), p_sText.end(), [](char c) {
    return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
  });
}

bool IsForeign(const T_Unsealed& p_t) {
  if (p_t.bPadded) return false;
  return p_t.iPadding > CCrypt::CIPHER_BLOCK || (!BeginsLikeXml(p_t.sPlain) && HasNoise(p_t.sPlain));
}

bool IsSealedXml(std::string_view p_sBytes, const unsigned char* p_pSeedKey) {
  if (p_sBytes.empty() || p_sBytes.size() % CCrypt::CIPHER_BLOCK != 0) return false;
  const std::string sPlain = Unseal(p_sBytes, p_pSeedKey).sPlain;
  return BeginsLikeXml(sPlain) && !HasNoise(sPlain);
}
