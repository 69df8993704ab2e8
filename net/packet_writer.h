// Makes packets.
#ifndef CALLORV_NET_PACKET_WRITER_H
#define CALLORV_NET_PACKET_WRITER_H

#include "callorv/net/adaptor.h"
#include "net/fault.h"

namespace callorv::detail {

// A packet of what p_tInfo says, but for its body: that stands in p_stBody from p_iBodyAt on. One that stands in
// p_stOut itself, behind room for the header, is not copied, and not to be compressed. Fills in the time stamp. 0; or a
// code with the fault filled, and p_stOut empty.
int WritePacket(CAdaptor::T_PacketInfo& p_tInfo, const CStream& p_stBody, int p_iBodyAt, CStream& p_stOut,
                T_Fault& p_tFault);
// The same of a body in p_stPacket, behind room for the header, compressed or not.
int WritePacket(CAdaptor::T_PacketInfo& p_tInfo, CStream& p_stPacket, T_Fault& p_tFault);

// A packet's header with its checksum behind, without a NUL.
void CopyHeader(const CStream& p_stPacket, char* p_pOut);

}    // namespace callorv::detail

#endif
