// System calls that fail: each one that an operation makes, with every errno, short, without data, late, timed out, and
// while the thread is cancelled.
#include <netdb.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "children.h"
#include "peer_process.h"
#include "syscall_gate.h"
#include "world.h"

namespace {

struct T_Errno {
  int iErrno;
  const char* szText;    // strerror's
};

// Every errno that the manual pages of the calls name, and more. Each is tried with each call.
const T_Errno s_atErrno[] = {
    {EPERM, "Operation not permitted"}, {ENOENT, "No such file or directory"}, {EINTR, "Interrupted system call"},
    {EIO, "Input/output error"}, {ENXIO, "No such device or address"}, {EBADF, "Bad file descriptor"},
    {EAGAIN, "Resource temporarily unavailable"}, {ENOMEM, "Cannot allocate memory"}, {EACCES, "Permission denied"},
    {EFAULT, "Bad address"}, {EBUSY, "Device or resource busy"}, {EEXIST, "File exists"}, {ENODEV, "No such device"},
    {ENOTDIR, "Not a directory"}, {EISDIR, "Is a directory"}, {EINVAL, "Invalid argument"},
    {ENFILE, "Too many open files in system"}, {EMFILE, "Too many open files"}, {ETXTBSY, "Text file busy"},
    {EFBIG, "File too large"}, {ENOSPC, "No space left on device"}, {ESPIPE, "Illegal seek"},
    {EROFS, "Read-only file system"}, {EPIPE, "Broken pipe"}, {EDOM, "Numerical argument out of domain"},
    {ENAMETOOLONG, "File name too long"}, {ENOSYS, "Function not implemented"},
    {ELOOP, "Too many levels of symbolic links"}, {EPROTO, "Protocol error"},
    {EOVERFLOW, "Value too large for defined data type"}, {ENOTSOCK, "Socket operation on non-socket"},
    {EDESTADDRREQ, "Destination address required"}, {EMSGSIZE, "Message too long"},
    {EPROTOTYPE, "Protocol wrong type for socket"}, {ENOPROTOOPT, "Protocol not available"},
    {EPROTONOSUPPORT, "Protocol not supported"}, {ESOCKTNOSUPPORT, "Socket type not supported"},
    {EOPNOTSUPP, "Operation not supported"}, {EAFNOSUPPORT, "Address family not supported by protocol"},
    {EADDRINUSE, "Address already in use"}, {EADDRNOTAVAIL, "Cannot assign requested address"},
    {ENETDOWN, "Network is down"}, {ENETUNREACH, "Network is unreachable"},
    {ENETRESET, "Network dropped connection on reset"}, {ECONNABORTED, "Software caused connection abort"},
    {ECONNRESET, "Connection reset by peer"}, {ENOBUFS, "No buffer space available"},
    {EISCONN, "Transport endpoint is already connected"}, {ENOTCONN, "Transport endpoint is not connected"},
    {ETIMEDOUT, "Connection timed out"}, {ECONNREFUSED, "Connection refused"}, {EHOSTDOWN, "Host is down"},
    {EHOSTUNREACH, "No route to host"}, {EALREADY, "Operation already in progress"},
    {EINPROGRESS, "Operation now in progress"}, {ESTALE, "Stale file handle"}, {EDQUOT, "Disk quota exceeded"},
};
const T_Errno s_atHostError[] = {{EAI_AGAIN, ""}, {EAI_FAIL, ""}, {EAI_NONAME, ""}, {EAI_NODATA, ""}, {EAI_MEMORY, ""},
                                 {EAI_SYSTEM, ""}, {EAI_FAMILY, ""}, {EAI_SERVICE, ""}, {EAI_SOCKTYPE, ""},
                                 {EAI_BADFLAGS, ""}, {EAI_ADDRFAMILY, ""}};

const char* const GOOD = "as without the fault";
const char* const CANCELLED = "the thread is cancelled";

// What an operation says of a fault. Of several rows for it the first counts.
struct T_Row {
  E_Call eCall;
  int iFrom, iTo;       // which of the calls
  E_Fault eFault;
  int iErrno;           // 0: any
  const char* szSays;   // {n} stands for the errno, {t} for its text
};
const int LAST = 1 << 30;
const size_t QUICK_CASES = 1500;    // of one target, about

struct T_Target {
  std::string sName;
  std::vector<T_Fault> atAlways;    // what else goes wrong
  std::vector<std::pair<E_Call, int>> aiCount;    // the calls that it makes
  std::vector<long> aiWait;                       // and what each select is told to wait at most, in seconds
  std::string sGood;
  std::vector<T_Row> atRow;
  std::function<std::string()> fnRun;     // armed when called
  std::function<std::string()> fnNext;    // a later one, which must be good
  int iBatch = 500;
  std::function<void()> fnSetUp = [] {};
};

std::string Put(std::string p_s, const char* p_szWhat, const std::string& p_sWith) {
  const size_t i = p_s.find(p_szWhat);
  return i == p_s.npos ? p_s : p_s.replace(i, strlen(p_szWhat), p_sWith);
}

struct T_Case {
  T_Fault tFault;
  const char* szErrno;
};

std::vector<T_Case> CasesOf(const T_Target& p_tTarget) {
  std::vector<T_Case> atCase;
  for (const auto& [eCall, iCount] : p_tTarget.aiCount) {
    for (int iNth = 1; iNth <= iCount; ++iNth) {
      const auto fnAdd = [&, eOf = eCall](E_Fault p_eFault, const T_Errno& p_tErrno) {
        atCase.push_back({{eOf, iNth, p_eFault, p_tErrno.iErrno}, p_tErrno.szText});
      };
      if (eCall == CALL_GETADDRINFO) {
        for (const T_Errno& tErrno : s_atHostError) fnAdd(FAULT_ERRNO, tErrno);
      } else {
        for (const T_Errno& tErrno : s_atErrno) fnAdd(FAULT_ERRNO, tErrno);
      }
      const bool bMoves = eCall == CALL_SEND || eCall == CALL_RECV || eCall == CALL_FREAD || eCall == CALL_FWRITE;
      if (bMoves) fnAdd(FAULT_SHORT, {0, "Success"});
      if (bMoves) fnAdd(FAULT_NONE, {0, "Success"});
      if (eCall == CALL_SELECT) fnAdd(FAULT_TIME, {0, ""});
      fnAdd(FAULT_LATE, {0, ""});
      fnAdd(FAULT_CANCEL, {0, ""});
      fnAdd(FAULT_ERRNO, eCall == CALL_GETADDRINFO ? s_atHostError[0] : T_Errno{EPIPE, "Broken pipe"});
      atCase.back().tFault.bCancel = true;
    }
  }
  return atCase;
}

std::string Expected(const T_Target& p_tTarget, const T_Case& p_tCase) {
  const T_Fault& tFault = p_tCase.tFault;
  if (tFault.bCancel) {    // what ends the operation does so before the thread waits again
    const std::string sFailed = Expected(p_tTarget, {{tFault.eCall, tFault.iNth, tFault.eFault, tFault.iErrno}, p_tCase.szErrno});
    if (sFailed != p_tTarget.sGood) return sFailed;
    return Expected(p_tTarget, {{tFault.eCall, tFault.iNth, FAULT_CANCEL, 0}, ""});
  }
  if (tFault.eFault == FAULT_LATE) return p_tTarget.sGood;
  for (const T_Row& tRow : p_tTarget.atRow) {
    if (tRow.eCall != tFault.eCall || tFault.iNth < tRow.iFrom || tFault.iNth > tRow.iTo ||
        tRow.eFault != tFault.eFault || (tRow.iErrno != 0 && tRow.iErrno != tFault.iErrno)) {
      continue;
    }
    if (tRow.szSays == GOOD) return p_tTarget.sGood;
    return Put(Put(tRow.szSays, "{n}", std::to_string(tFault.iErrno)), "{t}", p_tCase.szErrno);
  }
  return "(nobody said what)";
}

// What the operation says when run in a thread of its own, which may be cancelled on the way.
std::string RunInThread(const T_Target& p_tTarget, const std::vector<T_Fault>& p_atFault) {
  struct T_Thread {
    const T_Target& tTarget;
    const std::vector<T_Fault>& atFault;
    std::string sSaid;
  } tThread{p_tTarget, p_atFault, ""};
  const auto fnThread = [](void* p_p) -> void* {
    T_Thread& tMine = *static_cast<T_Thread*>(p_p);
    CSyscallGate::Arm(tMine.atFault);
    tMine.sSaid = tMine.tTarget.fnRun();
    CSyscallGate::Disarm();
    return nullptr;
  };
  pthread_t tId;
  void* pResult = nullptr;
  if (pthread_create(&tId, nullptr, fnThread, &tThread) != 0 || pthread_join(tId, &pResult) != 0) return "(no thread)";
  return pResult == PTHREAD_CANCELED ? CANCELLED : tThread.sSaid;
}

// Case 1 counts the calls; each of the others makes one of them fail.
T_Outcome Run(const T_Target& p_tTarget, const std::vector<T_Case>& p_atCase, int p_iCase, int p_iStep) {
  T_Outcome tOutcome;
  tOutcome.bLast = static_cast<size_t>(p_iCase) + static_cast<size_t>(p_iStep) > p_atCase.size() + 1;
  const auto fnExpect = [&](bool p_bTrue, const std::string& p_sWhat) {
    if (!p_bTrue && tOutcome.sWhy.empty()) tOutcome.sWhy = p_sWhat;
  };
  const long iDescriptors = OpenDescriptors();
  std::vector<T_Fault> atFault = p_tTarget.atAlways;
  if (p_iCase == 1) {
    CSyscallGate::Arm(atFault);
    const std::string sSaid = p_tTarget.fnRun();
    CSyscallGate::Disarm();
    fnExpect(sSaid == p_tTarget.sGood, "without a fault: " + sSaid);
    std::string sCounts, sWanted;
    for (int i = 0; i < CALLS; ++i) {
      const E_Call eCall = static_cast<E_Call>(i);
      const int iCount = CSyscallGate::GetCount(eCall);
      if (iCount > 0) sCounts += std::string(" ") + CallName(eCall) + " " + std::to_string(iCount);
      for (const auto& [eWanted, iWanted] : p_tTarget.aiCount) {
        if (eWanted == eCall) sWanted += std::string(" ") + CallName(eCall) + " " + std::to_string(iWanted);
      }
    }
    fnExpect(sCounts == sWanted, "calls made:" + sCounts);
    fnExpect(CSyscallGate::GetWaits() == p_tTarget.aiWait, "it waits for another time");
  } else {
    const T_Case& tCase = p_atCase[static_cast<size_t>(p_iCase) - 2];
    atFault.insert(atFault.begin(), tCase.tFault);    // before what always goes wrong
    const std::string sSaid = RunInThread(p_tTarget, atFault);
    static const char* const s_aszFault[] = {"fails", "falls short", "moves nothing", "is late", "is cancelled", "times out"};
    const std::string sFault = std::string(CallName(tCase.tFault.eCall)) + " " + std::to_string(tCase.tFault.iNth) +
                               " " + s_aszFault[tCase.tFault.eFault] + " (" + std::to_string(tCase.tFault.iErrno) +
                               (tCase.tFault.bCancel ? ", cancelled): " : "): ");
    const std::string sExpected = Expected(p_tTarget, tCase);
    fnExpect(sSaid == sExpected, sFault + "says: " + sSaid + "; not: " + sExpected);
    fnExpect(OpenDescriptors() == iDescriptors, sFault + "a descriptor is left open");
  }
  const std::string sNext = p_tTarget.fnNext();
  fnExpect(sNext == p_tTarget.sGood, "the next one says: " + sNext);
  fnExpect(OpenDescriptors() == iDescriptors, "a descriptor is left open by the next one");
  return tOutcome;
}

// ---- calls

std::string Call(E_Service p_eService, bool p_bLong) {
  CMsgPtr pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
  if (p_bLong) Fill(*pIn);
  const std::string sBefore = Xml(*pIn);
  CallOrv_Error tErr = {};
  const std::string sSaid = ResultText(CallOrv_CallService(p_eService, pIn.get(), pOut.get(), &tErr), tErr);
  CSyscallGate::Disarm();
  if (Xml(*pIn) != sBefore) return "the request is now " + Xml(*pIn);
  return sSaid == "0" && Xml(*pOut) != sBefore ? "the reply is " + Xml(*pOut) : sSaid;
}

// The rows of what comes after the request was sent. Of the receiving calls, those up to iHeader are for the header,
// those up to iBody for the body; iBefore calls of select wait for sending.
std::vector<T_Row> Receiving(int p_iHeader, int p_iBody, int p_iBefore) {
  const int h = p_iHeader + p_iBefore, b = p_iBody + p_iBefore;
  return {
      {CALL_SELECT, p_iBefore + 1, LAST, FAULT_ERRNO, 0,
       "-3 error -5 Failed in select()(-10)((recv errno={n},{t})) -1"},
      {CALL_SELECT, p_iBefore + 1, h, FAULT_TIME, 0, "-3 error -5 Socket timeout(-8)((recv to=0)) -1"},
      {CALL_SELECT, h + 1, b, FAULT_TIME, 0,
       "-3 error -5 Packet is corrupted(-17)(uncompleted packet timeout(body)) -1"},
      {CALL_SELECT, b + 1, LAST, FAULT_TIME, 0,
       "-3 error -5 Packet is corrupted(-17)(uncompleted packet timeout(checksum)) -1"},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, EAGAIN, GOOD},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, ECONNRESET, "-3 error -5 Socket closed(-9)((Connection reset by peer)) -1"},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, 0, "-3 error -5 Failed in recv()(-7)((recv errno={n},{t})) -1"},
      {CALL_RECV, 1, LAST, FAULT_NONE, 0, "-3 error -5 Socket closed(-9)(OK) -1"},
      {CALL_RECV, 1, LAST, FAULT_SHORT, 0, GOOD},
      {CALL_SELECT, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
      {CALL_RECV, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
      {CALL_SHUTDOWN, 1, 1, FAULT_ERRNO, 0, GOOD},
      {CALL_SHUTDOWN, 1, 1, FAULT_CANCEL, 0, GOOD},
      {CALL_CLOSE, 1, 1, FAULT_ERRNO, 0, GOOD},
      {CALL_CLOSE, 1, 1, FAULT_CANCEL, 0, GOOD},
  };
}

const std::vector<T_Row> CONNECTING = {
    {CALL_SOCKET, 1, 1, FAULT_ERRNO, 0, "-3 error -3 Cannot open socket(-3)((iSock=-1)) -1"},
    {CALL_GETADDRINFO, 1, 1, FAULT_ERRNO, 0,
     "-3 error -3 Failed in gethostbyname()(-4)((hostname=server.invalid)) -1"},
    {CALL_SETSOCKOPT, 1, 1, FAULT_ERRNO, 0, "-3 error -3 Failed in setsockopt()(-11)((TCP_NODELAY)) -1"},
    {CALL_CONNECT, 1, 1, FAULT_ERRNO, 0, "-3 error -3 Failed in connect()(-5)((connect)) -1"},
    {CALL_SEND, 1, LAST, FAULT_ERRNO, EAGAIN, GOOD},
    {CALL_SEND, 1, LAST, FAULT_ERRNO, 0, "-3 error -4 Failed in send()(-6)((send errno={n},{t})) -1"},
    {CALL_SEND, 1, LAST, FAULT_NONE, 0, "-3 error -4 Failed in send()(-6)((send errno=0,Success)) -1"},
    {CALL_SEND, 1, LAST, FAULT_SHORT, 0, GOOD},
    {CALL_SOCKET, 1, 1, FAULT_CANCEL, 0, CANCELLED},    // when it connects
    {CALL_GETADDRINFO, 1, 1, FAULT_CANCEL, 0, CANCELLED},
    {CALL_SETSOCKOPT, 1, 1, FAULT_CANCEL, 0, CANCELLED},
    {CALL_CONNECT, 1, 1, FAULT_CANCEL, 0, CANCELLED},
    {CALL_SEND, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
};

// Those of the waits between two sends, of which there are iCount.
std::vector<T_Row> Sending(int p_iCount) {
  return {
      {CALL_SELECT, 1, p_iCount, FAULT_ERRNO, 0, "-3 error -4 Failed in select()(-10)((send errno={n},{t})) -1"},
      {CALL_SELECT, 1, p_iCount, FAULT_TIME, 0, "-3 error -4 Socket timeout(-8)((send to=0)) -1"},
  };
}

std::vector<T_Row> Joined(std::vector<T_Row> p_at, const std::vector<T_Row>& p_atMore) {
  p_at.insert(p_at.end(), p_atMore.begin(), p_atMore.end());
  return p_at;
}

T_Target CallTarget(const std::string& p_sName, const std::vector<T_Fault>& p_atAlways, int p_iSends, int p_iReceives,
                    const std::vector<T_Row>& p_atReceiving, E_Service p_eService, bool p_bLong) {
  T_Target tTarget;
  tTarget.sName = p_sName;
  tTarget.atAlways = p_atAlways;
  tTarget.aiCount = {{CALL_SOCKET, 1},
                     {CALL_SETSOCKOPT, 1},
                     {CALL_CONNECT, 1},
                     {CALL_SEND, p_iSends},
                     {CALL_SELECT, p_iSends - 1 + p_iReceives},
                     {CALL_RECV, p_iReceives},
                     {CALL_SHUTDOWN, 1},
                     {CALL_CLOSE, 1}};
  tTarget.aiWait.assign(static_cast<size_t>(p_iSends) - 1, 90);
  tTarget.aiWait.resize(tTarget.aiWait.size() + static_cast<size_t>(p_iReceives), TIME_OUT);
  tTarget.sGood = "0";
  tTarget.atRow = Joined(Joined(CONNECTING, Sending(p_iSends - 1)), p_atReceiving);
  tTarget.fnRun = tTarget.fnNext = [=] { return Call(p_eService, p_bLong); };
  return tTarget;
}

std::vector<T_Target> CallTargets(const T_Files& p_tFiles, int p_iPort) {
  std::vector<T_Target> aTargets;
  aTargets.push_back(CallTarget("call", {}, 1, 3, Receiving(1, 2, 0), ECHO_PLAIN, false));
  aTargets.push_back(CallTarget("call, compressed", {}, 1, 3, Receiving(1, 2, 0), ECHO_COMPRESSED, true));
  aTargets.push_back(CallTarget("call, first send short", {{CALL_SEND, 1, FAULT_SHORT, 0}}, 2, 3, Receiving(1, 2, 1),
                                ECHO_PLAIN, false));
  aTargets.push_back(CallTarget("call, first send would block", {{CALL_SEND, 1, FAULT_ERRNO, EAGAIN}}, 2, 3,
                                Receiving(1, 2, 1), ECHO_PLAIN, false));
  // A request of 71 bytes of body in a packet of 202, and a reply of the same.
  aTargets.push_back(CallTarget("call, one byte sent at a time", {{CALL_SEND, 0, FAULT_SHORT, 0}}, 202, 3,
                                Receiving(1, 2, 201), ECHO_PLAIN, false));
  aTargets.push_back(CallTarget("call, one byte received at a time", {{CALL_RECV, 0, FAULT_SHORT, 0}}, 1, 202,
                                Receiving(128, 199, 0), ECHO_PLAIN, false));
  T_Target tNamed = CallTarget("call of a named host", {}, 1, 3, Receiving(1, 2, 0), ECHO_PLAIN, false);
  tNamed.aiCount.insert(tNamed.aiCount.begin() + 1, {CALL_GETADDRINFO, 1});
  tNamed.fnSetUp = [&p_tFiles, p_iPort] {
    CallOrv_Error tErr;
    CallOrv_InitializeEx(p_tFiles.sKey.c_str(), p_tFiles.sEmpty.c_str(), NamedHost(), p_iPort, TIME_OUT, &tErr);
  };
  aTargets.push_back(tNamed);
  return aTargets;
}

// ---- calls that hold no thread

std::string CallWithin(E_Service p_eService) {
  CMsgPtr pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
  const std::string sBefore = Xml(*pIn);
  CallOrv_Error tErr = {};
  const int iRet = CallOrv_CallServiceWithin(p_eService, pIn.get(), pOut.get(), 30000, &tErr);
  CSyscallGate::Disarm();
  const std::string sSaid = ResultText(iRet, tErr);
  return sSaid == "0" && Xml(*pOut) != sBefore ? "the reply is " + Xml(*pOut) : sSaid;
}

// An application that waits for one of its calls; destroyed, a call is cancelled.
std::string CallByWaitAny() {
  const CMsgPtr pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
  CCallOrvError cErr;
  CPendingCall cCall = CCallOrv::Start(ECHO_PLAIN, pIn.get(), 30000, &cErr);
  const int iOver = CPendingCall::WaitAny(&cCall, 1, -1);
  if (iOver != 0) return "WaitAny " + std::to_string(iOver);
  const int iRet = cCall.Finish(pOut.get(), &cErr);
  CSyscallGate::Disarm();
  if (iRet != 0) return std::to_string(iRet) + " error " + std::to_string(cErr.GetCode()) + " " + cErr.sText.ToStr() + " -1";
  return Xml(*pOut) == Xml(*pIn) ? "0" : "the reply is " + Xml(*pOut);
}

std::string Cancelled() {
  const CMsgPtr pIn(MA_NewMsg(100));
  CallOrv_Error tErr = {};
  CallOrv_Call* pCall = CallOrv_Start(ECHO_PLAIN, pIn.get(), 30000, &tErr);
  CallOrv_Cancel(pCall);
  CSyscallGate::Disarm();
  return pCall != nullptr ? "0" : "not started";
}

// Sending is how such a call learns whether it is connected; the thread may be cancelled only where it waits.
std::vector<T_Row> InFlight(int p_iSends) {
  return {
      CONNECTING[0], CONNECTING[2],
      {CALL_CONNECT, 1, 1, FAULT_ERRNO, EINPROGRESS, "-3 error -4 Failed in send()(-6)((send errno=32,Broken pipe)) -1"},
      {CALL_CONNECT, 1, 1, FAULT_ERRNO, 0, "-3 error -3 Failed in connect()(-5)((connect)) -1"},
      {CALL_SEND, 1, LAST, FAULT_ERRNO, EAGAIN, GOOD},
      {CALL_SEND, 1, 1, FAULT_ERRNO, ECONNRESET, "-3 error -4 Failed in send()(-6)((send errno={n},{t})) -1"},
      {CALL_SEND, 1, 1, FAULT_ERRNO, EPIPE, "-3 error -4 Failed in send()(-6)((send errno={n},{t})) -1"},
      {CALL_SEND, 1, 1, FAULT_ERRNO, 0, "-3 error -3 Failed in connect()(-5)((connect)) -1"},
      {CALL_SEND, 1, 1, FAULT_NONE, 0, "-3 error -3 Failed in connect()(-5)((connect)) -1"},
      {CALL_SEND, 2, LAST, FAULT_ERRNO, 0, "-3 error -4 Failed in send()(-6)((send errno={n},{t})) -1"},
      {CALL_SEND, 2, LAST, FAULT_NONE, 0, "-3 error -4 Failed in send()(-6)((send errno=0,Success)) -1"},
      {CALL_SEND, 1, LAST, FAULT_SHORT, 0, GOOD},
      {CALL_POLL, 1, p_iSends - 1, FAULT_ERRNO, 0, "-3 error -4 Failed in select()(-10)((send errno={n},{t})) -1"},
      {CALL_POLL, p_iSends, LAST, FAULT_ERRNO, 0, "-3 error -5 Failed in select()(-10)((recv errno={n},{t})) -1"},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, EAGAIN, GOOD},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, ECONNRESET, "-3 error -5 Socket closed(-9)((Connection reset by peer)) -1"},
      {CALL_RECV, 1, LAST, FAULT_ERRNO, 0, "-3 error -5 Failed in recv()(-7)((recv errno={n},{t})) -1"},
      {CALL_RECV, 1, LAST, FAULT_NONE, 0, "-3 error -5 Socket closed(-9)(OK) -1"},
      {CALL_RECV, 1, LAST, FAULT_SHORT, 0, GOOD},
      {CALL_RECV, 1, LAST, FAULT_CANCEL, 0, GOOD},    // all the rest comes at once: it does not wait again
      {CALL_CLOSE, 1, 1, FAULT_ERRNO, 0, GOOD},
      {CALL_CLOSE, 1, 1, FAULT_CANCEL, 0, GOOD},
      {CALL_SOCKET, 1, 1, FAULT_CANCEL, 0, CANCELLED},    // where it waits
      {CALL_SETSOCKOPT, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_CONNECT, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_SEND, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
      {CALL_POLL, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
  };
}

T_Target InFlightTarget(const std::string& p_sName, const std::vector<T_Fault>& p_atAlways, int p_iSends,
                        int p_iReceives, E_Service p_eService) {
  T_Target tTarget;
  tTarget.sName = p_sName;
  tTarget.atAlways = p_atAlways;
  tTarget.aiCount = {{CALL_SOCKET, 1}, {CALL_SETSOCKOPT, 1}, {CALL_CONNECT, 1},
                     {CALL_SEND, p_iSends}, {CALL_POLL, p_iSends - 1 + p_iReceives}, {CALL_RECV, p_iReceives},
                     {CALL_CLOSE, 1}};
  tTarget.sGood = "0";
  tTarget.atRow = InFlight(p_iSends);
  tTarget.fnRun = tTarget.fnNext = [=] { return CallWithin(p_eService); };
  return tTarget;
}

// The same where the application waits: that a wait failed is its own affair, and the call is still under way.
T_Target WaitAnyTarget() {
  T_Target tTarget = InFlightTarget("call in flight, WaitAny", {}, 1, 1, ECHO_PLAIN);
  tTarget.atRow = Joined({{CALL_POLL, 1, 1, FAULT_ERRNO, 0, "WaitAny -2"}}, tTarget.atRow);
  tTarget.fnRun = tTarget.fnNext = CallByWaitAny;
  return tTarget;
}

// Whatever fails is not told, and no thread ends in it.
T_Target CancelTarget() {
  T_Target tTarget;
  tTarget.sName = "call in flight, cancelled at once";
  for (const E_Call eCall : {CALL_SOCKET, CALL_SETSOCKOPT, CALL_CONNECT, CALL_SEND, CALL_CLOSE}) {
    tTarget.aiCount.emplace_back(eCall, 1);
    for (const E_Fault eFault : {FAULT_ERRNO, FAULT_SHORT, FAULT_NONE, FAULT_CANCEL}) {
      tTarget.atRow.push_back({eCall, 1, 1, eFault, 0, GOOD});
    }
  }
  tTarget.sGood = "0";
  tTarget.fnRun = tTarget.fnNext = Cancelled;
  return tTarget;
}

std::vector<T_Target> InFlightTargets() {
  return {WaitAnyTarget(), CancelTarget(),
          InFlightTarget("call in flight", {}, 1, 1, ECHO_PLAIN),
          InFlightTarget("call in flight, compressed reply", {}, 1, 1, ECHO_COMPRESSED),
          InFlightTarget("call in flight, one byte sent at a time", {{CALL_SEND, 0, FAULT_SHORT, 0}}, 202, 1, ECHO_PLAIN),
          InFlightTarget("call in flight, one byte received at a time", {{CALL_RECV, 0, FAULT_SHORT, 0}}, 1, 202,
                         ECHO_PLAIN)};
}

// ---- dumps

std::string Dump(const char* p_szPath) {
  CMsgPtr pMsg(MA_NewMsg(100));
  Fill(*pMsg);
  CallOrv_Error tErr = {};
  const int iRet = MSG_Dump(pMsg.get(), p_szPath, &tErr);
  CSyscallGate::Disarm();
  std::string sSaid = ResultText(iRet, tErr);
  if (p_szPath == nullptr) return sSaid;
  if (iRet == 0) {
    CStream stText(0, 512);
    pMsg->Dump(&stText, false, 1);
    if (ReadWholeFile(p_szPath) != stText.GetData()) sSaid = "the file holds " + ReadWholeFile(p_szPath);
  }
  unlink(p_szPath);
  return sSaid;
}

std::vector<T_Target> DumpTargets(const T_Files& p_tFiles) {
  const std::string sPath = p_tFiles.cDir.Path("dump");
  T_Target tFile, tOutput;
  tFile.sName = "dump to a file";
  tFile.aiCount = {{CALL_FOPEN, 1}, {CALL_FWRITE, 1}, {CALL_FCLOSE, 1}};
  tOutput.sName = "dump to standard output";
  tOutput.aiCount = {{CALL_FWRITE, 1}, {CALL_FFLUSH, 1}};
  tFile.sGood = tOutput.sGood = "0";
  tFile.atRow = tOutput.atRow = {
      {CALL_FOPEN, 1, 1, FAULT_ERRNO, 0, "-1 error -32 cannot open file 0"},
      {CALL_FWRITE, 1, 1, FAULT_ERRNO, 0, "-1 error -32 cannot write file 0"},
      {CALL_FWRITE, 1, 1, FAULT_SHORT, 0, "-1 error -32 cannot write file 0"},
      {CALL_FWRITE, 1, 1, FAULT_NONE, 0, "-1 error -32 cannot write file 0"},
      {CALL_FFLUSH, 1, 1, FAULT_ERRNO, 0, "-1 error -32 cannot write file 0"},
      {CALL_FCLOSE, 1, 1, FAULT_ERRNO, 0, "-1 error -32 cannot write file 0"},
      {CALL_FOPEN, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FFLUSH, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FCLOSE, 1, 1, FAULT_CANCEL, 0, GOOD},
  };
  tFile.atRow.push_back({CALL_FWRITE, 1, 1, FAULT_CANCEL, 0, GOOD});    // into a buffer
  tOutput.atRow.push_back({CALL_FWRITE, 1, 1, FAULT_CANCEL, 0, CANCELLED});    // when that is flushed
  tFile.fnRun = tFile.fnNext = [=] { return Dump(sPath.c_str()); };
  tOutput.fnRun = tOutput.fnNext = [] { return Dump(nullptr); };
  return {tFile, tOutput};
}

// ---- initialisation, each time in a process that has not had one

// The rows of a configuration file and a key file; these calls come first.
std::vector<T_Row> Settings(const char* p_szNotOpened) {
  return {
      {CALL_FOPEN, 1, 1, FAULT_ERRNO, 0, p_szNotOpened},
      {CALL_FGETS, 1, 1, FAULT_ERRNO, 0, "-1 error 0 cannot found 'msg_dic' key in config file 0"},
      {CALL_FGETS, 2, 2, FAULT_ERRNO, 0, "-1 error 0 cannot found 'key_file' key in config file 0"},
      {CALL_FGETS, 3, 3, FAULT_ERRNO, 0, "-1 error 0 cannot found 'server' key in config file 0"},
      {CALL_FGETS, 4, LAST, FAULT_ERRNO, 0, GOOD},    // the time-out is the default's
      {CALL_STAT, 1, 1, FAULT_ERRNO, 0, "-1 error 0 File not found(DIR/user.key) 0"},
      {CALL_FOPEN, 2, 2, FAULT_ERRNO, 0, "-1 error 0 File cannot be open(DIR/user.key) 0"},
      {CALL_FREAD, 1, 1, FAULT_ERRNO, 0, "-1 error 0 Corrupted UserKey data 0"},
      {CALL_FREAD, 1, 1, FAULT_NONE, 0, "-1 error 0 Corrupted UserKey data 0"},
      {CALL_FREAD, 1, LAST, FAULT_SHORT, 0, GOOD},
      {CALL_FREAD, 2, 2, FAULT_ERRNO, 0, GOOD},    // there is no more
      {CALL_FREAD, 2, 2, FAULT_NONE, 0, GOOD},
      {CALL_FCLOSE, 1, LAST, FAULT_ERRNO, 0, GOOD},
      {CALL_FOPEN, 1, 2, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FGETS, 1, LAST, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FCLOSE, 1, 1, FAULT_CANCEL, 0, CANCELLED},    // when the key file is opened
      {CALL_STAT, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FREAD, 1, 1, FAULT_CANCEL, 0, CANCELLED},
      {CALL_FREAD, 2, LAST, FAULT_CANCEL, 0, GOOD},    // there is no more, and the dictionary is read to its end
      {CALL_STAT, 2, 2, FAULT_CANCEL, 0, GOOD},
      {CALL_FOPEN, 3, 3, FAULT_CANCEL, 0, GOOD},
      {CALL_FCLOSE, 2, LAST, FAULT_CANCEL, 0, GOOD},
  };
}

std::vector<T_Target> StartTargets(const T_Files& p_tFiles) {
  std::vector<T_Target> aTargets;
  const auto fnAdd = [&](const char* p_szName, const std::string& p_sDic,
                         const std::vector<std::pair<E_Call, int>>& p_aiCount, const std::vector<T_Row>& p_atRow) {
    const auto fnRun = [&p_tFiles](const std::string& p_sOf) {
      CallOrv_Error tErr = {};
      const int iRet = CallOrv_Initialize(p_tFiles.asConfig.at(p_sOf).c_str(), &tErr);
      CSyscallGate::Disarm();
      return p_tFiles.Named(ResultText(iRet, tErr));
    };
    T_Target tTarget;
    tTarget.sName = p_szName;
    tTarget.aiCount = p_aiCount;
    tTarget.sGood = "0";
    tTarget.atRow = p_atRow;
    tTarget.iBatch = 1;
    tTarget.fnRun = [=] { return fnRun(p_sDic); };
    // the messages of a dictionary can be loaded once
    tTarget.fnNext = [=, &p_tFiles] {
      return fnRun(MA_GetMsgDic()->GetMsgInfo(1) != nullptr ? p_tFiles.sEmpty : p_sDic);
    };
    aTargets.push_back(tTarget);
  };
  fnAdd("initialisation, plain dictionary", p_tFiles.sPlain,
        {{CALL_STAT, 1}, {CALL_FOPEN, 3}, {CALL_FGETS, 5}, {CALL_FREAD, 4}, {CALL_FCLOSE, 3}},
        Joined(Settings("-1 error 0 File open failed [DIR/dic.xml.cfg]({n},{t}) 0"), {
          {CALL_FOPEN, 3, 3, FAULT_ERRNO, 0,
           "-2 error 0 InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document entity "
           "'DIR/dic.xml') 0"},
          {CALL_FREAD, 3, 3, FAULT_ERRNO, 0,
           "-2 error 0 InitDictionary(Handler error : [F] (L:0, C:0) : unable to read data from file) 0"},
          {CALL_FREAD, 3, 3, FAULT_NONE, 0, GOOD},    // the parser asks again
          {CALL_FREAD, 4, 4, FAULT_ERRNO, 0,    // all is read already, but the parser has not seen the end yet
           "-2 error 0 InitDictionary(Handler error : [F]DIR/dic.xml (L:30, C:1) : unable to read data from file) 0"},
          {CALL_FREAD, 4, 4, FAULT_NONE, 0, GOOD},
        }));
  fnAdd(
      "initialisation, encrypted dictionary", p_tFiles.sEncrypted,
      {{CALL_STAT, 2}, {CALL_FOPEN, 3}, {CALL_FGETS, 5}, {CALL_FREAD, 4}, {CALL_FCLOSE, 3}},
      Joined(Settings("-1 error 0 File open failed [DIR/dic.exml.cfg]({n},{t}) 0"),
             {
                 {CALL_STAT, 2, 2, FAULT_ERRNO, 0,
                  "-2 error 0 InitDictionary(Handler error : File not found(DIR/dic.exml)) 0"},
                 {CALL_FOPEN, 3, 3, FAULT_ERRNO, 0,
                  "-2 error 0 InitDictionary(Handler error : File cannot be open(DIR/dic.exml)) 0"},
                 {CALL_FREAD, 3, 3, FAULT_ERRNO, 0,
                  "-2 error 0 InitDictionary(Handler error : [F]MsgDic.xml (L:1, C:1) : invalid document structure) 0"},
                 {CALL_FREAD, 3, 3, FAULT_NONE, 0,
                  "-2 error 0 InitDictionary(Handler error : [F]MsgDic.xml (L:1, C:1) : invalid document structure) 0"},
                 {CALL_FREAD, 4, 4, FAULT_ERRNO, 0, GOOD},
                 {CALL_FREAD, 4, 4, FAULT_NONE, 0, GOOD},
             }));
  return aTargets;
}

void RunTarget(CChildren& p_cChildren, const T_Target& p_tTarget) {
  const std::vector<T_Case> atCase = CasesOf(p_tTarget);
  // Quick: not every errno with every call of the longest.
  const int iStep = p_cChildren.IsQuick() ? 1 + static_cast<int>(atCase.size() / QUICK_CASES) : 1;
  if (iStep > 1) fprintf(stderr, "syscalls: of the next, one case in %d\n", iStep);
  p_cChildren.Run(p_tTarget.sName, iStep, p_tTarget.iBatch, [&, iStep] {
    p_tTarget.fnSetUp();
    return [&, iStep](int p_iCase) { return Run(p_tTarget, atCase, p_iCase, iStep); };
  });
}

}    // namespace

int main(int argc, char** argv) {
  CChildren cChildren("syscalls", argc, argv);
  const CPeerProcess cPeer(Answer);
  const T_Files tFiles(cPeer.Port());
  for (const T_Target& tTarget : StartTargets(tFiles)) RunTarget(cChildren, tTarget);
  CallOrv_Error tErr;
  if (CallOrv_Initialize(tFiles.asConfig.at(tFiles.sPlain).c_str(), &tErr) != 0) return 1;
  for (const T_Target& tTarget : CallTargets(tFiles, cPeer.Port())) RunTarget(cChildren, tTarget);
  if (CallOrv_InitializeEx(tFiles.sKey.c_str(), tFiles.sEmpty.c_str(), "127.0.0.1", cPeer.Port(), TIME_OUT, &tErr) != 0) {
    return 1;
  }
  for (const T_Target& tTarget : InFlightTargets()) RunTarget(cChildren, tTarget);
  for (const T_Target& tTarget : DumpTargets(tFiles)) RunTarget(cChildren, tTarget);
  return cChildren.End();
}
