// Faults that the simulator plays, as given by --fault KIND[:ARG][@PERCENT].
#ifndef CALLORV_TOOLS_FAULT_H
#define CALLORV_TOOLS_FAULT_H

#include <mutex>
#include <string>
#include <vector>

enum E_Fault {
  FAULT_NONE,
  FAULT_DELAY,       // ARG milliseconds before the answer
  FAULT_STALL,       // ARG bytes of the packet, then nothing more
  FAULT_TRUNCATE,    // ARG bytes of the packet, then the connection is closed
  FAULT_CHECKSUM,    // a checksum that is wrong
  FAULT_ZLIB,        // a compressed body that cannot be decompressed, under a right checksum
  FAULT_RESET,       // the connection is reset without an answer
  FAULT_CLOSE,       // the connection is closed without an answer
  FAULT_REJECT       // a rejection with code ARG
};

// What is to happen to one call.
struct T_FaultPlan {
  E_Fault eKind = FAULT_NONE;
  int iArg = 0;
  int iDelay = 0;    // milliseconds, of every delay that applies
};

// The faults in the order given. Any thread.
class CFaults {
 public:
  // Throws CFailure "TEXT: reason" for one that cannot be read.
  explicit CFaults(const std::vector<std::string>& p_asFaults);

  // The plan for the next call: the delays that apply and the first other fault that does. Each fault hits PERCENT of
  // the calls that come to it, evenly spread and the same in every run: @25 is every fourth call.
  T_FaultPlan Next();

  static const char* Name(E_Fault p_eKind);

 private:
  struct T_Fault {
    E_Fault eKind;
    int iArg;
    int iPercent;
    unsigned long long iCalls;
  };
  std::mutex m_cMutex;
  std::vector<T_Fault> m_aFaults;

  static T_Fault Parse(const std::string& p_sText);
};

#endif
