// Packets over a TCP connection.
#ifndef CALLORV_ADAPTOR_TCP_ADAPTOR_H
#define CALLORV_ADAPTOR_TCP_ADAPTOR_H

#include "callorv/adaptor/adaptor.h"

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
  //               -15 "(SendTo) size mismatch(128, %d)[%s]" a number is too wide for its field; then as SendData
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

  // With the trace switch on (off after construction), every SendTo keeps the header with its checksum behind it, and
  // every ReceiveFrom keeps the header. "" before the first. Borrowed: valid until the next packet.
  void KeepHeaders(bool p_bKeep) { bKeepHeaders = p_bKeep; }
  const char* GetLastRecvHeader() const { return szLastRecvHeader; }
  const char* GetLastSendHeader() const { return szLastSendHeader; }

 private:
  char szLastRecvHeader[HEADER_SIZE + 1];
  char szLastSendHeader[HEADER_SIZE + TRAILER_SIZE + 1];
  bool bKeepHeaders;

  int ReceiveBody(CStream& p_stOut, int p_iLen, int p_iTimeOut);
};

#endif
