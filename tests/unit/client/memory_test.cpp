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
