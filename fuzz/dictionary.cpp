// The dictionary loader: any file either is refused as stated, or gives definitions that messages can be made of, and
// the same when it is encrypted.
#include <memory>

#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "callorv/crypt/crypt.h"
#include "callorv/dict/dic_reader.h"
#include "callorv/dict/msg_dic.h"
#include "callorv/msg/msg.h"
#include "support.h"

namespace {

struct T_Loaded {
  int iCode = 0;
  std::string sText;    // of the failure
};

// Counts the messages in a file.
class CCounter : public CDicReader {
 public:
  int iMessages = 0;

 protected:
  void OnElement(int p_iDepth, const char*, const T_Attribute*, int) override { iMessages += p_iDepth == 2 ? 1 : 0; }
};

bool IsStated(int p_iCode) {
  return p_iCode == -14 || p_iCode == -15 || p_iCode == -16 || p_iCode == -17 || p_iCode == -19 || p_iCode == -21 ||
         p_iCode == -22 || p_iCode == -36;
}

T_Loaded Load(CMsgDic& p_cDic, const char* p_szPath) {
  T_Loaded tLoaded;
  try {
    p_cDic.InitDictionary(p_szPath);
  } catch (const CException& cError) {
    tLoaded.iCode = cError.GetCode();
    tLoaded.sText = cError.GetText();
    Expect(IsStated(tLoaded.iCode), "code of InitDictionary");
    Expect(tLoaded.sText.rfind("InitDictionary(", 0) == 0 && tLoaded.sText.back() == ')', "text of InitDictionary");
  }
  return tLoaded;
}

std::string Dump(const CMsgDic& p_cDic) {
  CStream stDump(0, 512);
  p_cDic.Dump(&stDump);
  return std::string(stDump.GetData(), static_cast<size_t>(stDump.GetSize()));
}

// Gives every tag a value, where that can be had, and writes the message.
void UseMessage(CMsgDic& p_cDic, const CMsgInfo& p_cInfo) {
  CMsg cMsg(p_cInfo.GetMsgNum(), 0, 0, &p_cDic);
  for (int i = 0; i < p_cInfo.GetNoTags(); ++i) {
    const int iTag = p_cInfo.GetTagNumAt(i);
    const CTagInfo* pTag = p_cInfo.GetTagInfo(iTag);
    Expect(pTag != nullptr && pTag->m_iTagNum == iTag && iTag >= 0, "tag in order");
    Expect(p_cInfo.GetTagNumByName(pTag->m_sName.ToStr()) >= 0, "tag by name");
    int iRet = 0;
    switch (pTag->m_eType) {
      case TAG_STRING: iRet = cMsg.SetValue(iTag, "text"); break;
      case TAG_INTEGER: iRet = cMsg.SetValue(iTag, 7); break;
      case TAG_DOUBLE: iRet = cMsg.SetValue(iTag, 2.5); break;
      case TAG_BOOL: iRet = cMsg.SetValue(iTag, true); break;
      case TAG_DATE: iRet = cMsg.SetValue(iTag, CDate("20260102")); break;
      default:
        Expect(pTag->m_eType == TAG_SUBMSG && pTag->m_iSubMsg > 0 && pTag->m_iSubMsg < CMsgDic::SLOTS, "type of a tag");
        if (p_cDic.GetMsgInfo(pTag->m_iSubMsg) != nullptr) Expect(cMsg.MakeSubMsgEntry(iTag) != nullptr, "sub-message");
    }
    ExpectSame(iRet, 0, "SetValue");
  }
  CStream stXml(0, 512);
  cMsg.ToXml(&stXml, false, true, 1);
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static CInputFile s_cPlain(".xml"), s_cEncrypted(".exml");
  // One dictionary that stays, so that the parser is not taken down and up again in every run.
  static const auto s_pFirst = [] {
    auto pFirst = std::make_unique<CMsgDic>();
    s_cPlain.Write("<msg_dictionary/>");
    pFirst->InitDictionary(s_cPlain.Path());
    return pFirst;
  }();
  const std::string sXml(reinterpret_cast<const char*>(p_pData), p_uSize);
  s_cPlain.Write(sXml);
  const auto pDic = std::make_unique<CMsgDic>();
  const T_Loaded tPlain = Load(*pDic, s_cPlain.Path());

  int iMessages = 0;
  for (int i = 0; i < CMsgDic::SLOTS; ++i) {
    const CMsgInfo* pInfo = pDic->GetMsgInfo(i);
    if (pInfo == nullptr) continue;
    ++iMessages;
    ExpectSame(pInfo->GetMsgNum(), i, "number of a message");
    UseMessage(*pDic, *pInfo);
  }
  if (tPlain.iCode != 0) return 0;

  CCounter cCounter;
  cCounter.Read(s_cPlain.Path());
  ExpectSame(cCounter.iMessages, iMessages, "messages in the file");
  CStream stPlain(0, 512), stEncrypted(0, 512);
  CString sErr;
  stPlain.AppendData(sXml.data(), static_cast<int>(sXml.size()));
  ExpectSame(CCrypt::EncryptStream(stPlain, stEncrypted, sErr), 0, "EncryptStream");
  s_cEncrypted.Write({stEncrypted.GetData(), static_cast<size_t>(stEncrypted.GetSize())});
  const auto pOther = std::make_unique<CMsgDic>();
  const T_Loaded tEncrypted = Load(*pOther, s_cEncrypted.Path());
  ExpectSame(tEncrypted.sText, "", "the encrypted file");
  ExpectSame(Dump(*pOther), Dump(*pDic), "what is in the encrypted file");
  // Everything in it is taken by now.
  if (iMessages > 0) ExpectSame(Load(*pOther, s_cEncrypted.Path()).iCode, -22, "loading it twice");
  return 0;
}
