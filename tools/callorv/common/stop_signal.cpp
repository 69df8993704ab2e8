// SIGINT and SIGTERM as events.
#include "common/stop_signal.h"

#include <sys/signalfd.h>

namespace {

sigset_t Both() {
  sigset_t tBoth;
  sigemptyset(&tBoth);
  sigaddset(&tBoth, SIGINT);
  sigaddset(&tBoth, SIGTERM);
  return tBoth;
}

}    // namespace

// From a descriptor, as a handler would run in the middle of whatever the thread it hits is doing. Blocked only when
// nothing can fail any more.
CStopSignal::CStopSignal() : m_tBoth(Both()), m_cFd(signalfd(-1, &m_tBoth, SFD_NONBLOCK | SFD_CLOEXEC)) {
  pthread_sigmask(SIG_BLOCK, &m_tBoth, &m_tBefore);
}

CStopSignal::~CStopSignal() { pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr); }

int CStopSignal::Take() {
  signalfd_siginfo tSignal;
  if (read(m_cFd, &tSignal, sizeof tSignal) != sizeof tSignal) return 0;
  pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
  return static_cast<int>(tSignal.ssi_signo);
}
