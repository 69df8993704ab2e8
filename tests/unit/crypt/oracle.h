// What the tests of crypt share: bytes, streams, and the programs whose answers are the right ones.
#ifndef TESTS_UNIT_CRYPT_ORACLE_H
#define TESTS_UNIT_CRYPT_ORACLE_H

#include <callorv/base/stream.h>
#include <doctest/doctest.h>
#include <stdio.h>

#include <string>

#include "seed_key_value.h"
#include "support/descriptors.h"
#include "support/random.h"
#include "support/temp_file.h"

inline std::string ToHex(const std::string& p_s) {
  static const char s_szDigits[] = "0123456789abcdef";
  std::string sHex;
  for (const unsigned char c : p_s) {
    sHex += s_szDigits[c >> 4];
    sHex += s_szDigits[c & 15];
  }
  return sHex;
}

inline std::string FromHex(const std::string& p_sHex) {
  std::string s;
  for (size_t i = 0; i + 1 < p_sHex.size(); i += 2) s += static_cast<char>(std::stoi(p_sHex.substr(i, 2), nullptr, 16));
  return s;
}

inline const unsigned char* Unsigned(const std::string& p_s) {
  return reinterpret_cast<const unsigned char*>(p_s.data());
}

inline std::string Bytes(const CStream& p_st) {
  return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize()));
}

inline void Fill(CStream& p_st, const std::string& p_s) {
  p_st.Clear();
  REQUIRE(p_st.AppendData(p_s.data(), static_cast<int>(p_s.size())) == 0);
}

// What a command of the shell prints; it has to end well.
inline std::string Output(const std::string& p_sCommand) {
  CAPTURE(p_sCommand);
  FILE* pPipe = popen(p_sCommand.c_str(), "r");
  REQUIRE(pPipe != nullptr);
  std::string sOut;
  char szPart[4096];
  while (const size_t iNow = fread(szPart, 1, sizeof(szPart), pPipe)) sOut.append(szPart, iNow);
  REQUIRE(pclose(pPipe) == 0);
  return sOut;
}

inline std::string Python(const std::string& p_sProgram) {
  const CTempDir cDir;
  return Output(std::string(TEST_PYTHON) + " " + cDir.Write("program.py", p_sProgram));
}

// p_sIn through OpenSSL's SEED in ECB mode. p_sOptions: "-e" or "-d"; and "-nopad" for whole blocks as they are.
inline std::string Openssl(const std::string& p_sIn, const std::string& p_sHexKey, const std::string& p_sOptions) {
  const CTempDir cDir;
  return Output("openssl enc -seed-ecb -provider legacy -provider default -K " + p_sHexKey + " " + p_sOptions +
                " -in " + cDir.Write("in", p_sIn));
}

// Whole blocks, encrypted under the key of the build by a program that is not ours.
inline std::string Encrypted(const std::string& p_sBlocks) { return Openssl(p_sBlocks, CALLORV_SEED_KEY, "-e -nopad"); }

#endif
