// What differs between two dictionaries, and what of it programs notice that were built for the old one.
#ifndef CALLORV_TOOLS_DICT_CHANGES_H
#define CALLORV_TOOLS_DICT_CHANGES_H

#include <callorv/dict/msg_dic.h>

#include <string>
#include <vector>

// One change. Programs are those that load the new dictionary and do not know that it is another one. They access by
// number - the C and C++ functions, the classes for C++ and functions for C that are generated - or by name: the C++
// functions that take names, Python, JSON, callorv call, and messages that are written by name.
struct T_Change {
  std::string sKind;                 // "message added", "tag removed", "type", ...
  int iMsg = 0;                      // of the old dictionary; of an added message its own
  std::string sMsg;                  // its name, in ISO-8859-1 as all names here
  int iTag = -1;                     // of the old dictionary; of an added tag its own; -1: the message as a whole
  std::string sTag;
  std::string sOld, sNew;            // what was and what is, as far as it is a matter of two words
  bool bByNumber = false;            // breaks programs that access by number
  bool bByName = false;              // breaks programs that access by name
  std::string sWhy;                  // why it breaks them, or does not

  bool Breaks() const { return bByNumber || bByName; }
};

// By message, and within one by tag. Both dictionaries are as the library loads them.
std::vector<T_Change> Changes(const CMsgDic& p_cOld, const CMsgDic& p_cNew);

#endif
