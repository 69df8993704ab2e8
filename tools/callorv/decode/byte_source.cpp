// Bytes of a file or a pipe, as they come.
#include "decode/byte_source.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "command.h"
#include "common/input.h"

namespace {

constexpr size_t ROOM = 65536;
constexpr long GRACE_NANOSECONDS = 250000000;    // for a writer's last bytes after a signal

volatile sig_atomic_t s_iSignal = 0;

void NoteSignal(int) { s_iSignal = 1; }

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

void CByteSource::EndAtSignal() {
  sigset_t tStop;
  sigemptyset(&tStop);
  sigaddset(&tStop, SIGINT);
  sigaddset(&tStop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &tStop, &m_tWaiting);    // else one that comes just before waiting would be missed
  struct sigaction tAction = {};
  tAction.sa_handler = NoteSignal;
  sigaction(SIGINT, &tAction, nullptr);
  sigaction(SIGTERM, &tAction, nullptr);
  m_bSignals = true;
}

// Until there is something to read; false when a signal ended the bytes.
bool CByteSource::Wait() const {
  if (!m_bSignals) return true;
  pollfd tPoll = {m_iFd, POLLIN, 0};
  const timespec tGrace = {0, GRACE_NANOSECONDS};
  while (true) {
    const int iReady = ppoll(&tPoll, 1, s_iSignal != 0 ? &tGrace : nullptr, &m_tWaiting);
    if (iReady > 0) return true;
    if (iReady == 0) return false;
    const int iErrno = errno;
    if (iErrno != EINTR) throw CFailure(m_sName + ": " + FileErrorText(iErrno));
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
