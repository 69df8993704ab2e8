// Whole calls with typed messages.
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <functional>
#include <string>

#include "support/service_peer.h"
#include "support/set_up.h"

namespace {

// A typed message around tag 1 of message 100; a test replaces what it does.
class CText : public CMsgBase {
 public:
  std::string sText;
  std::function<CMsg*()> fnCreate = [this] { return NewRequest(sText.c_str()).release(); };
  std::function<int(CMsg*)> fnLoad = [this](CMsg* p_pMsg) {
    CString sValue;
    const int iRet = p_pMsg->GetValue(1, &sValue);
    sText = sValue.ToStr();
    return iRet;
  };

  int LoadFromMsg(CMsg* p_pMsg) override { return fnLoad(p_pMsg); }
  CMsg* CreateMsg() override { return fnCreate(); }
};

class CMyException : public CException {
 public:
  using CException::CException;
};

void CheckError(const CCallOrvError& p_cErr, int p_iCode, const std::string& p_sText, int p_iRefSvcNum) {
  CHECK(p_cErr.GetCode() == p_iCode);
  CHECK(p_cErr.GetText().ToStr() == p_sText);
  CHECK(p_cErr.GetRefSvcNum() == p_iRefSvcNum);
}

T_Answer Echo(const T_Request& p_tRequest) { return {Packet(p_tRequest.sBody)}; }

}    // namespace

TEST_CASE("typed messages go to the server and come back") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CText cIn, cOut;
  cIn.sText = "typed";
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == 0);
  CheckError(cErr, 0, "", 0);
  CHECK(cOut.sText == "typed");
  CHECK(cPeer.LastRequest().SvcNum() == 7);
}

TEST_CASE("the reply to a typed call has no definition before it is read") {
  CServicePeer cPeer([](const T_Request&) { return T_Answer{Packet("<msg no='101'><t2>5</t2></msg>")}; });
  SetUp(cPeer.Port());
  CText cIn, cOut;
  cIn.sText = "x";
  int iMsgNum = 0;
  cOut.fnLoad = [&](CMsg* p_pMsg) {
    iMsgNum = p_pMsg->GetMsgNum();
    return 0;
  };
  CCallOrvError cErr;
  CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == 0);
  CHECK(iMsgNum == 101);
}

TEST_CASE("null typed messages") {
  SetUp(1);
  CText cMsg;
  CCallOrvError cErr;
  CHECK(CCallOrv::CallService(7, nullptr, &cMsg, &cErr) == -1);
  CheckError(cErr, -12, "Input Msg(p_pIn) is NULL", 0);
  CHECK(CCallOrv::CallService(7, &cMsg, nullptr, &cErr) == -1);
  CheckError(cErr, -12, "Output Msg(p_pOut) is NULL", 0);
  CHECK(CCallOrv::CallService(7, nullptr, nullptr, &cErr) == -1);
  CheckError(cErr, -12, "Input Msg(p_pIn) is NULL", 0);
}

TEST_CASE("a typed request that cannot be built") {
  SetUp(1);
  CText cIn, cOut;
  cIn.sLastError = "no symbol";
  cIn.fnCreate = [] { return nullptr; };
  CCallOrvError cErr;
  CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == -2);
  CheckError(cErr, -1, "Input Msg is corrupted(no symbol)", 7);
}

TEST_CASE("a typed call that fails or is rejected keeps the error of the call") {
  {
    CDeafPort cNobody;
    SetUp(cNobody.Port());
    CText cIn, cOut;
    cIn.sText = "x";
    CCallOrvError cErr;
    CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == -4);
    CheckError(cErr, -3, "Failed in connect()(-5)((connect))", -1);
  }
  CServicePeer cPeer([](const T_Request&) {
    return T_Answer{Packet("<msg no='10'><t6>5</t6><t7>closed</t7><t8>7</t8></msg>")};
  });
  SetUp(cPeer.Port());
  CText cIn, cOut;
  cIn.sText = "x";
  cOut.fnLoad = [](CMsg*) -> int { throw CException("a rejection is not loaded", -1); };
  CCallOrvError cErr;
  CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == -4);
  CheckError(cErr, 5, "closed", 7);
}

TEST_CASE("a typed reply that cannot be filled") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CText cIn, cOut;
  cIn.sText = "x";
  cOut.sLastError = "no price";
  cOut.fnLoad = [](CMsg*) { return -18; };
  CCallOrvError cErr;
  CHECK(CCallOrv::CallService(7, &cIn, &cOut, &cErr) == -5);
  CheckError(cErr, -1, "no price", 7);
}

TEST_CASE("an exception of a typed message leaves the call as a plain one with its code and text") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  for (bool bOnLoad : {false, true}) {
    CAPTURE(bOnLoad);
    CText cIn, cOut;
    cIn.sText = "x";
    if (bOnLoad) {
      cOut.fnLoad = [](CMsg*) -> int { throw CMyException("100% broken", -14); };
    } else {
      cIn.fnCreate = []() -> CMsg* { throw CMyException("100% broken", -14); };
    }
    CCallOrvError cErr;
    cErr.SetError(99, "old", 77);
    bool bCaught = false;
    try {
      CCallOrv::CallService(7, &cIn, &cOut, &cErr);
    } catch (const CMyException&) {
      FAIL("not the derived one");
    } catch (const CException& p_c) {
      bCaught = true;
      CHECK(p_c.GetCode() == -14);
      CHECK(p_c.GetText() == std::string("100% broken"));
    }
    CHECK(bCaught);
    CheckError(cErr, 0, "", 0);
  }
}

TEST_CASE("any other exception of a typed message passes") {
  SetUp(1);
  CText cIn, cOut;
  cIn.fnCreate = []() -> CMsg* { throw 42; };
  CCallOrvError cErr;
  CHECK_THROWS_AS(CCallOrv::CallService(7, &cIn, &cOut, &cErr), int);
}
