// C++ names for the messages and tags of a dictionary.
#include "generate/class_names.h"

#include <algorithm>

#include "generate/names.h"

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
  MakeUnique(cNames, Stem, "_");
  std::map<int, T_ClassName> cClasses;
  for (const auto& [iMsg, sName] : cNames) cClasses[iMsg] = {"C" + sName, Stem(sName) + "_msg.h"};
  return cClasses;
}

std::map<int, std::string> MemberNames(const CMsgInfo& p_cInfo, const std::string& p_sClass) {
  return TagNames(p_cInfo, [&](std::string p_sName) {
    if (IsDigit(p_sName[0])) p_sName.insert(0, "t");
    if (IsIn(s_aszTaken, p_sName) || IsIn(s_aszOwn, p_sName) || p_sName == p_sClass) p_sName += '_';
    return p_sName;
  });
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
