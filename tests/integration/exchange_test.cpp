// What a call tells about its two packets.
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <string>

#include "support/client_files.h"
#include "support/service_peer.h"
#include "support/set_up.h"

namespace {

std::string TextOf(const CStream& p_st) { return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize())); }

}    // namespace

TEST_CASE("a call tells both headers and both bodies") {
  const std::string sReply = R"(<msg no="100" ver=""><t1>reply</t1></msg>)";
  std::string sReplyPacket;
  CServicePeer cPeer([&](const T_Request&) {
    sReplyPacket = Packet(sReply, true);
    return T_Answer{sReplyPacket};
  });
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
  const std::string sLong(2000, 'x');
  REQUIRE(pIn->SetValue(1, sLong.c_str()) == 0);
  CCallOrvError cErr;
  CCallOrv::T_Exchange tExchange;
  REQUIRE(CCallOrv::CallServiceByMsg(1234, pIn.get(), pOut.get(), &cErr, &tExchange) == 0);
  const T_Request tRequest = cPeer.LastRequest();
  REQUIRE(tRequest.Compressed());
  CHECK(std::string(tExchange.sSendHeader.ToStr()) == tRequest.sHeader + tRequest.sTrailer);
  CHECK(TextOf(tExchange.stSent) == tRequest.sBody);
  CHECK(std::string(tExchange.sRecvHeader.ToStr()) == sReplyPacket.substr(0, 128));
  CHECK(TextOf(tExchange.stReceived) == sReply);
}

TEST_CASE("a call that gets no reply tells its request alone, and forgets an earlier exchange") {
  CServicePeer cPeer([](const T_Request&) { return T_Answer{}; });
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
  CCallOrv::T_Exchange tExchange;
  tExchange.sRecvHeader = "old";
  tExchange.stReceived.AppendData("old", 3);
  CString sErr;
  CHECK(CCallOrv::CallServiceCore(7, pIn.get(), pOut.get(), 5, sErr, &tExchange) == -5);
  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.Field(30, 10) == "0000000005");
  CHECK(std::string(tExchange.sSendHeader.ToStr()) == tRequest.sHeader + tRequest.sTrailer);
  CHECK(TextOf(tExchange.stSent) == tRequest.sBody);
  CHECK(tExchange.sRecvHeader.IsEmpty());
  CHECK(tExchange.stReceived.GetSize() == 0);
}

TEST_CASE("a call that cannot connect tells the body that it would have sent") {
  const CDeafPort cNobody;
  SetUp(cNobody.Port());
  CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
  CCallOrv::T_Exchange tExchange;
  CString sErr;
  CHECK(CCallOrv::CallServiceCore(7, pIn.get(), pOut.get(), 0, sErr, &tExchange) == -3);
  CHECK(tExchange.sSendHeader.IsEmpty());
  CHECK(TextOf(tExchange.stSent) == R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="100" ver=""></msg>)");
}
