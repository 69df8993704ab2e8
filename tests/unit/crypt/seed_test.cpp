// The SEED block cipher, against RFC 4269 and OpenSSL.
#include "crypt/seed.h"

#include "callorv/crypt/crypt.h"
#include "unit/crypt/oracle.h"

using namespace callorv::detail;

namespace {

struct T_Keys {
  unsigned long ai[SEED_ROUND_KEYS];
  explicit T_Keys(const std::string& p_sKey) { SeedRoundKey(ai, Unsigned(p_sKey)); }
};

// Each block of p_s through p_fnCrypt. One byte stands before the first, so that blocks are at odd addresses.
template <class F>
std::string Crypt(const std::string& p_s, const std::string& p_sKey, F p_fnCrypt) {
  const T_Keys tKeys(p_sKey);
  std::string s = "x" + p_s;
  for (size_t i = 1; i < s.size(); i += CCrypt::CIPHER_BLOCK) {
    p_fnCrypt(reinterpret_cast<unsigned char*>(&s[i]), tKeys.ai);
  }
  return s.substr(1);
}

}    // namespace

TEST_CASE("SEED: the examples of RFC 4269") {
  struct T_Row {
    const char *szKey, *szPlain, *szCipher;
  };
  static const T_Row s_atRow[] = {
      {"00000000000000000000000000000000", "000102030405060708090a0b0c0d0e0f", "5ebac6e0054e166819aff1cc6d346cdb"},
      {"000102030405060708090a0b0c0d0e0f", "00000000000000000000000000000000", "c11f22f20140505084483597e4370f43"},
      {"4706480851e61be85d74bfb3fd956185", "83a2f8a288641fb9a4e9a5cc2f131c7d", "ee54d13ebcae706d226bc3142cd40d4a"},
      {"28dbc3bc49ffd87dcfa509b11d422be7", "b41e6be2eba84a148e2eed84593c5ec7", "9b9b7bfcd1813cb95d0b3618f40f5122"}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szKey);
    CHECK(ToHex(Crypt(FromHex(tRow.szPlain), FromHex(tRow.szKey), SeedEncrypt)) == tRow.szCipher);
    CHECK(ToHex(Crypt(FromHex(tRow.szCipher), FromHex(tRow.szKey), SeedDecrypt)) == tRow.szPlain);
    CHECK(ToHex(Openssl(FromHex(tRow.szPlain), tRow.szKey, "-e -nopad")) == tRow.szCipher);
  }
}

// A key takes 16 x 2 x 4 look-ups and a block 16 x 3 x 4: each of the 1024 entries of the tables is met many times.
TEST_CASE("SEED: blocks and keys at random are crypted as OpenSSL does") {
  CRandom cRandom(1);
  for (int i = 0; i < 24; ++i) {
    const std::string sKey = cRandom.Bytes(16), sPlain = cRandom.Bytes(16 * 128);
    CAPTURE(ToHex(sKey));
    const std::string sCipher = Openssl(sPlain, ToHex(sKey), "-e -nopad");
    REQUIRE(sCipher.size() == sPlain.size());
    CHECK((Crypt(sPlain, sKey, SeedEncrypt) == sCipher));
    CHECK((Crypt(sCipher, sKey, SeedDecrypt) == sPlain));
  }
}

TEST_CASE("SEED: keys and blocks of one bit are crypted as OpenSSL does") {
  for (size_t i = 0; i < 128; i += 5) {
    std::string sKey(16, '\0'), sPlain(16 * 128, '\0');
    sKey[i / 8] = static_cast<char>(1 << i % 8);
    for (size_t j = 0; j < 128; ++j) sPlain[16 * j + j / 8] = static_cast<char>(1 << j % 8);
    CAPTURE(i);
    CHECK((Crypt(sPlain, sKey, SeedEncrypt) == Openssl(sPlain, ToHex(sKey), "-e -nopad")));
  }
}

TEST_CASE("SEED: round keys fit in 32 bits") {
  CRandom cRandom(2);
  for (int i = 0; i < 100; ++i) {
    const T_Keys tKeys(cRandom.Bytes(16));
    for (const unsigned long iKey : tKeys.ai) REQUIRE(iKey <= 0xFFFFFFFFul);
  }
}
