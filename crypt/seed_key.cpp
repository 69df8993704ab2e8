// The bytes of which the SEED key is made; CALLORV_SEED_KEY, 32 hexadecimal digits, comes from the build.
#include "crypt/seed_key.h"

#include <utility>

namespace callorv::detail {

namespace {

constexpr unsigned Digit(char p_c) {
  return static_cast<unsigned>(p_c <= '9' ? p_c - '0' : (p_c | 0x20) - 'a' + 10);
}

// Undoes the swaps, the last one first.
constexpr SeedKey StoredKey(const char* p_szKey) {
  std::pair<int, int> atSwap[28];
  int iSwaps = 0;
  ForEachKeySwap([&](int p_i, int p_j) {
    atSwap[iSwaps].first = p_i;
    atSwap[iSwaps++].second = p_j;
  });
  SeedKey abKey{};
  for (unsigned i = 0; i < 16; ++i) {
    abKey[i] = static_cast<unsigned char>(Digit(p_szKey[2 * i]) << 4 | Digit(p_szKey[2 * i + 1]));
  }
  while (iSwaps-- > 0) Swap(abKey, atSwap[iSwaps].first, atSwap[iSwaps].second);
  return abKey;
}

static_assert(sizeof(CALLORV_SEED_KEY) == 33);

}    // namespace

constexpr SeedKey s_abStored = StoredKey(CALLORV_SEED_KEY);    // worked out by the compiler
const SeedKey& StoredSeedKey() { return s_abStored; }

}    // namespace callorv::detail
