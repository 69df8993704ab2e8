// A reply's bytes, made once and sent often.
#include "serve/prepared.h"

#include <callorv/net/tcp_adaptor.h>

#include <cstdio>
#include <string_view>

#include "command.h"

namespace {

constexpr size_t HEADER_SIZE = CTcpAdaptor::HEADER_SIZE;
constexpr size_t TRAILER_SIZE = CTcpAdaptor::TRAILER_SIZE;

int SumOf(std::string_view p_sBytes) {
  return CAdaptor::CalcCheckSum(p_sBytes.data(), static_cast<int>(p_sBytes.size()));
}

}    // namespace

std::string MakePacket(CAdaptor::T_PacketInfo& p_tInfo) {
  CStream stPacket(0, 512);
  CTcpAdaptor cBuilder;
  if (cBuilder.BuildPacket(&p_tInfo, stPacket) < 0) {
    throw CFailure(std::string("reply not made: ") + cBuilder.GetLastError());
  }
  return std::string(stPacket.GetData(), static_cast<size_t>(stPacket.GetSize()));
}

void PutCheckSum(std::string& p_sPacket, int p_iCheckSum) {
  char szTrailer[TRAILER_SIZE + 1];
  std::snprintf(szTrailer, sizeof szTrailer, "%03d", p_iCheckSum & 0xFF);
  p_sPacket.replace(p_sPacket.size() - TRAILER_SIZE, TRAILER_SIZE, szTrailer);
}

CPrepared::CPrepared(const CMsg& p_cMsg, int p_iCompressOver) : m_iMsgNum(p_cMsg.GetRootNum()) {
  CAdaptor::T_PacketInfo tInfo;
  p_cMsg.ToXml(&tInfo.stBody, false, false, 1);
  tInfo.bCompressed = tInfo.stBody.GetSize() > p_iCompressOver;
  m_sBody.assign(tInfo.stBody.GetData(), static_cast<size_t>(tInfo.stBody.GetSize()));
  m_sPacket = MakePacket(tInfo);
  m_sPacket.resize(m_sPacket.size() - TRAILER_SIZE);
  m_iBodySum = SumOf(std::string_view(m_sPacket).substr(HEADER_SIZE));
}

std::string CPrepared::Packet(CAdaptor::T_PacketInfo& p_tInfo, bool p_bCompress) const {
  p_tInfo.stBody.Clear();
  p_tInfo.bCompressed = p_bCompress;
  if (p_bCompress) {
    p_tInfo.stBody.AppendData(m_sBody.data(), static_cast<int>(m_sBody.size()));
    return MakePacket(p_tInfo);
  }
  std::string sPacket = MakePacket(p_tInfo);    // without a body: its header is wanted
  for (const int iField : {CTcpAdaptor::PACKET_LENGTH, CTcpAdaptor::COMPRESSED, CTcpAdaptor::BODY_LENGTH}) {
    const CTcpAdaptor::T_Field& tField = *CTcpAdaptor::GetField(iField);
    const auto iAt = static_cast<size_t>(tField.iAt), iWidth = static_cast<size_t>(tField.iWidth);
    sPacket.replace(iAt, iWidth, m_sPacket, iAt, iWidth);
  }
  const int iHeaderSum = SumOf(std::string_view(sPacket).substr(0, HEADER_SIZE));
  sPacket.resize(HEADER_SIZE);
  sPacket.reserve(m_sPacket.size() + TRAILER_SIZE);
  sPacket.append(m_sPacket, HEADER_SIZE).append(TRAILER_SIZE, '0');
  PutCheckSum(sPacket, iHeaderSum + m_iBodySum);
  return sPacket;
}
