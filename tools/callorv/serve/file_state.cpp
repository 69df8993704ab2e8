// Files that others may change while the server runs.
#include "serve/file_state.h"

#include <algorithm>
#include <ctime>

#include "command.h"
#include "common/input.h"

namespace {

// Seconds within which two changes may have one time stamp, whatever file system it is.
constexpr time_t TICK = 2;

bool IsEqual(const timespec& p_tA, const timespec& p_tB) {
  return p_tA.tv_sec == p_tB.tv_sec && p_tA.tv_nsec == p_tB.tv_nsec;
}

}    // namespace

CFileState CFileState::Of(const std::string& p_sPath) {
  CFileState cState;
  timespec tNow{};
  clock_gettime(CLOCK_REALTIME, &tNow);
  struct stat& t = cState.m_tStat;
  cState.m_bFile = stat(p_sPath.c_str(), &t) == 0;
  cState.m_bSettled = cState.IsOrdinary() && tNow.tv_sec - std::max(t.st_mtim.tv_sec, t.st_ctim.tv_sec) > TICK;
  return cState;
}

bool CFileState::IsSame(const CFileState& p_cOther) const {
  const struct stat &t = m_tStat, &tOther = p_cOther.m_tStat;
  return m_bSettled && p_cOther.m_bSettled && t.st_dev == tOther.st_dev && t.st_ino == tOther.st_ino &&
         t.st_size == tOther.st_size && IsEqual(t.st_mtim, tOther.st_mtim) && IsEqual(t.st_ctim, tOther.st_ctim);
}

bool CWatchedFile::Refresh(const CFileState& p_cNow) {
  if (m_cState.IsSame(p_cNow)) return false;
  std::string sBytes, sWhy;
  try {
    sBytes = ReadWholeFile(m_sPath);
  } catch (const CFailure& cError) {
    sWhy = cError.what();
  }
  m_cState = sWhy.empty() ? p_cNow : CFileState();    // why it cannot be read, stat does not tell
  if (m_bRead && sBytes == m_sBytes && sWhy == m_sWhy) return false;
  m_bRead = true;
  m_sBytes.swap(sBytes);
  m_sWhy.swap(sWhy);
  return true;
}

const std::string& CWatchedFile::Bytes() const {
  if (!m_sWhy.empty()) throw CFailure(m_sWhy);
  return m_sBytes;
}
