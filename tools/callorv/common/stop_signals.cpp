// SIGINT and SIGTERM as something to wait for.
#include "common/stop_signals.h"

#include <sys/signalfd.h>

CStopSignals::CStopSignals() : m_tSet(Block()), m_cFd(signalfd(-1, &m_tSet, SFD_CLOEXEC | SFD_NONBLOCK)) {}

CStopSignals::~CStopSignals() { pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr); }

int CStopSignals::Take() {
  signalfd_siginfo tInfo = {};
  if (read(m_cFd, &tInfo, sizeof tInfo) != sizeof tInfo) return 0;
  pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
  return static_cast<int>(tInfo.ssi_signo);
}

sigset_t CStopSignals::Block() {
  sigset_t tSet;
  sigemptyset(&tSet);
  sigaddset(&tSet, SIGINT);
  sigaddset(&tSet, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &tSet, &m_tBefore);
  return tSet;
}
