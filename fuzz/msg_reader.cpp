// The message reader: any document either is refused as stated, or gives a message that is written and read again.
#include "callorv/callorv.h"
#include "model.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  GetMsgDef(0);
  const std::string sXml(reinterpret_cast<const char*>(p_pData), p_uSize);
  const CMsgPtr pMsg(MA_NewMsg(0));
  const int iCode = LoadXml(pMsg.get(), sXml);
  if (iCode == 0) {
    ExpectRoundTrip(pMsg.get(), *ReadModel(pMsg.get()), static_cast<unsigned>(p_uSize));
    return 0;
  }
  // What was stored before the failure can be read, and the message can be filled again.
  if (pMsg->GetMsgNum() != 0) {
    ExpectSame(ToXml(*pMsg), WriteXml(*ReadModel(pMsg.get()), false, false), "after a failure");
  }
  ExpectSame(LoadXml(pMsg.get(), "<msg no='101'><t2>7</t2></msg>"), 0, "LoadXml after a failure");
  int iValue = 0;
  ExpectSame(MSG_GetInt(pMsg.get(), 2, &iValue), 0, "MSG_GetInt after a failure");
  ExpectSame(iValue, 7, "value after a failure");
  return 0;
}
