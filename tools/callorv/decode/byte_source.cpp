// Bytes of a file or a pipe, as they come.
#include "decode/byte_source.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "command.h"
#include "common/input.h"

namespace {

constexpr size_t ROOM = 65536;
// For a writer's last bytes after a signal: between two of them, and for one who never ends.
constexpr int GRACE_MILLISECONDS = 250;
constexpr auto LONGEST_GRACE = std::chrono::milliseconds(500);

}    // namespace

CByteSource::CByteSource(const std::string& p_sPath) : m_sName(InputName(p_sPath)) {
  if (p_sPath == "-") return;
  m_iFd = open(p_sPath.c_str(), O_RDONLY | O_CLOEXEC);
  const int iErrno = errno;
  if (m_iFd < 0) throw CFailure(m_sName + ": " + FileErrorText(iErrno));
}

CByteSource::~CByteSource() {
  if (m_iFd > 0) close(m_iFd);
}

void CByteSource::EndAtSignal() { m_cStop.emplace(); }

// Until there is something to read; false when a signal ended the bytes.
bool CByteSource::Wait() {
  if (!m_cStop) return true;
  while (true) {
    pollfd atPoll[] = {{m_iFd, POLLIN, 0}, {m_bStopped ? -1 : m_cStop->Fd(), POLLIN, 0}};
    const int iReady = poll(atPoll, 2, m_bStopped ? GRACE_MILLISECONDS : -1);
    const int iErrno = errno;
    if (iReady < 0 && iErrno != EINTR) throw CFailure(m_sName + ": " + FileErrorText(iErrno));
    if (iReady == 0) return false;
    if (iReady > 0 && atPoll[1].revents != 0 && m_cStop->Take()) {
      m_bStopped = true;
      m_tStopBy = std::chrono::steady_clock::now() + LONGEST_GRACE;
    }
    if (iReady > 0 && atPoll[0].revents != 0) {
      return !m_bStopped || std::chrono::steady_clock::now() < m_tStopBy;
    }
  }
}

bool CByteSource::Fill() {
  if (m_bEnd) return false;
  m_sBuffer.erase(0, m_iAt);
  m_iAt = 0;
  const size_t iHad = m_sBuffer.size();
  m_bEnd = !Wait();
  if (m_bEnd) return false;
  m_sBuffer.resize(iHad + ROOM);
  ssize_t iLen = 0;
  do {
    iLen = read(m_iFd, m_sBuffer.data() + iHad, ROOM);
  } while (iLen < 0 && errno == EINTR);
  const int iErrno = errno;
  m_sBuffer.resize(iHad + static_cast<size_t>(std::max<ssize_t>(iLen, 0)));
  if (iLen < 0) throw CFailure(m_sName + ": " + FileErrorText(iErrno));
  m_bEnd = iLen == 0;
  return !m_bEnd;
}

std::string_view CByteSource::Peek(size_t p_iSize) {
  while (m_sBuffer.size() - m_iAt < p_iSize && Fill()) continue;
  return std::string_view(m_sBuffer).substr(m_iAt, p_iSize);
}

std::string_view CByteSource::Take(size_t p_iSize) {
  const std::string_view sBytes = Peek(p_iSize);
  m_iAt += sBytes.size();
  return sBytes;
}

size_t CByteSource::Skip(size_t p_iSize) {
  size_t iDone = 0;
  while (iDone < p_iSize) {
    const size_t iNow = Take(std::min(p_iSize - iDone, ROOM)).size();
    if (iNow == 0) break;
    iDone += iNow;
  }
  return iDone;
}

std::string CByteSource::TakeAll() {
  while (Fill()) continue;
  return m_sBuffer.substr(m_iAt);
}
