// The MD5 message digest (RFC 1321). It guards against damage, not against an attacker.
#ifndef CALLORV_CRYPT_MD5_H
#define CALLORV_CRYPT_MD5_H

#include "callorv/export.h"

// Use: construct (or init), update any number of times, finalize, read. One thread at a time.
class CALLORV_API MD5 {
 public:
  enum { DIGEST_SIZE = 16 };

  MD5() noexcept { init(); }
  void init() noexcept;    // starts over
  // Adds p_iLen bytes; ignored after finalize.
  void update(const unsigned char* p_pData, unsigned int p_iLen) noexcept;
  void update(const char* p_pData, unsigned int p_iLen) noexcept;
  void finalize() noexcept;    // ends the input; a second call changes nothing
  // The digest, as 16 raw bytes and as 32 lower-case hexadecimal characters with a NUL. Zeros before finalize.
  // Borrowed: valid until init or destruction.
  const unsigned char* valdigest() const noexcept { return m_abDigest; }
  const char* hexdigest() const noexcept { return m_szHex; }

 private:
  unsigned int m_aiState[4];
  unsigned long long m_iBytes;
  unsigned char m_abBlock[64];
  unsigned char m_abDigest[DIGEST_SIZE];
  char m_szHex[2 * DIGEST_SIZE + 1];
  bool m_bFinal;

  void Transform(const unsigned char* p_pBlock) noexcept;
};

#endif
