// The user key, out of the bytes of a key file.
#include <callorv/crypt/crypt.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "support/fail_alloc.h"
#include "unit/crypt/oracle.h"

namespace {

// A key file's parts, and the file made of them with the digest that md5sum finds.
struct T_Parts {
  std::string sTable = CRandom(12).Bytes(4096);
  std::string sIndex = std::string(32, '\0');

  std::string File() const {
    const CTempDir cDir;
    const std::string sRest = sTable + sIndex;
    return FromHex(Output("md5sum < " + cDir.Write("rest", sRest)).substr(0, 32)) + sRest;
  }
};

// The bytes of the encrypted key at places that go down by 7 from 255.
T_Parts PartsOf(const std::string& p_sEncrypted) {
  T_Parts tParts;
  for (size_t i = 0; i < p_sEncrypted.size(); ++i) {
    const size_t iPlace = 255 - 7 * i;
    tParts.sIndex[i] = static_cast<char>(iPlace);
    tParts.sTable[iPlace] = p_sEncrypted[i];
  }
  return tParts;
}

// p_sKey with as many bytes of padding as OpenSSL adds.
T_Parts PartsOfKey(const std::string& p_sKey) { return PartsOf(Openssl(p_sKey, CALLORV_SEED_KEY, "-e")); }

struct T_Result {
  int iRet;
  std::string sKey, sErr;
  bool operator==(const T_Result& p_t) const { return iRet == p_t.iRet && sKey == p_t.sKey && sErr == p_t.sErr; }
};

doctest::String toString(const T_Result& p_t) {
  return (std::to_string(p_t.iRet) + " '" + p_t.sKey + "' '" + p_t.sErr + "'").c_str();
}

// The key and the text hold something before the call.
T_Result Extract(const std::string& p_sFile) {
  CStream stFile(0, 512);
  CString sKey("old key"), sErr("before");
  Fill(stFile, p_sFile);
  const int iRet = CCrypt::ExtractUserKey(stFile, sKey, sErr);
  CHECK((Bytes(stFile) == p_sFile));
  CHECK(static_cast<size_t>(sKey.GetSize()) == strlen(sKey.ToStr()));
  return {iRet, sKey.ToStr(), sErr.ToStr()};
}

const T_Result s_tCorrupted = {-1, "old key", "Corrupted UserKey data"};
const T_Result s_tChecksum = {-2, "old key", "Corrupted UserKey data(checksum)"};

T_Result Key(const std::string& p_sKey) { return {0, p_sKey, ""}; }

}    // namespace

TEST_CASE("a key file is 4144 bytes: digest, table, index bytes") {
  CHECK(+CCrypt::KEY_FILE_SIZE == 4144);
  CHECK(offsetof(T_KeyFile, abDigest) == 0);
  CHECK(offsetof(T_KeyFile, abTable) == 16);
  CHECK(offsetof(T_KeyFile, abIndex) == 4112);
}

TEST_CASE("ExtractUserKey: keys of 0 to 31 characters") {
  const std::string sAll = "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234";
  for (size_t i = 0; i <= 31; ++i) {
    CAPTURE(i);
    const T_Parts tParts = PartsOfKey(sAll.substr(0, i));
    CHECK((tParts.sIndex[16] != 0) == (i > 15));
    CHECK(Extract(tParts.File()) == Key(sAll.substr(0, i)));
  }
}

TEST_CASE("ExtractUserKey: fewer than 4144 bytes are corrupted, whatever they are") {
  const std::string sFile = PartsOfKey("BRANCH-0042").File();
  REQUIRE(sFile.size() == 4144);
  for (const size_t i : {0u, 1u, 15u, 16u, 4111u, 4112u, 4143u}) {
    CAPTURE(i);
    CHECK(Extract(sFile.substr(0, i)) == s_tCorrupted);
    CHECK(Extract(std::string(i, 'x')) == s_tCorrupted);
  }
  CHECK(Extract(sFile) == Key("BRANCH-0042"));
  CHECK(Extract(std::string(4144, 'x')) == s_tChecksum);
}

TEST_CASE("ExtractUserKey: what follows the 4144 bytes is ignored") {
  const std::string sFile = PartsOfKey("BRANCH-0042").File();
  for (const size_t i : {1u, 16u, 100u, 100000u}) {
    CAPTURE(i);
    CHECK(Extract(sFile + std::string(i, '\0')) == Key("BRANCH-0042"));
    CHECK(Extract(sFile + std::string(i, 'x')) == Key("BRANCH-0042"));
  }
}

TEST_CASE("ExtractUserKey: a change of any of the 4144 bytes is found") {
  for (const char* szKey : {"BRANCH-0042", "A KEY IN THE FORM OF 32 BYTES"}) {
    std::string sFile = PartsOfKey(szKey).File();
    for (size_t i = 0; i < 4144; ++i) {
      CAPTURE(i);
      const char c = sFile[i];
      sFile[i] = static_cast<char>(c ^ 1 << i % 8);
      REQUIRE(Extract(sFile) == s_tChecksum);
      sFile[i] = c;
    }
    CHECK(Extract(sFile) == Key(szKey));
  }
}

TEST_CASE("ExtractUserKey: the key ends at its first NUL") {
  const std::string sNul("\0", 1);
  CHECK(Extract(PartsOfKey("AB" + sNul + "CD").File()) == Key("AB"));
  CHECK(Extract(PartsOfKey(sNul + "CD").File()) == Key(""));
  CHECK(Extract(PartsOfKey("0123456789ABCDEF" + sNul + "CD").File()) == Key("0123456789ABCDEF"));
}

TEST_CASE("ExtractUserKey: the last byte says how much of the last block is padding") {
  for (const bool bLong : {false, true}) {
    const std::string sFirst = bLong ? "the first block!" : "";
    for (const int i : {0, 1, 2, 14, 15, 16, 17, 127, 128, 255}) {
      CAPTURE(bLong);
      CAPTURE(i);
      const std::string sLast = std::string("abcdefghijklmno") + static_cast<char>(i);
      const std::string sKept = i == 0 ? "abcdefghijklmno" : i < 16 ? sLast.substr(0, static_cast<size_t>(16 - i)) : "";
      CHECK(Extract(PartsOf(Encrypted(sFirst + sLast)).File()) == Key(sFirst + sKept));
    }
  }
}

TEST_CASE("ExtractUserKey: bytes above 127 are characters like others") {
  CHECK(Extract(PartsOfKey("\xC4\xD6\xDC\xFF\x80").File()) == Key("\xC4\xD6\xDC\xFF\x80"));
}

TEST_CASE("ExtractUserKey: index byte 16 decides the form") {
  T_Parts tParts = PartsOfKey("BRANCH-0042");
  std::fill(tParts.sIndex.begin() + 17, tParts.sIndex.end(), '\x7');
  CHECK(Extract(tParts.File()) == Key("BRANCH-0042"));    // the list has ended, so the rest is nothing
  tParts.sIndex[16] = 1;
  CHECK(Extract(tParts.File()).sKey != "BRANCH-0042");

  tParts = PartsOfKey("A KEY IN THE FORM OF 32 BYTES");
  tParts.sIndex[16] = 0;
  const std::string sHead = "A KEY IN THE FOR";
  CHECK(sHead.back() >= 16);    // which is too much for a padding
  CHECK(Extract(tParts.File()) == Key(""));
}

TEST_CASE("ExtractUserKey: every table entry from 1 to 255 can be meant, one also twice") {
  const std::string sEncrypted = Openssl("A KEY IN THE FORM OF 32 BYTES", CALLORV_SEED_KEY, "-e");
  for (size_t iFirst = 1; iFirst <= 224; iFirst += 32) {    // the last one begins at 193 and ends at 224
    CAPTURE(iFirst);
    T_Parts tParts;
    for (size_t i = 0; i < 32; ++i) {
      tParts.sIndex[i] = static_cast<char>(iFirst + i);
      tParts.sTable[iFirst + i] = sEncrypted[i];
    }
    CHECK(Extract(tParts.File()) == Key("A KEY IN THE FORM OF 32 BYTES"));
  }
  T_Parts tParts;
  for (size_t i = 0; i < 256; ++i) tParts.sTable[i] = static_cast<char>(i);    // each byte where its value says
  REQUIRE(sEncrypted.find('\0') == std::string::npos);
  tParts.sIndex = sEncrypted;
  CHECK(Extract(tParts.File()) == Key("A KEY IN THE FORM OF 32 BYTES"));
}

TEST_CASE("ExtractUserKey: the rest of the table is filler") {
  T_Parts tParts = PartsOfKey("BRANCH-0042");
  for (size_t i = 0; i < tParts.sTable.size(); ++i) {
    const bool bUsed = i >= 1 && i <= 255 && tParts.sIndex.find(static_cast<char>(i)) < 16;
    if (!bUsed) tParts.sTable[i] = static_cast<char>(tParts.sTable[i] ^ 0x55);
  }
  CHECK(Extract(tParts.File()) == Key("BRANCH-0042"));
}

TEST_CASE("ExtractUserKey: an index list that ends before the key does is corrupted") {
  const T_Parts tShort = PartsOfKey("BRANCH-0042"), tLong = PartsOfKey("A KEY IN THE FORM OF 32 BYTES");
  for (size_t i = 0; i < 32; ++i) {
    CAPTURE(i);
    T_Parts tParts = tShort;
    if (i < 16) {
      tParts.sIndex[i] = 0;
      CHECK(Extract(tParts.File()) == s_tCorrupted);
    }
    if (i != 16) {
      tParts = tLong;
      tParts.sIndex[i] = 0;
      CHECK(Extract(tParts.File()) == s_tCorrupted);
    }
  }
  CHECK(Extract(T_Parts().File()) == s_tCorrupted);    // no index bytes at all
}

TEST_CASE("ExtractUserKey: without memory std::bad_alloc is thrown and the key stays") {
  const std::string sFile = PartsOfKey("A KEY IN THE FORM OF 32 BYTES").File();
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CStream stFile(0, 512);
    CString sKey("old key"), sErr;
    Fill(stFile, sFile);
    const bool bThrew = p_cFail.Run([&] { CCrypt::ExtractUserKey(stFile, sKey, sErr); });
    CHECK(bThrew == p_cFail.HasFailed());
    CHECK(sKey == (bThrew ? "old key" : "A KEY IN THE FORM OF 32 BYTES"));
  });
  CHECK(iFailures >= 1);
}
