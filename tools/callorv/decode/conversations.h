// The connections of a capture, and the calls on them.
#ifndef CALLORV_TOOLS_CONVERSATIONS_H
#define CALLORV_TOOLS_CONVERSATIONS_H

#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "decode/direction.h"

struct T_Call {
  enum E_Outcome { REPLY, REJECTED, NO_REPLY, DAMAGED, OUTCOMES };

  T_End tClient, tServer;
  std::optional<T_Packet> tRequest, tReply;    // what was seen of it
  E_Outcome eOutcome = REPLY;
  std::string sWhy;    // why there is no reply or request, or what is damaged

  // The packet that tells which call it was.
  const T_Packet& Any() const { return tRequest && (tRequest->bPacket || !tReply) ? *tRequest : *tReply; }
};

// Memory is bounded: when too many connections are open, or too much of them is kept, the ones that were silent for
// longest are given up.
class CConversations {
 public:
  using OnCall = std::function<void(const T_Call&)>;

  // p_iPort: the server's, other connections are left out; 0 takes all.
  CConversations(const T_Wish& p_tWish, int p_iPort, OnCall p_fnCall)
      : m_tWish(p_tWish), m_iPort(p_iPort), m_fnCall(std::move(p_fnCall)) {}

  void Add(const T_Segment& p_tSegment, const T_Moment& p_tMoment);
  void Finish();    // the capture ends

 private:
  enum : size_t { CONVERSATIONS = 16384, BYTES = 128 * 1024 * 1024, REQUESTS = 1024, REPLIES = 16 };
  using Key = std::pair<T_End, T_End>;

  struct T_Conversation {
    Key tEnds;
    CDirection acDirection[2];    // what the first and the second end send
    int iClient = -1;             // its end, once that is known
    bool bOurs = false;           // it carries packets
    bool bClosed = false;
    int iEnder = -1;              // the end that closed or reset it first
    bool bReset = false;
    size_t iHeld = 0;

    T_Conversation(const Key& p_tEnds, const T_Wish& p_tWish)
        : tEnds(p_tEnds), acDirection{CDirection(p_tWish), CDirection(p_tWish)} {}
    const T_End& End(int p_iSide) const { return p_iSide == 0 ? tEnds.first : tEnds.second; }
  };
  using Conversations = std::list<T_Conversation>;    // the one that spoke last stands first

  const T_Wish m_tWish;
  const int m_iPort;
  const OnCall m_fnCall;
  Conversations m_atConversation;
  std::map<Key, Conversations::iterator> m_apByEnds;
  size_t m_iHeld = 0;

  Conversations::iterator Find(const T_Segment& p_tSegment, int p_iSide, const Key& p_tKey);
  void FindClient(T_Conversation& p_t);
  // p_sWhy: why it ends when neither side ended it.
  void Pair(T_Conversation& p_t, const std::string& p_sWhy, bool p_bLast);
  void Emit(const T_Conversation& p_t, std::optional<T_Packet> p_tRequest, std::optional<T_Packet> p_tReply,
            const std::string& p_sWhy);
  void Close(T_Conversation& p_t, const std::string& p_sWhy);
  void Remove(Conversations::iterator p_p);
  void MakeRoom();
};

#endif
