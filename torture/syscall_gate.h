// Makes a chosen system call, or call of the C library's streams, fail, fall short or wait.
//
// The program that links syscall_gate.cpp has these functions in front of the C library's, also for the shared
// libraries. Only what the thread does while armed is touched.
#ifndef TORTURE_SYSCALL_GATE_H
#define TORTURE_SYSCALL_GATE_H

#include <vector>

enum E_Call {
  CALL_SOCKET,
  CALL_GETADDRINFO,
  CALL_SETSOCKOPT,
  CALL_CONNECT,
  CALL_SEND,
  CALL_SELECT,
  CALL_POLL,
  CALL_RECV,
  CALL_SHUTDOWN,
  CALL_CLOSE,
  CALL_STAT,
  CALL_FOPEN,
  CALL_FGETS,
  CALL_FREAD,
  CALL_FWRITE,
  CALL_FFLUSH,
  CALL_FCLOSE,
  CALLS
};
const char* CallName(E_Call p_eCall);

enum E_Fault {
  FAULT_ERRNO,    // fails with an errno, or with getaddrinfo's code; close and fclose close all the same
  FAULT_SHORT,    // less than asked for: one byte sent or received, half of what is read, all but one byte written
  FAULT_NONE,     // 0 bytes, without an error: the peer's end, the end of a file
  FAULT_LATE,     // after a while as always
  FAULT_CANCEL,   // as always, but the thread has just been cancelled
  FAULT_TIME      // select: the time is over
};

struct T_Fault {
  E_Call eCall;
  int iNth;      // the call that it meets, counted from 1; 0: all of them
  E_Fault eFault;
  int iErrno;
  bool bCancel = false;    // the thread has just been cancelled, too
};

// The host name that getaddrinfo takes for 127.0.0.1, as no name service is there to be asked.
const char* NamedHost();

class CSyscallGate {
 public:
  static void Arm(const std::vector<T_Fault>& p_atFault);
  static void Disarm();
  static int GetCount(E_Call p_eCall);    // calls since Arm
  static const std::vector<long>& GetWaits();    // the seconds that each select since Arm was to wait
};

#endif
