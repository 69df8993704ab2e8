// A reply's bytes, made once and sent often.
#ifndef CALLORV_TOOLS_PREPARED_H
#define CALLORV_TOOLS_PREPARED_H

#include <callorv/msg/msg.h>
#include <callorv/net/adaptor.h>

#include <string>

class CPrepared {
 public:
  // p_iCompressOver  bytes of XML; a longer message is compressed
  // Throws CFailure when there is no packet for the message.
  CPrepared(const CMsg& p_cMsg, int p_iCompressOver);

  int MsgNum() const { return m_iMsgNum; }
  // The packet for p_tInfo, whose body does not count; p_bCompress: compressed in any case. Throws CFailure.
  std::string Packet(CAdaptor::T_PacketInfo& p_tInfo, bool p_bCompress) const;

 private:
  const int m_iMsgNum;
  std::string m_sBody;      // before compression
  std::string m_sPacket;    // without its trailer; the header's lengths and flag are right
  int m_iBodySum;           // what the sent body adds to the checksum
};

// The packet for p_tInfo as it stands. Throws CFailure.
std::string MakePacket(CAdaptor::T_PacketInfo& p_tInfo);

// Writes the checksum into a packet that has room for it.
void PutCheckSum(std::string& p_sPacket, int p_iCheckSum);

#endif
