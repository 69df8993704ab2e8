// How a packet's bytes are kept while they come.
#include <doctest/doctest.h>

#include <algorithm>
#include <string>

#include "net/packet_machine.h"
#include "support/service_peer.h"

using callorv::detail::CPacketMachine;
using callorv::detail::T_Fault;

namespace {

std::string Digits(size_t p_uLen) {
  std::string sText;
  for (int i = 0; sText.size() < p_uLen; ++i) sText += std::to_string(i);
  sText.resize(p_uLen);
  return sText;
}

}    // namespace

TEST_CASE("a body that is kept stands in blocks while it comes, so that no piece of it waits for all before it to be copied") {
  enum { STEP = 64 * 1024 };
  for (const size_t uLen : {0u, 1u, 262143u, 262144u, 262145u, 524288u, 5000000u}) {
    CAPTURE(uLen);
    const std::string sBody = Digits(uLen), sPacket = Packet(sBody);
    CPacketMachine cMachine(nullptr, nullptr);
    T_Fault tFault;
    REQUIRE(cMachine.Feed(sPacket.data(), 128, tFault) == 0);
    for (size_t uAt = 128; cMachine.Part() != CPacketMachine::COMPLETE;) {
      CPacketMachine::T_Room tRoom;
      REQUIRE(cMachine.GetRoom(4096, tRoom, tFault) == 0);
      CHECK(tRoom.iLen > 0);
      CHECK(tRoom.iLen <= CPacketMachine::BLOCK_BYTES);
      const int iPart = std::min<int>(tRoom.iLen, STEP);
      std::copy_n(&sPacket[uAt], iPart, tRoom.pAt);
      uAt += static_cast<size_t>(iPart);
      REQUIRE(cMachine.Fill(iPart, tFault) == 0);
    }
    CStream stRoom(0, 512);
    const CStream* pBody = cMachine.Unpack(stRoom, tFault);
    REQUIRE(pBody != nullptr);
    CHECK((std::string(pBody->GetData(), static_cast<size_t>(pBody->GetSize())) == sBody));
  }
}
