// The bytes of which the SEED key is made; CALLORV_SEED_KEY, in hexadecimal, is in a header that the build writes.
#include "crypt/seed_key.h"

#include "seed_key_value.h"

namespace callorv::detail {

namespace {

static_assert(sizeof(CALLORV_SEED_KEY) == 2 * CCrypt::SEED_KEY_SIZE + 1);

constexpr unsigned Digit(char p_c) {
  return static_cast<unsigned>(p_c <= '9' ? p_c - '0' : (p_c | 0x20) - 'a' + 10);
}

// The bytes that the passes turn into the key.
constexpr SeedKey StoredKey(const char* p_szKey) {
  SeedKey abFrom{};    // where each byte of the key comes from
  for (size_t i = 0; i < abFrom.size(); ++i) abFrom[i] = static_cast<unsigned char>(i);
  PermuteSeedKey(abFrom);
  SeedKey abStored{};
  for (size_t i = 0; i < abFrom.size(); ++i) {
    abStored[abFrom[i]] = static_cast<unsigned char>(Digit(p_szKey[2 * i]) << 4 | Digit(p_szKey[2 * i + 1]));
  }
  return abStored;
}

}    // namespace

SeedKey StoredSeedKey() {
  static constexpr SeedKey s_abStored = StoredKey(CALLORV_SEED_KEY);    // worked out by the compiler
  // Read as volatile: an optimiser that sees the whole library would else carry the passes out, too.
  const volatile unsigned char* pStored = s_abStored.data();
  SeedKey abKey{};
  for (unsigned char& b : abKey) b = *pStored++;
  return abKey;
}

}    // namespace callorv::detail
