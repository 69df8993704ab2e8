// Sets the process up for calls to a test's own server.
#ifndef TESTS_SUPPORT_SET_UP_H
#define TESTS_SUPPORT_SET_UP_H

#include <callorv/client/callorv_client.h>
#include <doctest/doctest.h>

#include <memory>
#include <string>

#include "support/client_files.h"
#include "support/temp_file.h"

// Calls go to 127.0.0.1 and this port from now on, as user TEST-USER-1. Only the first time reads the dictionary, since
// a process can load its messages once; later ones read an empty one.
inline void SetUp(int p_iPort, int p_iTimeOut = 30, const std::string& p_sDictionary = ClientDictionary()) {
  static const CTempDir s_cDir;
  static const std::string s_sKey = s_cDir.Write("user.key", KeyFile("TEST-USER-1"));
  static std::string s_sDictionary = s_cDir.Write("full.xml", p_sDictionary);
  CCallOrvError cErr;
  const int iRet = CCallOrv::Initialize(s_sKey.c_str(), s_sDictionary.c_str(), "127.0.0.1", p_iPort, p_iTimeOut, &cErr);
  REQUIRE_MESSAGE(iRet == 0, cErr.sText.ToStr());
  s_sDictionary = s_cDir.Write("empty.xml", "<msg_dictionary/>");
}

struct T_FreeMsg {
  void operator()(CMsg* p_pMsg) const { MA_FreeMsg(p_pMsg); }
};
using CMsgPtr = std::unique_ptr<CMsg, T_FreeMsg>;

inline CMsgPtr NewMsg(int p_iMsgNum) {
  CMsgPtr pMsg(MA_NewMsg(p_iMsgNum));
  REQUIRE(pMsg != nullptr);
  return pMsg;
}

// Message 100 with tag 1, and its body on the wire.
inline CMsgPtr NewRequest(const char* p_szText) {
  CMsgPtr pMsg = NewMsg(100);
  REQUIRE(pMsg->SetValue(1, p_szText) == 0);
  return pMsg;
}
inline std::string Body100(const std::string& p_sText) {
  return R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="100" ver=""><t1><![CDATA[)" + p_sText +
         "]]></t1></msg>";
}

#endif
