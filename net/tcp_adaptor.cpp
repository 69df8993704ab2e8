// Packets over a TCP connection.
#include "callorv/net/tcp_adaptor.h"

#include "net/packet_fields.h"
#include "net/packet_machine.h"
#include "net/packet_writer.h"

using namespace callorv::detail;

CTcpAdaptor::CTcpAdaptor() : szLastRecvHeader(), szLastSendHeader(), bKeepHeaders(false) {}

CTcpAdaptor::~CTcpAdaptor() {}

const CTcpAdaptor::T_Field* CTcpAdaptor::GetField(int p_iField) {
  return p_iField >= 0 && p_iField < FIELDS ? &s_atFields[p_iField] : nullptr;
}

const char* CTcpAdaptor::GetBeginString() { return s_szBegin; }

int CTcpAdaptor::SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  CStream stPacket(0, 512);
  const int iRet = BuildPacket(p_pInfo, stPacket);
  return iRet < 0 ? iRet : SendData(stPacket.GetData(), stPacket.GetSize(), p_iTimeOut);
}

int CTcpAdaptor::BuildPacket(T_PacketInfo* p_pInfo, CStream& p_stOut) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "(SendTo)");
  T_Fault tFault;
  if (WritePacket(*p_pInfo, p_pInfo->stBody, 0, p_stOut, tFault) < 0) return Fail(tFault.iCode, "%s", tFault.szDetail);
  if (bKeepHeaders) CopyHeader(p_stOut, szLastSendHeader);
  return 0;
}

int CTcpAdaptor::ReceiveFrom(T_PacketInfo* p_pInfo, int p_iTimeOut) {
  return ReadPacket(p_pInfo, [=](CPacketMachine& p_cMachine, T_Fault& p_tFault) {
    return p_cMachine.ReadFrom(*this, p_iTimeOut, p_tFault);
  });
}

int CTcpAdaptor::ParsePacket(const char* p_pData, int p_iLen, T_PacketInfo* p_pInfo) {
  return ReadPacket(p_pInfo, [=](CPacketMachine& p_cMachine, T_Fault& p_tFault) {
    const int iRet = p_cMachine.Feed(p_pData, p_iLen, p_tFault);
    if (iRet < 0 || p_cMachine.Part() == CPacketMachine::COMPLETE) return iRet;
    return p_cMachine.Cut(RecvFault(0, p_tFault), p_tFault);
  });
}

template <class DRIVE>
int CTcpAdaptor::ReadPacket(T_PacketInfo* p_pInfo, DRIVE p_fnDrive) {
  if (p_pInfo == nullptr) return Fail(ADAPT_NULL, "p_pInfo");
  CPacketMachine cMachine(&p_pInfo->stBody, p_pInfo, bKeepHeaders ? szLastRecvHeader : nullptr);
  T_Fault tFault;
  const int iRet = p_fnDrive(cMachine, tFault);
  return tFault.iCode != 0 ? Fail(tFault.iCode, "%s", tFault.szDetail) : iRet;
}
