// Says everything that is wrong or suspicious in a dictionary file.
#ifndef CALLORV_TOOLS_DICT_CHECK_H
#define CALLORV_TOOLS_DICT_CHECK_H

#include <string>
#include <vector>

struct T_Finding {
  int iLine;
  bool bError;          // the library refuses the dictionary for it
  std::string sText;    // UTF-8
};

struct T_DictReport {
  int iMessages = 0;
  int iTags = 0;
  std::vector<T_Finding> atFinding;    // by line
  std::string sLoader;                 // what the library says when it refuses the dictionary, else ""

  int Count(bool p_bErrors) const;
};

// Throws CException or CFailure when the file cannot be read at all.
T_DictReport CheckDictionary(const std::string& p_sPath);

#endif
