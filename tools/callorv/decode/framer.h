// Packets out of one direction of a connection.
#ifndef CALLORV_TOOLS_FRAMER_H
#define CALLORV_TOOLS_FRAMER_H

#include <cstdint>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "decode/piece.h"

// What is wanted of packets besides the line of their call.
struct T_Wish {
  bool bDetail = false;    // all fields and the body, as text or JSON
  bool bJson = false;
  bool bXml = false;       // the body alone
  bool bShowKey = false;
};

struct T_Moment {
  bool bKnown = false;
  bool bNano = false;
  int64_t iNano = 0;    // since 1970
};

// A packet as a call's line tells of it, or bytes that are none.
struct T_Packet {
  T_Moment tFirst, tLast;    // its first and its last bytes
  bool bPacket = false;
  int iService = 0, iMessage = 0;
  bool bKey = false;     // has a user key, as requests have
  uint64_t iSize = 0;    // bytes that came
  std::vector<std::string> asWrong;
  bool bCut = false;     // the connection ended inside it
  bool bRejection = false;
  std::string sCode, sReason;    // of a rejection, UTF-8
  std::string sDetail, sBody;    // when wished for
  std::shared_ptr<nlohmann::ordered_json> pDetail;

  size_t Held() const { return sizeof(*this) + sDetail.size() + sBody.size() + 2 * iDetail; }
  size_t iDetail = 0;    // bytes of the packet when pDetail has it
};

class CFramer {
 public:
  enum : size_t { MOST = 64 * 1024 * 1024 };    // bytes of a packet, and of its body before compression, that are read

  explicit CFramer(const T_Wish& p_tWish) : m_tWish(p_tWish) {}

  void Feed(std::string_view p_sBytes, const T_Moment& p_tMoment);
  void Gap(uint64_t p_iBytes, const T_Moment& p_tMoment);    // so many are not in the capture
  void End();                                                // no more will come
  // The first byte that comes begins a packet, if the connection carries any. Without that the first packet is looked
  // for.
  void StartsHere();
  bool Idle() const { return m_sBuffer.empty() && !m_bPacket && m_iJunk == 0 && m_iLost == 0; }

  std::list<T_Packet> atPacket;    // complete, in their order
  size_t Held() const;

 private:
  const T_Wish m_tWish;
  std::string m_sBuffer;    // of the packet that is coming, or what could be the beginning of one
  bool m_bPacket = false;   // m_sBuffer begins one
  bool m_bAligned = false;  // what is not a packet's beginning is junk
  bool m_bTouched = false;
  size_t m_iSize = 0;           // of the packet, once its header is there
  uint64_t m_iSkip = 0;         // bytes of the packet that are only counted from here on
  uint64_t m_iCame = 0;         // and those of it that came
  std::string m_sWhySkipped;
  std::string m_sJunk;          // the first bytes between packets
  uint64_t m_iJunk = 0;
  uint64_t m_iLost = 0;    // bytes that are missing before them, where a packet was to begin
  T_Moment m_tFirst, m_tLast, m_tJunk;

  void SetLast(const T_Moment& p_tMoment);
  void Parse();
  bool Search();
  bool Complete();
  void StartSkipping(uint64_t p_iSkip, const std::string& p_sWhy);
  void AddJunk(std::string_view p_sBytes);
  void EmitJunk();
  void EmitSkipped();
  void Emit(T_Piece& p_tPiece, uint64_t p_iSize);
  void Drop(size_t p_iBytes);
};

#endif
