// The SEED block cipher (RFC 4269): 128-bit key, 16-byte blocks.
#ifndef CALLORV_CRYPT_SEED_H
#define CALLORV_CRYPT_SEED_H

namespace callorv::detail {

enum { SEED_ROUND_KEYS = 32 };

// Expands a key (CCrypt::SEED_KEY_SIZE bytes) into SEED_ROUND_KEYS words, each of which fits in 32 bits.
void SeedRoundKey(unsigned long* p_aiRoundKeys, const unsigned char* p_pKey);
// Encrypts or decrypts one block in place.
void SeedEncrypt(unsigned char* p_pBlock, const unsigned long* p_aiRoundKeys);
void SeedDecrypt(unsigned char* p_pBlock, const unsigned long* p_aiRoundKeys);

}    // namespace callorv::detail

#endif
