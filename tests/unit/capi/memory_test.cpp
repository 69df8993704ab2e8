// The C interface without memory: no exception leaves it, and its results say what happened.
#include <callorv/callorv.h>
#include <doctest/doctest.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "support/descriptors.h"
#include "support/fail_alloc.h"
#include "support/service_peer.h"
#include "support/set_up.h"

namespace {

const std::string LONG(100, 'x');    // kept outside the string object

}    // namespace

TEST_CASE("MSG_GetNewMsg gives null and leaves the record alone") {
  SetUp(1);
  const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
    CallOrv_Error tErr = {99, "old", 77};
    CMsg* pMsg = nullptr;
    CHECK_FALSE(p_cFail.Run([&] { pMsg = MSG_GetNewMsg(100, &tErr); }));
    CHECK((pMsg == nullptr) == p_cFail.HasFailed());
    CHECK(tErr.iCode == 99);
    MSG_Destroy(pMsg);
  });
  CHECK(iFailures >= 1);
}

TEST_CASE("setters give -11, MSG_SetStr -11 or -1") {
  SetUp(1);
  for (int iTag : {1, 11}) {
    CAPTURE(iTag);
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      const CMsgPtr pMsg = NewMsg(100);
      int iRet = 0;
      CHECK_FALSE(p_cFail.Run([&] { iRet = MSG_SetStr(pMsg.get(), iTag, LONG.c_str()); }));
      CAPTURE(iRet);
      CHECK((iRet == -1 || iRet == -11) == p_cFail.HasFailed());
      CHECK((iRet == 0) == !p_cFail.HasFailed());
    });
    CHECK(iFailures >= 1);
  }
  for (int iTag : {2, 12}) {
    CAPTURE(iTag);
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      const CMsgPtr pMsg = NewMsg(100);
      int iRet = 0;
      CHECK_FALSE(p_cFail.Run([&] { iRet = MSG_SetInt(pMsg.get(), iTag, 5); }));
      CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
    });
    CHECK(iFailures >= 1);
  }
}

TEST_CASE("without any memory, not even for the error's text, MSG_SetStr gives -1 and the others -11") {
  SetUp(1);
  const CMsgPtr pMsg = NewMsg(100);
  int iStr = 0, iInt = 0, iSub = 0;
  CFailAlloc cFail(1, INT_MAX);
  CHECK_FALSE(cFail.Run([&] {
    iStr = MSG_SetStr(pMsg.get(), 2, LONG.c_str());    // of another type
    iInt = MSG_SetInt(pMsg.get(), 1, 5);
    iSub = MSG_SetSub(pMsg.get(), 6, nullptr);
  }));
  CHECK(iStr == -1);
  CHECK(iInt == -11);
  CHECK(iSub == -11);
}

TEST_CASE("getters of texts need no memory but for the copy that a caller frees") {
  SetUp(1);
  const CMsgPtr pMsg = NewRequest(LONG.c_str());
  std::string sBuf(LONG.size() + 1, '#');
  int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    int iRet = 99, iLen = 99;
    CHECK_FALSE(p_cFail.Run([&] {
      iRet = MSG_GetStr(pMsg.get(), 1, &sBuf[0]);
      iLen = MSG_GetStrLen(pMsg.get(), 1);
    }));
    CHECK(iRet == 0);
    CHECK(iLen == 100);
    CHECK(sBuf == LONG + '\0');
  });
  CHECK(iFailures == 0);
  iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    int iRet = 42;
    char* szCopy = nullptr;
    CHECK_FALSE(p_cFail.Run([&] { szCopy = MSG_GetStrEx(pMsg.get(), 1, &iRet); }));
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
    CHECK((szCopy == nullptr) == p_cFail.HasFailed());
    free(szCopy);
  });
  CHECK(iFailures == 1);
}

TEST_CASE("a failure without memory for its text still has a code") {
  SetUp(1);
  const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
    const CMsgPtr pMsg = NewMsg(100);
    int iRet = 0, iOut = 42;
    CHECK_FALSE(p_cFail.Run([&] { iRet = MSG_GetBool(pMsg.get(), 4, &iOut); }));
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : -1));
    CHECK(iOut == 0);
  });
  CHECK(iFailures >= 1);
}

TEST_CASE("MSG_Dump gives -11 with the record filled, and closes its file") {
  SetUp(1);
  const CTempDir cDir;
  const std::string sPath = cDir.Path("dump");
  const CMsgPtr pMsg = NewRequest("x");
  const long iBefore = OpenDescriptors();
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CallOrv_Error tErr = {99, "old", 77};
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = MSG_Dump(pMsg.get(), sPath.c_str(), &tErr); }));
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(tErr.szText == std::string(p_cFail.HasFailed() ? "MSG_Error(-11) : Memory error {std::bad_alloc}" : "old"));
    CHECK(OpenDescriptors() == iBefore);
  });
  CHECK(iFailures >= 1);
}

TEST_CASE("a call without memory for its request or its reply fails with a code and closes its connection") {
  const long iBefore = OpenDescriptors();
  {
    CServicePeer cPeer([](const T_Request&) { return T_Answer{Packet(LONG).substr(0, 200)}; });
    SetUp(cPeer.Port());
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      const CMsgPtr pIn = NewRequest(std::string(2000, 'x').c_str()), pOut = NewMsg(0);
      CallOrv_Error tErr = {99, "old", 77};
      int iRet = 0;
      CHECK_FALSE(p_cFail.Run([&] { iRet = CallOrv_CallService(7, pIn.get(), pOut.get(), &tErr); }));
      CAPTURE(iRet);
      CAPTURE(tErr.szText);
      if (iRet == -11) {
        CHECK(p_cFail.HasFailed());
        CHECK(tErr.iCode == -11);
        CHECK(std::string(tErr.szText).rfind("MSG_Error(-11) : Memory error {", 0) == 0);
      } else {
        CHECK(iRet == -3);
        CHECK((tErr.iCode <= -3 && tErr.iCode >= -5));
      }
    });
    CHECK(iFailures >= 3);
  }
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("a call that runs out of memory anywhere fails with a code, and the next one works") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody)}; });
  SetUp(cPeer.Port());
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    const CMsgPtr pIn = NewRequest(LONG.c_str()), pOut = NewMsg(0);
    CallOrv_Error tErr = {99, "old", 77};
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = CallOrv_CallService(7, pIn.get(), pOut.get(), &tErr); }));
    CAPTURE(iRet);
    CAPTURE(tErr.szText);
    CHECK((iRet == 0 || iRet == -11 || iRet == -3));
    CHECK((iRet == 0 || p_cFail.HasFailed()));
    CHECK((iRet == 0) == (tErr.iCode == 99));
  });
  CHECK(iFailures >= 3);
}

TEST_CASE("a call that holds no thread may run out of memory anywhere") {
  const long iBefore = OpenDescriptors();
  {
    const std::string sLong(200000, 'y');    // the reply's body outgrows its first room
    CServicePeer cPeer([&](const T_Request& p_tRequest) {
      return T_Answer{Packet(Body100(sLong), p_tRequest.SvcNum() == 8)};
    });
    SetUp(cPeer.Port());
    for (const int iSvcNum : {7, 8}) {
      const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
        const CMsgPtr pIn = NewRequest(LONG.c_str()), pOut = NewMsg(0);
        CallOrv_Error tErr = {99, "old", 77};
        CallOrv_Call* pCall = nullptr;
        int iRet = 0;
        CHECK_FALSE(p_cFail.Run([&] {
          pCall = CallOrv_Start(iSvcNum, pIn.get(), 20000, &tErr);
          while (pCall != nullptr && CallOrv_Step(pCall) == 1) CallOrv_WaitAny(&pCall, 1, -1);
          if (pCall != nullptr) iRet = CallOrv_Finish(pCall, pOut.get(), &tErr);
        }));
        CAPTURE(iRet);
        CAPTURE(tErr.iCode);
        CAPTURE(tErr.szText);
        if (!p_cFail.HasFailed()) CHECK(iRet == 0);
        if (pCall == nullptr) CHECK((tErr.iCode == -11 || tErr.iCode == -2 || tErr.iCode == -4));
        CHECK((iRet == 0 || iRet == -11 || iRet == -3));
        CHECK((pCall != nullptr && iRet == 0) == (tErr.iCode == 99));
      });
      CHECK(iFailures >= 6);
    }
    // None at all once it is begun, not even for the text of what went wrong.
    const CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CallOrv_Error tErr = {99, "old", 77};
    CallOrv_Call* pCall = CallOrv_Start(7, pIn.get(), 20000, &tErr);
    REQUIRE(pCall != nullptr);
    CFailAlloc cFail(1, INT_MAX);
    int iRet = 0;
    CHECK_FALSE(cFail.Run([&] { iRet = CallOrv_Finish(pCall, pOut.get(), &tErr); }));
    CHECK(iRet == -11);
    CHECK(tErr.iCode == -11);
  }
  CHECK(OpenDescriptors() == iBefore);
}

TEST_CASE("WaitAny without memory for many calls gives -2, and they go on") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody)}; });
  SetUp(cPeer.Port());
  const CMsgPtr pIn = NewRequest("x");
  CallOrv_Error tErr = {};
  CallOrv_Call* apCalls[65];
  for (CallOrv_Call*& pCall : apCalls) pCall = CallOrv_Start(7, pIn.get(), 20000, &tErr);
  CFailAlloc cFail(1, INT_MAX);
  int iRet = 0;
  CHECK_FALSE(cFail.Run([&] { iRet = CallOrv_WaitAny(apCalls, 65, -1); }));
  CHECK(iRet == -2);
  CHECK(CallOrv_WaitAny(apCalls, 65, -1) >= 0);
  for (CallOrv_Call* pCall : apCalls) CallOrv_Cancel(pCall);
}

TEST_CASE("an initialisation that runs out of memory fails with a code, and can be repeated") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER"));
  const std::string sDic = cDir.Write("dic.xml", "<msg_dictionary/>");
  const std::string sConfig =
      cDir.Write("callorv.cfg", "msg_dic=" + sDic + "\nkey_file=" + sKey + "\nserver=127.0.0.1 1\n");
  SetUp(1);    // once with memory, so that the parser's own set-up is not what fails
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CallOrv_Error tErr = {99, "old", 77};
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = CallOrv_Initialize(sConfig.c_str(), &tErr); }));
    CAPTURE(iRet);
    CAPTURE(tErr.szText);
    CHECK((iRet == 0 || iRet == -1 || iRet == -2 || iRet == -11));
    CHECK((iRet == 0 || p_cFail.HasFailed()));
    CHECK((iRet == 0) == (tErr.iCode == 99));
  });
  CHECK(iFailures >= 3);
}

TEST_CASE("an initialisation without memory up to the dictionary loses none") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER"));
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CallOrv_Error tErr = {99, "old", 77};
    int iRet = 0;
    CHECK_FALSE(p_cFail.Run([&] { iRet = CallOrv_InitializeEx(sKey.c_str(), nullptr, "s", 1, 1, &tErr); }));
    CAPTURE(iRet);
    CAPTURE(tErr.szText);
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : -2));
  });
  CHECK(iFailures >= 1);
}
