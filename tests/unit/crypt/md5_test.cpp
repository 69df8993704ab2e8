// The MD5 message digest, against RFC 1321, hashlib and md5sum.
#include <callorv/crypt/md5.h>

#include <algorithm>
#include <sstream>

#include "unit/crypt/oracle.h"

namespace {

std::string Hex(const std::string& p_s) {
  MD5 cDigest;
  cDigest.update(p_s.data(), static_cast<unsigned>(p_s.size()));
  cDigest.finalize();
  return cDigest.hexdigest();
}

std::string Raw(const MD5& p_cDigest) {
  return std::string(reinterpret_cast<const char*>(p_cDigest.valdigest()), MD5::DIGEST_SIZE);
}

// As many bytes of p_c, a piece at a time.
std::string HexOfMany(char p_c, unsigned p_iCount) {
  const std::string sPiece(1 << 20, p_c);
  MD5 cDigest;
  while (p_iCount > 0) {
    const auto iNow = std::min(p_iCount, static_cast<unsigned>(sPiece.size()));
    cDigest.update(sPiece.data(), iNow);
    p_iCount -= iNow;
  }
  cDigest.finalize();
  return cDigest.hexdigest();
}

}    // namespace

TEST_CASE("MD5: the test suite of RFC 1321") {
  static const char* const s_aszRow[][2] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"}};
  for (const auto& aszRow : s_aszRow) {
    CAPTURE(aszRow[0]);
    CHECK(Hex(aszRow[0]) == aszRow[1]);
  }
}

TEST_CASE("MD5: texts of every length up to 300 bytes, as hashlib digests them") {
  std::istringstream cExpected(Python(R"py(
import hashlib
for n in range(301):
    print(hashlib.md5(bytes((i * 167 + 13) % 256 for i in range(n))).hexdigest())
)py"));
  std::string sText, sExpected;
  for (size_t i = 0; i <= 300; ++i) {
    CAPTURE(i);
    REQUIRE(static_cast<bool>(std::getline(cExpected, sExpected)));
    CHECK(Hex(sText) == sExpected);
    sText += static_cast<char>((i * 167 + 13) % 256);
  }
}

TEST_CASE("MD5: a file as md5sum digests it") {
  const CTempDir cDir;
  const std::string sContent = CRandom(3).Bytes(1000003);
  CHECK(Hex(sContent) + "  -\n" == Output("md5sum < " + cDir.Write("file", sContent)));
}

TEST_CASE("MD5: pieces give what the whole gives, wherever it is cut") {
  const std::string s = CRandom(4).Bytes(200);
  const std::string sWhole = Hex(s);
  for (unsigned i = 0; i <= 200; ++i) {
    for (unsigned j = i; j <= 200; ++j) {
      MD5 cDigest;
      cDigest.update(s.data(), i);
      cDigest.update(Unsigned(s) + i, j - i);
      cDigest.update(s.data() + j, 200 - j);
      cDigest.finalize();
      REQUIRE(cDigest.hexdigest() == sWhole);
    }
  }
}

TEST_CASE("MD5: one byte at a time") {
  const std::string s = CRandom(5).Bytes(300);
  MD5 cDigest;
  for (const char& c : s) cDigest.update(&c, 1);
  cDigest.finalize();
  CHECK(cDigest.hexdigest() == Hex(s));
}

TEST_CASE("MD5: the raw digest is the same as the hexadecimal one") {
  MD5 cDigest;
  cDigest.update("abc", 3);
  cDigest.finalize();
  CHECK(ToHex(Raw(cDigest)) == "900150983cd24fb0d6963f7d28e17f72");
  CHECK(std::string(cDigest.hexdigest()) == "900150983cd24fb0d6963f7d28e17f72");
}

TEST_CASE("MD5: before finalize the digest is zeros") {
  MD5 cDigest;
  cDigest.update("abc", 3);
  CHECK(Raw(cDigest) == std::string(16, '\0'));
  CHECK(std::string(cDigest.hexdigest()) == "00000000000000000000000000000000");
}

TEST_CASE("MD5: finalize ends the input, once and for all") {
  MD5 cDigest;
  cDigest.update("abc", 3);
  cDigest.finalize();
  cDigest.finalize();
  cDigest.update("def", 3);
  cDigest.update(Unsigned("def"), 3);
  cDigest.finalize();
  CHECK(std::string(cDigest.hexdigest()) == "900150983cd24fb0d6963f7d28e17f72");
}

TEST_CASE("MD5: init starts over, in the middle and after the end") {
  MD5 cDigest;
  cDigest.update("something else", 14);
  cDigest.init();
  cDigest.update("abc", 3);
  cDigest.finalize();
  CHECK(std::string(cDigest.hexdigest()) == "900150983cd24fb0d6963f7d28e17f72");
  cDigest.init();
  CHECK(std::string(cDigest.hexdigest()) == "00000000000000000000000000000000");
  CHECK(Raw(cDigest) == std::string(16, '\0'));
  cDigest.update("a", 1);
  cDigest.finalize();
  CHECK(std::string(cDigest.hexdigest()) == "0cc175b9c0f1b6a831c399e269772661");
}

TEST_CASE("MD5: nothing may come from nowhere") {
  MD5 cDigest;
  cDigest.update(static_cast<const char*>(nullptr), 0);
  cDigest.update(static_cast<const unsigned char*>(nullptr), 0);
  cDigest.finalize();
  CHECK(std::string(cDigest.hexdigest()) == "d41d8cd98f00b204e9800998ecf8427e");
}

TEST_CASE("MD5: the length is counted beyond 32 bits") {
  CHECK(HexOfMany('a', (1u << 29) + 1) == "078bda7798db94df0cbf9700c4029912");
}
