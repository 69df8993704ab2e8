// Identifiers out of the names of a dictionary, in any language.
#ifndef CALLORV_TOOLS_NAMES_H
#define CALLORV_TOOLS_NAMES_H

#include <callorv/dict/msg_dic.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

// All of the "C" locale, whatever locale is set.
inline bool IsUpper(char p_c) { return p_c >= 'A' && p_c <= 'Z'; }
inline bool IsLower(char p_c) { return p_c >= 'a' && p_c <= 'z'; }
inline bool IsDigit(char p_c) { return p_c >= '0' && p_c <= '9'; }
inline char ToUpper(char p_c) { return IsLower(p_c) ? static_cast<char>(p_c - 'a' + 'A') : p_c; }
inline char ToLower(char p_c) { return IsUpper(p_c) ? static_cast<char>(p_c - 'A' + 'a') : p_c; }

template <size_t N>
bool IsIn(const std::string_view (&p_asz)[N], std::string_view p_sName) {
  return std::find(std::begin(p_asz), std::end(p_asz), p_sName) != std::end(p_asz);
}

// Letters and digits, with one underscore for what stands between them.
std::string Words(const char* p_szName);
// Of those: QuoteRow is quote_row.
std::string Stem(const std::string& p_sName);

// Gives every name that is not the only one with its key p_szBefore and its number behind it, until all keys differ.
// Ends, as no two names that have their numbers can be the same. An underscore is left out behind another one: two are
// reserved.
void MakeUnique(std::map<int, std::string>& p_cNames, const std::function<std::string(const std::string&)>& p_fnKey,
                const char* p_szBefore);

// For every tag of a message its words, or its number when there are none. p_fnFix makes a name of the language of
// them.
std::map<int, std::string> TagNames(const CMsgInfo& p_cInfo,
                                    const std::function<std::string(const std::string&)>& p_fnFix);

// For every message of the dictionary a name without underscores, so that what stands behind one is no part of it:
// "Quote row" is QuoteRow. It begins with a capital letter and is no keyword of Python. No two have the same stem.
std::map<int, std::string> CamelNames(const CMsgDic& p_cDic);

// The macro that guards a header.
std::string Guard(const std::string& p_sNamespace, const std::string& p_sHeader);

// A name of the dictionary inside a comment. The closing quote keeps a backslash from joining two lines.
std::string Quoted(const CString& p_sName);

#endif
