// Key files: the key is gathered from the table as the index says, or the file is refused for the stated reason.
#include "callorv/crypt/crypt.h"
#include "callorv/crypt/md5.h"
#include "support.h"

namespace {

enum E_Bits { SPOIL_DIGEST = 1, ENCRYPT_KEY = 2 };

struct T_File {
  std::string sBytes;
  bool bIntact;    // the digest is right
};

// A key file from few bytes: index, digest and the part of the table that an index reaches; the rest is zero.
T_File FileOf(CInput& p_cInput) {
  const int iBits = p_cInput.Byte();
  T_KeyFile tFile = {};
  p_cInput.Bytes(sizeof(tFile.abIndex)).copy(reinterpret_cast<char*>(tFile.abIndex), sizeof(tFile.abIndex));
  if ((iBits & ENCRYPT_KEY) != 0) {    // a sound key where the index says
    const std::string sKey = p_cInput.Bytes(p_cInput.Byte() % 32);
    CStream stKey(0, 64), stEncrypted(0, 64);
    CString sErr;
    stKey.AppendData(sKey.data(), static_cast<int>(sKey.size()));
    ExpectSame(CCrypt::EncryptStream(stKey, stEncrypted, sErr), 0, "EncryptStream");
    for (int i = 0; i < stEncrypted.GetSize(); ++i) {
      tFile.abTable[tFile.abIndex[i]] = static_cast<unsigned char>(stEncrypted.GetData()[i]);
    }
  } else {
    p_cInput.Bytes(256).copy(reinterpret_cast<char*>(tFile.abTable), 256);
  }
  MD5 cDigest;
  cDigest.update(tFile.abTable, sizeof(tFile.abTable));
  cDigest.update(tFile.abIndex, sizeof(tFile.abIndex));
  cDigest.finalize();
  memcpy(tFile.abDigest, cDigest.valdigest(), sizeof(tFile.abDigest));
  for (const char c : p_cInput.Bytes((iBits & SPOIL_DIGEST) != 0 ? sizeof(tFile.abDigest) : 0)) {
    tFile.abDigest[static_cast<unsigned char>(c) % sizeof(tFile.abDigest)] ^= static_cast<unsigned char>(c);
  }
  return {std::string(reinterpret_cast<const char*>(&tFile), sizeof(tFile)),
          memcmp(cDigest.valdigest(), tFile.abDigest, sizeof(tFile.abDigest)) == 0};
}

struct T_Key {
  int iCode;
  const char* szText;
  std::string sKey;
};

T_Key ReadModel(const T_File& p_tFile) {
  static const char s_szCorrupted[] = "Corrupted UserKey data";
  if (p_tFile.sBytes.size() < 4144) return {-1, s_szCorrupted, ""};
  if (!p_tFile.bIntact) return {-2, "Corrupted UserKey data(checksum)", ""};
  const std::string sIndex = p_tFile.sBytes.substr(4112, 32);
  const size_t uSize = sIndex[16] != 0 ? 32 : 16;
  if (sIndex.find('\0') < uSize) return {-1, s_szCorrupted, ""};
  CStream stEncrypted(0, 64), stKey(0, 64);
  CString sErr;
  for (const char c : sIndex.substr(0, uSize)) {
    stEncrypted.AppendData(&p_tFile.sBytes[16 + static_cast<unsigned char>(c)], 1);
  }
  ExpectSame(CCrypt::DecryptStream(stEncrypted, stKey, sErr), 0, "DecryptStream");
  return {0, "", stKey.GetData()};
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  CInput cInput(p_pData, p_uSize);
  T_File tFile = FileOf(cInput);
  const int iChange = cInput.Byte();    // of the length, for a few
  if (iChange >= 0xF0) tFile.sBytes.resize(tFile.sBytes.size() + static_cast<size_t>(iChange) - 0xF8);

  const T_Key tShould = ReadModel(tFile);
  CStream stFile(0, 512);
  CString sKey("before"), sErr("before");
  ExpectSame(stFile.AppendData(tFile.sBytes.data(), static_cast<int>(tFile.sBytes.size())), 0, "AppendData");
  ExpectSame(CCrypt::ExtractUserKey(stFile, sKey, sErr), tShould.iCode, "code");
  ExpectSame(sErr.ToStr(), tShould.szText, "text");
  ExpectSame(sKey.ToStr(), tShould.iCode == 0 ? tShould.sKey : "before", "key");
  return 0;
}
