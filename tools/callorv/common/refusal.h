// Why the library refuses a file, in words by which one can act.
#ifndef CALLORV_TOOLS_REFUSAL_H
#define CALLORV_TOOLS_REFUSAL_H

#include <callorv/dict/msg_dic.h>

#include <string>
#include <string_view>

// What is the matter with a dictionary, with an encrypted one whatever its name, and with a key file, and what to try:
// "Permission denied", "encrypted under another SEED key, or damaged; ..."; "" when the file tells of nothing.
std::string DictionaryReason(const std::string& p_sPath);
std::string SealedReason(const std::string& p_sPath);
std::string KeyReason(const std::string& p_sPath);
// The same of what stands in an encrypted dictionary and in a key file, under the SEED key p_pSeedKey (null: that of
// this command). p_sTry: what to do about another SEED key.
std::string SealedBytesReason(const std::string& p_sBytes, const unsigned char* p_pSeedKey, const std::string& p_sTry);
std::string KeyBytesReason(const std::string& p_sBytes, const unsigned char* p_pSeedKey, const std::string& p_sTry);
// The encrypted bytes of the key, 16 or 32, in a key file of which KeyBytesReason says at most that the key is foreign
// or empty.
std::string SealedKey(std::string_view p_sBytes);

// What a failure says of a file: its name, the reason unless it is empty, and the library's own words.
std::string Refusal(const std::string& p_sName, const std::string& p_sReason, const std::string& p_sLibrary);
// The same of a dictionary and of a key file that the library refused; the reason is looked for in the file.
std::string DictionaryRefusal(const std::string& p_sPath, const std::string& p_sLibrary);
std::string KeyRefusal(const std::string& p_sPath, const std::string& p_sLibrary);

// p_cDic.InitDictionary; what it throws becomes a CFailure with DictionaryRefusal.
void LoadDictionary(CMsgDic& p_cDic, const std::string& p_sPath);

#endif
