// Files that the command writes whole.
#include "common/files.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <memory>

#include "command.h"
#include "common/input.h"

namespace {

[[noreturn]] void Fail(const std::string& p_sPath, int p_iErrno) {
  throw CFailure(p_sPath + ": " + FileErrorText(p_iErrno));
}

class CDescriptor {
 public:
  CDescriptor(int p_iFd, const std::string& p_sPath) : m_iFd(p_iFd), m_sPath(p_sPath) {
    if (p_iFd < 0) Fail(p_sPath, errno);
  }
  ~CDescriptor() {
    if (m_iFd >= 0) close(m_iFd);
  }
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;

  void Write(std::string_view p_sData) const {
    while (!p_sData.empty()) {
      const ssize_t iLen = write(m_iFd, p_sData.data(), p_sData.size());
      if (iLen >= 0) {
        p_sData.remove_prefix(static_cast<size_t>(iLen));
      } else if (errno != EINTR) {
        Fail(m_sPath, errno);
      }
    }
  }
  void SetMode(mode_t p_iMode) const {
    if (fchmod(m_iFd, p_iMode) < 0) Fail(m_sPath, errno);
  }
  void SetOwner(const struct stat& p_tOwned) const {
    // Others than root may keep their own groups, but give no file away.
    const uid_t iSame = static_cast<uid_t>(-1);
    if (fchown(m_iFd, p_tOwned.st_uid, p_tOwned.st_gid) < 0 && fchown(m_iFd, iSame, p_tOwned.st_gid) < 0) return;
  }
  // Some file systems tell of a full disk only here.
  void Finish(bool p_bDurable) {
    if (p_bDurable && fsync(m_iFd) < 0) Fail(m_sPath, errno);
    const int iRet = close(m_iFd);
    m_iFd = -1;
    if (iRet < 0) Fail(m_sPath, errno);
  }

 private:
  int m_iFd;
  const std::string& m_sPath;    // for the texts
};

// A name that is removed unless it was given up.
class CTempName {
 public:
  explicit CTempName(std::string p_sName) : m_sName(std::move(p_sName)) {}
  ~CTempName() {
    if (!m_sName.empty()) unlink(m_sName.c_str());
  }
  CTempName(const CTempName&) = delete;
  CTempName& operator=(const CTempName&) = delete;

  const char* Name() const { return m_sName.c_str(); }
  void GiveUp() { m_sName.clear(); }

 private:
  std::string m_sName;
};

mode_t Umask() {
  const mode_t iMask = umask(0);
  umask(iMask);
  return iMask;
}

// Where the bytes go: the file behind a symbolic link, not the link.
std::string Target(const std::string& p_sPath) {
  const std::unique_ptr<char, decltype(&free)> pReal(realpath(p_sPath.c_str(), nullptr), &free);
  return pReal == nullptr ? p_sPath : pReal.get();
}

}    // namespace

T_WriteMode KeptMode(const std::string& p_sPath) {
  struct stat tStat;
  T_WriteMode tMode;
  if (stat(p_sPath.c_str(), &tStat) != 0) return tMode;
  tMode.iPermissions = tStat.st_mode & 0777;
  tMode.bExact = true;
  tMode.bKeepOwner = true;
  return tMode;
}

void WriteFile(const std::string& p_sPath, std::string_view p_sData, const T_WriteMode& p_tMode) {
  if (p_sPath == "-") {
    std::cout.write(p_sData.data(), static_cast<std::streamsize>(p_sData.size()));
    return;
  }
  struct stat tStat;
  const bool bThere = stat(p_sPath.c_str(), &tStat) == 0;
  if (bThere && !p_tMode.bReplace) Fail(p_sPath, EEXIST);
  if (bThere && S_ISDIR(tStat.st_mode)) Fail(p_sPath, EISDIR);
  if (bThere && !S_ISREG(tStat.st_mode)) {
    const CDescriptor cFile(open(p_sPath.c_str(), O_WRONLY | O_CLOEXEC), p_sPath);
    cFile.Write(p_sData);
    return;
  }
  const std::string sTarget = Target(p_sPath);
  std::string sTemplate = sTarget + ".XXXXXX";
  const int iFd = mkostemp(sTemplate.data(), O_CLOEXEC);    // mode 0600
  CDescriptor cFile(iFd, p_sPath);
  CTempName cTemp(sTemplate);
  cFile.Write(p_sData);
  if (bThere && p_tMode.bKeepOwner) cFile.SetOwner(tStat);
  cFile.SetMode(p_tMode.bExact ? p_tMode.iPermissions : p_tMode.iPermissions & ~Umask());
  cFile.Finish(p_tMode.bDurable);
  // link() fails, where rename() would replace, when somebody else was quicker.
  if (!p_tMode.bReplace) {
    if (link(cTemp.Name(), sTarget.c_str()) < 0) Fail(p_sPath, errno);
    return;
  }
  if (rename(cTemp.Name(), sTarget.c_str()) < 0) Fail(p_sPath, errno);
  cTemp.GiveUp();
}
