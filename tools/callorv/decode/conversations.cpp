// The connections of a capture, and the calls on them.
#include "decode/conversations.h"

#include <algorithm>

namespace {

// When bytes that are missing were sent, nobody knows.
bool IsBefore(const T_Packet& p_tReply, const T_Packet& p_tRequest) {
  return p_tReply.tLast.bKnown && p_tRequest.bPacket && p_tReply.tLast.iNano < p_tRequest.tFirst.iNano;
}

std::optional<T_Packet> TakeFirst(std::list<T_Packet>& p_atPacket) {
  std::optional<T_Packet> t(std::move(p_atPacket.front()));
  p_atPacket.pop_front();
  return t;
}

void AddWrong(const char* p_szWhich, const std::optional<T_Packet>& p_t, const std::string& p_sWhy,
              std::string& p_sOut) {
  if (!p_t) return;
  for (const std::string& s : p_t->asWrong) {
    p_sOut += (p_sOut.empty() ? "" : "; ") + (&s == &p_t->asWrong.front() ? p_szWhich + s : s);
  }
  if (p_t->bCut) p_sOut += ": " + p_sWhy;
}

}    // namespace

void CConversations::Add(const T_Segment& p_tSegment, const T_Moment& p_tMoment) {
  if (m_iPort != 0 && p_tSegment.tFrom.iPort != m_iPort && p_tSegment.tTo.iPort != m_iPort) return;
  const bool bFirst = p_tSegment.tFrom < p_tSegment.tTo;
  const Key tKey = bFirst ? Key(p_tSegment.tFrom, p_tSegment.tTo) : Key(p_tSegment.tTo, p_tSegment.tFrom);
  const int iSide = bFirst ? 0 : 1;
  const auto pFound = Find(p_tSegment, iSide, tKey);
  if (pFound == m_atConversation.end()) return;
  T_Conversation& t = *pFound;
  CDirection& cDirection = t.acDirection[iSide];
  const bool bAck = (p_tSegment.iFlags & T_Segment::ACK) != 0;
  if ((p_tSegment.iFlags & T_Segment::SYN) != 0 && t.iClient < 0) t.iClient = bAck ? 1 - iSide : iSide;
  cDirection.Add(p_tSegment, p_tMoment);
  if (bAck) t.acDirection[1 - iSide].Acknowledged(p_tSegment.iAck);
  const bool bReset = (p_tSegment.iFlags & T_Segment::RST) != 0;
  if (t.iEnder < 0 && (bReset || (p_tSegment.iFlags & T_Segment::FIN) != 0)) {
    t.iEnder = iSide;
    t.bReset = bReset;
  }
  Pair(t, "", false);
  if (bReset || (t.acDirection[0].Over() && t.acDirection[1].Over())) Close(t, "");
  m_iHeld -= t.iHeld;
  t.iHeld = t.acDirection[0].Held() + t.acDirection[1].Held();
  m_iHeld += t.iHeld;
  MakeRoom();
}

// The conversation of a segment, made when it is new; the end of the list when the segment belongs to none.
auto CConversations::Find(const T_Segment& p_tSegment, int p_iSide, const Key& p_tKey) -> Conversations::iterator {
  const bool bSyn = (p_tSegment.iFlags & T_Segment::SYN) != 0, bAck = (p_tSegment.iFlags & T_Segment::ACK) != 0;
  if (const auto pKnown = m_apByEnds.find(p_tKey); pKnown != m_apByEnds.end()) {
    const auto p = pKnown->second;
    const CDirection& cDirection = p->acDirection[p_iSide];
    const bool bMiddle = !bAck && cDirection.Known() && !cDirection.Began();    // its own beginning was not seen
    const bool bAnew = bSyn && (cDirection.IsOther(p_tSegment.iSeq + 1) || bMiddle);
    if (!bAnew && !(p->bClosed && cDirection.IsBehind(p_tSegment))) {
      if (p->bClosed) return m_atConversation.end();
      m_atConversation.splice(m_atConversation.begin(), m_atConversation, p);
      return p;
    }
    Close(*p, "its ports are used again");
    Remove(p);
  }
  if ((p_tSegment.iFlags & (T_Segment::RST | T_Segment::FIN)) != 0 && p_tSegment.sData.empty()) {
    return m_atConversation.end();
  }
  m_atConversation.emplace_front(p_tKey, m_tWish);
  m_apByEnds[p_tKey] = m_atConversation.begin();
  T_Conversation& t = m_atConversation.front();
  if (m_iPort != 0 && !bSyn && t.End(0).iPort != t.End(1).iPort) t.iClient = t.End(0).iPort == m_iPort ? 1 : 0;
  return m_atConversation.begin();
}

// Who speaks first is not always known, but requests carry a user key.
void CConversations::FindClient(T_Conversation& p_t) {
  for (int iSide = 0; iSide < 2 && p_t.iClient < 0; ++iSide) {
    for (const T_Packet& t : p_t.acDirection[iSide].Framer().atPacket) {
      if (t.bPacket && t.bKey) p_t.iClient = iSide;
    }
  }
  if (p_t.iClient < 0) p_t.iClient = p_t.End(0).iPort < p_t.End(1).iPort ? 1 : 0;
}

void CConversations::Pair(T_Conversation& p_t, const std::string& p_sWhy, bool p_bLast) {
  for (int iSide = 0; iSide < 2 && !p_t.bOurs; ++iSide) {
    const auto& at = p_t.acDirection[iSide].Framer().atPacket;
    if (std::none_of(at.begin(), at.end(), [](const T_Packet& t) { return t.bPacket; })) continue;
    p_t.bOurs = true;
    p_t.acDirection[1 - iSide].Framer().StartsHere();
  }
  if (!p_t.bOurs) {
    for (CDirection& c : p_t.acDirection) c.Framer().atPacket.clear();
    return;
  }
  if (p_t.acDirection[0].Framer().atPacket.empty() && p_t.acDirection[1].Framer().atPacket.empty()) return;
  FindClient(p_t);
  const std::string sWho = p_t.iEnder == p_t.iClient ? "the client " : "the server ";
  const std::string sWhy = p_t.iEnder < 0 ? p_sWhy : sWho + (p_t.bReset ? "reset" : "closed") + " the connection";
  CDirection& cClient = p_t.acDirection[p_t.iClient];
  CDirection& cServer = p_t.acDirection[1 - p_t.iClient];
  std::list<T_Packet>& atRequest = cClient.Framer().atPacket;
  std::list<T_Packet>& atReply = cServer.Framer().atPacket;
  const bool bNoMore = p_bLast || cServer.Closed();
  while (!atReply.empty() || !atRequest.empty()) {
    const bool bFull = atRequest.size() > REQUESTS || cClient.Held() + cServer.Held() > BYTES;
    if (atReply.empty()) {
      if (!bNoMore && !bFull) return;
      Emit(p_t, TakeFirst(atRequest), std::nullopt, bNoMore ? sWhy : "too many requests are behind it");
    } else if (atRequest.empty()) {
      // The request may be among what waits for bytes that are still to be seen, or be answered before its end.
      if ((cClient.Waits() || !cClient.Framer().Idle()) && !p_bLast && atReply.size() <= REPLIES && !bFull) return;
      Emit(p_t, std::nullopt, TakeFirst(atReply), sWhy);
    } else if (IsBefore(atReply.front(), atRequest.front())) {
      Emit(p_t, std::nullopt, TakeFirst(atReply), sWhy);    // of a request before those that were seen
    } else {
      std::optional<T_Packet> tRequest = TakeFirst(atRequest);
      Emit(p_t, std::move(tRequest), TakeFirst(atReply), sWhy);
    }
  }
}

void CConversations::Emit(const T_Conversation& p_t, std::optional<T_Packet> p_tRequest,
                          std::optional<T_Packet> p_tReply, const std::string& p_sWhy) {
  if (m_iPort != 0 && p_t.End(1 - p_t.iClient).iPort != m_iPort) return;
  T_Call tCall;
  tCall.tClient = p_t.End(p_t.iClient);
  tCall.tServer = p_t.End(1 - p_t.iClient);
  AddWrong("request: ", p_tRequest, p_sWhy, tCall.sWhy);
  AddWrong("reply: ", p_tReply, p_sWhy, tCall.sWhy);
  if (!tCall.sWhy.empty()) {
    tCall.eOutcome = T_Call::DAMAGED;
  } else if (!p_tReply) {
    tCall.eOutcome = T_Call::NO_REPLY;
    tCall.sWhy = p_sWhy;
  } else {
    tCall.eOutcome = p_tReply->bRejection ? T_Call::REJECTED : T_Call::REPLY;
    if (!p_tRequest) tCall.sWhy = "the request is not in the capture";
  }
  tCall.tRequest = std::move(p_tRequest);
  tCall.tReply = std::move(p_tReply);
  m_fnCall(tCall);
}

void CConversations::Close(T_Conversation& p_t, const std::string& p_sWhy) {
  if (p_t.bClosed) return;
  p_t.bClosed = true;
  for (CDirection& c : p_t.acDirection) c.Finish();
  Pair(p_t, p_sWhy, true);
}

void CConversations::Remove(Conversations::iterator p_p) {
  m_iHeld -= p_p->iHeld;
  m_apByEnds.erase(p_p->tEnds);
  m_atConversation.erase(p_p);
}

void CConversations::MakeRoom() {
  while (m_atConversation.size() > 1 && (m_atConversation.size() > CONVERSATIONS || m_iHeld > BYTES)) {
    const auto pOldest = std::prev(m_atConversation.end());
    Close(*pOldest, "too many connections are open to go on with this one");
    Remove(pOldest);
  }
}

void CConversations::Finish() {
  while (!m_atConversation.empty()) {
    const auto pOldest = std::prev(m_atConversation.end());
    Close(*pOldest, "the capture ends");
    Remove(pOldest);
  }
}
