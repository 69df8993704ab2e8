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
enum { CODE_BAD_REQUEST = 400, CODE_BAD_KEY = 401, CODE_NO_SERVICE = 404, CODE_BAD_REPLY = 500 };

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

CFaults GivenFaults(const std::vector<std::string>& p_asFaults) {
  try {
    return CFaults(p_asFaults);
  } catch (const CFailure& cError) {
    throw CUsage(std::string("--fault ") + cError.what());
  }
}

std::string Joined(const std::vector<std::string>& p_as) {
  std::string sAll;
  for (const std::string& s : p_as) sAll += (sAll.empty() ? "" : "; ") + s;
  return sAll;
}

// Makes the reply to one request.
class CReplyMaker {
 public:
  CReplyMaker(const T_World& p_tWorld, const T_ServeOptions& p_tOptions, T_State& p_tState,
              CAdaptor::T_PacketInfo& p_tRequest, T_CallRecord& p_tCall)
      : m_tWorld(p_tWorld),
        m_tOptions(p_tOptions),
        m_tState(p_tState),
        m_tPacket(p_tRequest),
        m_tCall(p_tCall),
        m_cRequest(0, 0, 0, p_tWorld.pDic.get()),
        m_cReply(0, 0, 0, p_tWorld.pDic.get()) {}

  // The packet, "" when there is no way to answer; the result goes into the call's record. A rule adds to plan and
  // delay. Throws CFailure.
  std::string Make(T_FaultPlan& p_tPlan, std::chrono::microseconds& p_tDelay) {
    try {
      Find(p_tPlan, p_tDelay);
    } catch (const CException& cError) {
      Reject(ERROR_BAD_REQUEST, CODE_BAD_REQUEST, cError.GetText());
    } catch (const CNoReply& cError) {
      Reject(ERROR_NO_REPLY, CODE_NO_SERVICE, cError.what());
    } catch (const CFailure& cError) {
      Reject(ERROR_BAD_REPLY, CODE_BAD_REPLY, cError.what());
    }
    return m_eWay == NOTHING ? "" : Packet(p_tPlan.eKind == FAULT_ZLIB);
  }

 private:
  enum E_Way { NOTHING, ECHO, PREPARED, MESSAGE };
  const T_World& m_tWorld;
  const T_ServeOptions& m_tOptions;
  T_State& m_tState;
  CAdaptor::T_PacketInfo& m_tPacket;    // the request
  T_CallRecord& m_tCall;
  CMsg m_cRequest, m_cReply;
  E_Way m_eWay = NOTHING;
  CReplyPtr m_pReply;    // of PREPARED

  std::string Packet(bool p_bZlib) {
    CAdaptor::T_PacketInfo tReply;
    tReply.iSvcNum = m_tPacket.iSvcNum;
    tReply.iExtra = m_tPacket.iExtra;
    if (m_eWay == PREPARED) {
      tReply.iMsgNum = m_pReply->cPrepared->MsgNum();
      return m_pReply->cPrepared->Packet(tReply, p_bZlib);
    }
    if (m_eWay == ECHO) tReply.stBody.AppendData(m_tPacket.stBody.GetData(), m_tPacket.stBody.GetSize());
    else m_cReply.ToXml(&tReply.stBody, false, false, 1);
    tReply.iMsgNum = m_eWay == ECHO ? m_tPacket.iMsgNum : m_cReply.GetRootNum();
    tReply.bCompressed = p_bZlib || tReply.stBody.GetSize() > m_tOptions.iCompressOver;
    return MakePacket(tReply);
  }

  // The server's own rejection.
  void Reject(E_CallError p_eError, int p_iCode, const std::string& p_sText) {
    const std::string sText = WireText(p_sText);
    m_tCall.eError = p_eError;
    SendReject(p_iCode, sText, "rejected " + std::to_string(p_iCode) + ' ' + sText);
  }

  void SendReject(int p_iCode, const std::string& p_sText, const std::string& p_sResult) {
    m_tCall.sResult = p_sResult;
    m_eWay = MakeReject(m_cReply, *m_tWorld.pDic, p_iCode, p_sText, m_tPacket.iSvcNum) ? MESSAGE : NOTHING;
    if (m_eWay == NOTHING) m_tCall.sResult += " (not sent: message 10 of the dictionary cannot carry it)";
  }

  void Find(T_FaultPlan& p_tPlan, std::chrono::microseconds& p_tDelay) {
    m_cRequest.LoadXml(m_tPacket.stBody.GetData());
    if (p_tPlan.eKind == FAULT_REJECT) return Reject(ERROR_FAULT, p_tPlan.iArg, "rejected on request of --fault");
    if (m_cRequest.GetMsgNum() != m_tPacket.iMsgNum) {
      return Reject(ERROR_BAD_REQUEST, CODE_BAD_REQUEST,
                    "message " + std::to_string(m_tPacket.iMsgNum) + " in the header, " +
                        std::to_string(m_cRequest.GetMsgNum()) + " in the body");
    }
    if (m_tWorld.pRules != nullptr) return AskRules(p_tPlan, p_tDelay);
    AnswerAsWithoutRules();
  }

  void AskRules(T_FaultPlan& p_tPlan, std::chrono::microseconds& p_tDelay) {
    const T_Choice tChoice =
        m_tWorld.pRules->Choose({m_tPacket.iSvcNum, m_tPacket.sUserKey.ToStr(), m_cRequest}, m_tState);
    if (tChoice.bKeyRefused) return Reject(ERROR_USER_KEY, CODE_BAD_KEY, "the user key is not accepted");
    if (tChoice.pRule == nullptr) return AnswerAsWithoutRules();
    m_tCall.sRule = tChoice.pRule->sName;
    if (tChoice.pRule->pDelay) p_tDelay += tChoice.pRule->pDelay->Next();
    if (tChoice.pRule->pFaults && p_tPlan.eKind == FAULT_NONE) {
      p_tPlan = tChoice.pRule->pFaults->Next();
      p_tDelay += std::chrono::milliseconds(p_tPlan.iDelay);
      if (p_tPlan.eKind == FAULT_REJECT) return Reject(ERROR_FAULT, p_tPlan.iArg, "rejected on request of a rule");
      if (p_tPlan.eKind == FAULT_RESET || p_tPlan.eKind == FAULT_CLOSE) return;
    }
    const T_RuleReply* pReply = tChoice.pReply;
    if (pReply == nullptr) return AnswerAsWithoutRules();
    const T_CallValues tValues{m_cRequest, tChoice.cState};
    if (pReply->pReply != nullptr) return Use(pReply->pReply, tValues, "rule");
    if (!pReply->sFile.empty()) return Use(m_tWorld.FilesOfRules().Find(pReply->sFile), tValues, "rule");
    SendReject(pReply->iRejectCode, WireText(FillText(pReply->sRejectText, tValues, true)), "rejected by its rule");
  }

  void AnswerAsWithoutRules() {
    if (m_tWorld.cReplies) {
      const CReplyPtr pReply = m_tWorld.cReplies->Find(std::to_string(m_tPacket.iSvcNum) + ".xml");
      return Use(pReply, {m_cRequest, StateNow()}, "reply file");
    }
    if (!m_tOptions.bEcho) throw CNoReply("no rule fits");
    m_eWay = ECHO;
  }

  CStateValues StateNow() const {
    if (m_tWorld.pRules == nullptr) return {};
    const std::lock_guard<std::mutex> cLock(m_tState.cMutex);
    return m_tState.cValues;
  }

  void Use(const CReplyPtr& p_pReply, const T_CallValues& p_t, const char* p_szWhose) {
    m_pReply = p_pReply;
    m_eWay = p_pReply->cPrepared ? PREPARED : MESSAGE;
    if (m_eWay == MESSAGE) p_pReply->fnFill(m_cReply, p_t);
    const int iMsgNum = m_eWay == PREPARED ? p_pReply->cPrepared->MsgNum() : m_cReply.GetMsgNum();
    if (iMsgNum == REJECT_MSG) m_tCall.sResult = std::string("rejected by its ") + p_szWhose;
  }
};

}    // namespace

CAnswerer::CAnswerer(const T_ServeOptions& p_tOptions, CServeLog& p_cLog)
    : m_tOptions(p_tOptions), m_cFaults(GivenFaults(p_tOptions.asFaults)), m_cWorlds(p_tOptions, p_cLog) {
  if (!m_tOptions.sRecord.empty()) m_cRecorder.emplace(m_tOptions.sRecord);
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

  T_FaultPlan tPlan = m_cFaults.Next();
  tAnswer.tDelay = std::chrono::milliseconds(m_tOptions.iDelay) + std::chrono::milliseconds(tPlan.iDelay);
  if (tPlan.eKind != FAULT_RESET && tPlan.eKind != FAULT_CLOSE) {
    try {
      const std::shared_ptr<const T_World> pWorld = m_cWorlds.Now();
      tAnswer.sBytes =
          CReplyMaker(*pWorld, m_tOptions, m_tState, tRequest, p_tCall).Make(tPlan, tAnswer.tDelay);
      if (!tAnswer.sBytes.empty()) {
        tAnswer.eThen = T_Answer::READ_NEXT;
        Spoil(tPlan, tAnswer);
      }
    } catch (const CFailure& cError) {
      p_tCall.eError = ERROR_FAILED;
      p_tCall.sResult = cError.what();
    }
  }
  if (tPlan.eKind == FAULT_RESET) tAnswer.eThen = T_Answer::RESET;
  if (tPlan.eKind != FAULT_NONE && tPlan.eKind != FAULT_REJECT) {
    p_tCall.eError = ERROR_FAULT;
    p_tCall.sResult = std::string("fault ") + CFaults::Name(tPlan.eKind);
  }
  if (m_cRecorder) m_cRecorder->Save(p_sPacket, tAnswer.sBytes, tRequest.iSvcNum);
  return tAnswer;
}
