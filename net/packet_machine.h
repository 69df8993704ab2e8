// What the bytes of a packet mean, as they come.
#ifndef CALLORV_NET_PACKET_MACHINE_H
#define CALLORV_NET_PACKET_MACHINE_H

#include <list>

#include "callorv/net/tcp_adaptor.h"
#include "net/fault.h"

namespace callorv::detail {

// Reads one packet without knowing where its bytes come from: it says where the next ones go, and is told how many
// came. An operation that fails returns its code with the fault filled, but for a negative body length, which is its
// own code and has no text. After a failure the machine is used up.
class CPacketMachine {
 public:
  enum E_Part { HEADER, BODY, TRAILER, COMPLETE };
  enum { BLOCK_BYTES = 256 * 1024 };
  struct T_Room {
    char* pAt = nullptr;
    int iLen = 0;    // 1 or more
  };

  // p_pBody     gets the body, uncompressed as soon as it is whole. Null: it is kept as it was sent, for Unpack.
  // p_pFields   gets what the header says, p_szHeader a copy of it, unless they are null
  CPacketMachine(CStream* p_pBody, CAdaptor::T_PacketInfo* p_pFields, char* p_szHeader)
      : m_pBody(p_pBody), m_pFields(p_pFields), m_szCopy(p_szHeader) {}
  CPacketMachine(const CPacketMachine&) = delete;
  CPacketMachine& operator=(const CPacketMachine&) = delete;

  E_Part Part() const { return m_ePart; }
  const char* PartName() const { return m_ePart == HEADER ? "header" : m_ePart == BODY ? "body" : "checksum"; }
  int GetHave() const { return m_iHave; }    // bytes of this part that came

  // Where the next bytes go, until the machine is next used. Room for a body grows with what came, or by p_iFirst if
  // that is more; what is only announced is not allocated. A body that is kept for Unpack stands in blocks of
  // BLOCK_BYTES, so that what came before is not copied however long it is.
  int GetRoom(int p_iFirst, T_Room& p_tRoom, T_Fault& p_tFault);
  // p_iLen bytes, not more than there was room for, stand there now.
  int Fill(int p_iLen, T_Fault& p_tFault);
  // The same for bytes that stand elsewhere. Those behind the packet are not looked at.
  int Feed(const char* p_pData, int p_iLen, T_Fault& p_tFault);
  // All of the packet, from a connection; p_iTimeOut seconds for each wait. A failure to receive has its own text in
  // p_cFrom, unless the fault has one.
  int ReadFrom(CAdaptor& p_cFrom, int p_iTimeOut, T_Fault& p_tFault);
  // No more bytes can be had, for a reason with this code. The code that the packet fails with.
  int Cut(int p_iCode, T_Fault& p_tFault);

  // The body before compression, from TRAILER on, in a machine that kept it: its own or p_stRoom. Null when it
  // cannot be uncompressed, or there is no memory for it in one piece.
  const CStream* Unpack(CStream& p_stRoom, T_Fault& p_tFault);

 private:
  CStream* const m_pBody;
  CAdaptor::T_PacketInfo* const m_pFields;
  char* const m_szCopy;
  E_Part m_ePart = HEADER;
  int m_iHave = 0;       // bytes of this part
  int m_iRoom = 0;       // bytes of the body that there is room for
  int m_iBodyLen = 0;
  int m_iBodySum = 0;    // of the bytes that came
  CStream m_stSent{0, 512};    // a body that p_pBody does not want, or not as it is
  std::list<CStream> m_cBlocks;    // what came of it behind the first block
  char m_szFrame[CTcpAdaptor::HEADER_SIZE + CTcpAdaptor::TRAILER_SIZE + 1] = {};

  bool IsCompressed() const;
  CStream& Body() {    // where its next bytes go
    if (m_pBody != nullptr && !IsCompressed()) return *m_pBody;
    return m_cBlocks.empty() ? m_stSent : m_cBlocks.back();
  }
  void Begin(E_Part p_ePart);
  int TakeHeader(T_Fault& p_tFault);
  int TakeBody(T_Fault& p_tFault);
  int TakeTrailer(T_Fault& p_tFault);
  int Uncompress(CStream& p_stOut, T_Fault& p_tFault);
};

}    // namespace callorv::detail

#endif
