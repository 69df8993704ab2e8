// A client that is set up for a server of this machine.
#ifndef BENCH_CLIENT_H
#define BENCH_CLIENT_H

#include <callorv/client/callorv_client.h>

#include <stdexcept>
#include <string>

#include "payload.h"
#include "support/service_peer.h"

// Once in a process: BENCH_FILES has the key file and the dictionary of payload.h.
inline void InitializeClient(int p_iPort) {
  CCallOrvError cErr;
  const int iRet =
      CCallOrv::Initialize(BENCH_FILES "/user.key", BENCH_FILES "/dictionary.xml", Loopback(), p_iPort, 90, &cErr);
  if (iRet != 0) throw std::runtime_error(cErr.GetText().ToStr());
}

// A call as an application makes it: with a new message for the reply.
inline void Call(int p_iSvcNum, CMsg& p_cRequest) {
  CMsg cReply(0, 0, 0, MA_GetMsgDic());
  CCallOrvError cErr;
  if (CCallOrv::CallServiceByMsg(p_iSvcNum, &p_cRequest, &cReply, &cErr) < 0) {
    throw std::runtime_error(cErr.GetText().ToStr());
  }
}

// The packet that such a call sends, but for the time stamp.
inline std::string RequestPacket(int p_iSvcNum, const CMsg& p_cRequest) {
  std::string sPacket = Packet(ToXml(p_cRequest));
  char szNumber[16];
  snprintf(szNumber, sizeof(szNumber), "%04d", p_iSvcNum);
  return sPacket.replace(22, 4, szNumber);
}

#endif
