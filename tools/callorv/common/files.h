// Files that the command writes whole.
#ifndef CALLORV_TOOLS_FILES_H
#define CALLORV_TOOLS_FILES_H

#include <string>
#include <string_view>

struct T_WriteMode {
  unsigned iPermissions = 0666;    // less the umask
  bool bExact = false;             // not less the umask
  bool bReplace = true;            // what is there may be replaced
  bool bKeepOwner = false;         // a file that replaces one has its owner and group, where that is allowed
  bool bDurable = true;            // is on the disk when WriteFile returns; what can be made again need not be, which
                                   // is faster by far for thousands of files
};

// How to replace a file that is there without changing who may use it; how else files are made when there is none.
T_WriteMode KeptMode(const std::string& p_sPath);

// Writes p_sData to a new file that takes the name p_sPath when it is complete, so that nobody ever reads half a file
// and a failure leaves the old one as it was. "-" is standard output; a device or pipe is written as it is.
// Throws CFailure.
void WriteFile(const std::string& p_sPath, std::string_view p_sData, const T_WriteMode& p_tMode = T_WriteMode());

#endif
