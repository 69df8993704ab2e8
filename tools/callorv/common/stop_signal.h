// SIGINT and SIGTERM as events: what is under way ends by itself and is told of.
#ifndef CALLORV_TOOLS_STOP_SIGNAL_H
#define CALLORV_TOOLS_STOP_SIGNAL_H

#include <signal.h>

// While it stands, the first of the signals ends nothing but is told by its descriptor; the second ends the command.
// Threads that begin in this time are not interrupted by them. Made and used by one thread.
class CStopSignal {
 public:
  CStopSignal();    // throws std::system_error
  ~CStopSignal();
  CStopSignal(const CStopSignal&) = delete;
  CStopSignal& operator=(const CStopSignal&) = delete;

  int Fd() const { return m_iFd; }    // for poll(): readable once one came
  bool Take();                        // whether one came; the next one then ends the command

 private:
  sigset_t m_tBefore;
  int m_iFd;
};

#endif
