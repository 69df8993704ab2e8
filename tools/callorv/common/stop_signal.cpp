// SIGINT and SIGTERM as events.
#include "common/stop_signal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

// From a descriptor, as a handler would run in the middle of whatever the thread it hits is doing.
CStopSignal::CStopSignal() {
  sigset_t tStop;
  sigemptyset(&tStop);
  sigaddset(&tStop, SIGINT);
  sigaddset(&tStop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &tStop, &m_tBefore);
  m_iFd = signalfd(-1, &tStop, SFD_NONBLOCK | SFD_CLOEXEC);
  if (m_iFd >= 0) return;
  const int iErrno = errno;
  pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
  throw std::system_error(iErrno, std::generic_category(), "signalfd");
}

CStopSignal::~CStopSignal() {
  close(m_iFd);
  pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
}

bool CStopSignal::Take() {
  signalfd_siginfo tSignal;
  if (read(m_iFd, &tSignal, sizeof tSignal) != sizeof tSignal) return false;
  pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
  return true;
}
