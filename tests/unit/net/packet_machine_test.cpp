// How a packet's bytes are kept while they come.
#include <doctest/doctest.h>

#include <algorithm>
#include <string>

#include "net/packet_machine.h"
#include "support/fail_alloc.h"
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

// Hands a packet to a machine as a call in flight does. 0 with the body, or the fault's code.
int Read(const std::string& p_sPacket, CPacketMachine& p_cMachine, CStream& p_stRoom, const CStream*& p_pBody, T_Fault& p_tFault) {
  enum { STEP = 64 * 1024 };
  int iRet = p_cMachine.Feed(p_sPacket.data(), 128, p_tFault);
  for (size_t uAt = 128; iRet == 0 && p_cMachine.Part() != CPacketMachine::COMPLETE;) {
    CPacketMachine::T_Room tRoom;
    iRet = p_cMachine.GetRoom(4096, tRoom, p_tFault);
    if (iRet < 0 || tRoom.iLen > CPacketMachine::BLOCK_BYTES) return iRet < 0 ? iRet : 1;
    const int iPart = std::min<int>(tRoom.iLen, STEP);
    std::copy_n(&p_sPacket[uAt], iPart, tRoom.pAt);
    uAt += static_cast<size_t>(iPart);
    iRet = p_cMachine.Fill(iPart, p_tFault);
  }
  p_pBody = iRet == 0 ? p_cMachine.Unpack(p_stRoom, p_tFault) : nullptr;
  return p_pBody == nullptr ? p_tFault.iCode : 0;
}

}    // namespace

TEST_CASE("a body that is kept stands in blocks while it comes, so that no piece of it waits for all before it to be copied") {
  for (const bool bCompressed : {false, true}) {
    for (const size_t uLen : {0u, 1u, 262143u, 262144u, 262145u, 524288u, 5000000u}) {
      CAPTURE(uLen);
      const std::string sBody = Digits(uLen);
      CPacketMachine cMachine(nullptr, nullptr, nullptr);
      CStream stRoom(0, 512);
      const CStream* pBody = nullptr;
      T_Fault tFault;
      REQUIRE(Read(Packet(sBody, bCompressed), cMachine, stRoom, pBody, tFault) == 0);
      CHECK((std::string(pBody->GetData(), static_cast<size_t>(pBody->GetSize())) == sBody));
    }
  }
}

TEST_CASE("header, body and checksum may come byte by byte into the room that there is for them") {
  const std::string sBody = Digits(300), sPacket = Packet(sBody);
  CPacketMachine cMachine(nullptr, nullptr, nullptr);
  CStream stRoom(0, 512);
  T_Fault tFault;
  for (const char c : sPacket) {
    CPacketMachine::T_Room tRoom;
    REQUIRE(cMachine.GetRoom(1, tRoom, tFault) == 0);
    *tRoom.pAt = c;
    REQUIRE(cMachine.Fill(1, tFault) == 0);
  }
  REQUIRE(cMachine.Part() == CPacketMachine::COMPLETE);
  const CStream* pBody = cMachine.Unpack(stRoom, tFault);
  REQUIRE(pBody != nullptr);
  CHECK((std::string(pBody->GetData(), static_cast<size_t>(pBody->GetSize())) == sBody));
}

TEST_CASE("no memory for a block, or for all of them in one piece, is told") {
  const std::string sPacket = Packet(Digits(600000));
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CPacketMachine cMachine(nullptr, nullptr, nullptr);
    CStream stRoom(0, 512);
    const CStream* pBody = nullptr;
    T_Fault tFault;
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = Read(sPacket, cMachine, stRoom, pBody, tFault); }));
    CHECK(iRet == (p_cFail.HasFailed() ? ADAPT_MEMORY : 0));
    CHECK(std::string(tFault.szDetail) == (p_cFail.HasFailed() ? "ReceiveFrom" : ""));
  });
  CHECK(iFailures > 4);    // for two more blocks, their room, and the whole
}
