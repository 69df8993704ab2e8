// Files that the command reads.
#include "common/input.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "command.h"
#include "common/seal.h"

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

CInputFile::CInputFile(const std::string& p_sPath) : m_sName(InputName(p_sPath)), m_sPath(p_sPath) {
  if (p_sPath != "-") return;
  const std::string sBytes = ReadWholeFile(p_sPath);
  Keep(IsSealedXml(sBytes) ? Unseal(sBytes).sPlain : sBytes);
}

CInputFile::CInputFile(const std::string& p_sName, const std::string& p_sBytes) : m_sName(p_sName) { Keep(p_sBytes); }

CInputFile::~CInputFile() {
  if (m_iFd >= 0) close(m_iFd);
}

void CInputFile::Keep(const std::string& p_sBytes) {
  m_iFd = memfd_create("callorv", MFD_CLOEXEC);
  if (m_iFd < 0) throw CFailure(m_sName + ": " + FileErrorText(errno));
  m_sPath = "/proc/self/fd/" + std::to_string(m_iFd);
  for (size_t iDone = 0; iDone < p_sBytes.size();) {
    const ssize_t iLen = write(m_iFd, p_sBytes.data() + iDone, p_sBytes.size() - iDone);
    if (iLen < 0 && errno != EINTR) {
      const int iErrno = errno;
      close(m_iFd);    // no destructor runs
      throw CFailure(m_sName + ": " + FileErrorText(iErrno));
    }
    if (iLen > 0) iDone += static_cast<size_t>(iLen);
  }
}

std::string CInputFile::Named(std::string p_sText) const {
  if (m_sPath == m_sName) return p_sText;
  for (size_t i; (i = p_sText.find(m_sPath)) != std::string::npos;) p_sText.replace(i, m_sPath.size(), m_sName);
  return p_sText;
}

bool IsOrdinaryFile(const std::string& p_sPath) {
  struct stat tStat;
  return stat(p_sPath.c_str(), &tStat) == 0 && S_ISREG(tStat.st_mode);
}
