// SEED-encrypted files and the user-key file.
#include "callorv/crypt/crypt.h"

#include <climits>
#include <cstring>

#include "callorv/crypt/md5.h"
#include "crypt/file.h"
#include "crypt/seed.h"
#include "crypt/seed_key.h"

using namespace callorv::detail;

namespace {

// The round keys for as long as they are needed.
struct T_RoundKeys {
  unsigned long ai[SEED_ROUND_KEYS];
  explicit T_RoundKeys(const unsigned char* p_pSeedKey) {    // null: the built-in one
    p_pSeedKey != nullptr ? SeedRoundKey(ai, p_pSeedKey) : CCrypt::CreateRoundKey(ai);
  }
  ~T_RoundKeys() { explicit_bzero(ai, sizeof(ai)); }
  T_RoundKeys(const T_RoundKeys&) = delete;
  T_RoundKeys& operator=(const T_RoundKeys&) = delete;
};

}    // namespace

void CCrypt::CreateRoundKey(unsigned long* p_aiRoundKeys) {
  SeedKey abKey = StoredSeedKey();
  PermuteSeedKey(abKey);
  SeedRoundKey(p_aiRoundKeys, abKey.data());
  explicit_bzero(abKey.data(), abKey.size());
}

int CCrypt::DecryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr) {
  return DecryptStream(p_stIn, p_stOut, p_sErr, nullptr);
}

int CCrypt::DecryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr, const unsigned char* p_pSeedKey) {
  p_stOut.Clear();
  const int iSize = p_stIn.GetSize();
  if (iSize % CIPHER_BLOCK != 0) {
    p_sErr = "Input data is corrupted";
    return -1;
  }
  if (iSize == 0) return 0;
  const T_RoundKeys tKeys(p_pSeedKey);
  auto* pOut = reinterpret_cast<unsigned char*>(p_stOut.GetBuffer(iSize));
  memcpy(pOut, p_stIn.GetData(), static_cast<size_t>(iSize));
  for (int i = 0; i < iSize; i += CIPHER_BLOCK) SeedDecrypt(pOut + i, tKeys.ai);
  const int iPadding = pOut[iSize - 1];
  p_stOut.ReleaseBuffer(iSize - (iPadding < CIPHER_BLOCK ? iPadding : +CIPHER_BLOCK));
  return 0;
}

int CCrypt::EncryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr) {
  return EncryptStream(p_stIn, p_stOut, p_sErr, nullptr);
}

int CCrypt::EncryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr, const unsigned char* p_pSeedKey) {
  p_stOut.Clear();
  const int iSize = p_stIn.GetSize();
  if (iSize > INT_MAX - 2 * CIPHER_BLOCK) {
    p_sErr = "Input data is too long";
    return -1;
  }
  const int iPadding = CIPHER_BLOCK - iSize % CIPHER_BLOCK, iOut = iSize + iPadding;
  const T_RoundKeys tKeys(p_pSeedKey);
  auto* pOut = reinterpret_cast<unsigned char*>(p_stOut.GetBuffer(iOut));
  memcpy(pOut, p_stIn.GetData(), static_cast<size_t>(iSize));
  memset(pOut + iSize, iPadding, static_cast<size_t>(iPadding));
  for (int i = 0; i < iOut; i += CIPHER_BLOCK) SeedEncrypt(pOut + i, tKeys.ai);
  p_stOut.ReleaseBuffer(iOut);
  return 0;
}

int CCrypt::DecryptFileToStream(const char* p_szFileName, CStream& p_stOut, CString& p_sErr) {
  if (p_szFileName != nullptr) p_stOut.Clear();
  CStream stFile(0, 512);
  if (const int iRet = ReadFile(p_szFileName, stFile, p_sErr, CIPHER_BLOCK)) return iRet;
  return DecryptStream(stFile, p_stOut, p_sErr) < 0 ? -7 : 0;
}

int CCrypt::ExtractUserKey(CStream& p_stFileData, CString& p_sUserKey, CString& p_sErr) {
  p_sErr.Clear();
  if (p_stFileData.GetSize() < KEY_FILE_SIZE) {
    p_sErr = "Corrupted UserKey data";
    return -1;
  }
  const auto& tFile = *reinterpret_cast<const T_KeyFile*>(p_stFileData.GetData());
  MD5 cDigest;
  cDigest.update(tFile.abTable, sizeof(tFile.abTable));
  cDigest.update(tFile.abIndex, sizeof(tFile.abIndex));
  cDigest.finalize();
  if (memcmp(cDigest.valdigest(), tFile.abDigest, sizeof(tFile.abDigest)) != 0) {
    p_sErr = "Corrupted UserKey data(checksum)";
    return -2;
  }
  const int iKeySize = tFile.abIndex[CIPHER_BLOCK] != 0 ? 2 * CIPHER_BLOCK : +CIPHER_BLOCK;
  CStream stEncrypted(2 * CIPHER_BLOCK, 512), stKey(2 * CIPHER_BLOCK, 512);
  char* pEncrypted = stEncrypted.GetBuffer(iKeySize);
  for (int i = 0; i < iKeySize; ++i) {
    if (tFile.abIndex[i] == 0) {    // part of the key would be anything
      p_sErr = "Corrupted UserKey data";
      return -1;
    }
    pEncrypted[i] = static_cast<char>(tFile.abTable[tFile.abIndex[i]]);
  }
  stEncrypted.ReleaseBuffer(iKeySize);
  if (DecryptStream(stEncrypted, stKey, p_sErr) < 0) return -2;
  p_sUserKey.Set(stKey.GetData());
  return 0;
}
