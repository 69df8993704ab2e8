// Whole calls from C++.
#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>
#include <poll.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "support/client_files.h"
#include "support/long_text.h"
#include "support/service_peer.h"
#include "support/set_up.h"
#include "support/temp_file.h"

namespace {

T_Answer Echo(const T_Request& p_tRequest) { return {Packet(p_tRequest.sBody)}; }

// Answers every request with one body.
CServicePeer::Handler Reply(const std::string& p_sBody) {
  return [p_sBody](const T_Request&) { return T_Answer{Packet(p_sBody)}; };
}

// An error that holds something old.
CCallOrvError OldError() {
  CCallOrvError cErr;
  cErr.SetError(99, "old", 77);
  return cErr;
}

void CheckError(const CCallOrvError& p_cErr, int p_iCode, const std::string& p_sText, int p_iRefSvcNum) {
  CHECK(p_cErr.GetCode() == p_iCode);
  CHECK(p_cErr.GetText().ToStr() == p_sText);
  CHECK(p_cErr.GetRefSvcNum() == p_iRefSvcNum);
}

}    // namespace

TEST_CASE("a call carries every kind of value to the server and back") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
  REQUIRE(pIn->SetValue(1, "text") == 0);
  REQUIRE(pIn->SetValue(2, -7) == 0);
  REQUIRE(pIn->SetValue(3, 2.5) == 0);
  REQUIRE(pIn->SetValue(4, true) == 0);
  REQUIRE(pIn->SetValue(5, CDate("20240628")) == 0);
  for (const char* szText : {"one", "two"}) REQUIRE(pIn->SetValue(11, szText) == 0);
  for (int iNumber : {10, 20, 30}) REQUIRE(pIn->SetValue(12, iNumber) == 0);
  REQUIRE(pIn->SetValue(13, -0.125) == 0);
  for (bool bFlag : {false, true}) REQUIRE(pIn->SetValue(14, bFlag) == 0);
  REQUIRE(pIn->SetValue(15, CDate("20240101")) == 0);
  for (const char* szText : {"first", "second"}) {
    CMsgPtr pRow = NewMsg(101);
    REQUIRE(pRow->SetValue(1, szText) == 0);
    REQUIRE(pIn->SetValue(16, pRow.get()) == 0);
    pRow.release();
  }
  CMsgPtr pRow = NewMsg(101);
  REQUIRE(pRow->SetValue(2, 5) == 0);
  REQUIRE(pIn->SetValue(6, pRow.get()) == 0);
  pRow.release();

  CCallOrvError cErr = OldError();
  REQUIRE(CCallOrv::CallServiceByMsg(1234, pIn.get(), pOut.get(), &cErr) == 0);
  CheckError(cErr, 0, "", 0);

  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.sBody ==
        R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="100" ver="">)"
        "<t1><![CDATA[text]]></t1><t2>-7</t2><t3>2.500000000000000e+00</t3><t4>true</t4><t5>20240628</t5>"
        "<t6><t2>5</t2></t6><t11><![CDATA[one]]></t11><t11><![CDATA[two]]></t11><t12>10</t12><t12>20</t12><t12>30</t12>"
        "<t13>-1.250000000000000e-01</t13><t14>false</t14><t14>true</t14><t15>20240101</t15>"
        "<t16><t1><![CDATA[first]]></t1></t16><t16><t1><![CDATA[second]]></t1></t16></msg>");

  CHECK(pOut->GetMsgNum() == 100);
  CString sText;
  CHECK(pOut->GetValue(1, &sText) == 0);
  CHECK(sText == "text");
  int iValue = 0;
  CHECK(pOut->GetValue(2, &iValue) == 0);
  CHECK(iValue == -7);
  double dValue = 0;
  CHECK(pOut->GetValue(3, &dValue) == 0);
  CHECK(dValue == 2.5);
  bool bValue = false;
  CHECK(pOut->GetValue(4, &bValue) == 0);
  CHECK(bValue);
  CDate cDate;
  CHECK(pOut->GetValue(5, &cDate) == 0);
  CHECK(std::string(cDate.ToStr()) == "20240628");
  CStrArray cTexts;
  CHECK(pOut->GetValue(11, &cTexts) == 0);
  REQUIRE(cTexts.GetSize() == 2);
  CHECK(cTexts[1] == "two");
  CIntArray cNumbers;
  CHECK(pOut->GetValue(12, &cNumbers) == 0);
  REQUIRE(cNumbers.GetSize() == 3);
  CHECK(cNumbers[2] == 30);
  CHECK(pOut->GetValueAt(13, 0, &dValue) == 0);
  CHECK(dValue == -0.125);
  CHECK(pOut->GetValueAt(14, 1, &bValue) == 0);
  CHECK(bValue);
  CHECK(pOut->GetValueAt(15, 0, &cDate) == 0);
  CHECK(std::string(cDate.ToStr()) == "20240101");
  CMsg* pSub = nullptr;
  CHECK(pOut->GetArrSize(16) == 2);
  REQUIRE(pOut->GetValueAt(16, 1, &pSub) == 0);
  CHECK(pSub->GetValue(1, &sText) == 0);
  CHECK(sText == "second");
  REQUIRE(pOut->GetValue(6, &pSub) == 0);
  CHECK(pSub->GetValue(2, &iValue) == 0);
  CHECK(iValue == 5);
}

TEST_CASE("the header of a request") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CString sErr;
  REQUIRE(CCallOrv::CallServiceCore(7, pIn.get(), pOut.get(), 2147483647, sErr) == 0);
  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.bIntact);
  CHECK(tRequest.Field(0, 12) == "QMX-SSP-V1.0");
  CHECK(tRequest.Field(12, 10) == "0000000221");    // 128 + 93
  CHECK(tRequest.Field(22, 4) == "0007");
  CHECK(tRequest.Field(26, 4) == "0100");
  CHECK(tRequest.Field(30, 10) == "2147483647");
  CHECK(tRequest.Field(40, 2) == "20");    // the local time, YYYYMMDD-HHMMSS
  CHECK(tRequest.Field(40, 15).find_first_not_of("0123456789") == 8);
  CHECK(tRequest.Field(48, 1) == "-");
  CHECK(tRequest.Field(55, 20) == "TEST-USER-1         ");
  CHECK(tRequest.Field(75, 13) == "             ");
  CHECK(tRequest.Field(88, 1) == "N");
  CHECK(tRequest.Field(89, 10) == "0000000093");
  CHECK(tRequest.Field(99, 8) == "        ");
  CHECK(tRequest.Field(107, 21) == "                     ");
}

TEST_CASE("an ordinary call sends 0 as its extra number") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(cPeer.LastRequest().Field(30, 10) == "0000000000");
}

TEST_CASE("a body above 1024 bytes is compressed, one of 1024 is not") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  struct T_Row {
    size_t iBody;
    bool bCompressed;
  };
  for (const T_Row& tRow : {T_Row{1023, false}, T_Row{1024, false}, T_Row{1025, true}, T_Row{100000, true}}) {
    CAPTURE(tRow.iBody);
    const std::string sText(tRow.iBody - Body100("").size(), 'x');
    CMsgPtr pIn = NewRequest(sText.c_str()), pOut = NewMsg(0);
    CCallOrvError cErr;
    REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
    const T_Request tRequest = cPeer.LastRequest();
    CHECK(tRequest.bIntact);
    CHECK(tRequest.sBody.size() == tRow.iBody);
    CHECK(tRequest.sBody == Body100(sText));
    CHECK(tRequest.Compressed() == tRow.bCompressed);
    CHECK((tRequest.sSent == tRequest.sBody) == !tRow.bCompressed);
    CString sBack;
    CHECK(pOut->GetValue(1, &sBack) == 0);
    CHECK(sBack == sText.c_str());
  }
}

TEST_CASE("a request arrives as it was written, whatever its length") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  for (int iLen = 1; iLen <= 1100; ++iLen) {    // across every step in which room grows, and into compression
    CAPTURE(iLen);
    CMsgPtr pIn = NewMsg(100), pOut = NewMsg(0);
    REQUIRE(pIn->SetValue(1, std::string(static_cast<size_t>(iLen), 'x').c_str()) == 0);
    CStream stXml(0, 512);
    REQUIRE(pIn->ToXml(&stXml, false, false, 1) == 0);
    CCallOrvError cErr;
    CCallOrv::T_Exchange tExchange;
    REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr, &tExchange) == 0);
    const T_Request tRequest = cPeer.LastRequest();
    CHECK(tRequest.bIntact);
    CHECK(tRequest.sBody == stXml.GetData());
    CHECK(tExchange.sSendHeader.ToStr() == tRequest.sHeader + tRequest.sTrailer);
    CHECK(std::string(tExchange.stSent.GetData()) == tRequest.sBody);
  }
}

TEST_CASE("message 1 is compressed whatever its length") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewMsg(1), pOut = NewMsg(0);
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.bIntact);
  CHECK(tRequest.Compressed());
  CHECK(tRequest.sBody == R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="1" ver=""></msg>)");
}

TEST_CASE("the number in the header is the root's, also for a sub-message") {
  CServicePeer cPeer(Reply(Body100("x")));
  SetUp(cPeer.Port());
  CMsg cRow(101, 1, 6, MA_GetMsgDic());
  REQUIRE(cRow.SetValue(2, 5) == 0);
  CMsgPtr pOut = NewMsg(0);
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, &cRow, pOut.get(), &cErr) == 0);
  const T_Request tRequest = cPeer.LastRequest();
  CHECK(tRequest.MsgNum() == 1);
  CHECK(tRequest.Compressed());
  CHECK(tRequest.sBody == R"(<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="101" ver=""><t2>5</t2></msg>)");
}

TEST_CASE("a compressed reply is read like a plain one") {
  const std::string sText(200000, 'z');
  CServicePeer cPeer([&](const T_Request&) { return T_Answer{Packet(Body100(sText), true)}; });
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CString sBack;
  CHECK(pOut->GetValue(1, &sBack) == 0);
  CHECK(sBack == sText.c_str());
}

TEST_CASE("a reply replaces what its message held, and its message number") {
  CServicePeer cPeer(Reply(R"(<msg no="101" ver="2"><t2>5</t2></msg>)"));
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewRequest("old");
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(pOut->GetMsgNum() == 101);
  CHECK(pOut->GetVer() == std::string("2"));
  int iValue = 0;
  CHECK(pOut->GetValue(2, &iValue) == 0);
  CHECK(iValue == 5);
  CString sText;
  CHECK(pOut->GetValue(1, &sText) == -1);
}

TEST_CASE("one message may be request and reply") {
  CServicePeer cPeer(Reply(Body100("reply")));
  SetUp(cPeer.Port());
  CMsgPtr pBoth = NewRequest("request");
  CCallOrvError cErr;
  REQUIRE(CCallOrv::CallServiceByMsg(7, pBoth.get(), pBoth.get(), &cErr) == 0);
  CHECK(cPeer.LastRequest().sBody == Body100("request"));
  CString sText;
  CHECK(pBoth->GetValue(1, &sText) == 0);
  CHECK(sText == "reply");
}

TEST_CASE("every failure of the exchange has its code and text") {
  std::string sBadChecksum = Packet(Body100("x"));
  const std::string sGood = sBadChecksum.substr(sBadChecksum.size() - 3);
  sBadChecksum.replace(sBadChecksum.size() - 3, 3, sGood == "007" ? "008" : "007");
  const std::string sChecksumText = "Checksum is incorrect(-13)((M:" + std::to_string(std::stoi(sGood)) + ",C:7))";
  std::string sForeign = Packet(Body100("x"));
  sForeign.replace(0, 12, "XYZ-SSP-V2.0");
  struct T_Row {
    std::string sReply;
    int iCode;
    std::string sText;
  };
  const std::vector<T_Row> cRows = {
      {"", -5, "Socket closed(-9)(OK)"},
      {Packet(Body100("x")).substr(0, 100), -5, "Socket closed(-9)(OK)"},
      {Packet(Body100("x")).substr(0, 150), -5, "Socket closed(-9)(OK)"},
      {sForeign, -5, "Header format is incorrect(-15)(Unknown BeginString[XYZ-SSP-V2.0])"},
      {sBadChecksum, -5, sChecksumText},
      {Packet(""), -7, "-21, XML parsing failed(Handler error : [F]MemData (L:1, C:1) invalid document structure)"},
      {Packet("hello"), -7,
       "-21, XML parsing failed(Handler error : [F]MemData (L:1, C:1) invalid document structure)"},
      {Packet(R"(<reply no="100"/>)"), -7, "-21, XML parsing failed(Handler error : Unknown root element(reply))"},
      {Packet(R"(<msg no="4711"/>)"), -7, "-21, XML parsing failed(Handler error : Unknown msgno(4711))"},
      {Packet(R"(<msg no="100">stray</msg>)"), -7,
       "-18, Not defined tag in dictionary(Handler error : tagnum=0)"}};
  for (const T_Row& tRow : cRows) {
    CAPTURE(tRow.sText);
    CServicePeer cPeer([&](const T_Request&) { return T_Answer{tRow.sReply}; });
    SetUp(cPeer.Port());
    CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -3);
    CheckError(cErr, tRow.iCode, tRow.sText, -1);
    CString sErr;
    CHECK(CCallOrv::CallServiceCore(7, pIn.get(), pOut.get(), 0, sErr) == tRow.iCode);
    CHECK(sErr.ToStr() == tRow.sText);
    CHECK(cPeer.Requests().size() == 2);    // nothing is tried again
  }
}

TEST_CASE("a server that is not there") {
  CDeafPort cNobody;
  SetUp(cNobody.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -3);
  CheckError(cErr, -3, "Failed in connect()(-5)((connect))", -1);
}

TEST_CASE("a service number of five digits cannot be sent") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  CHECK(CCallOrv::CallServiceByMsg(10000, pIn.get(), pOut.get(), &cErr) == -3);
  CHECK(cErr.GetCode() == -4);
  CHECK(cErr.GetText().StartsWith("Header format is incorrect(-15)((SendTo) size mismatch(128, 129)[QMX-SSP-V1.0"));
  CHECK(cErr.GetRefSvcNum() == -1);
}

TEST_CASE("a server that never answers") {
  CServicePeer cPeer([](const T_Request&) { return T_Answer{"", true}; });
  SetUp(cPeer.Port(), 1);
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CCallOrvError cErr;
  const auto cStart = std::chrono::steady_clock::now();
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -3);
  const std::chrono::duration<double> cTaken = std::chrono::steady_clock::now() - cStart;
  CheckError(cErr, -5, "Socket timeout(-8)((recv to=0))", -1);
  CHECK(cTaken.count() >= 0.99);
  CHECK(cTaken.count() < 30);    // on a busy machine; the transport's own time-outs are longer
}

TEST_CASE("a request may take longer to send than the reply may take to come") {
  CPeer cPeer([](int p_iSock) {
    pollfd tEnd = {p_iSock, POLLRDHUP, 0};
    if (poll(&tEnd, 1, 6000) > 0) return;
    const std::string sHeader = ReadBytes(p_iSock, 128);
    ReadBytes(p_iSock, std::stoul(sHeader.substr(12, 10)) - 128 + 3);
    WriteAll(p_iSock, Packet(Body100("taken")));
  });
  SetUp(cPeer.Port(), 4);
  CMsgPtr pIn = NewRequest(TextBeyondBuffers().c_str()), pOut = NewMsg(0);
  CCallOrvError cErr;
  const auto cStart = std::chrono::steady_clock::now();
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(std::chrono::steady_clock::now() - cStart >= std::chrono::milliseconds(5900));
}

TEST_CASE("a server that stalls inside its reply") {
  struct T_Row {
    size_t iCut;    // bytes that do not come
    const char* szText;
  };
  for (const T_Row& tRow : {T_Row{20, "Packet is corrupted(-17)(uncompleted packet timeout(body))"},
                            T_Row{3, "Packet is corrupted(-17)(uncompleted packet timeout(checksum))"}}) {
    CAPTURE(tRow.szText);
    const std::string sReply = Packet(Body100("x"));
    CServicePeer cPeer([&](const T_Request&) { return T_Answer{sReply.substr(0, sReply.size() - tRow.iCut), true}; });
    SetUp(cPeer.Port(), 3);    // what is there comes long before
    CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CCallOrvError cErr;
    CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -3);
    CheckError(cErr, -5, tRow.szText, -1);
  }
}

TEST_CASE("null messages") {
  SetUp(1);
  CMsgPtr pMsg = NewRequest("x");
  char szBoth[200], szIn[200], szOut[200];
  snprintf(szBoth, sizeof(szBoth), "Parameter is NULL((nil), (nil))");
  snprintf(szIn, sizeof(szIn), "Parameter is NULL((nil), %p)", static_cast<void*>(pMsg.get()));
  snprintf(szOut, sizeof(szOut), "Parameter is NULL(%p, (nil))", static_cast<void*>(pMsg.get()));
  struct T_Row {
    CMsg* pIn;
    CMsg* pOut;
    const char* szCoreText;
  };
  for (const T_Row& tRow : {T_Row{nullptr, nullptr, szBoth}, T_Row{nullptr, pMsg.get(), szIn},
                            T_Row{pMsg.get(), nullptr, szOut}}) {
    CString sErr;
    CHECK(CCallOrv::CallServiceCore(7, tRow.pIn, tRow.pOut, 0, sErr) == -1);
    CHECK(sErr.ToStr() == std::string(tRow.szCoreText));
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::CallServiceByMsg(7, tRow.pIn, tRow.pOut, &cErr) == -2);
    CheckError(cErr, -12, "Parameter is NULL", 7);
    CHECK(CCallOrv::CallServiceByMsg(7, tRow.pIn, tRow.pOut, nullptr) == -2);
  }
}

TEST_CASE("a null error stops a call before anything is sent") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), nullptr) == -12);
  CHECK(CCallOrv::CallService(7, nullptr, nullptr, nullptr) == -12);
  CHECK(cPeer.Requests().empty());
}

TEST_CASE("a rejection is the error of its call") {
  struct T_Row {
    const char* szTags;
    int iCode;
    const char* szText;
    int iRefSvcNum;
    const char* szRepr;
  };
  const T_Row atRow[] = {
      {"<t6>4017</t6><t7><![CDATA[no funds]]></t7><t8>1234</t8>", 4017, "no funds", 1234,
       "CCallOrvError: Code=4017, Text=no funds, RefSvcNum=1234"},
      {"<t6>-5</t6><t7><![CDATA[odd]]></t7><t8>9</t8>", -5, "odd", 9, "CCallOrvError: odd"},
      {"<t7><![CDATA[no code]]></t7><t8>1234</t8>", 0, "no code", 1234, "CCallOrvError: no code"},
      {"<t6>4017</t6><t8>1234</t8>", 4017, "", 1234, "CCallOrvError: Code=4017, Text=, RefSvcNum=1234"},
      {"<t6>4017</t6><t7><![CDATA[no service]]></t7>", 4017, "no service", 0,
       "CCallOrvError: Code=4017, Text=no service, RefSvcNum=0"},
      {"", 0, "", 0, "CCallOrvError: "}};
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.szTags);
    CServicePeer cPeer(Reply(R"(<msg no="10" ver="1.0">)" + std::string(tRow.szTags) + "</msg>"));
    SetUp(cPeer.Port());
    CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == -4);
    CheckError(cErr, tRow.iCode, tRow.szText, tRow.iRefSvcNum);
    CHECK(cErr.Repr().ToStr() == std::string(tRow.szRepr));
  }
}

TEST_CASE("a rejection that cannot be read says which value") {
  // Dictionaries whose message 10 has another type for one tag, or lacks it.
  struct T_Row {
    const char* aszType[3];    // of tags 6, 7 and 8; null: not defined
    int iCode;
    const char* szText;
  };
  const T_Row atRow[] = {{{"string", "string", "integer"}, -17, "REJECT.SysCode failed : "},
                         {{nullptr, "string", "integer"}, -18, "REJECT.SysCode failed : "},
                         {{"integer", "integer", "integer"}, -17, "REJECT.SysReasonText failed : "},
                         {{"integer", nullptr, "integer"}, -18, "REJECT.SysReasonText failed : "},
                         {{"integer", "string", "double"}, -17, "REJECT.RefSvcNum failed: "},
                         {{"integer", "string", nullptr}, -18, "REJECT.RefSvcNum failed: "},
                         {{"string", "integer", "double"}, -17, "REJECT.SysCode failed : "}};
  for (const T_Row& tRow : atRow) {
    CAPTURE(tRow.szText);
    CAPTURE(tRow.iCode);
    const auto pDic = std::make_unique<CMsgDic>();
    pDic->SetMsgInfo(10, "REJECT", "", "");
    std::string sTags;
    for (int i = 0; i < 3; ++i) {
      if (tRow.aszType[i] == nullptr) continue;
      pDic->SetMsgDetail(10, 6 + i, "", tRow.aszType[i], "N");
      const std::string sTag = "t" + std::to_string(6 + i) + ">";
      sTags += "<" + sTag + "1</" + sTag;
    }
    CServicePeer cPeer(Reply("<msg no='10'>" + sTags + "</msg>"));
    SetUp(cPeer.Port());
    CMsgPtr pIn = NewRequest("x");
    CMsg cOut(0, 0, 0, pDic.get());
    CCallOrvError cErr = OldError();
    CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), &cOut, &cErr) == -4);
    CheckError(cErr, tRow.iCode, tRow.szText, 7);
  }
}

TEST_CASE("the same dictionary again fails, and the process stays set up, with the new key") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  const CTempDir cDir;
  const std::string sKey = cDir.Write("new.key", KeyFile("NEW-USER-OF-MORE-THAN-15"));
  const std::string sDic = cDir.Write("dic.xml", ClientDictionary());
  CCallOrvError cErr = OldError();
  CHECK(CCallOrv::Initialize(sKey.c_str(), sDic.c_str(), "nowhere", 1, 1, &cErr) == -2);
  CheckError(cErr, 0, "InitDictionary(Handler error : msgnum=1,msgname=Hello)", 0);
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(cPeer.LastRequest().Field(55, 20) == "NEW-USER-OF-MORE-THA");
}

TEST_CASE("a second set-up whose key file is missing leaves everything as it was") {
  CServicePeer cPeer(Echo);
  SetUp(cPeer.Port());
  CCallOrvError cErr;
  CHECK(CCallOrv::Initialize("/nonexistent/key", "", "nowhere", 1, 1, &cErr) == -1);
  CheckError(cErr, 0, "File not found(/nonexistent/key)", 0);
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CHECK(CCallOrv::CallServiceByMsg(7, pIn.get(), pOut.get(), &cErr) == 0);
  CHECK(cPeer.LastRequest().Field(55, 20) == "TEST-USER-1         ");
}

TEST_CASE("the C form of the set-up from values") {
  std::promise<void> cArrived;
  CServicePeer cPeer([&](const T_Request&) {
    cArrived.set_value();
    return T_Answer{"", true};
  });
  SetUp(cPeer.Port());    // reads the dictionary
  const CTempDir cDir;
  const std::string sKey = cDir.Write("c.key", KeyFile("FROM-C"));
  const std::string sDic = cDir.Write("empty.xml", "<msg_dictionary/>");
  CallOrv_Error tErr = {99, "old", 77};
  CHECK(CallOrv_InitializeEx(sKey.c_str(), sDic.c_str(), "127.0.0.1", cPeer.Port(), 0, &tErr) == 0);
  CHECK(tErr.iCode == 99);
  CHECK(tErr.szText == std::string("old"));
  CHECK(tErr.iRefSvcNum == 77);
  CMsgPtr pIn = NewRequest("x"), pOut = NewMsg(0);
  CHECK(CallOrv_CallService(7, pIn.get(), pOut.get(), &tErr) == -3);
  CHECK(tErr.iCode == -5);
  CHECK(tErr.szText == std::string("Socket timeout(-8)((recv to=0))"));    // at once, so 0 seconds were taken
  CHECK(tErr.iRefSvcNum == -1);
  cArrived.get_future().wait();
  CHECK(cPeer.LastRequest().Field(55, 20) == "FROM-C              ");
}

TEST_CASE("the C interface copies texts whole, NULs among them, into buffers, and up to a NUL into new memory") {
  SetUp(1);
  const CMsgPtr pMsg = NewMsg(100);
  CString sText;
  sText.Set("a\0b", 3);
  const std::string sWhole("a\0b\0", 4);
  for (const int iTag : {1, 11}) {
    CAPTURE(iTag);
    pMsg->SetParsedData(iTag, sText);
    CHECK(MSG_GetStrLen(pMsg.get(), iTag) == 3);
    CHECK(MSG_GetAtStrLen(pMsg.get(), iTag, 0) == 3);
    char aBuf[4] = {'x', 'x', 'x', 'x'};
    CHECK(MSG_GetStr(pMsg.get(), iTag, aBuf) == 0);
    CHECK(std::string(aBuf, 4) == sWhole);
    memset(aBuf, 'x', sizeof(aBuf));
    CHECK(MSG_GetAtStrArr(pMsg.get(), iTag, 0, aBuf) == 0);
    CHECK(std::string(aBuf, 4) == sWhole);
    int iRet = 1;
    for (char* szCopy : {MSG_GetStrEx(pMsg.get(), iTag, &iRet), MSG_GetAtStrArrEx(pMsg.get(), iTag, 0, &iRet)}) {
      REQUIRE(szCopy != nullptr);
      CHECK(szCopy == std::string("a"));
      free(szCopy);
    }
    CHECK(iRet == 0);
  }
}
