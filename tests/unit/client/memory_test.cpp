// Calls without memory.
#include <callorv/client/callorv_client.h>
#include <doctest/doctest.h>

#include "support/fail_alloc.h"
#include "support/set_up.h"

namespace {

// Hands out a message that was made before memory ran out.
class CPrepared : public CMsgBase {
 public:
  CMsgPtr pMsg;

  int LoadFromMsg(CMsg*) override { return 0; }
  CMsg* CreateMsg() override { return pMsg.release(); }
};

}    // namespace

TEST_CASE("a typed call without memory for the reply message") {
  SetUp(1);
  CPrepared cIn, cOut;
  cIn.pMsg = NewRequest("x");
  CCallOrvError cErr;
  CFailAlloc cFail(1);
  int iRet = 0;
  CHECK_FALSE(cFail.Run([&] { iRet = CCallOrv::CallService(7, &cIn, &cOut, &cErr); }));
  CHECK(cFail.HasFailed());
  CHECK(iRet == -3);
  CHECK(cErr.GetCode() == -11);
  CHECK(cErr.GetText() == "Out of memory");
  CHECK(cErr.GetRefSvcNum() == 7);
}

TEST_CASE("a set-up without memory for the key throws std::bad_alloc, and the next one works") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("USER")), sDic = cDir.Write("empty.xml", "<msg_dictionary/>");
  SetUp(1);    // once with memory, so that the parser's own set-up is not what fails
  int iThrown = 0;
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CCallOrvError cErr;
    const auto fnSetUp = [&] { return CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "s", 1, 90, &cErr); };
    int iRet = 0;
    const bool bThrew = p_cFail.Run([&] { iRet = fnSetUp(); });
    CHECK((iRet == 0 || iRet == -2));
    CHECK((iRet == 0 || cErr.GetText().EndsWith("out of memory)")));
    iThrown += bThrew;
    CHECK(fnSetUp() == 0);
  });
  CHECK(iThrown >= 1);
  CHECK(iThrown < iFailures);
}
