// From a request packet to the bytes that answer it; no sockets here.
#ifndef CALLORV_TOOLS_ANSWER_H
#define CALLORV_TOOLS_ANSWER_H

#include <chrono>
#include <optional>
#include <string>

#include "serve/fault.h"
#include "serve/packet_recorder.h"
#include "serve/serve_log.h"
#include "serve/server.h"
#include "serve/world.h"

// What is to be done with the connection.
struct T_Answer {
  enum E_Then { READ_NEXT, STALL, CLOSE, RESET, REFUSE };
  std::string sBytes;    // to be sent first
  std::chrono::microseconds tDelay{0};    // before
  E_Then eThen = READ_NEXT;
};

// Any thread.
class CAnswerer {
 public:
  // Throws CFailure and CUsage.
  CAnswerer(const T_ServeOptions& p_tOptions, CServeLog& p_cLog);

  // p_sPacket  one packet, as long as its header says
  // p_tCall    receives all but the peer, the times and the bytes sent
  // A packet that breaks the rules gives REFUSE, and the reasons in p_tCall.sResult.
  T_Answer Answer(const std::string& p_sPacket, T_CallRecord& p_tCall);

 private:
  const T_ServeOptions& m_tOptions;
  CFaults m_cFaults;
  CWorlds m_cWorlds;
  std::optional<CPacketRecorder> m_cRecorder;
  T_State m_tState;
};

#endif
