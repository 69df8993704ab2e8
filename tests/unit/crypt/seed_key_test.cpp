// The key that is built in.
#include "crypt/seed_key.h"

#include <callorv/crypt/crypt.h>

#include <algorithm>
#include <sstream>

#include "crypt/seed.h"
#include "unit/crypt/oracle.h"

using namespace callorv::detail;

namespace {

const std::string s_sHexKey = CALLORV_SEED_KEY;

bool Holds(const std::string& p_s, const std::string& p_sPart) { return p_s.find(p_sPart) != std::string::npos; }

std::string LowerCase(std::string p_s) {
  std::transform(p_s.begin(), p_s.end(), p_s.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; });
  return p_s;
}

}    // namespace

TEST_CASE("CreateRoundKey: the round keys of the key that the build was given") {
  unsigned long aiKeys[34], aiExpected[32];
  std::fill(std::begin(aiKeys), std::end(aiKeys), 0x12345678ul);
  CCrypt::CreateRoundKey(aiKeys + 1);
  SeedRoundKey(aiExpected, Unsigned(FromHex(s_sHexKey)));
  for (size_t i = 0; i < 32; ++i) {
    CAPTURE(i);
    CHECK(aiKeys[i + 1] == aiExpected[i]);
    CHECK(aiKeys[i + 1] <= 0xFFFFFFFFul);
  }
  CHECK(aiKeys[0] == 0x12345678ul);
  CHECK(aiKeys[33] == 0x12345678ul);
}

TEST_CASE("PermuteSeedKey: reverses, swaps the halves, turns the groups of four") {
  SeedKey abKey = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  PermuteSeedKey(abKey);
  CHECK(abKey == SeedKey{3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4});
}

TEST_CASE("StoredSeedKey: the passes turn it into the key") {
  SeedKey abKey = StoredSeedKey();
  PermuteSeedKey(abKey);
  CHECK(ToHex(std::string(abKey.begin(), abKey.end())) == LowerCase(s_sHexKey));
}

TEST_CASE("the key stands in none of the object files, neither as bytes nor as digits") {
  std::istringstream cPaths(TEST_CRYPT_OBJECTS);
  std::string sPath;
  int iFiles = 0;
  bool bStored = false;
  const SeedKey abStored = StoredSeedKey();
  while (std::getline(cPaths, sPath, ':')) {
    CAPTURE(sPath);
    const std::string sFile = ReadWholeFile(sPath);
    CHECK(sFile.size() > 1000);
    CHECK_FALSE(Holds(sFile, FromHex(s_sHexKey)));
    CHECK_FALSE(Holds(LowerCase(sFile), LowerCase(s_sHexKey)));
    bStored = bStored || Holds(sFile, std::string(abStored.begin(), abStored.end()));
    ++iFiles;
  }
  CHECK(iFiles == 5);
  CHECK(bStored);    // so a key would have been found
}
