// Calls that come as lines, and results that go as lines: one thread, which waits for whatever can go on.
#include "call/call_stream.h"

#include <callorv/callorv.hpp>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <deque>
#include <list>
#include <nlohmann/json.hpp>
#include <system_error>

#include "call/call_error.h"
#include "call/failure_texts.h"
#include "call/stream_line.h"
#include "command.h"
#include "common/descriptor.h"
#include "common/json_text.h"
#include "common/line_input.h"
#include "common/msg_json.h"
#include "common/output.h"
#include "common/stop_signal.h"
#include "common/text.h"
#include "common/variables.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t MAX_WAITING = 1 << 20;    // bytes of results that nobody has taken; then no call is begun
constexpr size_t FLUSH_SIZE = 1 << 14;     // written though more could be done
enum { AHEAD = 16 };                       // times the calls in flight: results in order that wait for an earlier one
enum { SPARE_DESCRIPTORS = 32 };

size_t InFlight(const T_CallOptions& p_tOptions) {
  return static_cast<size_t>(std::max(p_tOptions.tLoad.iInFlight, 1));
}

class CLineStream {
 public:
  CLineStream(const T_CallOptions& p_tOptions, const T_Server& p_tServer)
      : m_bOrdered(p_tOptions.bOrdered),
        m_iDeadline(p_tOptions.iDeadline),
        m_iMostAhead(InFlight(p_tOptions) * AHEAD),
        m_cIdle(InFlight(p_tOptions)),
        m_cTexts(p_tServer),
        m_cInput(STDIN_FILENO, "standard input"),
        m_cOutput(STDOUT_FILENO),
        m_cEpoll(epoll_create1(EPOLL_CLOEXEC)) {
    for (auto c = m_cIdle.begin(); c != m_cIdle.end(); ++c) c->cPlace = c;
    Watch(EPOLL_CTL_ADD, m_cSignal.Fd(), EPOLLIN, &m_cSignal);
    m_bInputWaits = Watch(EPOLL_CTL_ADD, STDIN_FILENO, EPOLLONESHOT, &m_cInput);
    m_bOutputWaits = Watch(EPOLL_CTL_ADD, STDOUT_FILENO, 0, &m_cOutput);
  }

  std::string Run() {
    for (;;) {
      Begin();
      const bool bOver = m_cBusy.empty() && (m_iSignal != 0 || m_cInput.IsOver());
      if (bOver) m_cOutput.Flush();
      if (bOver && m_cOutput.Size() == 0) break;
      Wait();
    }
    const std::string sLines = Counted(m_uLines, "line");
    if (m_iSignal != 0) {
      throw CFailure(std::string("ended by ") + (m_iSignal == SIGINT ? "SIGINT" : "SIGTERM") + " after " + sLines +
                     ", " + std::to_string(m_uFailed) + " of which failed; no call was begun for those behind");
    }
    return m_uFailed == 0 ? "" : std::to_string(m_uFailed) + " of " + sLines + " failed";
  }

 private:
  struct T_Slot {
    std::list<T_Slot>::iterator cPlace;
    CPendingCall cCall;
    T_StreamCall tCall;
    uint64_t uNumber = 0;    // of the line, from 0
    int iEvents = 0;
    Clock::time_point tStart;
  };

  const bool m_bOrdered;
  const int m_iDeadline;
  const size_t m_iMostAhead;
  std::list<T_Slot> m_cIdle;
  std::list<T_Slot> m_cBusy;    // as they began, and so, with one time for all, in the order of their deadlines
  CFailureTexts m_cTexts;
  CVariables m_cVariables;
  CStreamReader m_cReader;
  CLineInput m_cInput;
  COutput m_cOutput;
  std::deque<std::string> m_asDone;    // in order: results from m_uFirst on, "" for one that is not there yet
  uint64_t m_uFirst = 0;
  size_t m_iHeld = 0;    // bytes in m_asDone
  CStopSignal m_cSignal;
  const CDescriptor m_cEpoll;
  bool m_bInputWaits = false;     // standard input tells when there is something; a file always has
  bool m_bOutputWaits = false;
  bool m_bInputArmed = false;
  bool m_bOutputArmed = false;
  int m_iSignal = 0;
  uint64_t m_uLines = 0;     // that are no blank ones
  uint64_t m_uNumber = 0;    // of the line of the file, for people
  uint64_t m_uFailed = 0;

  // False when the descriptor cannot be waited for, as it is never full or empty.
  bool Watch(int p_iHow, int p_iFd, uint32_t p_uEvents, void* p_pWho) {
    epoll_event tEvent = {};
    tEvent.events = p_uEvents;
    tEvent.data.ptr = p_pWho;
    if (epoll_ctl(m_cEpoll, p_iHow, p_iFd, &tEvent) == 0) return true;
    if (errno == EPERM) return false;
    const char* szWhat = p_pWho == &m_cInput ? "standard input: " : p_pWho == &m_cOutput ? "standard output: " : "";
    throw CFailure(szWhat + std::generic_category().message(errno));
  }

  // Whether another line may be taken: there is room for its call and for its result.
  bool HasRoom() const {
    return m_iSignal == 0 && !m_cIdle.empty() && m_cOutput.Size() + m_iHeld < MAX_WAITING &&
           m_asDone.size() < m_iMostAhead;
  }

  // Begins what can be begun with the lines that are there.
  void Begin() {
    while (HasRoom() && !m_cInput.IsOver()) {
      std::string_view sLine;
      const CLineInput::E_Line eLine = m_cInput.Next(sLine);
      if (eLine == CLineInput::NOTHING_YET) {
        if (m_bInputWaits || m_cInput.HasEnded()) return;
        m_cInput.Read();    // a file does not keep anybody waiting, but may have no line for long
        return;
      }
      ++m_uNumber;
      if (eLine == CLineInput::LINE && sLine.find_first_not_of(" \t\r") == std::string_view::npos) continue;
      Take(eLine, sLine);
    }
  }

  void Take(CLineInput::E_Line p_eLine, std::string_view p_sLine) {
    T_Slot& tSlot = m_cIdle.front();
    tSlot.tCall = T_StreamCall();
    tSlot.uNumber = m_uLines++;
    if (m_bOrdered) m_asDone.emplace_back();
    const std::string sName = "line " + std::to_string(m_uNumber);
    CMsg cRequest(0, 0, 0, MA_GetMsgDic());
    try {
      if (p_eLine == CLineInput::LINE_TOO_LONG) {
        throw CFailure(sName + ": more than " + std::to_string(CLineInput::MAX_LINE) + " bytes");
      }
      Read(sName, p_sLine, tSlot.tCall, cRequest);
    } catch (const CFailure& cError) {
      return FailLine(tSlot, cError.what());
    } catch (const CException& cError) {
      return FailLine(tSlot, sName + ": " + cError.GetText());
    }
    Start(tSlot, cRequest);
  }

  // Of a line with placeholders (common/variables.h) what they stand for.
  void Read(const std::string& p_sName, std::string_view p_sLine, T_StreamCall& p_tCall, CMsg& p_cRequest) {
    if (p_sLine.find("{{") == std::string_view::npos) return m_cReader.Read(p_sName, p_sLine, p_tCall, p_cRequest);
    CVaryingText cText;
    try {
      cText = m_cVariables.Compile(std::string(p_sLine), QUOTE_JSON);
    } catch (const CFailure& cError) {
      throw CFailure(p_sName + ": " + cError.what());
    }
    m_cReader.Read(p_sName, cText.ForCall(m_uLines), p_tCall, p_cRequest);
  }

  void FailLine(T_Slot& p_tSlot, const std::string& p_sText) {
    T_CallError tError;
    tError.eStage = CALL_REQUEST;
    tError.iService = p_tSlot.tCall.iService;
    tError.sText = PrintableFailure(p_sText);
    Fail(p_tSlot, tError, "null");
  }

  void Start(T_Slot& p_tSlot, CMsg& p_cRequest) {
    CCallOrvError cError;
    p_tSlot.tStart = Clock::now();
    p_tSlot.cCall = CCallOrv::Start(p_tSlot.tCall.iService, &p_cRequest, m_iDeadline, &cError);
    if (!p_tSlot.cCall) {
      return Fail(p_tSlot, m_cTexts.Explain(-3, cError, p_tSlot.tCall.iService, 0), "0");
    }
    m_cBusy.splice(m_cBusy.end(), m_cIdle, p_tSlot.cPlace);
    if (p_tSlot.cCall.GetFd() < 0) return Finish(p_tSlot);
    p_tSlot.iEvents = p_tSlot.cCall.GetEvents();
    Watch(EPOLL_CTL_ADD, p_tSlot.cCall.GetFd(), static_cast<uint32_t>(p_tSlot.iEvents), &p_tSlot);
  }

  void Step(T_Slot& p_tSlot) {
    if (!p_tSlot.cCall.Step()) return Finish(p_tSlot);
    const int iEvents = p_tSlot.cCall.GetEvents();
    if (iEvents == p_tSlot.iEvents) return;
    p_tSlot.iEvents = iEvents;
    Watch(EPOLL_CTL_MOD, p_tSlot.cCall.GetFd(), static_cast<uint32_t>(iEvents), &p_tSlot);
  }

  void Finish(T_Slot& p_tSlot) {
    CMsg cReply(0, 0, 0, MA_GetMsgDic());
    CCallOrvError cError;
    const int iRet = p_tSlot.cCall.Finish(&cReply, &cError);    // which closes its descriptor
    const Clock::duration tTook = Clock::now() - p_tSlot.tStart;
    const std::string sMicros = std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(tTook).count());
    m_cIdle.splice(m_cIdle.begin(), m_cBusy, p_tSlot.cPlace);
    if (iRet != 0) {
      const double dSeconds = std::chrono::duration<double>(tTook).count();
      return Fail(p_tSlot, m_cTexts.Explain(iRet, cError, p_tSlot.tCall.iService, dSeconds), sMicros);
    }
    std::string& s = Result(p_tSlot, 0, sMicros);
    s += "\"reply\":";
    AppendMsg(s, cReply);
    End(s);
  }

  void Fail(T_Slot& p_tSlot, const T_CallError& p_tError, const std::string& p_sMicros) {
    ++m_uFailed;
    std::string& s = Result(p_tSlot, p_tError.iCode != 0 ? p_tError.iCode : -1, p_sMicros);
    s += "\"error\":";
    s += ErrorToJson(p_tError).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    End(s);
  }

  // Where the result of a line goes, with its beginning.
  std::string& Result(const T_Slot& p_tSlot, int p_iCode, const std::string& p_sMicros) {
    std::string& s = m_bOrdered ? m_asDone[static_cast<size_t>(p_tSlot.uNumber - m_uFirst)] : m_cOutput.Bytes();
    s += "{\"id\":";
    s += p_tSlot.tCall.sId;
    s += ",\"code\":";
    s += std::to_string(p_iCode);
    s += ",\"latency_us\":";
    s += p_sMicros;
    s += ',';
    return s;
  }
  void End(std::string& p_sResult) {
    p_sResult += "}\n";
    if (m_bOrdered) m_iHeld += p_sResult.size();
    while (!m_asDone.empty() && !m_asDone.front().empty()) {
      m_cOutput.Bytes() += m_asDone.front();
      m_iHeld -= m_asDone.front().size();
      m_asDone.pop_front();
      ++m_uFirst;
    }
  }

  // Milliseconds until a call is to be stepped though nothing came for it; -1: none.
  int TimeLeft() const { return m_cBusy.empty() ? -1 : m_cBusy.front().cCall.GetTimeLeft(); }

  void Wait() {
    ArmInput();
    enum { MOST = 256 };
    epoll_event atEvent[MOST];
    int iReady = m_cOutput.Size() < FLUSH_SIZE ? epoll_wait(m_cEpoll, atEvent, MOST, 0) : 0;
    if (iReady == 0) {    // now somebody may be waiting for what there is
      m_cOutput.Flush();
      ArmOutput();
      const bool bOn = !m_bInputWaits && HasRoom() && !m_cInput.IsOver();
      iReady = epoll_wait(m_cEpoll, atEvent, MOST, bOn ? 0 : TimeLeft());
    }
    for (int i = 0; i < iReady; ++i) {
      void* pWho = atEvent[i].data.ptr;
      if (pWho == &m_cInput) {
        m_bInputArmed = false;
        m_cInput.Read();
      } else if (pWho == &m_cSignal) {
        m_iSignal = m_cSignal.Take();
      } else if (pWho == &m_cOutput) {
        if ((atEvent[i].events & (EPOLLERR | EPOLLHUP)) != 0 && m_cOutput.Size() == 0) {
          throw CFailure("standard output cannot be written: nobody reads it any more");
        }
        m_cOutput.Flush();
      } else {
        Step(*static_cast<T_Slot*>(pWho));
      }
    }
    while (TimeLeft() == 0) Step(m_cBusy.front());
  }

  // Lines are read while there is room for what they ask; an end of a pipe would be told again and again else.
  void ArmInput() {
    if (m_bInputArmed || !m_bInputWaits || !HasRoom() || m_cInput.HasEnded()) return;
    m_bInputArmed = true;
    Watch(EPOLL_CTL_MOD, STDIN_FILENO, EPOLLIN | EPOLLONESHOT, &m_cInput);
  }
  // The loss of who reads it is told always.
  void ArmOutput() {
    const bool bWanted = m_cOutput.Size() > 0;
    if (!m_bOutputWaits || bWanted == m_bOutputArmed) return;
    m_bOutputArmed = bWanted;
    Watch(EPOLL_CTL_MOD, STDOUT_FILENO, bWanted ? uint32_t{EPOLLOUT} : 0, &m_cOutput);
  }
};

// Each call needs a descriptor.
void AllowDescriptors(size_t p_iCalls) {
  rlimit tLimit = {};
  const rlim_t uNeeded = static_cast<rlim_t>(p_iCalls) + SPARE_DESCRIPTORS;
  if (getrlimit(RLIMIT_NOFILE, &tLimit) != 0 || tLimit.rlim_cur >= uNeeded) return;
  if (tLimit.rlim_max < uNeeded) {
    throw CFailure("--in-flight " + std::to_string(p_iCalls) + " needs " + std::to_string(uNeeded) +
                   " descriptors, of which the process may have " + std::to_string(tLimit.rlim_max) + " (ulimit -Hn)");
  }
  tLimit.rlim_cur = uNeeded;
  setrlimit(RLIMIT_NOFILE, &tLimit);
}

}    // namespace

std::string CallStream(const T_CallOptions& p_tOptions, const T_Server& p_tServer) {
  AllowDescriptors(InFlight(p_tOptions));
  std::signal(SIGPIPE, SIG_IGN);    // what cannot be written is said
  CCallOrvError cIgnored;
  CCallOrv::Resolve(&cIgnored);    // once; a name that has no address now may have one later
  return CLineStream(p_tOptions, p_tServer).Run();
}
