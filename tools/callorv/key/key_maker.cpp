// Makes user-key files.
#include "key/key_maker.h"

#include <callorv/crypt/md5.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <numeric>
#include <system_error>

#include "command.h"

namespace {

// The kernel's random numbers; a generator in the sense of <random>.
struct T_Random {
  using result_type = unsigned;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }
  result_type operator()() {
    result_type iValue = 0;
    Fill(reinterpret_cast<unsigned char*>(&iValue), sizeof(iValue));
    return iValue;
  }
  static void Fill(unsigned char* p_pOut, size_t p_iLen) {
    while (p_iLen > 0) {
      const ssize_t iGot = getrandom(p_pOut, p_iLen, 0);
      if (iGot < 0 && errno != EINTR) throw CFailure("no random numbers: " + std::generic_category().message(errno));
      if (iGot <= 0) continue;
      p_pOut += iGot;
      p_iLen -= static_cast<size_t>(iGot);
    }
  }
};

void Digest(const T_KeyFile& p_tFile, unsigned char* p_pOut) {
  MD5 cMd5;
  cMd5.update(p_tFile.abTable, sizeof(p_tFile.abTable));
  cMd5.update(p_tFile.abIndex, sizeof(p_tFile.abIndex));
  cMd5.finalize();
  memcpy(p_pOut, cMd5.valdigest(), sizeof(p_tFile.abDigest));
}

}    // namespace

T_KeyFile MakeKeyFile(std::string_view p_sSecret) {
  T_KeyFile tFile;
  T_Random::Fill(tFile.abTable, sizeof(tFile.abTable));
  unsigned char abPlace[255];    // 1 to 255, each once, in random order
  std::iota(std::begin(abPlace), std::end(abPlace), static_cast<unsigned char>(1));
  std::shuffle(std::begin(abPlace), std::end(abPlace), T_Random());
  // What stands behind the end of a list of 16 is never read: it is filler like the rest of the table.
  std::copy_n(abPlace, sizeof(tFile.abIndex), tFile.abIndex);
  if (p_sSecret.size() == CCrypt::CIPHER_BLOCK) tFile.abIndex[CCrypt::CIPHER_BLOCK] = 0;
  for (size_t i = 0; i < p_sSecret.size(); ++i) {
    tFile.abTable[tFile.abIndex[i]] = static_cast<unsigned char>(p_sSecret[i]);
  }
  Digest(tFile, tFile.abDigest);
  return tFile;
}
