// Packets over a TCP connection.
#ifndef CALLORV_NET_TCP_ADAPTOR_H
#define CALLORV_NET_TCP_ADAPTOR_H

#include <cstddef>

#include "callorv/net/adaptor.h"

// A packet is a 128-byte text header, the body (plain, or compressed by zlib) and a 3-digit checksum.
// docs/formats/packet.md has the layout. Several packets may follow each other on one connection.
class CALLORV_API CTcpAdaptor : public CAdaptor {
 public:
  enum { HEADER_SIZE = 128, TRAILER_SIZE = 3 };

  CTcpAdaptor();
  ~CTcpAdaptor() override;

  // Sends p_pInfo as one packet. sTimeStamp is overwritten with the local time; texts longer than their field are cut.
  //   p_iTimeOut  as for SendData
  //   returns     0, or -2 "(SendTo)" null, -1 "(SendTo)" no memory, -16 "(SendTo)(%d)" with zlib's code,
  //               -15 "(SendTo) size mismatch(128, %d)[%s]" a number is too wide for its field; the text holds the
  //               header, with the user key; then as SendData
  int SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) override;
  // Reads one packet into p_pInfo. Memory grows with what the peer really sends, never with what it announces.
  //   p_iTimeOut  seconds, as for ReceiveData
  //   returns     0, or -2 "p_pInfo" null; as ReceiveData; -15 "Unknown BeginString[%.*s]";
  //               -17 "uncompleted packet timeout(body)" or "... timeout(checksum)" the peer stalled inside the packet;
  //               -16 "ReceiveFrom(%d)(%ld)" with zlib's code and the bytes that came out;
  //               -13 "(M:%d,C:%d)" checksum, computed and received (the body stays); -1 "ReceiveFrom" no memory;
  //               a packet length n below 128 returns n - 128 without a text (and -17 for 120)
  //   on failure  p_pInfo may be partly filled and is good for another call
  int ReceiveFrom(T_PacketInfo* p_pInfo, int p_iTimeOut) override;

  // ---- packets in memory, for servers and tools: what SendTo and ReceiveFrom are made of. No connection is needed.
  // Replaces what p_stOut holds by the bytes that SendTo would send. Results as SendTo before it sends; on failure
  // p_stOut, which is not the packet's own body, is empty.
  int BuildPacket(T_PacketInfo* p_pInfo, CStream& p_stOut);
  // Reads the packet at p_pData as ReceiveFrom does, with the same results. Where it would wait for more than the
  // p_iLen bytes that are there: -9 "OK". Bytes behind the packet are not looked at, and none of the bytes is
  // p_pInfo's.
  int ParsePacket(const char* p_pData, int p_iLen, T_PacketInfo* p_pInfo);

  // The header's fields in their order on the wire, without a gap. Numbers are decimal digits, padded with zeros on the
  // left; texts are padded with blanks on the right.
  enum E_Field {
    BEGIN_STRING,
    PACKET_LENGTH,    // header and body as sent; the trailer does not count
    SERVICE,
    MESSAGE,
    EXTRA,
    TIME_STAMP,
    USER_KEY,
    AUX13,
    COMPRESSED,       // "Y" or "N"
    BODY_LENGTH,      // before compression
    AUX8,
    AUX21,
    FIELDS            // how many there are
  };
  struct T_Field {
    const char* szName;    // as in docs/formats/packet.md
    int iAt;               // bytes from the packet's start
    int iWidth;            // bytes
  };
  static_assert(offsetof(T_Field, iAt) == sizeof(void*) && offsetof(T_Field, iWidth) == sizeof(void*) + 4,
                "programs know its layout");
  // Null outside BEGIN_STRING to AUX21. Constant.
  static const T_Field* GetField(int p_iField);
  static const char* GetBeginString();    // what every packet begins with

  // With the trace switch on (off after construction), every packet made keeps its header with the checksum
  // behind it, and every packet read keeps its header. "" before the first. Borrowed: valid until the next packet.
  void KeepHeaders(bool p_bKeep) { bKeepHeaders = p_bKeep; }
  const char* GetLastRecvHeader() const { return szLastRecvHeader; }
  const char* GetLastSendHeader() const { return szLastSendHeader; }

 private:
  char szLastRecvHeader[HEADER_SIZE + 1];
  char szLastSendHeader[HEADER_SIZE + TRAILER_SIZE + 1];
  bool bKeepHeaders;

  // DRIVE: int(callorv::detail::CPacketMachine&, callorv::detail::T_Fault&), which brings the bytes.
  template <class DRIVE>
  int ReadPacket(T_PacketInfo* p_pInfo, DRIVE p_fnDrive);
};

#endif
