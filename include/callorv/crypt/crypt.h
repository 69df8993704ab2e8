// SEED-encrypted files and the user-key file.
#ifndef CALLORV_CRYPT_CRYPT_H
#define CALLORV_CRYPT_CRYPT_H

#include <cstddef>

#include "callorv/base/str.h"
#include "callorv/base/stream.h"
#include "callorv/export.h"

// A user-key file byte by byte (docs/formats/key_file.md). More bytes may follow, and are ignored.
struct T_KeyFile {
  unsigned char abDigest[16];     // MD5 of the other two
  unsigned char abTable[4096];    // the bytes of the encrypted key among others
  unsigned char abIndex[32];      // where they stand in the table: 1 to 255, 0 ends the list; [16] other than 0: the
                                  // encrypted key has 32 bytes, else 16
};
static_assert(offsetof(T_KeyFile, abTable) == 16 && offsetof(T_KeyFile, abIndex) == 4112 && sizeof(T_KeyFile) == 4144,
              "a key file is read as it stands");

// SEED (RFC 4269) in ECB mode under one fixed key, which is chosen when the library is built (-DCALLORV_SEED_KEY_FILE),
// or, where a key is given, under that: for programs that change the key of files.
// Encrypted data is a multiple of 16 bytes; the last plain byte says how many bytes of the last block are padding.
// All operations report failure by a negative result and a text in p_sErr; they throw only std::bad_alloc.
// Any thread; the streams and texts passed belong to one thread at a time.
class CALLORV_API CCrypt {
 public:
  enum { CIPHER_BLOCK = 16, KEY_FILE_SIZE = sizeof(T_KeyFile), SEED_KEY_SIZE = 16 };

  // Fills p_aiRoundKeys (32 words, caller's) with the round keys of the built-in key; each fits in 32 bits.
  static void CreateRoundKey(unsigned long* p_aiRoundKeys);

  // Decrypts p_stIn into p_stOut (another stream, emptied first). A padding of 0 keeps the whole last block, one
  // of 16 or more drops it whole. Empty input gives empty output.
  //   returns  0, or -1 "Input data is corrupted" when the length is no multiple of 16
  static int DecryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr);
  // The same under the key p_pSeedKey (SEED_KEY_SIZE bytes, borrowed for the call), or under the built-in key for NULL.
  // What is made of the key is wiped from memory before the call returns.
  static int DecryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr, const unsigned char* p_pSeedKey);

  // Encrypts p_stIn into p_stOut (another stream, emptied first) so that DecryptStream gives it back: 1 to 16 bytes of
  // padding are added, the last of which says how many; 16 for an input that is a multiple of 16 bytes.
  //   returns  0, or -1 "Input data is too long" above 2147483615 bytes
  static int EncryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr);
  // The same under the key p_pSeedKey, as for DecryptStream.
  static int EncryptStream(CStream& p_stIn, CStream& p_stOut, CString& p_sErr, const unsigned char* p_pSeedKey);

  // Decrypts a whole file. A pipe or a device counts as empty: it is not opened, since that could wait.
  //   returns  0; -1 "p_szFileName is NULL" (p_stOut is then as it was); -2 "File not found(%s)"; -3 "File may be
  //            corrupted" (its size is no multiple of 16); -5 "File cannot be open(%s)", also for more than 2147483646
  //            bytes; -7 with the text of DecryptStream
  static int DecryptFileToStream(const char* p_szFileName, CStream& p_stOut, CString& p_sErr);

  // Takes the user key out of the bytes of a key file (docs/formats/key_file.md), up to its first NUL.
  //   returns  0; -1 "Corrupted UserKey data" below 4144 bytes; -2 "Corrupted UserKey data(checksum)" when the digest
  //            does not match; -1 "Corrupted UserKey data" when the list of index bytes ends before the key does
  static int ExtractUserKey(CStream& p_stFileData, CString& p_sUserKey, CString& p_sErr);
};

#endif
