// One packet out and one in, without a wait.
#ifndef CALLORV_NET_EXCHANGE_H
#define CALLORV_NET_EXCHANGE_H

#include <optional>

#include "net/packet_machine.h"

namespace callorv::detail {

// Nanoseconds of a clock that nobody sets.
long long Now();
// Milliseconds until p_iEnd of that clock: rounded up, and never more than poll() takes.
int MillisecondsUntil(long long p_iEnd);

// Sends one packet over a connection of its own and receives one. The time for all of that together runs from the
// construction on. Nothing but Await waits for the network or is a cancellation point.
class CExchange {
 public:
  enum E_Phase { CONNECT, SEND, RECEIVE };

  explicit CExchange(int p_iDeadlineMs);
  // Closes, but shuts nothing down: in a forked child the connection is the parent's.
  ~CExchange();
  CExchange(const CExchange&) = delete;
  CExchange& operator=(const CExchange&) = delete;

  CStream& Packet() { return *m_oPacket; }    // to be filled before Open
  // Begins to connect; the thread must not be cancelled meanwhile. What fails here is told as what fails later; the
  // exchange then has no descriptor.
  void Open(const char* p_szHost, int p_iPort);

  int GetFd() const { return m_iSock; }
  int GetEvents() const;    // 0 when it is over
  long long GetEnd() const { return m_iEnd; }
  int GetTimeLeft() const { return m_bOver ? 0 : MillisecondsUntil(m_iEnd); }
  bool IsOver() const { return m_bOver; }
  E_Phase Phase() const { return m_ePhase; }    // how far it came

  // Does what can be done at once, of a long packet 64 KB. Whether the exchange is still under way.
  bool Step();
  // Steps and waits until it is over. A signal handler ends it, as it ends the waits of CAdaptor.
  void Await();
  // Ends the connection of what is over. The body that came, which is p_stRoom or lives as long as this; or null, with
  // the reason in p_sErr. Throws std::bad_alloc, also when there was no memory for the reason before.
  const CStream* Finish(CStream& p_stRoom, CString& p_sErr);

 private:
  const int m_iDeadlineMs;
  int m_iSock = -1;
  const long long m_iEnd;
  const unsigned m_uForks;    // of the process, when it began
  E_Phase m_ePhase = CONNECT;
  bool m_bOver = false;
  bool m_bFailed = false;
  bool m_bNoMemory = false;    // for m_sFault
  int m_iSent = 0;
  std::optional<CStream> m_oPacket;    // until it is sent
  CString m_sFault;
  CPacketMachine m_cMachine{nullptr, nullptr, nullptr};

  void Fail(const T_Fault& p_tFault);
  void Close();
  const char* PhaseName() const;
  void Proceed();    // Step, once the thread cannot be cancelled
  int Advance(T_Fault& p_tFault);
  int Send(T_Fault& p_tFault);
  int Receive(T_Fault& p_tFault);
};

}    // namespace callorv::detail

#endif
