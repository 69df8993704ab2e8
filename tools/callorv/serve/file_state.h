// Files that others may change while the server runs.
#ifndef CALLORV_TOOLS_FILE_STATE_H
#define CALLORV_TOOLS_FILE_STATE_H

#include <sys/stat.h>

#include <string>

// What stat says of a file.
class CFileState {
 public:
  CFileState() = default;    // of no file, unlike all others
  static CFileState Of(const std::string& p_sPath);

  bool IsFile() const { return m_bFile; }
  bool IsOrdinary() const { return m_bFile && S_ISREG(m_tStat.st_mode); }
  // Whether both are of the same ordinary file, which nobody can have changed between them. One that was changed a
  // moment before may be changed once more without a trace in stat, so it is never the same.
  bool IsSame(const CFileState& p_cOther) const;

 private:
  bool m_bFile = false;
  bool m_bSettled = false;    // its last change was long before
  struct stat m_tStat = {};
};

// A file's bytes, read again only when they can be others. One thread at a time.
class CWatchedFile {
 public:
  explicit CWatchedFile(std::string p_sPath) : m_sPath(std::move(p_sPath)) {}

  const std::string& Path() const { return m_sPath; }
  // Reads the file unless p_cNow says that it is as it was. Whether there is something new: other bytes, or another
  // reason why there are none. True at the first time.
  bool Refresh(const CFileState& p_cNow);
  bool Refresh() { return Refresh(CFileState::Of(m_sPath)); }
  void Forget() { m_bRead = false, m_cState = CFileState(); }    // the next time is the first
  const CFileState& State() const { return m_cState; }            // as it was when it was read
  // Throws CFailure when the file could not be read.
  const std::string& Bytes() const;

 private:
  const std::string m_sPath;
  CFileState m_cState;
  bool m_bRead = false;
  std::string m_sBytes;
  std::string m_sWhy;    // why there are none
};

#endif
