// What is encrypted under the SEED key, as far as its bytes tell.
#ifndef CALLORV_TOOLS_SEAL_H
#define CALLORV_TOOLS_SEAL_H

#include <string>
#include <string_view>

// Where a function takes p_pSeedKey, it is the key's CCrypt::SEED_KEY_SIZE bytes; null is the key of this command.

struct T_Unsealed {
  std::string sPlain;      // without the padding
  int iPadding = 0;        // what the last byte says, 0 to 255
  bool bPadded = false;    // the padding is as CCrypt::EncryptStream writes it, or zeroes before its count, as others
                           // do: other bytes have that by chance once in 250
};

// Decrypts p_sSecret, a multiple of 16 bytes and at least 16. Throws CFailure.
T_Unsealed Unseal(std::string_view p_sSecret, const unsigned char* p_pSeedKey = nullptr);
// Encrypts what Unseal gives back. Throws CFailure.
std::string Seal(std::string_view p_sPlain);
// What is encrypted under one key, under another: block by block, padding and all, so that it decrypts to the same
// bytes. Throws CFailure.
std::string Reseal(std::string_view p_sSecret, const unsigned char* p_pFrom, const unsigned char* p_pTo);

// By which people compare SEED keys: the first three bytes of an encrypted block of zeroes, in hexadecimal. Throws
// CFailure.
std::string SeedFingerprint(const unsigned char* p_pSeedKey = nullptr);

// Whether a text begins as XML does, in any encoding.
bool BeginsLikeXml(std::string_view p_sText);
// Whether a text has control characters that XML cannot have in an encoding of single bytes.
bool HasNoise(std::string_view p_sText);
// Whether a whole dictionary decrypts to no text: under another SEED key, or what is damaged.
bool IsForeign(const T_Unsealed& p_t);
// Whether p_sBytes are XML that was encrypted under this SEED key.
bool IsSealedXml(std::string_view p_sBytes, const unsigned char* p_pSeedKey = nullptr);

#endif
