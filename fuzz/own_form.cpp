// A text that ToXml wrote, with one piece changed: LoadXml, which has a short way for such texts, ends as the parser
// alone does.
#include <iterator>

#include "model.h"
#include "support.h"
#include "tests/support/both_ways.h"

namespace {

// What the model's messages do not have: names that XML does not allow, numbers and names defined twice, and types that
// are none.
CMsgDic& Dictionary() {
  static CMsgDic& s_cDic = [] () -> CMsgDic& {
    GetMsgDef(0);
    CMsgDic& cDic = *MA_GetMsgDic();
    cDic.SetMsgInfo(200, "Odd", "", "4");
    CMsgInfo& cOdd = *cDic.GetMsgInfo(200);
    int iTag = 0;
    for (const char* szName : {"a", "1st", "a b", "a:b", "a&b", "a<b", "xml", "xmlns", "-", "\xe9", "msg", "t1", "a"}) {
      cOdd.SetTagInfo(iTag++, szName, TAG_STRING, 0, true);
    }
    cOdd.SetTagInfo(1, "again", TAG_INTEGER, 0, false);
    cOdd.SetTagInfo(20, "rows", TAG_SUBMSG, 200, true);
    cOdd.SetTagInfo(21, "none", TAG_SUBMSG, 0, false);
    cOdd.SetTagInfo(22, "nones", TAG_SUBMSG, 0, true);
    cOdd.SetTagInfo(23, "typeless", TAG_UNKNOWN, 0, false);
    cOdd.SetTagInfo(-5, "negative", TAG_STRING, 0, false);
    cOdd.SetTagInfo(999999999, "most", TAG_DOUBLE, 0, true);
    cOdd.SetTagInfo(2147483647, "beyond", TAG_BOOL, 0, true);
    return cDic;
  }();
  return s_cDic;
}

// Message 200: elements of any of its tags, by number or by name.
std::string OddText(CInput& p_cInput, bool p_bByName) {
  const CMsgInfo& cInfo = *Dictionary().GetMsgInfo(200);
  std::string sXml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"200\"";
  sXml += p_bByName ? " type=\"name\" ver=\"\">" : " ver=\"\">";
  for (int iLeft = p_cInput.Byte() % 4; iLeft > 0; --iLeft) {
    const int iTag = cInfo.GetTagNumAt(p_cInput.Byte() % cInfo.GetNoTags());
    const std::string sName = p_bByName ? std::string(cInfo.GetTagName(iTag)) : "t" + std::to_string(iTag);
    const std::string sText = p_cInput.Bytes(p_cInput.Byte() % 24);
    sXml += "<" + sName + ">" + (iLeft % 2 == 0 ? "<![CDATA[" + sText + "]]>" : sText) + "</" + sName + ">";
  }
  return sXml + "</msg>";
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static const int s_aiMsg[] = {100, 101, 102, 103, 104, 10};
  CMsgDic& cDic = Dictionary();
  CInput cInput(p_pData, p_uSize);
  // the change first: where, how much goes, what comes
  const unsigned uForm = cInput.Byte(), uAt = cInput.Number<uint16_t>(), uErased = cInput.Byte() % 8;
  const std::string sPiece = cInput.Bytes(cInput.Byte() % 32);
  std::string sXml;
  if (uForm % 8 == 0) {
    sXml = OddText(cInput, (uForm & 8) != 0);
  } else {
    const CMsgPtr pMsg(MA_NewMsg(s_aiMsg[cInput.Byte() % std::size(s_aiMsg)]));
    pMsg->SetVer(cInput.Bytes(cInput.Byte() % 20).c_str());
    FillMsg(cInput, pMsg.get());
    sXml = ToXml(*pMsg, (uForm & 8) != 0, (uForm & 16) != 0);
  }
  if ((uForm & 32) != 0) {
    const size_t uPlace = uAt % (sXml.size() + 1);
    sXml.replace(uPlace, uErased, sPiece);
  }
  CMsg cLoaded(0, 0, 0, &cDic), cParsed(0, 0, 0, &cDic);
  if ((uForm & 64) != 0) {    // they have values already
    for (CMsg* pMsg : {&cLoaded, &cParsed}) {
      pMsg->Init(101, 0, 0);
      pMsg->SetValue(1, "old");
    }
  }
  const T_BothWays tWays = ReadBothWays(cLoaded, cParsed, cDic, sXml);
  ExpectSame(tWays.sLoaded, tWays.sParsed, "outcome");
  return 0;
}
