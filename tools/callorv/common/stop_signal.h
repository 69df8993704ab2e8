// SIGINT and SIGTERM as events: what is under way ends by itself and is told of.
#ifndef CALLORV_TOOLS_STOP_SIGNAL_H
#define CALLORV_TOOLS_STOP_SIGNAL_H

#include <csignal>

#include "common/descriptor.h"

// While it stands, the first of the signals ends nothing but is told by its descriptor; the second ends the command.
// Threads that begin in this time are not interrupted by them. Made and used by one thread.
class CStopSignal {
 public:
  CStopSignal();    // throws CFailure
  ~CStopSignal();
  CStopSignal(const CStopSignal&) = delete;
  CStopSignal& operator=(const CStopSignal&) = delete;

  int Fd() const { return m_cFd; }    // for poll(): readable once one came
  int Take();                         // which one came, 0 for none; the next one then ends the command

 private:
  const sigset_t m_tBoth;
  sigset_t m_tBefore = {};
  const CDescriptor m_cFd;
};

#endif
