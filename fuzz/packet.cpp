// Packets in memory: every one is read as the rules say, and one that is sound is built and read again unchanged.
#include <memory>

#include "packet_model.h"
#include "support.h"

namespace {

std::string Padded(std::string p_s, size_t p_uWidth) {
  p_s.resize(p_uWidth, ' ');
  return p_s;
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  const std::string sPacket = PacketOf(p_pData, p_uSize);
  // Without a byte behind it that a reader could touch unnoticed.
  const std::unique_ptr<char[]> pPacket(new char[sPacket.size()]);
  sPacket.copy(pPacket.get(), sPacket.size());

  T_Outcome tShould = ReadModel(sPacket, END_CLOSED);
  CTcpAdaptor cAdaptor;
  CAdaptor::T_PacketInfo tInfo;
  int iCode = cAdaptor.ParsePacket(pPacket.get(), static_cast<int>(sPacket.size()), &tInfo);
  ExpectOutcome(iCode, cAdaptor, tInfo, tShould);
  if (tShould.iCode != 0) return 0;

  CStream stBuilt(0, 512);
  ExpectSame(cAdaptor.BuildPacket(&tInfo, stBuilt), 0, "building it again");
  const std::string sBuilt(stBuilt.GetData(), static_cast<size_t>(stBuilt.GetSize()));
  tShould.sTimeStamp = tInfo.sTimeStamp.ToStr();    // which is the time of building
  tShould.sAux13 = Padded(tShould.sAux13, 13);
  tShould.sAux8 = Padded(tShould.sAux8, 8);
  tShould.sAux21 = Padded(tShould.sAux21, 21);
  CAdaptor::T_PacketInfo tAgain;
  iCode = cAdaptor.ParsePacket(sBuilt.data(), static_cast<int>(sBuilt.size()), &tAgain);
  ExpectOutcome(iCode, cAdaptor, tAgain, tShould);
  return 0;
}
