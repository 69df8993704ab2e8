// Calls and everything around them where the process is short of something or busy with something else: signals,
// descriptors, stack, disk, another user of the XML parser, fork, loading and unloading.
#include <callorv/callorv.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "client.h"
#include "memory.h"
#include "support/small_stack.h"
#include "tally.h"

namespace {

using xercesc::XMLPlatformUtils;

enum {
  LOOKUP_STACK = 256 * 1024,    // bytes, for the system's looking up of a host name
  NEST = 200,            // message with tag 1, a number, and tag 2, itself
  LEVELS = 1000,         // of a document that readers accept
  DEEP = 100000          // levels of a message in memory
};

std::string Dictionary() {
  std::string sText = ClientDictionary();
  sText.insert(sText.find("</msg_dictionary>"),
               "<msg no='200' name='Nest'><tag no='1' name='n' type='integer'/>"
               "<tag no='2' name='nest' type='m200'/></msg>");
  return sText;
}

// The cases of one group; they run in a child, whose limits and signals they may ruin.
class CCases {
 public:
  void Check(bool p_bRight, const std::string& p_sWhat) {
    ++m_iTried;
    if (!p_bRight) m_sFailures += p_sWhat + '\n';
  }
  std::string Report() const { return std::to_string(m_iTried) + '\n' + m_sFailures; }

 private:
  int m_iTried = 0;
  std::string m_sFailures;
};

class CGroups {
 public:
  CGroups(CTally& p_cTally, const std::string& p_sOnly) : m_cTally(p_cTally), m_sOnly(p_sOnly) {}

  // Runs a group, unless another was asked for alone.
  void Run(const std::string& p_sName, const std::function<void(CCases&)>& p_fnCases) {
    if (!m_sOnly.empty() && m_sOnly != p_sName) return;
    std::istringstream cReport(InChild([&] {
      alarm(280);
      CCases cCases;
      try {
        p_fnCases(cCases);
      } catch (const std::exception& cError) {
        cCases.Check(false, cError.what());
      }
      return cCases.Report();
    }));
    int iTried = 0;
    cReport >> iTried;
    std::string sLine;
    std::getline(cReport, sLine);
    int iFailed = 0;
    for (; std::getline(cReport, sLine); ++iFailed) m_cTally.Case(false, p_sName + ": " + sLine);
    for (int i = iFailed; i < iTried; ++i) m_cTally.Case(true, "");
    if (iTried == 0) m_cTally.Case(false, p_sName + ": nothing was tried");
    fprintf(stderr, "limits: %s: %d cases\n", p_sName.c_str(), iTried);
  }

 private:
  CTally& m_cTally;
  std::string m_sOnly;
};

std::string EndText(E_End p_eEnd, const std::string& p_sWhat) { return std::string(EndName(p_eEnd)) + ' ' + p_sWhat; }

void CheckReply(CCases& p_cCases, const std::string& p_sCase, const std::string& p_sText = "text") {
  std::string sWhat;
  const E_End eEnd = EchoCall(1, p_sText, 2, sWhat);
  p_cCases.Check(eEnd == END_REPLY, p_sCase + ": " + EndText(eEnd, sWhat));
}

std::string ErrorText(int p_iRet, const CallOrv_Error& p_tErr) {
  return std::to_string(p_iRet) + ' ' + std::to_string(p_tErr.iCode) + ' ' + p_tErr.szText;
}

// ---- signals

// A signal every now and then, to whichever thread of the process.
class CStorm {
 public:
  CStorm(bool p_bRestart, long p_lNanoseconds) {
    struct sigaction tAction = {};
    tAction.sa_handler = [](int) { ++s_iSignals; };
    tAction.sa_flags = p_bRestart ? SA_RESTART : 0;
    sigaction(SIGUSR1, &tAction, nullptr);
    sigevent tEvent = {};
    tEvent.sigev_notify = SIGEV_SIGNAL;
    tEvent.sigev_signo = SIGUSR1;
    const itimerspec tOften = {{0, p_lNanoseconds}, {0, p_lNanoseconds}};
    if (timer_create(CLOCK_MONOTONIC, &tEvent, &m_pTimer) != 0 || timer_settime(m_pTimer, 0, &tOften, nullptr) != 0) {
      throw std::runtime_error("no timer");
    }
  }
  ~CStorm() { timer_delete(m_pTimer); }
  CStorm(const CStorm&) = delete;
  CStorm& operator=(const CStorm&) = delete;

  static int Signals() { return s_iSignals; }

 private:
  timer_t m_pTimer{};
  static std::atomic<int> s_iSignals;
};
std::atomic<int> CStorm::s_iSignals{0};

void Signals(CCases& p_cCases, CClient& p_cClient, bool p_bRestart, int p_iCalls) {
  const CServer cServer(p_cClient.Dictionary(), {"delay:3@10"});
  const std::string sDump = p_cClient.Dir().Path(p_bRestart ? "restart" : "storm");
  std::mutex cMutex;
  std::array<int, ENDS> aiEnds{};
  sigset_t tSignal;
  sigemptyset(&tSignal);
  sigaddset(&tSignal, SIGUSR1);
  p_cClient.SetUp(cServer.Port(), 60);
  {
    const CStorm cStorm(p_bRestart, 400000);
    pthread_sigmask(SIG_BLOCK, &tSignal, nullptr);    // this thread would take them all
    const auto fnCall = [&](int p_iThread) {
      pthread_sigmask(SIG_UNBLOCK, &tSignal, nullptr);
      const std::unique_ptr<CMsg> pMsg(MA_NewMsg(100));
      pMsg->SetValue(1, "text");
      for (int i = 0; i < p_iCalls; ++i) {
        const std::string sCase = "thread " + std::to_string(p_iThread) + " call " + std::to_string(i);
        std::string sWhat;
        const E_End eEnd = EchoCall(p_iThread, sCase + std::string(i % 2 * 5000, '.'), i, sWhat);
        CStream stXml(0, 512);
        const bool bXml = pMsg->ToXml(&stXml, false, false, 1) == 0;
        const std::unique_ptr<CMsg> pBack(MA_NewMsg(0));
        const bool bRead = pBack->LoadXml(stXml.GetData()) == 0;
        const bool bDump = MSG_Dump(pMsg.get(), (sDump + std::to_string(p_iThread)).c_str(), nullptr) == 0;
        const std::lock_guard<std::mutex> cLock(cMutex);
        ++aiEnds[eEnd];
        // The kernel ends a wait at any signal. It goes on with connect() and send() when the handler wants it so.
        const bool bStopped = eEnd == END_REFUSED || eEnd == END_SEND_STOPPED;
        p_cCases.Check(eEnd == END_REPLY || eEnd == END_SELECT || (bStopped && !p_bRestart),
                       sCase + ": " + EndText(eEnd, sWhat));
        p_cCases.Check(bXml && bRead && bDump, sCase + ": written, read or dumped wrongly");
      }
    };
    std::vector<std::thread> cThreads;
    for (int i = 0; i < 4; ++i) cThreads.emplace_back(fnCall, i);
    for (std::thread& cThread : cThreads) cThread.join();
  }
  fprintf(stderr, "limits: %d signals:", CStorm::Signals());
  for (int i = 0; i < ENDS; ++i) {
    if (aiEnds[static_cast<size_t>(i)] > 0) fprintf(stderr, " %s %d", EndName(i), aiEnds[static_cast<size_t>(i)]);
  }
  fprintf(stderr, "\n");
  p_cCases.Check(aiEnds[END_REPLY] > 0 && aiEnds[END_SELECT] > 0, "calls must succeed, and waits must be interrupted");
  CheckReply(p_cCases, "a call after the storm");
}

// ---- descriptors

// Takes descriptors, and gives them back at the end.
class CTaken {
 public:
  CTaken() = default;
  ~CTaken() {
    for (const int iFile : m_aiFiles) close(iFile);
  }
  CTaken(const CTaken&) = delete;
  CTaken& operator=(const CTaken&) = delete;

  bool Take() {
    const int iFile = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (iFile >= 0) m_aiFiles.push_back(iFile);
    return iFile >= 0;
  }
  void GiveBack() {
    close(m_aiFiles.back());
    m_aiFiles.pop_back();
  }
  // Until the next one has this number.
  void UpTo(int p_iNumber) {
    while (Take()) {
      if (m_aiFiles.back() < p_iNumber) continue;
      GiveBack();
      return;
    }
    throw std::runtime_error("descriptor " + std::to_string(p_iNumber) + " is not to be had");
  }

 private:
  std::vector<int> m_aiFiles;
};

std::string LoadText(const std::string& p_sDictionary) {    // "" when it was loaded
  const auto pDic = std::make_unique<CMsgDic>();    // too large for a small stack
  try {
    pDic->InitDictionary(p_sDictionary.c_str());
  } catch (const CException& cError) {
    return std::to_string(cError.GetCode()) + ' ' + cError.GetText();
  }
  return pDic->GetMsgInfo(NEST) != nullptr ? "" : "incomplete";
}

void NoDescriptors(CCases& p_cCases, CClient& p_cClient) {
  const CServer cServer(p_cClient.Dictionary(), {});
  p_cClient.SetUp(cServer.Port(), 60);
  const std::string sDump = p_cClient.Dir().Path("dump");
  const std::unique_ptr<CMsg> pMsg(MA_NewMsg(100));
  const rlimit tFew = {64, 64};
  setrlimit(RLIMIT_NOFILE, &tFew);
  for (int iFree = 0; iFree < 4; ++iFree) {
    const std::string sCase = std::to_string(iFree) + " descriptors free";
    CTaken cTaken;
    while (cTaken.Take()) {}
    for (int i = 0; i < iFree; ++i) cTaken.GiveBack();
    std::string sWhat;
    CString sKey, sErr;
    CallOrv_Error tErr = {};
    const E_End eEnd = EchoCall(1, "text", 2, sWhat);
    const int iKey = CCallOrv::GetUserKey(p_cClient.Key().c_str(), sKey, sErr);
    const std::string sLoad = LoadText(p_cClient.Dictionary());
    const int iDump = MSG_Dump(pMsg.get(), sDump.c_str(), &tErr);
    if (iFree > 0) {
      p_cCases.Check(eEnd == END_REPLY, sCase + ", call: " + EndText(eEnd, sWhat));
      p_cCases.Check(iKey == 0 && sKey == "TEST-USER-1", sCase + ", key: " + sErr.ToStr());
      p_cCases.Check(sLoad.empty(), sCase + ", dictionary: " + sLoad);
      p_cCases.Check(iDump == 0, sCase + ", dump: " + tErr.szText);
      continue;
    }
    p_cCases.Check(sWhat == "result -3, code -3, text Cannot open socket(-3)((iSock=-1))",
                   sCase + ", call: " + EndText(eEnd, sWhat));
    p_cCases.Check(iKey == -1 && std::string(sErr.ToStr()) == "File cannot be open(" + p_cClient.Key() + ")",
                   sCase + ", key: " + std::to_string(iKey) + ' ' + sErr.ToStr());
    p_cCases.Check(sLoad == "-21 InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document "
                            "entity '" + p_cClient.Dictionary() + "')",
                   sCase + ", dictionary: " + sLoad);
    p_cCases.Check(ErrorText(iDump, tErr) == "-1 -32 cannot open file", sCase + ", dump: " + ErrorText(iDump, tErr));
  }
  CheckReply(p_cCases, "all descriptors back");
}

void HighDescriptors(CCases& p_cCases, CClient& p_cClient) {
  const CServer cServer(p_cClient.Dictionary(), {});
  p_cClient.SetUp(cServer.Port(), 60);
  rlimit tMany = {70000, 70000};
  if (setrlimit(RLIMIT_NOFILE, &tMany) != 0) {    // needs privileges
    getrlimit(RLIMIT_NOFILE, &tMany);
    tMany.rlim_cur = tMany.rlim_max;
    setrlimit(RLIMIT_NOFILE, &tMany);
  }
  const std::unique_ptr<CMsg> pMsg(MA_NewMsg(100));
  CTaken cTaken;
  for (const int iNumber : {1022, 1023, 1024, 1025, 1087, 1088, 2047, 2048, 5000, 16384, 32767, 32768, 65534, 65535,
                            65536, 65537, 65600, 69990}) {
    if (static_cast<rlim_t>(iNumber) >= tMany.rlim_cur) {
      fprintf(stderr, "limits: NOT TRIED: descriptor %d; this machine allows %llu\n", iNumber,
              static_cast<unsigned long long>(tMany.rlim_cur));
      continue;
    }
    cTaken.UpTo(iNumber);
    const std::string sCase = "descriptor " + std::to_string(iNumber);
    CheckReply(p_cCases, sCase);
    CheckReply(p_cCases, sCase + ", long", std::string(3000000, 'x'));
    p_cCases.Check(LoadText(p_cClient.Dictionary()).empty(), sCase + ", dictionary");
    p_cCases.Check(MSG_Dump(pMsg.get(), p_cClient.Dir().Path("dump").c_str(), nullptr) == 0, sCase + ", dump");
  }
}

// ---- stack

std::unique_ptr<CMsg> Nested(int p_iLevels) {
  std::unique_ptr<CMsg> pRoot(MA_NewMsg(NEST));
  CMsg* pMsg = pRoot.get();
  pMsg->SetValue(1, 0);
  for (int i = 1; i < p_iLevels; ++i) {
    CMsg* pSub = MA_NewMsg(NEST);
    pSub->SetValue(1, i);    // an empty one is not kept
    pMsg->SetValue(2, pSub);
    pMsg = pSub;
  }
  return pRoot;
}

int Depth(CMsg* p_pMsg) {
  int iLevels = 0;
  for (CMsg* pSub = p_pMsg; pSub != nullptr; ++iLevels) {
    p_pMsg = pSub;
    pSub = nullptr;
    p_pMsg->GetValue(2, &pSub);
  }
  return iLevels;
}

// A name that has to be looked up, where the machine knows one.
std::string HostName() {
  addrinfo* pList = nullptr;
  if (getaddrinfo("localhost", nullptr, nullptr, &pList) != 0) {
    fprintf(stderr, "limits: NOT TRIED: a host name; this machine does not know localhost\n");
    return "127.0.0.1";
  }
  freeaddrinfo(pList);
  return "localhost";
}

void SmallStack(CGroups& p_cGroups, CClient& p_cClient) {
  const auto fnRunFor = [&](const std::string& p_sName, const std::string& p_sHost, size_t p_uStack,
                            const std::function<void(CCases&)>& p_fn) {
    p_cGroups.Run("stack, " + p_sName, [&](CCases& p_cCases) {
      const CServer cServer(p_cClient.Dictionary(), {});
      const std::string sCfg = p_cClient.Dir().Write(
          "stack.cfg", "msg_dic = " + p_cClient.Dictionary() + "\nkey_file = " + p_cClient.Key() +
                           "\nserver = " + p_sHost + ' ' + std::to_string(cServer.Port()) + "\n");
      OnSmallStack([&] {
        CallOrv_Error tErr = {};
        const int iRet = CallOrv_Initialize(sCfg.c_str(), &tErr);
        p_cCases.Check(iRet == 0, "set-up: " + ErrorText(iRet, tErr));
        if (iRet == 0) p_fn(p_cCases);
      }, p_uStack);
    });
  };
  const auto fnRun = [&](const std::string& p_sName, const std::function<void(CCases&)>& p_fn) {
    fnRunFor(p_sName, "127.0.0.1", SMALL_STACK, p_fn);
  };
  fnRunFor("host name", HostName(), LOOKUP_STACK, [](CCases& p_cCases) { CheckReply(p_cCases, "call"); });
  fnRun("short call", [](CCases& p_cCases) { CheckReply(p_cCases, "call"); });
  fnRun("long call", [](CCases& p_cCases) { CheckReply(p_cCases, "call", std::string(20000000, 'x')); });
  fnRun("array", [](CCases& p_cCases) {
    const std::unique_ptr<CMsg> pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
    for (int i = 0; i < 50000; ++i) {
      CMsg* pRow = MA_NewMsg(101);
      pRow->SetValue(2, i);
      pIn->SetValue(16, pRow);
      pIn->SetValue(13, i / 3.0);
    }
    CCallOrvError cErr;
    const int iRet = CCallOrv::CallServiceByMsg(1, pIn.get(), pOut.get(), &cErr);
    CMsg* pLast = nullptr;
    int iNumber = 0;
    p_cCases.Check(iRet == 0 && pOut->GetValueAt(16, 49999, &pLast) == 0 && pLast->GetValue(2, &iNumber) == 0 &&
                       iNumber == 49999,
                   std::string("call: ") + cErr.GetText().ToStr());
  });
  fnRun("nested call", [](CCases& p_cCases) {
    const std::unique_ptr<CMsg> pIn = Nested(LEVELS), pOut(MA_NewMsg(0));
    CCallOrvError cErr;
    const int iRet = CCallOrv::CallServiceByMsg(1, pIn.get(), pOut.get(), &cErr);
    p_cCases.Check(iRet == 0 && Depth(pOut.get()) == LEVELS, std::string("call: ") + cErr.GetText().ToStr());
  });
  fnRun("deep message", [](CCases& p_cCases) {
    std::unique_ptr<CMsg> pMsg = Nested(DEEP);
    p_cCases.Check(Depth(pMsg.get()) == DEEP, "built");
    CStream stXml(0, 512);
    p_cCases.Check(pMsg->ToXml(&stXml, false, false, 1) == 0 && stXml.GetSize() > 18 * DEEP, "written");
    const std::unique_ptr<CMsg> pBack(MA_NewMsg(0));
    std::string sWhy;
    try {
      pBack->LoadXml(stXml.GetData());
    } catch (const CException& cError) {
      sWhy = cError.GetText();
    }
    p_cCases.Check(sWhy.find("More than 1024 open elements") != std::string::npos, "read: " + sWhy);
    pMsg.reset();
    p_cCases.Check(true, "freed");
  });
  fnRun("encrypted dictionary", [&p_cClient](CCases& p_cCases) {
    const std::string sPlain = Dictionary();
    CStream stPlain(0, 512), stEncrypted(0, 512);
    CString sErr;
    stPlain.AppendData(sPlain.data(), static_cast<int>(sPlain.size()));
    p_cCases.Check(CCrypt::EncryptStream(stPlain, stEncrypted, sErr) >= 0, "encrypted");
    const std::string sFile = p_cClient.Dir().Write(
        "stack.exml", std::string(stEncrypted.GetData(), static_cast<size_t>(stEncrypted.GetSize())));
    const std::string sLoad = LoadText(sFile);
    p_cCases.Check(sLoad.empty(), "loaded: " + sLoad);
  });
  fnRun("dumps", [&p_cClient](CCases& p_cCases) {
    const std::unique_ptr<CMsg> pMsg = Nested(2 * LEVELS);
    CStream stDump(0, 512), stXml(0, 512);
    pMsg->Dump(&stDump, true, 1);
    pMsg->DumpXml(&stXml, true, 1);
    p_cCases.Check(stDump.GetSize() > LEVELS && stXml.GetSize() > LEVELS, "texts");
    p_cCases.Check(MSG_Dump(pMsg.get(), p_cClient.Dir().Path("deep").c_str(), nullptr) == 0, "file");
  });
  fnRun("refusals", [](CCases& p_cCases) {
    const std::unique_ptr<CMsg> pIn = Nested(2 * LEVELS), pOut(MA_NewMsg(0));
    CCallOrvError cErr;
    const int iRet = CCallOrv::CallServiceByMsg(1, pIn.get(), pOut.get(), &cErr);    // its server rejects it
    p_cCases.Check(iRet == -4 && cErr.GetCode() == 400, std::string("call: ") + cErr.GetText().ToStr());
    p_cCases.Check(CCallOrv::CallServiceByMsg(10000, pIn.get(), pOut.get(), &cErr) == -3, "not sent");
    p_cCases.Check(!LoadText("/nonexistent/file").empty(), "no dictionary");
  });
}

// ---- disk

// What MSG_Dump does when only p_uFits bytes of p_uWhole go into its file.
void CheckDump(CCases& p_cCases, CMsg* p_pMsg, const std::string& p_sFile, const std::string& p_sWhole,
               size_t p_uFits) {
  CallOrv_Error tErr = {};
  const int iRet = MSG_Dump(p_pMsg, p_sFile.c_str(), &tErr);
  const std::string sCase = std::to_string(p_uFits) + " of " + std::to_string(p_sWhole.size()) + " bytes: ";
  if (p_uFits >= p_sWhole.size()) {
    p_cCases.Check(iRet == 0 && ReadWholeFile(p_sFile) == p_sWhole, sCase + ErrorText(iRet, tErr));
  } else {
    p_cCases.Check(ErrorText(iRet, tErr) == "-1 -32 cannot write file" &&
                       ReadWholeFile(p_sFile) == p_sWhole.substr(0, p_uFits),
                   sCase + ErrorText(iRet, tErr));
  }
}

std::string DumpText(CMsg* p_pMsg) {
  CStream stDump(0, 512);
  p_pMsg->Dump(&stDump, false, 1);
  return std::string(stDump.GetData(), static_cast<size_t>(stDump.GetSize()));
}

void FileLimit(CCases& p_cCases, CClient& p_cClient, bool p_bQuick) {
  MA_GetMsgDic()->InitDictionary(p_cClient.Dictionary().c_str());
  signal(SIGXFSZ, SIG_IGN);
  const std::string sFile = p_cClient.Dir().Path("limited");
  for (const size_t uText : {10u, 9000u, 200000u}) {
    const std::unique_ptr<CMsg> pMsg(MA_NewMsg(100));
    pMsg->SetValue(1, std::string(uText, 't').c_str());
    const std::string sWhole = DumpText(pMsg.get());
    const size_t uStep = uText == 10 ? 1 : p_bQuick ? uText / 100 + 1 : uText / 2000 + 1;
    for (size_t uFits = 0; uFits <= sWhole.size() + uStep; uFits += uStep) {
      unlink(sFile.c_str());
      const rlimit tLimit = {uFits, RLIM_INFINITY};
      setrlimit(RLIMIT_FSIZE, &tLimit);
      CheckDump(p_cCases, pMsg.get(), sFile, sWhole, uFits);
    }
  }
}

void FullDisk(CCases& p_cCases, CClient& p_cClient) {
  MA_GetMsgDic()->InitDictionary(p_cClient.Dictionary().c_str());
  const std::unique_ptr<CMsg> pMsg(MA_NewMsg(100));
  pMsg->SetValue(1, std::string(300000, 't').c_str());
  CallOrv_Error tErr = {};
  const int iRet = MSG_Dump(pMsg.get(), "/dev/full", &tErr);
  p_cCases.Check(ErrorText(iRet, tErr) == "-1 -32 cannot write file", "/dev/full: " + ErrorText(iRet, tErr));

  const std::string sDir = p_cClient.Dir().Path("disk"), sFile = sDir + "/dump";
  if ((unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) || mkdir(sDir.c_str(), 0700) != 0 ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", sDir.c_str(), "tmpfs", 0, "size=1m") != 0) {
    fprintf(stderr, "limits: NOT TRIED: a file system that is full; this machine mounts none\n");
    return;
  }
  const std::string sWhole = DumpText(pMsg.get());
  const size_t uPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  for (size_t uFree = 0; uFree <= sWhole.size() / uPage + 2; ++uFree) {    // pages
    unlink(sFile.c_str());
    {
      std::ofstream cFill(sDir + "/fill", std::ios::binary);
      const std::string sPage(uPage, 'f');
      while (cFill.write(sPage.data(), static_cast<std::streamsize>(uPage)).flush()) {}
    }
    // Room, in pages, for the dump.
    const off_t lFilled = static_cast<off_t>(1024 * 1024 - uFree * uPage);
    if (truncate((sDir + "/fill").c_str(), lFilled) != 0) throw std::runtime_error("not truncated");
    CheckDump(p_cCases, pMsg.get(), sFile, sWhole, uFree * uPage);
  }
}

// ---- the application's own parser

bool AppParses() {
  const std::string sDoc = "<a><b/></a>";
  const std::unique_ptr<xercesc::SAX2XMLReader> pReader(xercesc::XMLReaderFactory::createXMLReader());
  const xercesc::MemBufInputSource cSource(reinterpret_cast<const XMLByte*>(sDoc.data()), sDoc.size(), "doc");
  pReader->parse(cSource);
  return pReader->getErrorCount() == 0;
}

bool LibraryReads(CMsgDic* p_pDic) {
  CMsg cMsg(0, 0, 0, p_pDic);
  std::string sXml = "<msg no=\"100\" ver=\"\"><t2>5</t2></msg>";
  int iNumber = 0;
  return cMsg.LoadXml(&sXml[0]) == 0 && cMsg.GetValue(2, &iNumber) == 0 && iNumber == 5;
}

void OwnParser(CCases& p_cCases, CClient& p_cClient, int p_iRounds) {
  std::unique_ptr<CMsgDic> pDic;
  const auto fnLoad = [&] {
    pDic.reset(new CMsgDic);
    pDic->InitDictionary(p_cClient.Dictionary().c_str());
  };
  // In each: A and a initialise and terminate for the application, D and d make and destroy a dictionary, p is the
  // application's parser, r reads a message. Afterwards the parser must be as if nobody had used it.
  const std::vector<std::string> asOrders = {"DrAprard",    "DrAprdpa",    "ApDrpard",    "ApDrpdpa",
                                             "AADrpaprard", "DrAparApard", "ADrpdpDrpdpa"};
  const auto fnRound = [&](int p_iRound) {
    for (const std::string& sOrder : asOrders) {
      bool bRight = true;
      for (const char c : sOrder) {
        switch (c) {
          case 'A': XMLPlatformUtils::Initialize(); break;
          case 'a': XMLPlatformUtils::Terminate(); break;
          case 'D': fnLoad(); break;
          case 'd': pDic.reset(); break;
          case 'p': bRight = AppParses() && bRight; break;
          case 'r': bRight = LibraryReads(pDic.get()) && bRight; break;
        }
      }
      p_cCases.Check(bRight && XMLPlatformUtils::fgMemoryManager == nullptr,
                     "order " + sOrder + ", round " + std::to_string(p_iRound));
    }
  };
  // In threads of their own, as malloc counts as used what it keeps at hand for a thread that lives.
  const auto fnHalf = [&](int p_iFirst, int p_iEnd) {
    std::thread([&] {
      for (int i = p_iFirst; i < p_iEnd; ++i) fnRound(i);
    }).join();
    return BytesInUse();
  };
  const long long lBefore = fnHalf(0, p_iRounds / 2);
  const long long lGrown = fnHalf(p_iRounds / 2, p_iRounds) - lBefore;
  fprintf(stderr, "limits: own parser: %lld bytes more in use after the second half\n", lGrown);
  if (MEMORY_IS_KNOWN) p_cCases.Check(lGrown <= 16 * 1024, "memory grows by " + std::to_string(lGrown) + " bytes");
}

// Threads of the application parse and initialise while others call.
void ParserBesideCalls(CCases& p_cCases, CClient& p_cClient, int p_iCalls) {
  const CServer cServer(p_cClient.Dictionary(), {});
  p_cClient.SetUp(cServer.Port(), 60);
  std::atomic<bool> bEnd{false};
  std::atomic<int> iParsed{0}, iBad{0};
  std::thread cApp([&] {
    while (!bEnd) {
      XMLPlatformUtils::Initialize();
      ++(AppParses() ? iParsed : iBad);
      XMLPlatformUtils::Terminate();
    }
  });
  for (int i = 0; i < p_iCalls; ++i) CheckReply(p_cCases, "call " + std::to_string(i));
  bEnd = true;
  cApp.join();
  p_cCases.Check(iParsed > 0 && iBad == 0, "the application's documents");
}

// ---- fork

void Fork(CCases& p_cCases, CClient& p_cClient, int p_iForks) {
  const CServer cServer(p_cClient.Dictionary(), {});
  p_cClient.SetUp(cServer.Port(), 60);
  const auto fnReplies = [](int p_iCalls) {
    int iReplies = 0;
    for (int i = 0; i < p_iCalls; ++i) {
      std::string sWhat;
      if (EchoCall(i, "pid " + std::to_string(getpid()) + " call " + std::to_string(i), i, sWhat) == END_REPLY) {
        ++iReplies;
      } else {
        fprintf(stderr, "limits: fork: %s\n", sWhat.c_str());
      }
    }
    return iReplies;
  };
  std::atomic<bool> bEnd{false};
  std::atomic<int> iWrong{0}, iRight{0};
  std::shared_mutex cInside;    // held by a thread while it calls
  std::mutex cDoor;             // whoever waits to be alone closes it, or the next calls would always be first
  std::vector<std::thread> cThreads;
  for (int i = 0; i < 8; ++i) {
    cThreads.emplace_back([&] {
      while (!bEnd) {
        cDoor.lock();
        const std::shared_lock<std::shared_mutex> cLock(cInside);
        cDoor.unlock();
        ++(fnReplies(1) == 1 ? iRight : iWrong);
      }
    });
  }
  int iWaiting = 0;
  for (int i = 0; i < p_iForks; ++i) {
    // Every other child begins in the middle of the threads' calls. It may wait for a lock that one of them held,
    // but at most one of ten does.
    const bool bInTheMiddle = i % 2 == 1;
    if (!bInTheMiddle) {
      const std::lock_guard<std::mutex> cClosed(cDoor);
      cInside.lock();
    }
    const pid_t iPid = fork();
    if (iPid == 0) {
      alarm(60);
      _exit(fnReplies(10) == 10 ? 0 : 1);
    }
    if (!bInTheMiddle) cInside.unlock();
    int iStatus = -1;
    const pid_t iEnded = waitpid(iPid, &iStatus, 0);
    const bool bWaits = bInTheMiddle && WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGALRM;
    iWaiting += bWaits;
    p_cCases.Check(iEnded == iPid && (iStatus == 0 || bWaits),
                   "child " + std::to_string(i) + ": fork " + std::to_string(iPid) + ", wait " + std::to_string(iEnded) +
                       ", errno " + std::to_string(errno) + ", status " + std::to_string(iStatus));
  }
  bEnd = true;
  for (std::thread& cThread : cThreads) cThread.join();
  if (iWaiting > 0) fprintf(stderr, "limits: fork: %d children wait for a lock that was held\n", iWaiting);
  p_cCases.Check(iWaiting <= p_iForks / 20, "children that wait: " + std::to_string(iWaiting));
  p_cCases.Check(iWrong == 0 && iRight > 0, "the parent's calls: " + std::to_string(iWrong) + " wrong");
}

// ---- loading and unloading

void Reload(CCases& p_cCases, CClient& p_cClient, int p_iTimes) {
  const CServer cServer(p_cClient.Dictionary(), {});
  CProgram cReload({RELOAD_PROGRAM, CALLORV_LIBRARY, std::to_string(p_iTimes), p_cClient.Key(), p_cClient.Dictionary(),
                    std::to_string(cServer.Port())});
  const std::string sLine = cReload.ReadLine();
  fprintf(stderr, "limits: reload: %s\n", sLine.c_str());
  p_cCases.Check(sLine.compare(0, 3, "ok ") == 0, "stopped: " + sLine);
  if (MEMORY_IS_KNOWN && sLine.compare(0, 3, "ok ") == 0) {
    p_cCases.Check(std::stoll(sLine.substr(3)) <= 256 * 1024, "memory grows: " + sLine);
  }
}

int Limits(bool p_bQuick, const std::string& p_sOnly) {
  CTally cTally("limits");
  CClient cClient(Dictionary());
  CGroups cGroups(cTally, p_sOnly);
  cGroups.Run("signals, restarting", [&](CCases& p_c) { Signals(p_c, cClient, true, p_bQuick ? 200 : 5000); });
  cGroups.Run("signals", [&](CCases& p_c) { Signals(p_c, cClient, false, p_bQuick ? 200 : 5000); });
  cGroups.Run("no descriptors", [&](CCases& p_c) { NoDescriptors(p_c, cClient); });
  cGroups.Run("high descriptors", [&](CCases& p_c) { HighDescriptors(p_c, cClient); });
  SmallStack(cGroups, cClient);
  cGroups.Run("file limit", [&](CCases& p_c) { FileLimit(p_c, cClient, p_bQuick); });
  cGroups.Run("full disk", [&](CCases& p_c) { FullDisk(p_c, cClient); });
  cGroups.Run("own parser", [&](CCases& p_c) { OwnParser(p_c, cClient, p_bQuick ? 20 : 200); });
  cGroups.Run("parser beside calls", [&](CCases& p_c) { ParserBesideCalls(p_c, cClient, p_bQuick ? 200 : 3000); });
  cGroups.Run("fork", [&](CCases& p_c) { Fork(p_c, cClient, p_bQuick ? 20 : 300); });
  cGroups.Run("reload", [&](CCases& p_c) { Reload(p_c, cClient, p_bQuick ? 100 : 1000); });
  return cTally.End();
}

}    // namespace

// torture_limits [--quick] [GROUP]
int main(int p_iArgs, char** p_pszArgs) try {
  const bool bQuick = IsQuick(p_iArgs, p_pszArgs);
  const int iGroup = bQuick ? 2 : 1;
  return Limits(bQuick, p_iArgs > iGroup ? p_pszArgs[iGroup] : "");
} catch (const std::exception& cError) {
  fprintf(stderr, "limits: %s\n", cError.what());
  return 1;
}
