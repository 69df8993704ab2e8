// The steps that a call is made of, whether it waits or not.
#include "client/call_steps.h"

#include "callorv/error/error.h"
#include "callorv/net/tcp_adaptor.h"
#include "form/msg_writer.h"

namespace callorv::detail {

namespace {

constexpr char s_szNotSetUp[] = "call CCallOrv::Initialize() first";

enum {
  MAX_PLAIN_BODY = 1024,       // bytes; a longer request is compressed
  ALWAYS_COMPRESSED_MSG = 1
};

// The message by which a server says no, with its tags.
enum { REJECT_MSG = 10, REJECT_SYS_CODE = 6, REJECT_SYS_REASON_TEXT = 7, REJECT_REF_SVC_NUM = 8 };

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

int CheckCall(bool p_bSetupOK, int p_iSvcNum, bool p_bMessages, CCallOrvError* p_pErr) {
  const auto fnFailed = [&](int p_iCode, const char* p_szText, int p_iRet) {    // these go before the check of p_pErr
    if (p_pErr != nullptr) p_pErr->SetError(p_iCode, p_szText, p_iSvcNum);
    return p_iRet;
  };
  if (!p_bSetupOK) return fnFailed(MSG_NOT_INIT, s_szNotSetUp, -1);
  if (!p_bMessages) return fnFailed(MSG_NULL, "Parameter is NULL", -2);
  if (p_pErr == nullptr) return MSG_NULL;
  p_pErr->Clear();
  return 0;
}

int CheckTypedCall(bool p_bSetupOK, int p_iSvcNum, const char* p_szNull, CCallOrvError* p_pErr) {
  if (p_pErr == nullptr) return MSG_NULL;
  p_pErr->Clear();
  if (!p_bSetupOK) {
    p_pErr->SetError(MSG_NOT_INIT, s_szNotSetUp, p_iSvcNum);
  } else if (p_szNull != nullptr) {
    p_pErr->SetError(MSG_NULL, p_szNull, 0);
  } else {
    return 0;
  }
  return -1;
}

void MakeRequest(const CMsg& p_cIn, int p_iSvcNum, int p_iExtra, const CString& p_sUserKey,
                 CAdaptor::T_PacketInfo& p_tHeader, CStream& p_stPacket) {
  p_stPacket.GetBuffer(CTcpAdaptor::HEADER_SIZE);
  p_stPacket.ReleaseBuffer(CTcpAdaptor::HEADER_SIZE);
  AppendXml(p_cIn, p_stPacket);
  p_tHeader.iSvcNum = p_iSvcNum;
  p_tHeader.iMsgNum = p_cIn.GetRootNum();
  p_tHeader.iExtra = p_iExtra;
  p_tHeader.sUserKey = p_sUserKey;
  const int iBody = p_stPacket.GetSize() - CTcpAdaptor::HEADER_SIZE;
  p_tHeader.bCompressed = iBody > MAX_PLAIN_BODY || p_tHeader.iMsgNum == ALWAYS_COMPRESSED_MSG;
}

int ReadReply(const CStream& p_stBody, CMsg& p_cOut, CString& p_sErr) {
  try {
    if (p_cOut.LoadXml(p_stBody.GetData()) < 0) {
      p_sErr = p_cOut.GetLastError();
      return CORE_REPLY;
    }
  } catch (const CException& p_c) {
    p_sErr.Format("%d, %s(%s)", p_c.GetCode(), MA_GetErrorStr(p_c.GetCode()), p_c.GetText());
    return CORE_REPLY_THROWN;
  }
  return 0;
}

int JudgeReply(int p_iCoreResult, const CString& p_sReason, CMsg& p_cOut, int p_iSvcNum, CCallOrvError& p_cErr) {
  if (p_iCoreResult < 0) {
    p_cErr.SetError(p_iCoreResult, p_sReason.ToStr(), -1);
    return -3;
  }
  if (p_cOut.GetRootNum() == REJECT_MSG) {
    ReportReject(p_cOut, p_iSvcNum, p_cErr);
    return -4;
  }
  return 0;
}

std::unique_ptr<CMsg> MakeMsg(CMsgBase& p_cIn, int p_iSvcNum, CCallOrvError& p_cErr) {
  std::unique_ptr<CMsg> pMsg(p_cIn.CreateMsg());
  if (pMsg == nullptr) {
    const CString sText = CFormat("Input Msg is corrupted(%s)", p_cIn.sLastError.ToStr());
    p_cErr.SetError(MSG_NO_DATA, sText.ToStr(), p_iSvcNum);
  }
  return pMsg;
}

}    // namespace callorv::detail
