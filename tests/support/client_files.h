// The files that a client is set up from: dictionary, key file, configuration.
#ifndef TESTS_SUPPORT_CLIENT_FILES_H
#define TESTS_SUPPORT_CLIENT_FILES_H

#include <callorv/crypt/crypt.h>
#include <callorv/crypt/md5.h>

#include <cstring>
#include <stdexcept>
#include <string>

// The content of a key file of up to 31 characters of key.
inline std::string KeyFile(const std::string& p_sUserKey) {
  CStream stPlain(0, 512), stKey(0, 512);
  CString sErr;
  stPlain.AppendData(p_sUserKey.data(), static_cast<int>(p_sUserKey.size()));
  if (CCrypt::EncryptStream(stPlain, stKey, sErr) < 0 || stKey.GetSize() > 32) throw std::runtime_error("no such key");

  T_KeyFile tFile = {};
  for (size_t i = 0; i < sizeof(tFile.abTable); ++i) tFile.abTable[i] = static_cast<unsigned char>(i * 7 + 3);
  for (int i = 0; i < stKey.GetSize(); ++i) {
    tFile.abIndex[i] = static_cast<unsigned char>(200 - i * 5);
    tFile.abTable[tFile.abIndex[i]] = static_cast<unsigned char>(stKey.GetData()[i]);
  }
  MD5 cDigest;
  cDigest.update(tFile.abTable, sizeof(tFile.abTable));
  cDigest.update(tFile.abIndex, sizeof(tFile.abIndex));
  cDigest.finalize();
  memcpy(tFile.abDigest, cDigest.valdigest(), sizeof(tFile.abDigest));
  return std::string(reinterpret_cast<const char*>(&tFile), sizeof(tFile));
}

// Message 100 has a tag of every type, single and repeated; 101 is its row.
inline const char* ClientDictionary() {
  return R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<msg_dictionary>
  <msg no="1" name="Hello" ver="1.0">
    <tag no="1" name="text" type="string" />
  </msg>
  <msg no="10" name="REJECT" ver="1.0" hash="8">
    <tag no="6" name="SysCode" type="integer" />
    <tag no="7" name="SysReasonText" type="string" />
    <tag no="8" name="RefSvcNum" type="integer" />
  </msg>
  <msg no="100" name="Everything" ver="1.0" hash="16">
    <tag no="1" name="text" type="string" />
    <tag no="2" name="number" type="integer" />
    <tag no="3" name="price" type="double" />
    <tag no="4" name="flag" type="bool" />
    <tag no="5" name="day" type="date" />
    <tag no="6" name="row" type="m101" />
    <tag no="11" name="texts" type="string" array="Y" />
    <tag no="12" name="numbers" type="integer" array="Y" />
    <tag no="13" name="prices" type="double" array="Y" />
    <tag no="14" name="flags" type="bool" array="Y" />
    <tag no="15" name="days" type="date" array="Y" />
    <tag no="16" name="rows" type="m101" array="Y" />
  </msg>
  <msg no="101" name="Row">
    <tag no="1" name="text" type="string" />
    <tag no="2" name="number" type="integer" />
  </msg>
</msg_dictionary>
)";
}

#endif
