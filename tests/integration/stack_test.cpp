// Calls from threads with a small stack.
#include <callorv/callorv.h>
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/service_peer.h"
#include "support/set_up.h"
#include "support/small_stack.h"

namespace {

// With message 200, which has itself inside.
std::string NestDictionary() {
  std::string sText = ClientDictionary();
  sText.insert(sText.find("</msg_dictionary>"),
               "<msg no='200' name='Nest'><tag no='1' name='n' type='integer'/><tag no='2' name='nest' type='m200'/></msg>");
  return sText;
}

std::string Times(int p_iTimes, const std::string& p_s) {
  std::string sAll;
  for (int i = 0; i < p_iTimes; ++i) sAll += p_s;
  return sAll;
}

std::string Declared(const std::string& p_sDocument) {
  return R"(<?xml version="1.0" encoding="ISO-8859-1" ?>)" + p_sDocument;
}
std::string Reply100(const std::string& p_sInside) { return Declared(R"(<msg no="100" ver="">)" + p_sInside + "</msg>"); }
std::string Nested(int p_iOpen) {    // elements, with the root
  return Declared(R"(<msg no="200">)" + Times(p_iOpen - 2, "<t2>") + "<t1>5</t1>" + Times(p_iOpen - 2, "</t2>") + "</msg>");
}

std::string Result(int p_iRet, const CallOrv_Error& p_tErr) {
  return p_iRet == 0 ? "0" : std::to_string(p_iRet) + ' ' + std::to_string(p_tErr.iCode) + ' ' + p_tErr.szText;
}

enum E_Way { BLOCKING, WITHIN };

// A call from a thread with a small stack: what it returned, and the error.
std::string CallResult(const char* p_szText = "x", int p_iSvcNum = 7, E_Way p_eWay = BLOCKING) {
  std::string sResult;
  OnSmallStack([&] {
    CallOrv_Error tErr = {};
    CMsg* pIn = MSG_GetNewMsg(100, nullptr);
    CMsg* pOut = MSG_GetNewMsg(0, nullptr);
    MSG_SetStr(pIn, 1, p_szText);
    MSG_SetDbl(pIn, 3, 1.0 / 3);
    const int iRet = p_eWay == BLOCKING ? CallOrv_CallService(p_iSvcNum, pIn, pOut, &tErr)
                                        : CallOrv_CallServiceWithin(p_iSvcNum, pIn, pOut, 60000, &tErr);
    MSG_Destroy(pIn);
    MSG_Destroy(pOut);
    sResult = Result(iRet, tErr);
  });
  return sResult;
}

std::string ParserError(const std::string& p_sWhat) {
  return "-3 -7 -21, XML parsing failed(Handler error : " + p_sWhat + ")";
}

}    // namespace

TEST_CASE("any reply is read in a thread with 40 KB of stack") {
  const std::string sRows = Reply100(Times(20000, "<t16><t1><![CDATA[row]]></t1><t2>5</t2></t16>"));
  std::string sDamaged = Packet(sRows, true);
  sDamaged[400] ^= 0x55;
  const std::string sName(200000, 'n'), sLong(5000000, 'y'), sReason(1022, 'r');
  struct T_Row {
    std::string sAnswer, sResult;
  };
  const std::vector<T_Row> cRows = {
      // what takes most comes first: what it does for the first time takes more
      {Packet("<?xml version=\"1.0\" encoding=\"UTF-8\"?><msg no=\"100\"><t1>\xc3(</t1></msg>"),
       ParserError("[F]MemData (L:1, C:39) invalid byte '(' at position 2 of a 2-byte sequence")},
      {Packet(Reply100("<t1>&unknown;</t1>")), ParserError("[F]MemData (L:1, C:79) entity 'unknown' not found")},
      {Packet(Declared(R"(<msg no="100" no="100"/>)")),
       ParserError("[F]MemData (L:1, C:69) attribute 'no' is already specified for element 'msg'")},
      {Packet(Reply100("<t1>x</t2>")), ParserError("[F]MemData (L:1, C:73) expected end of tag 't1'")},
      {Packet(Reply100("<t1>x</" + sName + ">")), ParserError("[F]MemData (L:1, C:73) expected end of tag 't1'")},
      {Packet(R"(<?xml version="1.0" encoding="UTF-16"?><msg no="100"/>)"),
       ParserError("[W]MemData (L:1, C:40) encoding 'UTF-16' from XML declaration or manually set contradicts the "
                   "auto-sensed encoding; ignoring")},
      {Packet(R"(<?xml version="1.0" encoding="NOPE"?><msg no="100"/>)"),
       ParserError("[F]MemData (L:1, C:38) unable to create converter for 'NOPE' encoding")},
      {Packet("<?xml version=\"1.0\" encoding=\"EUC-KR\"?><msg no=\"100\"><t1>\xb0\xa1</t1></msg>"), "0"},
      {Packet("hello"), ParserError("[F]MemData (L:1, C:1) invalid document structure")},
      {Packet("<!DOCTYPE msg [<!ENTITY a 'b'>]><msg no=\"100\"/>"), ParserError("DOCTYPE is not allowed")},
      {Packet(Reply100("<x:t1 xmlns:x='u'>x</x:t1>")), "0"},
      {Packet(Declared(R"(<msg no="4711"/>)")), ParserError("Unknown msgno(4711)")},
      {Packet(Reply100("<t77>x</t77>")), ParserError("Unknown start tag element(t77, 77)")},
      {Packet(Reply100("<" + sName + "/>")), ParserError("Unknown start tagnum(" + sName).substr(0, 6 + 1022)},
      {Packet(Reply100("<t1><![CDATA[x]]></t1><t2>-7</t2><t3>2.5</t3><t4>true</t4><t5>20240628</t5>")), "0"},
      {Packet(Reply100("<t1><![CDATA[" + sLong + "]]></t1>")), "0"},
      {Packet(Reply100("<t1>" + sLong + "</t1>")), "0"},
      {Packet(sRows), "0"},
      {Packet(sRows, true), "0"},
      {sDamaged, "-3 -5 Compression failed(-16)(ReceiveFrom(-3)(900071))"},
      {Packet(Nested(1024)), "0"},
      {Packet(Nested(1025)), ParserError("More than 1024 open elements")},
      {Packet("<msg no='10'><t6>5</t6><t7>" + sReason + sLong + "</t7><t8>7</t8></msg>"), "-4 5 " + sReason},
      {Packet("x").substr(0, 128) + "x000", "-3 -5 Checksum is incorrect(-13)((M:" +
       std::to_string(std::stoi(Packet("x").substr(129))) + ",C:0))"},
      {Packet("x").substr(0, 129), "-3 -5 Socket closed(-9)(OK)"},
      {"", "-3 -5 Socket closed(-9)(OK)"},
      {std::string(128, '%'), "-3 -5 Header format is incorrect(-15)(Unknown BeginString[%%%%%%%%%%%%])"},
  };
  std::string sAnswer;
  CServicePeer cPeer([&](const T_Request&) { return T_Answer{sAnswer}; }, 1);
  SetUp(cPeer.Port(), 30, NestDictionary());
  for (const E_Way eWay : {BLOCKING, WITHIN}) {
    for (const T_Row& tRow : cRows) {
      CAPTURE(tRow.sAnswer.substr(0, 300));
      sAnswer = tRow.sAnswer;
      CHECK(CallResult("x", 7, eWay) == tRow.sResult);
    }
  }
}

TEST_CASE("any request is sent from a thread with 40 KB of stack") {
  CServicePeer cPeer([](const T_Request& p_tRequest) { return T_Answer{Packet(p_tRequest.sBody, true)}; });
  SetUp(cPeer.Port(), 30, NestDictionary());
  CHECK(CallResult(std::string(5000000, 'q').c_str()) == "0");
  CHECK(CallResult("x", 10000).substr(0, 64) ==
        "-3 -4 Header format is incorrect(-15)((SendTo) size mismatch(128");
  std::string sResult;
  CMsgPtr pIn = NewMsg(200), pOut = NewMsg(0);
  REQUIRE(pIn->SetValue(1, 5) == 0);
  for (int i = 0; i < 100000; ++i) {
    CMsgPtr pOuter(MA_NewMsg(200));
    if (pOuter->SetValue(2, pIn.get()) == 0) (void)pIn.release();
    pIn = std::move(pOuter);
  }
  OnSmallStack([&] {
    CallOrv_Error tErr = {};
    sResult = Result(CallOrv_CallService(7, pIn.get(), pOut.get(), &tErr), tErr);
    pIn.reset();
  });
  CHECK(sResult == ParserError("More than 1024 open elements"));
  const CDeafPort cNobody;
  SetUp(cNobody.Port());
  CHECK(CallResult() == "-3 -3 Failed in connect()(-5)((connect))");
}

TEST_CASE("a process is set up, and a message dumped, in a thread with 40 KB of stack") {
  const CTempDir cDir;
  const std::string sKey = cDir.Write("user.key", KeyFile("TEST-USER-1")), sDump = cDir.Path("dump");
  const std::string sGood = cDir.Write("good.xml", "<msg_dictionary><msg no='301' name='b'>"
                                                    "<tag no='3' name='price' type='double'/></msg></msg_dictionary>");
  const std::string sBad = cDir.Write("bad.xml", "<msg_dictionary><msg no='300' name='a'></tag></msg_dictionary>");
  const auto fnSetUp = [&](const std::string& p_sDictionary) {
    const std::string sCfg = cDir.Write("cfg", "key_file = " + sKey + "\nserver = 127.0.0.1 7000\nmsg_dic = " +
                                                   p_sDictionary + "\n");
    std::string sResult;
    OnSmallStack([&] {
      CallOrv_Error tErr = {};
      sResult = Result(CallOrv_Initialize(sCfg.c_str(), &tErr), tErr);
    });
    return sResult;
  };
  CHECK(fnSetUp(sBad) == "-2 0 InitDictionary(Handler error : [F]" + sBad + " (L:1, C:42) : expected end of tag 'msg')");
  CHECK(fnSetUp("/nonexistent") == "-2 0 InitDictionary(Handler error : [F] (L:0, C:0) : unable to open primary document "
                                   "entity '/nonexistent')");
  CHECK(fnSetUp(sGood) == "0");
  std::string sResult;
  OnSmallStack([&] {
    CallOrv_Error tErr = {};
    CMsg* pMsg = MSG_GetNewMsg(301, nullptr);
    MSG_SetDbl(pMsg, 3, 1.0 / 3);
    sResult = Result(MSG_Dump(pMsg, sDump.c_str(), &tErr), tErr);
    MSG_Destroy(pMsg);
  });
  CHECK(sResult == "0");
}

#if !IS_INSTRUMENTED
// The program is compiled with the library's own options.
TEST_CASE("a stack that is too small ends the process at its guard, not in the memory behind") {
  const std::string sEnd = InChild([] {
    const rlimit tNoCore = {};
    setrlimit(RLIMIT_CORE, &tNoCore);
    signal(SIGSEGV, SIG_DFL);
    const size_t uStack = 64 * 1024, uGuard = 4096, uBehind = 1024 * 1024;
    char* pMemory = static_cast<char*>(mmap(nullptr, uBehind + uStack, PROT_READ | PROT_WRITE,
                                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pMemory + uBehind - uGuard, uGuard, PROT_NONE);
    pthread_attr_t tAttr;
    pthread_attr_init(&tAttr);
    pthread_attr_setstack(&tAttr, pMemory + uBehind, uStack);
    const auto fnTooLarge = [](void*) -> void* {
      volatile char szLarge[512 * 1024];
      szLarge[0] = 'x';
      return reinterpret_cast<void*>(uintptr_t{szLarge[0] == 'x'});
    };
    pthread_t tThread;
    if (pthread_create(&tThread, &tAttr, fnTooLarge, nullptr) != 0) return "no thread";
    pthread_join(tThread, nullptr);
    return "in the memory behind";
  });
  CHECK(sEnd == "status " + std::to_string(SIGSEGV));
}
#endif
