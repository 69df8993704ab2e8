// From a request packet to the bytes that answer it.
#include "serve/answer.h"

#include <callorv/base/exception.h>
#include <callorv/net/tcp_adaptor.h>

#include <algorithm>
#include <cstdio>

#include "command.h"
#include "common/packet_view.h"
#include "common/text.h"

namespace {

// The message that says no, with its tags.
enum { REJECT_MSG = 10, REJECT_CODE = 6, REJECT_TEXT = 7, REJECT_SERVICE = 8 };

// The codes of the simulator's own rejections.
enum { CODE_BAD_REQUEST = 400, CODE_NO_SERVICE = 404, CODE_BAD_REPLY = 500 };

// Fills p_cReply with a rejection. False when the dictionary has none that can carry one.
bool MakeReject(CMsg& p_cReply, const CMsgDic& p_cDic, int p_iCode, const std::string& p_sText, int p_iSvcNum) {
  if (p_cDic.GetMsgInfo(REJECT_MSG) == nullptr) return false;
  p_cReply.Init(REJECT_MSG, 0, 0);
  return p_cReply.SetValue(REJECT_CODE, p_iCode) == 0 && p_cReply.SetValue(REJECT_TEXT, p_sText.c_str()) == 0 &&
         p_cReply.SetValue(REJECT_SERVICE, p_iSvcNum) == 0;
}

// What a failure says as a text that a message can carry, which what it quotes may not be: "?" for what has no form.
std::string WireText(const std::string& p_sText) {
  std::string sOut = NearestLatin1(PrintableFailure(p_sText));
  for (size_t i; (i = sOut.find("]]>")) != std::string::npos;) sOut[i + 2] = '?';
  return sOut;
}

int CheckSumOf(const std::string& p_sPacket) {
  return CAdaptor::CalcCheckSum(p_sPacket.data(), static_cast<int>(p_sPacket.size()) - CTcpAdaptor::TRAILER_SIZE);
}

// Damages a good reply packet as the fault wants it.
void Spoil(const T_FaultPlan& p_tPlan, T_Answer& p_tAnswer) {
  std::string& sPacket = p_tAnswer.sBytes;
  switch (p_tPlan.eKind) {
    case FAULT_STALL:
    case FAULT_TRUNCATE:
      sPacket.resize(std::min<size_t>(sPacket.size(), p_tPlan.iArg));
      p_tAnswer.eThen = p_tPlan.eKind == FAULT_STALL ? T_Answer::STALL : T_Answer::CLOSE;
      break;
    case FAULT_CHECKSUM: PutCheckSum(sPacket, CheckSumOf(sPacket) + 1); break;
    case FAULT_ZLIB:
      sPacket[CTcpAdaptor::HEADER_SIZE] = '?';    // zlib's own header no longer adds up
      PutCheckSum(sPacket, CheckSumOf(sPacket));
      break;
    default: break;
  }
}

std::string Joined(const std::vector<std::string>& p_as) {
  std::string sAll;
  for (const std::string& s : p_as) sAll += (sAll.empty() ? "" : "; ") + s;
  return sAll;
}

}    // namespace

CAnswerer::CAnswerer(const T_ServeOptions& p_tOptions, CServeLog& p_cLog)
    : m_tOptions(p_tOptions), m_cFaults(p_tOptions.asFaults), m_cWorlds(p_tOptions, p_cLog) {
  if (!m_tOptions.sRecord.empty()) m_cRecorder.emplace(m_tOptions.sRecord);
}

std::string CAnswerer::MakeReply(CAdaptor::T_PacketInfo& p_tRequest, const T_FaultPlan& p_tPlan,
                                 T_CallRecord& p_tCall) {
  const std::shared_ptr<const T_World> pWorld = m_cWorlds.Now();
  CMsg cRequest(0, 0, 0, pWorld->pDic.get());
  CMsg cReply(0, 0, 0, pWorld->pDic.get());
  CAdaptor::T_PacketInfo tReply;
  tReply.iSvcNum = p_tRequest.iSvcNum;
  tReply.iExtra = p_tRequest.iExtra;
  const auto fnPacket = [&](int p_iMsgNum) {
    tReply.iMsgNum = p_iMsgNum;
    tReply.bCompressed = p_tPlan.eKind == FAULT_ZLIB || tReply.stBody.GetSize() > m_tOptions.iCompressOver;
    return MakePacket(tReply);
  };
  const auto fnReject = [&](int p_iCode, const std::string& p_sText) {
    const std::string sText = WireText(p_sText);
    p_tCall.bError = true;
    p_tCall.sResult = "rejected " + std::to_string(p_iCode) + ' ' + sText;
    return MakeReject(cReply, *pWorld->pDic, p_iCode, sText, p_tRequest.iSvcNum);
  };
  CReplyPtr pReply;
  bool bAnswer = true, bEcho = false;
  try {
    cRequest.LoadXml(p_tRequest.stBody.GetData());
    if (p_tPlan.eKind == FAULT_REJECT) {
      bAnswer = fnReject(p_tPlan.iArg, "rejected on request of --fault");
    } else if (cRequest.GetMsgNum() != p_tRequest.iMsgNum) {
      bAnswer = fnReject(CODE_BAD_REQUEST, "message " + std::to_string(p_tRequest.iMsgNum) + " in the header, " +
                                               std::to_string(cRequest.GetMsgNum()) + " in the body");
    } else if (!pWorld->cReplies) {
      bEcho = true;
    } else {
      pReply = pWorld->cReplies->Find(std::to_string(p_tRequest.iSvcNum) + ".xml");
      if (!pReply->cPrepared) pReply->fnFill(cReply, {cRequest, {}});
      const int iMsgNum = pReply->cPrepared ? pReply->cPrepared->MsgNum() : cReply.GetMsgNum();
      if (iMsgNum == REJECT_MSG) p_tCall.sResult = "rejected by its reply file";
    }
  } catch (const CException& cError) {
    bAnswer = fnReject(CODE_BAD_REQUEST, cError.GetText());
  } catch (const CNoReply& cError) {
    bAnswer = fnReject(CODE_NO_SERVICE, cError.what());
  } catch (const CFailure& cError) {
    bAnswer = fnReject(CODE_BAD_REPLY, cError.what());
  }
  if (!bAnswer) {
    p_tCall.sResult += " (not sent: message 10 of the dictionary cannot carry it)";
    return "";
  }
  if (bEcho) {
    tReply.stBody.AppendData(p_tRequest.stBody.GetData(), p_tRequest.stBody.GetSize());
    return fnPacket(p_tRequest.iMsgNum);
  }
  if (pReply != nullptr && pReply->cPrepared) {
    tReply.iMsgNum = pReply->cPrepared->MsgNum();
    return pReply->cPrepared->Packet(tReply, p_tPlan.eKind == FAULT_ZLIB);
  }
  cReply.ToXml(&tReply.stBody, false, false, 1);
  return fnPacket(cReply.GetRootNum());
}

T_Answer CAnswerer::Answer(const std::string& p_sPacket, T_CallRecord& p_tCall) {
  T_Answer tAnswer;
  tAnswer.eThen = T_Answer::CLOSE;
  CAdaptor::T_PacketInfo tRequest;
  const std::vector<std::string> asWrong = CheckPacket(p_sPacket, tRequest);
  if (!asWrong.empty()) {
    tAnswer.eThen = T_Answer::REFUSE;
    p_tCall.sResult = Joined(asWrong);
    if (m_cRecorder) m_cRecorder->Save(p_sPacket, "", tRequest.iSvcNum);
    return tAnswer;
  }
  p_tCall.iSvcNum = tRequest.iSvcNum;
  p_tCall.iMsgNum = tRequest.iMsgNum;
  p_tCall.sUserKey = tRequest.sUserKey.ToStr();
  p_tCall.sResult = "ok";

  const T_FaultPlan tPlan = m_cFaults.Next();
  tAnswer.iDelay = m_tOptions.iDelay + tPlan.iDelay;
  if (tPlan.eKind == FAULT_RESET || tPlan.eKind == FAULT_CLOSE) {
    if (tPlan.eKind == FAULT_RESET) tAnswer.eThen = T_Answer::RESET;
  } else {
    try {
      tAnswer.sBytes = MakeReply(tRequest, tPlan, p_tCall);
      if (!tAnswer.sBytes.empty()) {
        tAnswer.eThen = T_Answer::READ_NEXT;
        Spoil(tPlan, tAnswer);
      }
    } catch (const CFailure& cError) {
      p_tCall.bError = true;
      p_tCall.sResult = cError.what();
    }
  }
  if (tPlan.eKind != FAULT_NONE && tPlan.eKind != FAULT_REJECT) {
    p_tCall.bError = true;
    p_tCall.sResult = std::string("fault ") + CFaults::Name(tPlan.eKind);
  }
  if (m_cRecorder) m_cRecorder->Save(p_sPacket, tAnswer.sBytes, tRequest.iSvcNum);
  return tAnswer;
}
