// The client side of the programs that call a server: set-up, a call that is echoed, what a fault must look like.
#ifndef TORTURE_CLIENT_H
#define TORTURE_CLIENT_H

#include <callorv/callorv.hpp>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/client_files.h"
#include "support/descriptors.h"
#include "support/temp_file.h"

inline bool IsQuick(int p_iArgs, char** p_pszArgs) { return p_iArgs > 1 && strcmp(p_pszArgs[1], "--quick") == 0; }

// The files that the process is set up from; gone at the end.
class CClient {
 public:
  explicit CClient(const std::string& p_sDictionary = ClientDictionary())
      : m_sKey(m_cDir.Write("user.key", KeyFile("TEST-USER-1"))),
        m_sDictionary(m_cDir.Write("dictionary.xml", p_sDictionary)),
        m_sNext(m_sDictionary) {}

  const std::string& Dictionary() const { return m_sDictionary; }
  const std::string& Key() const { return m_sKey; }
  const CTempDir& Dir() const { return m_cDir; }

  // Calls go to this port of 127.0.0.1 from now on. Again: nothing new for the dictionary, which keeps what it has.
  void SetUp(int p_iPort, int p_iTimeOut) {
    CCallOrvError cErr;
    if (CCallOrv::Initialize(m_sKey.c_str(), m_sNext.c_str(), "127.0.0.1", p_iPort, p_iTimeOut, &cErr) != 0) {
      throw std::runtime_error(std::string("not set up: ") + cErr.GetText().ToStr());
    }
    m_sNext = m_cDir.Write("empty.xml", "<msg_dictionary/>");
  }

 private:
  CTempDir m_cDir;
  std::string m_sKey, m_sDictionary, m_sNext;
};

// `callorv serve --echo` on a port of its own choice, or of p_iPort; killed by the destructor.
class CServer {
 public:
  CServer(const std::string& p_sDictionary, const std::vector<std::string>& p_asFaults, int p_iPort = 0)
      : m_cProgram(Arguments(p_sDictionary, p_asFaults, p_iPort)) {
    const std::string sGreeting = m_cProgram.ReadLine(), sWanted = "listening on 127.0.0.1 ";
    if (sGreeting.compare(0, sWanted.size(), sWanted) != 0) throw std::runtime_error("no server: " + sGreeting);
    m_iPort = std::stoi(sGreeting.substr(sWanted.size()));
  }

  int Port() const { return m_iPort; }

 private:
  CProgram m_cProgram;
  int m_iPort = 0;

  static std::vector<std::string> Arguments(const std::string& p_sDictionary,
                                            const std::vector<std::string>& p_asFaults, int p_iPort) {
    std::vector<std::string> asArgs = {CALLORV_COMMAND, "serve",  "--dictionary",          p_sDictionary,
                                       "--echo",        "--quiet", "--port",                std::to_string(p_iPort)};
    for (const std::string& sFault : p_asFaults) asArgs.insert(asArgs.end(), {"--fault", sFault});
    return asArgs;
  }
};

// The ways a call can end under the server's faults and without a server. Everything else is wrong.
enum E_End {
  END_REPLY, END_REJECT, END_CHECKSUM, END_ZLIB, END_CLOSED, END_RESET, END_SILENCE, END_CUT_OFF, END_REFUSED, END_SEND,
  END_SELECT, END_SEND_STOPPED, END_WRONG, ENDS
};
inline const char* EndName(int p_iEnd) {
  static const char* const s_szaNames[ENDS] = {"reply",   "reject",  "checksum", "zlib",        "closed",       "reset",
                                               "silence", "cut off", "refused",  "send failed", "wait stopped",
                                               "send stopped", "wrong"};
  return s_szaNames[p_iEnd];
}

enum { REJECT_CODE = 7 };    // of --fault reject:7

// How a call of p_iSvcNum with a text and a number ended. A reply counts only when it brings both back. Of what is
// wrong, p_sWhat says what it is.
inline E_End JudgeEcho(int p_iRet, CCallOrvError& p_cErr, CMsg& p_cOut, int p_iSvcNum, const std::string& p_sText, int p_iNumber,
                       std::string& p_sWhat) {
  const std::string sErr = p_cErr.GetText().ToStr();
  if (p_iRet == 0) {
    CString sBack;
    int iBack = 0;
    if (p_cOut.GetValue(1, &sBack) == 0 && p_cOut.GetValue(2, &iBack) == 0 && p_sText == sBack.ToStr() &&
        iBack == p_iNumber) {
      return END_REPLY;
    }
    p_sWhat = "another call's reply: number " + std::to_string(iBack) + " instead of " + std::to_string(p_iNumber) +
              ", text " + std::string(sBack.ToStr()).substr(0, 60);
    return END_WRONG;
  }
  if (p_iRet == -4 && p_cErr.GetCode() == REJECT_CODE && p_cErr.iRefSvcNum == p_iSvcNum &&
      sErr == "rejected on request of --fault") {
    return END_REJECT;
  }
  struct T_Text {
    int iCode;
    const char* szBegin;
    E_End eEnd;
  };
  static const T_Text s_atTexts[] = {
      {-5, "Checksum is incorrect(-13)((M:", END_CHECKSUM},
      {-5, "Compression failed(-16)(ReceiveFrom(-3)(", END_ZLIB},
      {-5, "Socket closed(-9)(OK)", END_CLOSED},
      {-5, "Socket closed(-9)((Connection reset by peer))", END_RESET},
      {-5, "Socket timeout(-8)((recv to=0))", END_SILENCE},
      {-5, "Socket timeout(-8)((header, ", END_SILENCE},    // in flight
      {-5, "Socket timeout(-8)((body, ", END_CUT_OFF},
      {-5, "Packet is corrupted(-17)(uncompleted packet timeout(body))", END_CUT_OFF},
      {-3, "Failed in connect()(-5)((connect))", END_REFUSED},
      {-4, "Failed in send()(-6)((send errno=32,Broken pipe))", END_SEND},
      {-4, "Failed in send()(-6)((send errno=104,Connection reset by peer))", END_SEND},
      {-5, "Failed in select()(-10)((recv errno=4,Interrupted system call))", END_SELECT},
      {-4, "Failed in select()(-10)((send errno=4,Interrupted system call))", END_SELECT},
      {-4, "Failed in send()(-6)((send errno=4,Interrupted system call))", END_SEND_STOPPED},
  };
  for (const T_Text& tText : s_atTexts) {
    if (p_iRet == -3 && p_cErr.GetCode() == tText.iCode && sErr.compare(0, strlen(tText.szBegin), tText.szBegin) == 0) {
      return tText.eEnd;
    }
  }
  p_sWhat = "result " + std::to_string(p_iRet) + ", code " + std::to_string(p_cErr.GetCode()) + ", text " + sErr;
  return END_WRONG;
}

// Calls p_iSvcNum so.
inline E_End EchoCall(int p_iSvcNum, const std::string& p_sText, int p_iNumber, std::string& p_sWhat) {
  const std::unique_ptr<CMsg> pIn(MA_NewMsg(100)), pOut(MA_NewMsg(0));
  if (pIn->SetValue(1, p_sText.c_str()) != 0 || pIn->SetValue(2, p_iNumber) != 0) {
    p_sWhat = pIn->GetLastError();
    return END_WRONG;
  }
  CCallOrvError cErr;
  const int iRet = CCallOrv::CallServiceByMsg(p_iSvcNum, pIn.get(), pOut.get(), &cErr);
  return JudgeEcho(iRet, cErr, *pOut, p_iSvcNum, p_sText, p_iNumber, p_sWhat);
}

#endif
