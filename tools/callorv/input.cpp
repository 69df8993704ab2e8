// Files that the command reads.
#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "command.h"

std::string FileErrorText(int p_iErrno) {
  return p_iErrno == EISDIR ? "a folder, not a file" : std::generic_category().message(p_iErrno);
}

std::string InputName(const std::string& p_sPath) { return p_sPath == "-" ? "standard input" : p_sPath; }

std::string ReadWholeFile(const std::string& p_sPath) {
  struct T_Close {
    void operator()(FILE* p_pFile) const { std::fclose(p_pFile); }
  };
  std::unique_ptr<FILE, T_Close> pOpened;
  FILE* pFile = stdin;
  if (p_sPath != "-") {
    pOpened.reset(std::fopen(p_sPath.c_str(), "rb"));
    const int iErrno = errno;
    pFile = pOpened.get();
    if (pFile == nullptr) throw CFailure(p_sPath + ": " + FileErrorText(iErrno));
  }
  std::string sOut;
  char szPiece[65536];
  for (size_t iLen; (iLen = std::fread(szPiece, 1, sizeof szPiece, pFile)) > 0;) sOut.append(szPiece, iLen);
  const int iErrno = errno;
  if (std::ferror(pFile)) throw CFailure(InputName(p_sPath) + ": " + FileErrorText(iErrno));
  return sOut;
}

std::string WhyUnreadable(const std::string& p_sPath) {
  struct stat tStat;
  if (stat(p_sPath.c_str(), &tStat) != 0) return FileErrorText(errno);
  if (S_ISDIR(tStat.st_mode)) return FileErrorText(EISDIR);
  return faccessat(AT_FDCWD, p_sPath.c_str(), R_OK, AT_EACCESS) == 0 ? "" : FileErrorText(errno);
}

bool IsOrdinaryFile(const std::string& p_sPath) {
  struct stat tStat;
  return stat(p_sPath.c_str(), &tStat) == 0 && S_ISREG(tStat.st_mode);
}
