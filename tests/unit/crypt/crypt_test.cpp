// Streams encrypted and decrypted under the key that is built in, and under one that is given.
#include <callorv/crypt/crypt.h>

#include <climits>
#include <functional>
#include <iterator>
#include <string_view>
#include <thread>
#include <vector>

#include "support/fail_alloc.h"
#include "support/small_stack.h"
#include "support/valgrind.h"
#include "unit/crypt/oracle.h"

namespace {

// Results of one call; sOut is what the stream held after it.
struct T_Result {
  int iRet;
  std::string sOut, sErr;
};

// The output stream and the text hold something before the call.
T_Result Decrypt(const std::string& p_sIn) {
  CStream stIn(0, 512), stOut(0, 512);
  CString sErr("before");
  Fill(stIn, p_sIn);
  Fill(stOut, "what was there before, more than a block of it");
  const int iRet = CCrypt::DecryptStream(stIn, stOut, sErr);
  CHECK(stOut.GetData()[stOut.GetSize()] == 0);
  CHECK((Bytes(stIn) == p_sIn));
  return {iRet, Bytes(stOut), sErr.ToStr()};
}

T_Result Encrypt(const std::string& p_sIn) {
  CStream stIn(0, 512), stOut(0, 512);
  CString sErr("before");
  Fill(stIn, p_sIn);
  Fill(stOut, "what was there before, more than a block of it");
  const int iRet = CCrypt::EncryptStream(stIn, stOut, sErr);
  CHECK(stOut.GetData()[stOut.GetSize()] == 0);
  CHECK((Bytes(stIn) == p_sIn));
  return {iRet, Bytes(stOut), sErr.ToStr()};
}

}    // namespace

TEST_CASE("DecryptStream: a length that is no multiple of 16 is corrupted") {
  for (size_t i = 1; i <= 49; ++i) {
    if (i % 16 == 0) continue;
    CAPTURE(i);
    const T_Result tResult = Decrypt(std::string(i, 'x'));
    CHECK(tResult.iRet == -1);
    CHECK(tResult.sErr == "Input data is corrupted");
    CHECK(tResult.sOut.empty());
  }
}

TEST_CASE("DecryptStream: nothing gives nothing") {
  const T_Result tResult = Decrypt("");
  CHECK(tResult.iRet == 0);
  CHECK(tResult.sErr == "before");
  CHECK(tResult.sOut.empty());
}

TEST_CASE("DecryptStream: a padding of 0 to 15 takes as many bytes, a larger one the whole block") {
  CRandom cRandom(6);
  std::string sPlain = cRandom.Bytes(16 * 256);
  for (size_t i = 0; i < 256; ++i) sPlain[16 * i + 15] = static_cast<char>(i);
  const std::string sCipher = Encrypted(sPlain);
  for (size_t i = 0; i < 256; ++i) {
    CAPTURE(i);
    const size_t iKept = i < 16 ? 16 - i : 0;
    T_Result tResult = Decrypt(sCipher.substr(16 * i, 16));
    CHECK(tResult.iRet == 0);
    CHECK(tResult.sErr == "before");
    CHECK((tResult.sOut == sPlain.substr(16 * i, iKept)));

    const size_t iFirst = i < 254 ? i + 2 : 0;    // and behind two whole blocks
    tResult = Decrypt(sCipher.substr(16 * (iFirst % 254), 32) + sCipher.substr(16 * i, 16));
    CHECK(tResult.iRet == 0);
    CHECK((tResult.sOut == sPlain.substr(16 * (iFirst % 254), 32) + sPlain.substr(16 * i, iKept)));
  }
}

TEST_CASE("DecryptStream: blocks are decrypted each by itself, in order") {
  std::string sPlain = CRandom(7).Bytes(16 * 500);
  sPlain.replace(16 * 3, 16, sPlain.substr(0, 16));    // equal blocks are equal when encrypted
  sPlain.back() = 5;
  const std::string sCipher = Encrypted(sPlain);
  CHECK((sCipher.substr(16 * 3, 16) == sCipher.substr(0, 16)));
  const T_Result tResult = Decrypt(sCipher);
  CHECK(tResult.iRet == 0);
  CHECK((tResult.sOut == sPlain.substr(0, sPlain.size() - 5)));
}

TEST_CASE("DecryptStream: bytes in the middle that look like padding stay") {
  const std::string sPlain = std::string(16, '\x10') + std::string(16, '\xff') + std::string(15, 'z') + '\0';
  const T_Result tResult = Decrypt(Encrypted(sPlain));
  CHECK(tResult.iRet == 0);
  CHECK((tResult.sOut == sPlain));
}

TEST_CASE("EncryptStream: every byte of the padding says how long it is, as OpenSSL pads") {
  CRandom cRandom(8);
  for (size_t i = 0; i <= 50; ++i) {
    CAPTURE(i);
    const std::string sPlain = cRandom.Bytes(i);
    const size_t iPadding = 16 - i % 16;
    const T_Result tResult = Encrypt(sPlain);
    CHECK(tResult.iRet == 0);
    CHECK(tResult.sErr == "before");
    CHECK(tResult.sOut.size() == i + iPadding);
    CHECK((tResult.sOut == Encrypted(sPlain + std::string(iPadding, static_cast<char>(iPadding)))));
    CHECK((Openssl(tResult.sOut, CALLORV_SEED_KEY, "-d") == sPlain));
  }
}

TEST_CASE("EncryptStream: DecryptStream gives back what went in") {
  CRandom cRandom(9);
  for (size_t i = 0; i <= 100000; i += i < 4096 ? 1 : 95904) {
    CAPTURE(i);
    const std::string sPlain = cRandom.Bytes(i);
    const T_Result tResult = Decrypt(Encrypt(sPlain).sOut);
    CHECK(tResult.iRet == 0);
    CHECK((tResult.sOut == sPlain));
  }
}

TEST_CASE("EncryptStream: an input whose padded form could not be counted is too long") {
  if (sizeof(void*) == 4) NOT_UNDER_VALGRIND("2 GB in one piece");
  CStream stIn(0, 512), stOut(0, 512);
  CString sErr;
  bool bRoom = true;
  try {
    stIn.GetBuffer(2147483616);    // its pages are never touched, so this takes addresses, not memory
  } catch (const std::bad_alloc&) {
    bRoom = false;
  }
  REQUIRE(bRoom);
  stIn.ReleaseBuffer(2147483616);
  Fill(stOut, "before");
  CHECK(CCrypt::EncryptStream(stIn, stOut, sErr) == -1);
  CHECK(sErr == "Input data is too long");
  CHECK(stOut.GetSize() == 0);

  stIn.ReleaseBuffer(2147483615);    // not too long: goes on to make room
  CFailAlloc cFail(1);
  CHECK(cFail.Run([&] { CCrypt::EncryptStream(stIn, stOut, sErr); }));
}

TEST_CASE("without memory std::bad_alloc is thrown and the output is empty") {
  CStream stIn(0, 512), stOut(0, 512);
  CString sErr;
  Fill(stIn, std::string(32, 'x'));
  CFailAlloc cFail(1);
  CHECK(cFail.Run([&] { CCrypt::DecryptStream(stIn, stOut, sErr); }));
  CHECK(stOut.GetSize() == 0);
  CFailAlloc cAgain(1);
  CHECK(cAgain.Run([&] { CCrypt::EncryptStream(stIn, stOut, sErr); }));
  CHECK(stOut.GetSize() == 0);
}

TEST_CASE("a stream that has the room is decrypted into without an allocation") {
  CStream stIn(0, 512), stOut(48, 512);
  CString sErr;
  Fill(stIn, std::string(48, 'x'));
  CFailAlloc cCount;
  cCount.Run([&] { CCrypt::DecryptStream(stIn, stOut, sErr); });
  CHECK(cCount.GetCount() == 0);
}

TEST_CASE("several threads may encrypt and decrypt at once") {
  std::vector<std::thread> cThreads;
  std::vector<int> aiRight(4, 0);
  for (size_t iThread = 0; iThread < aiRight.size(); ++iThread) {
    cThreads.emplace_back([&aiRight, iThread] {
      CRandom cRandom(static_cast<uint32_t>(iThread));
      CStream stPlain(0, 512), stCipher(0, 512), stAgain(0, 512);
      CString sErr;
      for (int i = 0; i < 100; ++i) {
        const std::string sPlain = cRandom.Bytes(cRandom.Byte());
        stPlain.Clear();
        stPlain.AppendData(sPlain.data(), static_cast<int>(sPlain.size()));
        CCrypt::EncryptStream(stPlain, stCipher, sErr);
        CCrypt::DecryptStream(stCipher, stAgain, sErr);
        if (Bytes(stAgain) == sPlain) ++aiRight[iThread];
      }
    });
  }
  for (std::thread& cThread : cThreads) cThread.join();
  for (const int iRight : aiRight) CHECK(iRight == 100);
}

TEST_CASE("neither the key nor the round keys are left on the stack") {
  NOT_UNDER_VALGRIND("a stack that nobody uses any more may not be read");
  unsigned long aiKeys[32];
  CCrypt::CreateRoundKey(aiKeys);
  CStream stPlain(0, 512), stCipher(0, 512), stOut(0, 512);
  CString sErr;
  Fill(stPlain, "text");
  Fill(stCipher, Encrypted(std::string(16, 'x')));
  const std::function<void()> afnDo[] = {[&] { CCrypt::DecryptStream(stCipher, stOut, sErr); },
                                         [&] { CCrypt::EncryptStream(stPlain, stOut, sErr); },
                                         [&] { CCrypt::CreateRoundKey(aiKeys); }};
  for (const auto& fnDo : afnDo) {
    std::vector<char> acStack(2 * 1024 * 1024);    // as much as a sanitizer needs
    OnSmallStack([&] {
      [[maybe_unused]] volatile char acBelow[128 * 1024];    // what ends the thread does not write over what is left
      acBelow[0] = 0;
      fnDo();
    }, acStack.size(), acStack.data());
    const std::string_view sLeft(acStack.data(), acStack.size());
    // Parts of them, as others may be written over by what is called later.
    CHECK(sLeft.find(FromHex(CALLORV_SEED_KEY).substr(0, 8)) == sLeft.npos);
    CHECK(sLeft.find(FromHex(CALLORV_SEED_KEY).substr(8)) == sLeft.npos);
    for (size_t i = 0; i < std::size(aiKeys); i += 4) {
      const std::string_view sFour(reinterpret_cast<const char*>(aiKeys + i), 4 * sizeof(*aiKeys));
      CAPTURE(i);
      CHECK(sLeft.find(sFour) == sLeft.npos);
    }
  }
}

TEST_CASE("DecryptStream: the output is emptied before anything else, also when it is the input") {
  for (const size_t uLen : {0u, 16u, 17u, 32u}) {
    CAPTURE(uLen);
    CStream stBoth(0, 512);
    CString sErr("before");
    Fill(stBoth, std::string(uLen, 'x'));
    CHECK(CCrypt::DecryptStream(stBoth, stBoth, sErr) == 0);
    CHECK(stBoth.GetSize() == 0);
  }
}

TEST_CASE("a key that is given: the vectors of RFC 4269, and OpenSSL") {
  struct T_Vector {
    const char *szKey, *szPlain, *szCipher;
  };
  for (const T_Vector& t : {
           T_Vector{"00000000000000000000000000000000", "000102030405060708090a0b0c0d0e0f", "5ebac6e0054e166819aff1cc6d346cdb"},
           T_Vector{"000102030405060708090a0b0c0d0e0f", "00000000000000000000000000000000", "c11f22f20140505084483597e4370f43"},
           T_Vector{"4706480851e61be85d74bfb3fd956185", "83a2f8a288641fb9a4e9a5cc2f131c7d", "ee54d13ebcae706d226bc3142cd40d4a"},
           T_Vector{"28dbc3bc49ffd87dcfa509b11d422be7", "b41e6be2eba84a148e2eed84593c5ec7", "9b9b7bfcd1813cb95d0b3618f40f5122"},
       }) {
    CAPTURE(t.szKey);
    const std::string sKey = FromHex(t.szKey), sPlain = FromHex(t.szPlain);
    CStream stIn(0, 512), stSecret(0, 512), stAgain(0, 512);
    CString sErr("before");
    Fill(stIn, sPlain);
    CHECK(CCrypt::EncryptStream(stIn, stSecret, sErr, Unsigned(sKey)) == 0);
    CHECK(ToHex(Bytes(stSecret).substr(0, 16)) == t.szCipher);
    CHECK((Bytes(stSecret) == Openssl(sPlain, t.szKey, "-e")));
    CHECK(CCrypt::DecryptStream(stSecret, stAgain, sErr, Unsigned(sKey)) == 0);
    CHECK((Bytes(stAgain) == sPlain));
    CHECK(sErr == "before");
  }
}

TEST_CASE("a key that is given: null is the built-in key, and what is refused is refused in the same words") {
  const std::string sKey = FromHex("00112233445566778899aabbccddeeff");
  CStream stIn(0, 512), stOut(0, 512), stBuiltIn(0, 512);
  CString sErr;
  Fill(stIn, "a text");
  CHECK(CCrypt::EncryptStream(stIn, stOut, sErr, nullptr) == 0);
  CHECK(CCrypt::EncryptStream(stIn, stBuiltIn, sErr) == 0);
  CHECK((Bytes(stOut) == Bytes(stBuiltIn)));
  CHECK(CCrypt::DecryptStream(stBuiltIn, stOut, sErr, nullptr) == 0);
  CHECK(Bytes(stOut) == "a text");
  Fill(stIn, std::string(15, 'x'));
  CHECK(CCrypt::DecryptStream(stIn, stOut, sErr, Unsigned(sKey)) == -1);
  CHECK(sErr == "Input data is corrupted");
  CHECK(stOut.GetSize() == 0);
}
