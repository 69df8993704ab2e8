// The bytes of which the SEED key is made.
#ifndef CALLORV_CRYPT_SEED_KEY_H
#define CALLORV_CRYPT_SEED_KEY_H

#include <array>

namespace callorv::detail {

using SeedKey = std::array<unsigned char, 16>;

constexpr void Swap(SeedKey& p_abKey, int p_i, int p_j) {
  const unsigned char b = p_abKey[static_cast<unsigned>(p_i)];
  p_abKey[static_cast<unsigned>(p_i)] = p_abKey[static_cast<unsigned>(p_j)];
  p_abKey[static_cast<unsigned>(p_j)] = b;
}

// Calls p_fnSwap(i, j) for each swap of the three passes that turn the stored bytes into the key, in order: reverse all,
// swap the halves, turn the four groups of four by one place.
template <class F>
constexpr void ForEachKeySwap(F p_fnSwap) {
  for (int i = 0; i < 8; ++i) p_fnSwap(i, 15 - i);
  for (int j = 8; j < 16; ++j) p_fnSwap(j, j - 8);
  for (int j = 4; j < 16; ++j) p_fnSwap(j, j - 4);
}

// What those passes begin with. The key itself stands nowhere in the library's file.
const SeedKey& StoredSeedKey();

}    // namespace callorv::detail

#endif
