// The service client.
#include "callorv/client/callorv_client.h"

#include <algorithm>
#include <memory>
#include <new>

#include "callorv/base/exception.h"
#include "callorv/client/cfg_reader.h"
#include "callorv/crypt/crypt.h"
#include "callorv/net/tcp_adaptor.h"
#include "client/call_steps.h"
#include "crypt/file.h"
#include "net/packet_machine.h"
#include "net/packet_writer.h"

using namespace callorv::detail;

CString CCallOrv::s_sServer;
int CCallOrv::s_iPort = 0;
int CCallOrv::s_iTimeOut = 90;
CString CCallOrv::s_sUserKey;
CMsgDic* CCallOrv::s_pMsgDic = MA_GetMsgDic();
bool CCallOrv::s_bSetupOK = false;
CString CCallOrv::s_sResolvedHost;
CString CCallOrv::s_sResolved;

namespace {

enum { MIN_TIME_OUT = 60, DEFAULT_TIME_OUT = 90 };    // seconds, of a time-out from the configuration file

// One exchange's connection. An adaptor leaves its socket open; this one closes it, whatever ends the exchange.
class CConnection final : public CTcpAdaptor {
 public:
  ~CConnection() override {
    if (iSock >= 0) Disconnect();
  }
};

void SetSendHeader(const CStream& p_stPacket, CString& p_sOut) {
  char szHeader[CTcpAdaptor::HEADER_SIZE + CTcpAdaptor::TRAILER_SIZE];
  CopyHeader(p_stPacket, szHeader);
  p_sOut.Set(szHeader, sizeof(szHeader));
}

// The body that stands in p_stIn from p_iAt on.
void AppendBody(const CStream& p_stIn, int p_iAt, CStream& p_stOut) {
  if (p_stOut.AppendData(p_stIn.GetData() + p_iAt, p_stIn.GetSize() - p_iAt) < 0) throw std::bad_alloc();
}

}    // namespace

int CCallOrv::ReadFileToStream(const char* p_szFileName, CStream& p_stOut, CString& p_sErr) {
  return callorv::detail::ReadFile(p_szFileName, p_stOut, p_sErr);
}

int CCallOrv::GetUserKey(const char* p_szKeyFile, CString& p_sKey, CString& p_sErr) {
  CStream stFile(0, 512);
  if (ReadFileToStream(p_szKeyFile, stFile, p_sErr) < 0) return -1;
  return CCrypt::ExtractUserKey(stFile, p_sKey, p_sErr) < 0 ? -2 : 0;
}

int CCallOrv::Initialize(const char* p_szConfigFile, CCallOrvError* p_pErr) {
  if (p_pErr == nullptr) return MSG_NULL;
  p_pErr->Clear();

  CCfgReader cCfg;
  CString sMsgDic, sKeyFile, sServer;
  if (cCfg.Load(p_szConfigFile) < 0 || cCfg.GetStrVal("msg_dic", &sMsgDic) < 0 ||
      cCfg.GetStrVal("key_file", &sKeyFile) < 0 || cCfg.GetStrVal("server", &sServer) < 0) {
    p_pErr->SetError(cCfg.GetLastError().ToStr());
    return -1;
  }
  CStrArray cServer;
  if (sServer.Split(' ', &cServer, true) < 2) {
    p_pErr->SetError("'server' key syntax is [server=ip_address port]");
    return -1;
  }
  int iTimeOut = DEFAULT_TIME_OUT;
  cCfg.GetIntVal("timeout", &iTimeOut);    // absent: the default stays
  return Initialize(sKeyFile.ToStr(), sMsgDic.ToStr(), cServer[0].ToStr(), cServer[1].ToInt(),
                    std::max<int>(iTimeOut, MIN_TIME_OUT), p_pErr);
}

int CCallOrv::Initialize(const char* p_szKeyFile, const char* p_szMsgDicFile, const char* p_szServer, int p_iPort,
                         int p_iTimeOut, CCallOrvError* p_pErr) {
  if (p_pErr == nullptr) return MSG_NULL;
  p_pErr->Clear();

  CString sReason;
  if (GetUserKey(p_szKeyFile, s_sUserKey, sReason) < 0) {
    p_pErr->SetError(sReason.ToStr());
    return -1;
  }
  if (s_sUserKey.IsEmpty()) {
    p_pErr->SetError("Invalid UserKey");
    return -1;
  }
  try {
    s_pMsgDic->InitDictionary(p_szMsgDicFile);
  } catch (const CException& p_c) {
    p_pErr->SetError(p_c.GetText());
    return -2;
  }
  s_sServer = p_szServer;
  s_iPort = p_iPort;
  s_iTimeOut = p_iTimeOut;
  s_bSetupOK = true;
  return 0;
}

CCallOrv::T_Exchange::T_Exchange() : stSent(0, 512), stReceived(0, 512) {}

void CCallOrv::T_Exchange::Clear() {
  sSendHeader = "";
  stSent.Clear();
  sRecvHeader = "";
  stReceived.Clear();
}

int CCallOrv::CallServiceCore(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iExtra, CString& p_sErr) {
  return CallServiceCore(p_iSvcNum, p_pIn, p_pOut, p_iExtra, p_sErr, nullptr);
}

int CCallOrv::CallServiceCore(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, int p_iExtra, CString& p_sErr,
                              T_Exchange* p_pExchange) {
  if (p_pExchange != nullptr) p_pExchange->Clear();
  if (p_pIn == nullptr || p_pOut == nullptr) {
    p_sErr.Format("Parameter is NULL(%p, %p)", static_cast<void*>(p_pIn), static_cast<void*>(p_pOut));
    return CORE_NULL;
  }
  CAdaptor::T_PacketInfo tHeader;
  CStream stRequest(0, 1024), stReply(0, 512);
  MakeRequest(*p_pIn, p_iSvcNum, p_iExtra, s_sUserKey, tHeader, stRequest);
  if (p_pExchange != nullptr) AppendBody(stRequest, CTcpAdaptor::HEADER_SIZE, p_pExchange->stSent);

  {
    CConnection cConnection;
    T_Fault tFault;
    char szHeader[CTcpAdaptor::HEADER_SIZE + 1] = "";
    CPacketMachine cReply(&stReply, nullptr, p_pExchange != nullptr ? szHeader : nullptr);
    int iRet = 0;
    if (cConnection.Connect(s_sServer.ToStr(), s_iPort) < 0) {
      iRet = CORE_CONNECT;
    } else if (WritePacket(tHeader, stRequest, tFault) < 0) {
      iRet = CORE_SEND;
    } else {
      if (p_pExchange != nullptr) SetSendHeader(stRequest, p_pExchange->sSendHeader);
      if (cConnection.SendData(stRequest.GetData(), stRequest.GetSize(), -1) < 0) {
        iRet = CORE_SEND;
      } else if (cReply.ReadFrom(cConnection, s_iTimeOut, tFault) < 0) {
        iRet = CORE_RECEIVE;
      }
    }
    if (p_pExchange != nullptr) {
      p_pExchange->sRecvHeader = szHeader;
      AppendBody(stReply, 0, p_pExchange->stReceived);
    }
    if (iRet < 0) {
      if (tFault.iCode != 0) cConnection.SetLastError(tFault.iCode, "%s", tFault.szDetail);
      p_sErr = cConnection.GetLastError();
      return iRet;
    }
  }
  return ReadReply(stReply, *p_pOut, p_sErr);
}

int CCallOrv::CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr) {
  return CallServiceByMsg(p_iSvcNum, p_pIn, p_pOut, p_pErr, nullptr);
}

int CCallOrv::CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr,
                               T_Exchange* p_pExchange) {
  int iRet = CheckCall(s_bSetupOK, p_iSvcNum, p_pIn != nullptr && p_pOut != nullptr, p_pErr);
  if (iRet < 0) return iRet;
  CString sReason;
  iRet = CallServiceCore(p_iSvcNum, p_pIn, p_pOut, 0, sReason, p_pExchange);
  return JudgeReply(iRet, sReason, *p_pOut, p_iSvcNum, *p_pErr);
}

int CCallOrv::CallService(int p_iSvcNum, CMsgBase* p_pIn, CMsgBase* p_pOut, CCallOrvError* p_pErr) {
  const char* szNull = p_pIn == nullptr ? s_szInputNull : p_pOut == nullptr ? s_szOutputNull : nullptr;
  const int iRet = CheckTypedCall(s_bSetupOK, p_iSvcNum, szNull, p_pErr);
  if (iRet < 0) return iRet;
  return ThrowPlain([&] {
    const std::unique_ptr<CMsg> pRequest = MakeMsg(*p_pIn, p_iSvcNum, *p_pErr);
    if (pRequest == nullptr) return -2;
    return GetTypedReply(*p_pOut, p_iSvcNum, *p_pErr, [&](CMsg* p_pReply) {
      return CallServiceByMsg(p_iSvcNum, pRequest.get(), p_pReply, p_pErr);
    });
  });
}
