// Names of messages and tags for completion.
#ifndef CALLORV_TOOLS_NAMES_H
#define CALLORV_TOOLS_NAMES_H

#include <string>
#include <vector>

// What the command line says before the word that is completed.
struct T_Given {
  std::string sConfig, sDictionary;    // files that are named
  std::string sMessage;
  size_t iArguments = 0;    // how many there are
};

struct T_Name {
  std::string sName, sWhat;    // UTF-8
};

// Of the dictionary that is named, directly or in the configuration; nothing when there is none that the library loads.
std::vector<T_Name> MessageNames(const T_Given& p_tGiven);
std::vector<T_Name> MessageNumbers(const T_Given& p_tGiven);
// How the path that p_sWord begins may go on: "code=", "rows[0].", "rows[0].price=". p_tGiven has the message.
std::vector<T_Name> TagPaths(const T_Given& p_tGiven, const std::string& p_sWord);

#endif
