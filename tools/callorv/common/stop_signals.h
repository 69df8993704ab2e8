// SIGINT and SIGTERM as something to wait for.
#ifndef CALLORV_TOOLS_STOP_SIGNALS_H
#define CALLORV_TOOLS_STOP_SIGNALS_H

#include <csignal>

#include "common/descriptor.h"

// Until the first has come; the next does what it always does. For a process with one thread.
class CStopSignals {
 public:
  CStopSignals();
  ~CStopSignals();
  CStopSignals(const CStopSignals&) = delete;
  CStopSignals& operator=(const CStopSignals&) = delete;

  int Fd() const { return m_cFd; }    // readable when one has come
  int Take();                         // the signal's number, 0 when none has come

 private:
  sigset_t m_tBefore = {};
  const sigset_t m_tSet;
  const CDescriptor m_cFd;

  sigset_t Block();
};

#endif
