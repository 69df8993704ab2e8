// C++ names for the messages and tags of a dictionary.
#include "generate/class_names.h"

#include <algorithm>
#include <string_view>

namespace {

// Keywords and alternative tokens up to C++23, and macros of the compiler and of headers that nearly everybody
// includes.
constexpr std::string_view s_aszTaken[] = {
    "EOF",          "INFINITY",     "NAN",          "NULL",         "alignas",       "alignof",
    "and",          "and_eq",       "asm",          "assert",       "auto",          "bitand",
    "bitor",        "bool",         "break",        "case",         "catch",         "char",
    "char16_t",     "char32_t",     "char8_t",      "class",        "co_await",      "co_return",
    "co_yield",     "compl",        "concept",      "const",        "const_cast",    "consteval",
    "constexpr",    "constinit",    "continue",     "decltype",     "default",       "delete",
    "do",           "double",       "dynamic_cast", "else",         "enum",          "errno",
    "explicit",     "export",       "extern",       "false",        "float",         "for",
    "friend",       "goto",         "i386",         "if",           "inline",        "int",
    "linux",        "long",         "mutable",      "namespace",    "new",           "noexcept",
    "not",          "not_eq",       "nullptr",      "offsetof",     "operator",      "or",
    "or_eq",        "private",      "protected",    "public",       "register",      "reinterpret_cast",
    "requires",     "return",       "short",        "signed",       "sizeof",        "static",
    "static_assert", "static_cast", "stderr",       "stdin",        "stdout",        "struct",
    "switch",       "template",     "this",         "thread_local", "throw",         "true",
    "try",          "typedef",      "typeid",       "typename",     "union",         "unix",
    "unsigned",     "using",        "virtual",      "void",         "volatile",      "wchar_t",
    "while",        "xor",          "xor_eq"};

// What every generated class has itself.
constexpr std::string_view s_aszOwn[] = {"CMsgBase", "CreateMsg", "LoadFromMsg", "MSG_NUM", "VisitTags", "sLastError"};

template <size_t N>
bool IsIn(const std::string_view (&p_asz)[N], std::string_view p_sName) {
  return std::find(std::begin(p_asz), std::end(p_asz), p_sName) != std::end(p_asz);
}

// Of the "C" locale, whatever locale is set.
bool IsUpper(char p_c) { return p_c >= 'A' && p_c <= 'Z'; }
bool IsLower(char p_c) { return p_c >= 'a' && p_c <= 'z'; }
bool IsDigit(char p_c) { return p_c >= '0' && p_c <= '9'; }
char ToUpper(char p_c) { return IsLower(p_c) ? static_cast<char>(p_c - 'a' + 'A') : p_c; }
char ToLower(char p_c) { return IsUpper(p_c) ? static_cast<char>(p_c - 'A' + 'a') : p_c; }

std::string Words(const char* p_szName) {
  std::string sWords;
  bool bGap = false;
  for (; *p_szName != 0; ++p_szName) {
    if (!IsUpper(*p_szName) && !IsLower(*p_szName) && !IsDigit(*p_szName)) {
      bGap = true;
      continue;
    }
    if (bGap && !sWords.empty()) sWords += '_';
    bGap = false;
    sWords += *p_szName;
  }
  return sWords;
}

// QuoteRow is quote_row.
std::string Stem(const std::string& p_sName) {
  std::string sStem;
  for (size_t i = 0; i < p_sName.size(); ++i) {
    if (i > 0 && IsUpper(p_sName[i]) && p_sName[i - 1] != '_' && !IsUpper(p_sName[i - 1])) sStem += '_';
    sStem += ToLower(p_sName[i]);
  }
  return sStem;
}

// Gives every name that is not the only one with its key its number, until all keys differ. Ends, as no two names that
// have their numbers can be the same.
template <class KEY>
void MakeUnique(std::map<int, std::string>& p_cNames, KEY p_fnKey) {
  for (bool bAgain = true; bAgain;) {
    std::map<std::string, int> cCount;
    for (const auto& [iNum, sName] : p_cNames) ++cCount[p_fnKey(sName)];
    bAgain = false;
    for (auto& [iNum, sName] : p_cNames) {
      if (cCount[p_fnKey(sName)] == 1) continue;
      if (sName.back() != '_') sName += '_';    // two together are reserved
      sName += std::to_string(iNum);
      bAgain = true;
    }
  }
}

}    // namespace

std::map<int, T_ClassName> ClassNames(const CMsgDic& p_cDic) {
  std::map<int, std::string> cNames;
  for (int iMsg = 1; iMsg < CMsgDic::SLOTS; ++iMsg) {
    const CMsgInfo* pInfo = p_cDic.GetMsgInfo(iMsg);
    if (pInfo == nullptr) continue;
    std::string sName = Words(pInfo->GetMsgName().ToStr());
    if (sName.empty()) sName = "Msg" + std::to_string(iMsg);
    sName[0] = ToUpper(sName[0]);
    cNames[iMsg] = sName;
  }
  MakeUnique(cNames, Stem);
  std::map<int, T_ClassName> cClasses;
  for (const auto& [iMsg, sName] : cNames) cClasses[iMsg] = {"C" + sName, Stem(sName) + "_msg.h"};
  return cClasses;
}

std::map<int, std::string> MemberNames(const CMsgInfo& p_cInfo, const std::string& p_sClass) {
  std::map<int, std::string> cNames;
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const int iTag = p_cInfo.GetTagNumAt(i);
    std::string sName = Words(p_cInfo.GetTagName(iTag));
    if (sName.empty()) sName = std::to_string(iTag);
    if (IsDigit(sName[0])) sName.insert(0, "t");
    if (IsIn(s_aszTaken, sName) || IsIn(s_aszOwn, sName) || sName == p_sClass) sName += '_';
    cNames[iTag] = sName;
  }
  MakeUnique(cNames, [](const std::string& p_sName) { return p_sName; });
  return cNames;
}

bool IsNamespace(const std::string& p_sName) {
  size_t iStart = 0;
  for (;;) {
    const size_t iEnd = std::min(p_sName.find("::", iStart), p_sName.size());
    const std::string sPart = p_sName.substr(iStart, iEnd - iStart);
    if (sPart.empty() || IsDigit(sPart[0]) || sPart[0] == '_' || sPart.back() == '_' || Words(sPart.c_str()) != sPart ||
        IsIn(s_aszTaken, sPart)) {
      return false;
    }
    if (iEnd == p_sName.size()) return true;
    iStart = iEnd + 2;
  }
}
