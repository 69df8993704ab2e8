// A program of the time of version 1.0.0: compiled with the headers of then, it must go on running with every later
// 1.x. program DICTIONARY FOLDER PORT: the dictionary of the examples, a folder to write into, and a server on
// 127.0.0.1 that answers every call with its own body.
#include <callorv/callorv.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#define CHECK(c) \
  if (!(c)) return std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #c), 1

namespace {

// An object between fences: a library whose objects have grown writes over them.
template <class T>
class CFenced {
 public:
  template <class... ARGS>
  explicit CFenced(ARGS&&... p_Args) {
    std::memset(m_acRoom, 0x5A, sizeof(m_acRoom));
    m_pObject = new (m_acRoom + FENCE) T(std::forward<ARGS>(p_Args)...);
  }
  ~CFenced() {
    m_pObject->~T();
    for (int i = 0; i < FENCE; ++i) {
      if (m_acRoom[i] == 0x5A && m_acRoom[FENCE + sizeof(T) + i] == 0x5A) continue;
      std::fprintf(stderr, "a fence is broken: %s\n", __PRETTY_FUNCTION__);
      std::_Exit(1);
    }
  }
  T& operator*() { return *m_pObject; }
  T* operator->() { return m_pObject; }

 private:
  enum { FENCE = 256 };
  alignas(16) unsigned char m_acRoom[FENCE + sizeof(T) + FENCE];
  T* m_pObject;
};

// As `callorv generate` wrote it.
class CQuote : public ::CMsgBase {
 public:
  enum { MSG_NUM = 1101 };
  CStr Symbol;
  int LoadFromMsg(::CMsg* p_pMsg) override { return ::callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  ::CMsg* CreateMsg() override { return ::callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(1, p_Self.Symbol);
  }
};

class CEcho : public CTcpAdaptor {
 public:
  int SendTo(T_PacketInfo* p_pInfo, int p_iTimeOut) override { return CTcpAdaptor::SendTo(p_pInfo, p_iTimeOut + iSendTimeOut); }
  int Socket() const { return iSock; }
};

class CElements : public CDicReader {
 public:
  int iElements = 0;

 protected:
  void OnElement(int, const char* p_szName, const T_Attribute* p_atAttr, int p_iAttrs) override {
    if (std::strcmp(p_szName, "msg") == 0 && p_iAttrs >= 2 && p_atAttr[1].sName == "name") ++iElements;
  }
};

int Values() {
  CFenced<CString> cText("a text that is longer than fifteen characters");
  CHECK(cText->GetSize() == 45 && cText->EndsWith("characters"));
  *cText = "short";
  CHECK(*cText == "short" && CFormat("%s %d", cText->ToStr(), 7) == "short 7");
  CFenced<CDate> cDate("20260131");
  CHECK(cDate->IsSet() && std::strcmp(cDate->ToStr(), "20260131") == 0);
  CFenced<CStream> cStream(0, 64);
  CHECK(cStream->AppendData("bytes", 5) == 0 && cStream->GetSize() == 5);
  CFenced<CStrArray> cArray;
  cArray->Add("one");
  CHECK(cArray->GetSize() == 1 && (*cArray)[0] == "one");
  CFenced<CIntHash> cHash(16);
  int i = 0;
  CHECK(cHash->Set("key", 42, false) >= 0 && cHash->Get("key", &i) >= 0 && i == 42);
  CFenced<CStrHash> cTexts(16);
  CFenced<CPtrArray> cPointers(true);
  cPointers->Add(new CPtrArrayItem);
  CHECK(cPointers->GetSize() == 1);
  CFenced<MD5> cDigest;
  cDigest->update("abc", 3);
  cDigest->finalize();
  CHECK(std::strcmp(cDigest->hexdigest(), "900150983cd24fb0d6963f7d28e17f72") == 0);
  CFenced<CCfgReader> cConfig;
  CHECK(cConfig->Load("no such file") < 0 && cConfig->GetLastError().StartsWith("File open failed"));
  return 0;
}

int Messages(const char* p_szDictionary) {
  try {
    MA_GetMsgDic()->InitDictionary("no such file");
    CHECK(false);
  } catch (const CException& cError) {
    CFenced<CException> cCopy(cError);
    CHECK(cCopy->GetCode() == MSG_XML);
  }
  CFenced<CElements> cElements;
  cElements->Read(p_szDictionary);
  CHECK(cElements->iElements == 9 && MA_GetMsgDic()->GetMsgInfo(1202)->GetNoTags() == 4);

  CFenced<CMsg> cOrders(1201, 0, 0, MA_GetMsgDic());
  CHECK(cOrders->SetValue("Account", CString("77-1204")) == 0 && cOrders->SetValue(2, CDate("20260131")) == 0);
  for (int i = 0; i < 3; ++i) {
    CMsg* pRow = cOrders->NewSub("Orders");
    CHECK(pRow != nullptr && pRow->GetParent() == &*cOrders);
    CHECK(pRow->SetValue("Symbol", "ACME") == 0 && pRow->SetValue(2, i == 1) == 0 && pRow->SetValue(3, 100L * i) == 0);
    CHECK(pRow->SetValue(4, CDbl(0.5 + i)) == 0);
  }
  CHECK(cOrders->SetValue(99, 1) == MSG_UNDEF_TAG);
  CHECK(std::strcmp(cOrders->GetLastError(), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=1201, tagnum=99}") == 0);
  CStream stXml(0, 1024);
  CHECK(cOrders->ToXml(&stXml, false, false, 1) == 0);
  std::string sXml(stXml.GetData(), static_cast<std::size_t>(stXml.GetSize()));
  CFenced<CMsg> cRead(0, 0, 0, MA_GetMsgDic());
  CHECK(cRead->LoadXml(&sXml[0]) == 0 && cRead->GetMsgNum() == 1201 && !cRead->IsEmpty());
  CFenced<CMsgArray> cRows(false);
  CHECK(cRead->GetValue("Orders", &*cRows) == 0 && cRows->GetSize() == 3);
  CFenced<CDbl> cLimit;
  CFenced<CInt> cQuantity;
  CFenced<CBool> cBuy;
  const CMsg& cRow = *cRows->GetAt(1);
  CHECK(cRow.GetValue("Limit", &*cLimit) == 0 && cLimit->IsSet() && cLimit->Get() == 1.5);
  CHECK(cRow.GetValue(3, &*cQuantity) == 0 && cQuantity->Get() == 100 && cRow.GetValue(2, &*cBuy) == 0 && cBuy->Get());
  return 0;
}

// A key file whose user key is "USER-1".
int WriteKey(const std::string& p_sPath) {
  CStream stPlain(0, 64), stKey(0, 64);
  CString sErr;
  stPlain.AppendData("USER-1", 6);
  CHECK(CCrypt::EncryptStream(stPlain, stKey, sErr) == 0 && stKey.GetSize() == CCrypt::CIPHER_BLOCK);
  T_KeyFile tFile = {};
  for (int i = 0; i < stKey.GetSize(); ++i) {
    tFile.abIndex[i] = static_cast<unsigned char>(i + 1);
    tFile.abTable[i + 1] = static_cast<unsigned char>(stKey.GetData()[i]);
  }
  MD5 cDigest;
  cDigest.update(tFile.abTable, sizeof(tFile.abTable));
  cDigest.update(tFile.abIndex, sizeof(tFile.abIndex));
  cDigest.finalize();
  std::memcpy(tFile.abDigest, cDigest.valdigest(), MD5::DIGEST_SIZE);
  std::FILE* pFile = std::fopen(p_sPath.c_str(), "wb");
  CHECK(pFile != nullptr && std::fwrite(&tFile, sizeof(tFile), 1, pFile) == 1 && std::fclose(pFile) == 0);
  return 0;
}

int Calls(const char* p_szDictionary, const std::string& p_sKey, int p_iPort) {
  CFenced<CCallOrvError> cError;
  CHECK(CCallOrv::Initialize(p_sKey.c_str(), p_szDictionary, "127.0.0.1", p_iPort, 60, &*cError) == 0);
  CFenced<CMsg> cIn(1101, 0, 0, MA_GetMsgDic()), cOut(0, 0, 0, MA_GetMsgDic());
  CHECK(cIn->SetValue("Symbol", "ACME") == 0);
  CFenced<CCallOrv::T_Exchange> cExchange;
  CHECK(CCallOrv::CallServiceByMsg(1001, &*cIn, &*cOut, &*cError, &*cExchange) == 0);
  CHECK(cExchange->sSendHeader.GetSize() == CTcpAdaptor::HEADER_SIZE + CTcpAdaptor::TRAILER_SIZE);
  CFenced<CString> cSymbol;
  CHECK(cOut->GetValue("Symbol", &*cSymbol) == 0 && *cSymbol == "ACME");

  CFenced<CQuote> cQuote, cReply;
  cQuote->Symbol.Set("TYPED");
  CHECK(CCallOrv::CallService(1001, &*cQuote, &*cReply, &*cError) == 0 && cReply->Symbol.Get() == "TYPED");

  CFenced<CPendingCall> cCall(CCallOrv::Start(1001, &*cIn, 60000, &*cError));
  CHECK(*cCall && CPendingCall::WaitAny(&*cCall, 1, 60000) == 0);
  cOut->Clear();
  CHECK(cCall->Finish(&*cOut, &*cError) == 0 && cOut->GetValue(1, &*cSymbol) == 0 && *cSymbol == "ACME");

  CHECK(CCallOrv::CallServiceByMsg(1001, nullptr, &*cOut, &*cError) < 0);
  CHECK(cError->iCode == MSG_NULL && cError->iRefSvcNum == 1001 && cError->GetRefSvcNum() == 1001);

  // Virtual functions of our own class and of one whose table is the library's.
  CFenced<CEcho> cEcho;
  CFenced<CTcpAdaptor> cPlain;
  CFenced<CAdaptor::T_PacketInfo> cPacket, cBack;
  cPacket->iSvcNum = 7;
  cPacket->iMsgNum = 8;
  cPacket->sUserKey = "USER-1";
  CHECK(cPacket->stBody.AppendData("body", 4) == 0);
  CAdaptor* volatile apAdaptor[] = {&*cEcho, &*cPlain};
  for (CAdaptor* pAdaptor : apAdaptor) {
    CHECK(pAdaptor->Connect("127.0.0.1", p_iPort) >= 0);
    CHECK(pAdaptor->SendTo(&*cPacket, 1) == 0 && pAdaptor->ReceiveFrom(&*cBack, 60) == 0);
    CHECK(cBack->iSvcNum == 7 && cBack->iMsgNum == 8 && std::strncmp(cBack->stBody.GetData(), "body", 4) == 0);
    CHECK((pAdaptor != &*cEcho || cEcho->Socket() >= 0) && pAdaptor->Disconnect() == 0);
  }
  return 0;
}

}    // namespace

int main(int argc, char** argv) {
  CHECK(argc == 4);
  const std::string sKey = std::string(argv[2]) + "/user.key";
  if (Values() != 0 || WriteKey(sKey) != 0 || Calls(argv[1], sKey, std::atoi(argv[3])) != 0 || Messages(argv[1]) != 0) return 1;
  return std::printf("headers of %s: all as it was\n", CALLORV_VERSION) < 0;
}
