// Messages of any content: what is written is what was set, and reads back to an equal message that writes the same.
#include <iterator>

#include "callorv/callorv.h"
#include "model.h"
#include "support.h"

namespace {

enum { MAX_NESTING = 40 };

std::unique_ptr<T_ModelMsg> Fill(CInput& p_cInput, CMsg* p_pMsg, int p_iNesting) {
  auto pModel = std::make_unique<T_ModelMsg>();
  pModel->pDef = GetMsgDef(MSG_GetSelfNum(p_pMsg));
  for (int iLeft = p_cInput.Byte() % 16; iLeft > 0 && !p_cInput.IsEmpty(); --iLeft) {
    const T_TagDef& tTag = pModel->pDef->atTag[p_cInput.Byte() % pModel->pDef->atTag.size()];
    if (tTag.eType != TAG_SUBMSG) {
      const T_Value tValue = TakeValue(p_cInput, tTag.eType);
      ExpectSame(SetValue(p_pMsg, tTag.iTag, tTag.eType, tValue), 0, "setter");
      const bool bText = tTag.eType == TAG_STRING || tTag.eType == TAG_DATE;
      if (!bText || !tValue.s.empty()) pModel->Add(tTag.iTag, tValue);
    } else if (GetMsgDef(tTag.iSub) != nullptr && p_iNesting < MAX_NESTING) {
      CMsgPtr pSub(MA_NewMsg(tTag.iSub));
      auto pSubModel = Fill(p_cInput, pSub.get(), p_iNesting + 1);
      CMsg* pReplaced = tTag.bArray ? nullptr : MSG_GetSub(p_pMsg, tTag.iTag, nullptr);
      ExpectSame(MSG_SetSub(p_pMsg, tTag.iTag, pSub.release()), 0, "MSG_SetSub");
      if (pSubModel->bEmpty) continue;
      MSG_Destroy(pReplaced);
      pModel->AddSub(tTag.iTag, std::move(pSubModel));
    }
  }
  return pModel;
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static const int s_aiMsg[] = {100, 101, 102, 103, 104, 10};
  GetMsgDef(0);
  CInput cInput(p_pData, p_uSize);
  const unsigned uForm = cInput.Byte();
  const CMsgPtr pMsg(MA_NewMsg(s_aiMsg[cInput.Byte() % std::size(s_aiMsg)]));
  const std::string sVer = cInput.Bytes(cInput.Byte() % 20).c_str();
  const auto pModel = Fill(cInput, pMsg.get(), 0);
  pMsg->SetVer(sVer.c_str());
  pModel->sVer = sVer.substr(0, 16);
  ExpectRoundTrip(pMsg.get(), *pModel, uForm);
  return 0;
}
