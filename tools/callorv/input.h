// Files that the command reads.
#ifndef CALLORV_TOOLS_INPUT_H
#define CALLORV_TOOLS_INPUT_H

#include <string>

// What an error number says of a file: "Permission denied"; a folder is called one.
std::string FileErrorText(int p_iErrno);

// A file's name for people, "-" being standard input.
std::string InputName(const std::string& p_sPath);
// All bytes of a file, "-" being standard input. Throws CFailure.
std::string ReadWholeFile(const std::string& p_sPath);
// Why the file cannot be read: FileErrorText of it; "" when it can. It is not opened, as that could wait.
std::string WhyUnreadable(const std::string& p_sPath);
// Whether it is an ordinary file, which can be read from its beginning as often as one likes.
bool IsOrdinaryFile(const std::string& p_sPath);

#endif
