// Messages of any content: what is written is what was set, and reads back to an equal message that writes the same.
#include <iterator>

#include "callorv/callorv.h"
#include "model.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static const int s_aiMsg[] = {100, 101, 102, 103, 104, 10};
  GetMsgDef(0);
  CInput cInput(p_pData, p_uSize);
  const unsigned uForm = cInput.Byte();
  const CMsgPtr pMsg(MA_NewMsg(s_aiMsg[cInput.Byte() % std::size(s_aiMsg)]));
  const std::string sVer = cInput.Bytes(cInput.Byte() % 20).c_str();
  const auto pModel = FillMsg(cInput, pMsg.get());
  pMsg->SetVer(sVer.c_str());
  pModel->sVer = sVer.substr(0, 16);
  ExpectRoundTrip(pMsg.get(), *pModel, uForm);
  return 0;
}
