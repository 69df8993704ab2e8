// The service client.
#include "callorv/client/callorv_client.h"

#include <algorithm>
#include <memory>
#include <new>

#include "callorv/adaptor/tcp_adaptor.h"
#include "callorv/base/exception.h"
#include "callorv/crypt/cfg_reader.h"
#include "callorv/crypt/crypt.h"
#include "crypt/file.h"

CString CCallOrv::s_sServer;
int CCallOrv::s_iPort = 0;
int CCallOrv::s_iTimeOut = 90;
CString CCallOrv::s_sUserKey;
CMsgDic* CCallOrv::s_pMsgDic = MA_GetMsgDic();
bool CCallOrv::s_bSetupOK = false;

namespace {

enum {
  MIN_TIME_OUT = 60,           // seconds, of a time-out from the configuration file
  DEFAULT_TIME_OUT = 90,
  MAX_PLAIN_BODY = 1024,       // bytes; a longer request is compressed
  ALWAYS_COMPRESSED_MSG = 1
};

// The message by which a server says no, with its tags.
enum { REJECT_MSG = 10, REJECT_SYS_CODE = 6, REJECT_SYS_REASON_TEXT = 7, REJECT_REF_SVC_NUM = 8 };

constexpr char s_szNotSetUp[] = "call CCallOrv::Initialize() first";

// One exchange's connection. An adaptor leaves its socket open; this one closes it, whatever ends the exchange.
class CConnection final : public CTcpAdaptor {
 public:
  ~CConnection() override {
    if (iSock >= 0) Disconnect();
  }
};

void AppendBody(const CStream& p_stBody, CStream& p_stOut) {
  if (p_stOut.AppendData(p_stBody.GetData(), p_stBody.GetSize()) < 0) throw std::bad_alloc();
}

// Puts what the server says into the error. A value that the rejection lacks counts as 0 or "".
void ReportReject(CMsg& p_cReply, int p_iSvcNum, CCallOrvError& p_cErr) {
  int iCode = 0;
  int iRefSvcNum = 0;
  CString sText;
  const auto fnFailed = [&](int p_iRet, const char* p_szText) {
    if (p_iRet >= MSG_NO_DATA) return false;
    p_cErr.SetError(p_iRet, p_szText, p_iSvcNum);
    return true;
  };
  if (fnFailed(p_cReply.GetValue(REJECT_SYS_CODE, &iCode), "REJECT.SysCode failed : ")) return;
  if (fnFailed(p_cReply.GetValue(REJECT_SYS_REASON_TEXT, &sText), "REJECT.SysReasonText failed : ")) return;
  if (fnFailed(p_cReply.GetValue(REJECT_REF_SVC_NUM, &iRefSvcNum), "REJECT.RefSvcNum failed: ")) return;
  p_cErr.SetError(iCode, sText.ToStr(), iRefSvcNum);
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
    return -1;
  }
  CAdaptor::T_PacketInfo tRequest;
  if (p_pIn->ToXml(&tRequest.stBody, false, false, 1) < 0) {
    p_sErr = p_pIn->GetLastError();
    return -2;
  }
  tRequest.iSvcNum = p_iSvcNum;
  tRequest.iMsgNum = p_pIn->GetRootNum();
  tRequest.iExtra = p_iExtra;
  tRequest.sUserKey = s_sUserKey;
  tRequest.bCompressed = tRequest.stBody.GetSize() > MAX_PLAIN_BODY || tRequest.iMsgNum == ALWAYS_COMPRESSED_MSG;

  CAdaptor::T_PacketInfo tReply;
  {
    CConnection cConnection;
    cConnection.KeepHeaders(p_pExchange != nullptr);
    int iRet = 0;
    if (cConnection.Connect(s_sServer.ToStr(), s_iPort) < 0) {
      iRet = -3;
    } else if (cConnection.SendTo(&tRequest, -1) < 0) {
      iRet = -4;
    } else if (cConnection.ReceiveFrom(&tReply, s_iTimeOut) < 0) {
      iRet = -5;
    }
    if (p_pExchange != nullptr) {
      p_pExchange->sSendHeader = cConnection.GetLastSendHeader();
      p_pExchange->sRecvHeader = cConnection.GetLastRecvHeader();
      AppendBody(tRequest.stBody, p_pExchange->stSent);
      AppendBody(tReply.stBody, p_pExchange->stReceived);
    }
    if (iRet < 0) {
      p_sErr = cConnection.GetLastError();
      return iRet;
    }
  }
  try {
    if (p_pOut->LoadXml(tReply.stBody.GetData()) < 0) {
      p_sErr = p_pOut->GetLastError();
      return -6;
    }
  } catch (const CException& p_c) {
    p_sErr.Format("%d, %s(%s)", p_c.GetCode(), MA_GetErrorStr(p_c.GetCode()), p_c.GetText());
    return -7;
  }
  return 0;
}

int CCallOrv::CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr) {
  return CallServiceByMsg(p_iSvcNum, p_pIn, p_pOut, p_pErr, nullptr);
}

int CCallOrv::CallServiceByMsg(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut, CCallOrvError* p_pErr,
                               T_Exchange* p_pExchange) {
  CCallOrvError cUnwanted;    // the first two failures go before the check of p_pErr
  CCallOrvError& cErr = p_pErr != nullptr ? *p_pErr : cUnwanted;
  if (!s_bSetupOK) {
    cErr.SetError(MSG_NOT_INIT, s_szNotSetUp, p_iSvcNum);
    return -1;
  }
  if (p_pIn == nullptr || p_pOut == nullptr) {
    cErr.SetError(MSG_NULL, "Parameter is NULL", p_iSvcNum);
    return -2;
  }
  if (p_pErr == nullptr) return MSG_NULL;
  cErr.Clear();

  CString sReason;
  const int iRet = CallServiceCore(p_iSvcNum, p_pIn, p_pOut, 0, sReason, p_pExchange);
  if (iRet < 0) {
    cErr.SetError(iRet, sReason.ToStr(), -1);
    return -3;
  }
  if (p_pOut->GetRootNum() == REJECT_MSG) {
    ReportReject(*p_pOut, p_iSvcNum, cErr);
    return -4;
  }
  return 0;
}

int CCallOrv::CallService(int p_iSvcNum, CMsgBase* p_pIn, CMsgBase* p_pOut, CCallOrvError* p_pErr) {
  if (p_pErr == nullptr) return MSG_NULL;
  p_pErr->Clear();
  const auto fnFail = [&](int p_iRet, int p_iCode, const char* p_szText, int p_iRefSvcNum) {
    p_pErr->SetError(p_iCode, p_szText, p_iRefSvcNum);
    return p_iRet;
  };
  if (!s_bSetupOK) return fnFail(-1, MSG_NOT_INIT, s_szNotSetUp, p_iSvcNum);
  if (p_pIn == nullptr) return fnFail(-1, MSG_NULL, "Input Msg(p_pIn) is NULL", 0);
  if (p_pOut == nullptr) return fnFail(-1, MSG_NULL, "Output Msg(p_pOut) is NULL", 0);
  try {
    const std::unique_ptr<CMsg> pRequest(p_pIn->CreateMsg());
    if (pRequest == nullptr) {
      const CString sText = CFormat("Input Msg is corrupted(%s)", p_pIn->sLastError.ToStr());
      return fnFail(-2, MSG_NO_DATA, sText.ToStr(), p_iSvcNum);
    }
    const std::unique_ptr<CMsg> pReply(new (std::nothrow) CMsg(0, 0, 0, s_pMsgDic));
    if (pReply == nullptr) return fnFail(-3, MSG_MEMORY, "Out of memory", p_iSvcNum);
    if (CallServiceByMsg(p_iSvcNum, pRequest.get(), pReply.get(), p_pErr) < 0) return -4;
    if (p_pOut->LoadFromMsg(pReply.get()) < 0) return fnFail(-5, MSG_NO_DATA, p_pOut->sLastError.ToStr(), p_iSvcNum);
    return 0;
  } catch (const CException& p_c) {
    throw CException(p_c.GetText(), p_c.GetCode());    // plain, whatever class a typed message derived from it
  }
}
