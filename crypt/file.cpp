// Files that are read.
#include "crypt/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

namespace callorv::detail {

int ReadFile(const char* p_szFileName, CStream& p_stOut, CString& p_sErr, int p_iBlock) {
  if (p_szFileName == nullptr) {
    p_sErr = "p_szFileName is NULL";
    return -1;
  }
  p_stOut.Clear();
  p_sErr.Clear();
  struct stat tStat;
  if (stat(p_szFileName, &tStat) != 0) {
    p_sErr.Format("File not found(%s)", p_szFileName);
    return -2;
  }
  const bool bSized = S_ISREG(tStat.st_mode) || S_ISDIR(tStat.st_mode);
  const long long iSize = bSized ? static_cast<long long>(tStat.st_size) : 0;
  if (iSize % p_iBlock != 0) {
    p_sErr = "File may be corrupted";
    return -3;
  }
  const bool bEmpty = !bSized && !S_ISSOCK(tStat.st_mode);    // a pipe or device could make the caller wait
  if (bEmpty && faccessat(AT_FDCWD, p_szFileName, R_OK, AT_EACCESS) == 0) return 0;
  const CFilePtr pFile(!bEmpty && iSize < INT_MAX ? fopen(p_szFileName, "rb") : nullptr);
  if (pFile == nullptr) {
    p_sErr.Format("File cannot be open(%s)", p_szFileName);
    return -5;
  }
  const auto iRoom = static_cast<size_t>(iSize);
  char* pData = p_stOut.GetBuffer(static_cast<int>(iSize));
  size_t iRead = 0;
  while (const size_t iNow = fread(pData + iRead, 1, iRoom - iRead, pFile.get())) iRead += iNow;
  p_stOut.ReleaseBuffer(static_cast<int>(iRead));
  return 0;
}

}    // namespace callorv::detail
