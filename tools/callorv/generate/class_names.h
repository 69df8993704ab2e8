// C++ names for the messages and tags of a dictionary.
#ifndef CALLORV_TOOLS_CLASS_NAMES_H
#define CALLORV_TOOLS_CLASS_NAMES_H

#include <callorv/dict/msg_dic.h>

#include <map>
#include <string>

// The rules, which depend on nothing but the dictionary: letters and digits of a name are kept, and what stands between
// them becomes one underscore. A message "Quote row" is class CQuote_row in quote_row_msg.h. Names that would give the
// same file or member all get an underscore and their number behind.
struct T_ClassName {
  std::string sClass;     // begins with C
  std::string sHeader;    // ends in _msg.h, so that it hides no header of the system, such as string.h
};

// For every message of the dictionary.
std::map<int, T_ClassName> ClassNames(const CMsgDic& p_cDic);

// For every tag of a message whose class is p_sClass. A name that is a keyword, a common macro or taken by the class
// gets an underscore behind; one that would begin with a digit gets a t in front; one without letters and digits is t
// and its number.
std::map<int, std::string> MemberNames(const CMsgInfo& p_cInfo, const std::string& p_sClass);

// Whether p_sName can be the name of a namespace: identifiers that are no keywords, with "::" between them.
bool IsNamespace(const std::string& p_sName);

#endif
