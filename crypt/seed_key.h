// The bytes of which the SEED key is made.
#ifndef CALLORV_CRYPT_SEED_KEY_H
#define CALLORV_CRYPT_SEED_KEY_H

#include <array>
#include <cstddef>

#include "callorv/crypt/crypt.h"

namespace callorv::detail {

using SeedKey = std::array<unsigned char, CCrypt::SEED_KEY_SIZE>;

constexpr void Swap(SeedKey& p_abKey, size_t p_i, size_t p_j) {
  const unsigned char b = p_abKey[p_i];
  p_abKey[p_i] = p_abKey[p_j];
  p_abKey[p_j] = b;
}

// The three passes that turn the stored bytes into the key: reverse all, swap the halves, turn the groups of four.
constexpr void PermuteSeedKey(SeedKey& p_abKey) {
  constexpr size_t uSize = CCrypt::SEED_KEY_SIZE, uHalf = uSize / 2;
  for (size_t i = 0; i < uHalf; ++i) Swap(p_abKey, i, uSize - 1 - i);
  for (size_t j = uHalf; j < uSize; ++j) Swap(p_abKey, j, j - uHalf);
  for (size_t j = 4; j < uSize; ++j) Swap(p_abKey, j, j - 4);
}

// What those passes begin with. The key itself stands nowhere in the library's file.
SeedKey StoredSeedKey();

}    // namespace callorv::detail

#endif
