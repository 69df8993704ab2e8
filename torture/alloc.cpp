// Memory that runs out: every allocation of every operation made to fail, alone and with all that follow it.
#include <callorv/client/cfg_reader.h>
#include <callorv/dict/dic_reader.h>
#include <poll.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "children.h"
#include "malloc_gate.h"
#include "peer_process.h"
#include "world.h"

namespace {

using CTexts = std::vector<std::string>;

const char* const LONG_TEXT = LongText();
const char* const OTHER_TEXT = "another text that is too long to be stored in place";
const std::string XML_HEAD = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>";

struct T_Free {
  void operator()(char* p_sz) const { free(p_sz); }
};

// ---- the world that an operation changes

// Where an operation leaves what it gives back. A value that says "untouched" shows that a failure left it alone.
struct T_Out {
  int i = 42;
  double d = 42;
  char szText[128] = "untouched";
  std::unique_ptr<char, T_Free> pCopy;
  CMsg* pMsg = nullptr;    // of the subject, or the spare
  CallOrv_Error tErr = {99, "untouched", 77};
};

enum E_Start { EMPTY, FULL };

struct T_World {
  CMsgPtr pMsg{MA_NewMsg(100)};
  CMsgPtr pSpare = Row(OTHER_TEXT);    // an operation may hand it over
  CMsgPtr pRow = Row(LONG_TEXT);       // the application's, in a full message under tag 6
  CMsgPtr pReply{MA_NewMsg(0)};
  CStream stText{0, 512};
  T_Out tOut;

  explicit T_World(E_Start p_eStart) {
    if (p_eStart != FULL) return;
    Fill(*pMsg);
    pMsg->SetValue(6, pRow.get());
  }
};

// ---- operations

struct T_Op {
  std::string sName;
  E_Start eStart;
  std::function<int(T_World&)> fnRun;
  std::string sGood;     // how what it says without a failure begins
  CTexts asFailed;       // all that it may say when an allocation failed
  bool bStoresFirst = false;    // the value may be stored all the same
  std::function<void()> fnPrepare = [] {};
};

// What ran out, as messages keep it.
std::string Memory(const char* p_szWhat) {
  return "-11 MSG_Error(-11) : Memory error {" + std::string(p_szWhat) + "}";
}
const char* const BAD_ALLOC = "std::bad_alloc";
// What an exception itself needs is had from a reserve, a file is written without a buffer and so on.
const char* const UNNOTICED = "as if nothing had failed";
const std::string NO_CELL = Memory("new CMsgValue failed");
// An error that finds no memory for its text.
const CTexts NO_TEXT = {"CException -11 at msg_error(79 lines), (new Error) failed(std::bad_alloc)",
                        "CException -11 at msg_error(87 lines), (new char[iLen]) failed(std::bad_alloc)", BAD_ALLOC};

CTexts With(CTexts p_as, const CTexts& p_asMore) {
  p_as.insert(p_as.end(), p_asMore.begin(), p_asMore.end());
  return p_as;
}

// The result of an operation with everything that it left, as text. p_fnRun is called armed.
std::string Say(T_World& p_tWorld, const std::function<int(T_World&)>& p_fnRun, int p_iNth, int p_iCount) {
  std::string sSaid;
  CMallocGate::Arm(p_iNth, p_iCount);
  try {
    const int iRet = p_fnRun(p_tWorld);
    CMallocGate::Disarm();
    sSaid = std::to_string(iRet);
    if (iRet < 0 && *p_tWorld.pMsg->GetLastError() != 0) sSaid += std::string(" ") + p_tWorld.pMsg->GetLastError();
    if (iRet >= 0 && p_tWorld.pReply->GetMsgNum() != 0) sSaid += " reply " + Xml(*p_tWorld.pReply);
    if (p_tWorld.stText.GetSize() != 0) sSaid += " text " + std::string(p_tWorld.stText.GetData());
  } catch (const CException& p_c) {
    CMallocGate::Disarm();
    sSaid = "CException " + std::to_string(p_c.GetCode()) + " " + p_c.GetText();
  } catch (const std::bad_alloc&) {
    CMallocGate::Disarm();
    sSaid = BAD_ALLOC;
  }
  const T_Out& tOut = p_tWorld.tOut;
  if (tOut.i != 42) sSaid += " i=" + std::to_string(tOut.i);
  if (tOut.d != 42) sSaid += " d=" + std::to_string(tOut.d);
  if (tOut.szText != std::string("untouched")) sSaid += std::string(" buffer=") + tOut.szText;
  if (tOut.pCopy != nullptr) sSaid += std::string(" copy=") + tOut.pCopy.get();
  if (tOut.pMsg != nullptr) sSaid += " message " + Xml(*tOut.pMsg);
  if (tOut.tErr.iCode != 99) {
    sSaid += " error " + std::to_string(tOut.tErr.iCode) + " " + tOut.tErr.szText + " " +
             std::to_string(tOut.tErr.iRefSvcNum);
  }
  return sSaid;
}

// The parser keeps a reader for the next document, but not after one that was malformed.
void DropReader() {
  CMsgPtr pMsg(MA_NewMsg(0));
  char szBad[] = "<";
  try {
    pMsg->LoadXml(szBad);
  } catch (const CException&) {
  }
}

// Runs one operation with one failure. Everything that the process holds afterwards, it held before.
T_Outcome Run(const T_Op& p_tOp, int p_iNth, int p_iCount, const std::string& p_sGood, const std::string& p_sBefore,
              const std::string& p_sAfter) {
  DropReader();
  const long iOwn = CMallocGate::GetLive(ASKER_OWN), iParser = CMallocGate::GetLive(ASKER_PARSER);
  const long iDescriptors = OpenDescriptors();
  T_Outcome tOutcome;
  const auto fnExpect = [&](bool p_bTrue, const std::string& p_sWhat) {
    if (!p_bTrue && tOutcome.sWhy.empty()) tOutcome.sWhy = p_sWhat;
  };
  {
    T_World tWorld(p_tOp.eStart);
    p_tOp.fnPrepare();
    const std::string sSaid = Say(tWorld, p_tOp.fnRun, p_iNth, p_iCount);
    tOutcome.bLast = !CMallocGate::HasFailed();
    const bool bGood = sSaid == p_sGood;
    if (tOutcome.bLast) {
      fnExpect(bGood, "without a failure: " + sSaid);
    } else if (bGood) {
      fnExpect(std::count(p_tOp.asFailed.begin(), p_tOp.asFailed.end(), UNNOTICED) == 1, "failure not noticed");
    } else {
      fnExpect(std::count(p_tOp.asFailed.begin(), p_tOp.asFailed.end(), sSaid) == 1, "says: " + sSaid);
    }
    // A sub-message is stored before it is listed, and stays when there is no memory for the list.
    const std::string sNow = Xml(*tWorld.pMsg);
    const bool bStored = p_tOp.bStoresFirst && !bGood && sNow == p_sAfter;
    const bool bTaken = !bGood && tWorld.pSpare != nullptr && tWorld.pSpare->GetParent() == tWorld.pMsg.get();
    fnExpect(sNow == (bGood || bStored ? p_sAfter : p_sBefore), "the message is now " + sNow);
    fnExpect(!bTaken || bStored, "the sub-message is taken, but not stored");
    if (!bGood) {
      tWorld.stText.Clear();
      tWorld.tOut = T_Out();
      // what stands in an array already is refused; in a single tag it is listed now
      const bool bRefused = bTaken && tWorld.pMsg->GetValue(6) != tWorld.pSpare.get();
      const std::string sNext = Say(tWorld, p_tOp.fnRun, 0, 0);
      fnExpect(bRefused ? sNext.compare(0, 4, "-28 ") == 0 : sNext == p_sGood, "the next one says: " + sNext);
      fnExpect(bStored || Xml(*tWorld.pMsg) == p_sAfter, "after the next one the message is " + Xml(*tWorld.pMsg));
    }
  }
  DropReader();
  const long iOwnLost = CMallocGate::GetLive(ASKER_OWN) - iOwn;
  const long iParserLost = CMallocGate::GetLive(ASKER_PARSER) - iParser;
  fnExpect(iOwnLost == 0, std::to_string(iOwnLost) + " blocks lost");
  fnExpect(iParserLost == 0, std::to_string(iParserLost) + " blocks lost in the parser");
  fnExpect(OpenDescriptors() == iDescriptors, "a descriptor is left open");
  return tOutcome;
}

// The two ways of running out of memory.
struct T_Form {
  const char* szName;
  int iCount;
};
const T_Form s_atForm[] = {{"lone", 1}, {"all from", INT_MAX}};

void RunOp(CChildren& p_cChildren, const T_Op& p_tOp) {
  for (const T_Form& tForm : s_atForm) {
    p_cChildren.Run(p_tOp.sName + ", " + tForm.szName, 1, 500, [&] {
      T_World tWorld(p_tOp.eStart);
      const std::string sBefore = Xml(*tWorld.pMsg), sGood = Say(tWorld, p_tOp.fnRun, 0, 0), sAfter = Xml(*tWorld.pMsg);
      // Blocks of long replies are kept when they are freed: make as many as a failure and what follows it have in use.
      T_World tOther(p_tOp.eStart);
      for (int i = 0; i < 2; ++i) Say(tOther, p_tOp.fnRun, 0, 0);
      return [=](int p_iNth) {
        if (sGood.compare(0, p_tOp.sGood.size(), p_tOp.sGood) != 0) return T_Outcome{true, "unharmed, says: " + sGood};
        return Run(p_tOp, p_iNth, tForm.iCount, sGood, sBefore, sAfter);
      };
    });
  }
}

// ---- building messages

template <class T>
void AddSetters(std::vector<T_Op>& p_aOps, const char* p_szType, int p_iTag, const char* p_szName,
                const char* p_szNames, T p_Value, const CTexts& p_asSingle, const CTexts& p_asMulti) {
  for (const bool bMulti : {false, true}) {
    const int iTag = bMulti ? p_iTag + 10 : p_iTag;
    const char* szName = bMulti ? p_szNames : p_szName;
    const CTexts asFailed = With(bMulti ? p_asMulti : p_asSingle, {BAD_ALLOC});
    for (const E_Start eStart : {EMPTY, FULL}) {
      const std::string sWhat =
          std::string(p_szType) + (bMulti ? " in an array" : "") + (eStart == FULL ? ", one more" : "");
      p_aOps.push_back(
          {"set " + sWhat, eStart, [=](T_World& w) { return w.pMsg->SetValue(iTag, p_Value); }, "0", asFailed});
      p_aOps.push_back({"set by name " + sWhat, eStart, [=](T_World& w) { return w.pMsg->SetValue(szName, p_Value); },
                        "0", asFailed});
    }
  }
}

std::vector<T_Op> Setters() {
  std::vector<T_Op> aOps;
  const auto fnArray = [](const char* p_szArray) { return CTexts{NO_CELL, Memory(p_szArray)}; };
  const CTexts asOne = {NO_CELL};
  AddSetters<const char*>(aOps, "string", 1, "text", "texts", OTHER_TEXT, {NO_CELL, Memory("new CString failed")},
                          fnArray("new CStrArray failed"));
  AddSetters(aOps, "integer", 2, "number", "numbers", 6, asOne, fnArray("new CIntArray failed"));
  AddSetters(aOps, "nullable integer", 2, "number", "numbers", CInt(6), asOne, fnArray("new CIntArray failed"));
  AddSetters(aOps, "double", 3, "price", "prices", 2.5, asOne, fnArray("new CDblArray failed"));
  AddSetters(aOps, "nullable double", 3, "price", "prices", CDbl(2.5), asOne, fnArray("new CDblArray failed"));
  AddSetters(aOps, "bool", 4, "flag", "flags", false, asOne, fnArray("new CBoolArray failed"));
  AddSetters(aOps, "nullable bool", 4, "flag", "flags", CBool(false), asOne, fnArray("new CBoolArray failed"));
  AddSetters(aOps, "date", 5, "day", "days", CDate("20240131"), {NO_CELL, Memory("new CDate failed")},
             fnArray("new CDateArray failed"));
  for (const int iTag : {6, 16}) {
    const char* szName = iTag == 6 ? "row" : "rows";
    for (const E_Start eStart : {EMPTY, FULL}) {
      const std::string sWhat = std::string(szName) + (eStart == FULL ? ", one more" : "");
      const CTexts asFailed = {NO_CELL, Memory("new CMsgArray failed"), BAD_ALLOC,
                               Memory(iTag == 6 ? "tagnum=6,msgnum=100" : "tagnum=16,msgnum=100")};
      aOps.push_back({"set " + sWhat, eStart, [=](T_World& w) { return w.pMsg->SetValue(iTag, w.pSpare.get()); }, "0",
                      asFailed, true});
      aOps.push_back({"set by name " + sWhat, eStart,
                      [=](T_World& w) { return w.pMsg->SetValue(szName, w.pSpare.get()); }, "0", asFailed, true});
    }
  }
  aOps.push_back({"set an integer under a string's tag", EMPTY, [](T_World& w) { return w.pMsg->SetValue(1, 5); },
                  "-17 MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=1,type=(string/integer)}", NO_TEXT});
  aOps.push_back({"set under an unknown tag", EMPTY, [](T_World& w) { return w.pMsg->SetValue(99, 5); },
                  "-18 MSG_Error(-18) : Not defined tag in dictionary {msgnum=100, tagnum=99}", NO_TEXT});
  return aOps;
}

// What `callorv generate` would write for messages 100 and 101.
class CGeneratedRow : public CMsgBase {
 public:
  enum { MSG_NUM = 101 };
  CStr text;
  int LoadFromMsg(CMsg* p_pMsg) override { return callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  CMsg* CreateMsg() override { return callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(1, p_Self.text);
  }
};
class CGenerated : public CMsgBase {
 public:
  enum { MSG_NUM = 100 };
  CStr text;
  T_SubMsg<CGeneratedRow> row;
  std::vector<CString> texts;
  std::vector<CGeneratedRow> rows;
  CGenerated() {
    text.Set(LONG_TEXT);
    row.Make().text.Set(LONG_TEXT);
    texts = {"one", LONG_TEXT};
    rows.resize(6);
    for (CGeneratedRow& cRow : rows) cRow.text.Set(LONG_TEXT);
  }
  int LoadFromMsg(CMsg* p_pMsg) override { return callorv::detail::LoadTypedMsg(*this, p_pMsg); }
  CMsg* CreateMsg() override { return callorv::detail::CreateTypedMsg(*this); }
  template <class SELF, class VISITOR>
  static void VisitTags(SELF& p_Self, VISITOR& p_Visitor) {
    p_Visitor(1, p_Self.text);
    p_Visitor(6, p_Self.row);
    p_Visitor(11, p_Self.texts);
    p_Visitor(16, p_Self.rows);
  }
};

std::vector<T_Op> Builders() {
  const auto pGenerated = std::make_shared<CGenerated>();
  const CTexts asNewSub = {BAD_ALLOC, NO_CELL, Memory("new CMsg failed"), Memory("new CMsgArray failed"),
                           Memory("tagnum=6,msgnum=100"), Memory("tagnum=16,msgnum=100")};
  CTexts asTyped = {BAD_ALLOC};
  for (const std::string& s : With(asNewSub, {Memory("new CString failed"), Memory("new CStrArray failed")})) {
    asTyped.push_back("-11 buffer=" + s.substr(s.find("MSG_Error") % s.size()));
  }
  const auto fnNewSub = [](int p_iTag) {
    return [p_iTag](T_World& w) {
      CMsg* pSub = nullptr;
      const int iRet = w.pMsg->NewSub(p_iTag, &pSub);
      return iRet != 0 ? iRet : pSub->SetValue(2, 5);
    };
  };
  return {
      {"NewSub", EMPTY, fnNewSub(6), "0", asNewSub},
      {"NewSub of a row", EMPTY, fnNewSub(16), "0", asNewSub},
      {"NewSub of one more row", FULL, fnNewSub(16), "0", asNewSub},
      {"typed message with sub-messages and rows", EMPTY,
       [pGenerated](T_World& w) {
         w.pReply = nullptr;
         w.pReply.reset(pGenerated->CreateMsg());
         if (w.pReply != nullptr) return 0;
         snprintf(w.tOut.szText, sizeof(w.tOut.szText), "%s", pGenerated->sLastError.ToStr());
         pGenerated->sLastError = CString();
         return -11;
       },
       "0 reply " + XML_HEAD + "<msg no=\"100\" ver=\"\"><t1>", asTyped},
      {"typed message from a message", FULL,
       [pGenerated](T_World& w) {
         CGenerated cGenerated = *pGenerated;
         return cGenerated.LoadFromMsg(w.pMsg.get());
       },
       "0", {BAD_ALLOC}},
      {"Clear", FULL,
       [](T_World& w) {
         w.pSpare->Clear();
         return w.pSpare->IsEmpty() ? w.pSpare->SetValue(1, 5) : -1;
       },
       "-17", NO_TEXT},
      {"new message", EMPTY,
       [](T_World& w) {
         w.pReply = nullptr;
         w.pReply.reset(MA_NewMsg(100));
         return w.pReply != nullptr ? 0 : -1;
       },
       "0", {"-1"}},
      {"CMsg", EMPTY,
       [](T_World& w) {
         w.pReply = nullptr;
         w.pReply.reset(new CMsg(100, 0, 0, MA_GetMsgDic()));
         return 0;
       },
       "0", {BAD_ALLOC}},
      {"Init of a message with values", EMPTY,
       [](T_World& w) {
         w.pSpare->Init(100, 0, 0);
         return w.pSpare->GetMsgNum() == 100 ? 0 : -1;
       },
       "0", {BAD_ALLOC}},
      {"Init with an unknown number", EMPTY,
       [](T_World& w) {
         w.pMsg->Init(4711, 0, 0);
         return 0;
       },
       "CException -19 3.msgnum=4711", {BAD_ALLOC, UNNOTICED}},
      {"AddChild", EMPTY,
       [](T_World& w) { return w.pMsg->AddChild(w.pSpare.get()); }, "0", {"-11"}},
      {"SetParsedData", EMPTY,
       [](T_World& w) {
         w.pMsg->SetParsedData(1, LONG_TEXT);
         return 0;
       },
       "0", {BAD_ALLOC, "CException -11 new CMsgValue failed", "CException -11 new CString failed"}},
      {"MakeSubMsgEntry", EMPTY, [](T_World& w) { return w.pMsg->MakeSubMsgEntry(16) != nullptr ? 0 : -1; }, "0",
       {BAD_ALLOC, "CException -11 new CMsgValue failed", "CException -11 new CMsgArray failed",
        "CException -11 new CMsg1 failed", "CException -11 tagnum=16,msgnum=100"},
       true},
      {"get a string", FULL,
       [](T_World& w) {
         CString sText;
         return w.pMsg->GetValue(1, &sText);
       },
       "0", {BAD_ALLOC}},
      {"get strings", FULL,
       [](T_World& w) {
         CStrArray asText;
         return w.pMsg->GetValue(11, &asText);
       },
       "0", {BAD_ALLOC}},
      {"get integers", FULL,
       [](T_World& w) {
         CIntArray aiValue;
         return w.pMsg->GetValue(12, &aiValue);
       },
       "0", {BAD_ALLOC}},
      {"get doubles", FULL,
       [](T_World& w) {
         CDblArray adValue;
         return w.pMsg->GetValue(13, &adValue);
       },
       "0", {BAD_ALLOC}},
      {"get bools", FULL,
       [](T_World& w) {
         CBoolArray abValue;
         return w.pMsg->GetValue(14, &abValue);
       },
       "0", {BAD_ALLOC}},
      {"get dates", FULL,
       [](T_World& w) {
         CDateArray acValue;
         return w.pMsg->GetValue(15, &acValue);
       },
       "0", {BAD_ALLOC}},
      {"get rows", FULL,
       [](T_World& w) {
         CMsgArray apRow(false);
         return w.pMsg->GetValue(16, &apRow);
       },
       "0", {BAD_ALLOC}},
      {"get what is not there", EMPTY,
       [](T_World& w) {
         int iValue = 0;
         return w.pMsg->GetValue(2, &iValue);
       },
       "-1 MSG_Error(-1) : No Data found {tagnum=2}", NO_TEXT},
  };
}

// ---- writing and reading

std::vector<T_Op> Writers() {
  return {
      {"ToXml", FULL, [](T_World& w) { return w.pMsg->ToXml(&w.stText, false, false, 1); }, "0", {BAD_ALLOC}},
      {"ToXml by name", FULL, [](T_World& w) { return w.pMsg->ToXml(&w.stText, true, true, 1); }, "0", {BAD_ALLOC}},
      {"DumpXml", FULL,
       [](T_World& w) {
         w.pMsg->DumpXml(&w.stText, true, 1);
         return 0;
       },
       "0", {BAD_ALLOC}},
      {"Dump", FULL,
       [](T_World& w) {
         w.pMsg->Dump(&w.stText, false, 1);
         return 0;
       },
       "0", {BAD_ALLOC}},
      {"Dump of the dictionary", EMPTY,
       [](T_World& w) {
         MA_GetMsgDic()->Dump(&w.stText);
         return 0;
       },
       "0", {BAD_ALLOC}},
  };
}

// Message 100 in full, with rows and texts of more than one piece.
std::string FullXml(bool p_bByName) {
  T_World tWorld(FULL);
  CStream stXml(0, 512);
  tWorld.pMsg->ToXml(&stXml, false, p_bByName, 1);
  return stXml.GetData();
}

// What a reader may say that runs out of memory.
const CTexts NO_MEMORY_READING = {
    BAD_ALLOC,
    "CException -11 XMLParser out of memory",
    "CException -11 Out of memory 0",
    "CException -11 Handler error : new CMsgValue failed",
    "CException -11 Handler error : new CString failed",
    "CException -11 Handler error : new CStrArray failed",
    "CException -11 Handler error : new CIntArray failed",
    "CException -11 Handler error : new CDblArray failed",
    "CException -11 Handler error : new CBoolArray failed",
    "CException -11 Handler error : new CDateArray failed",
    "CException -11 Handler error : new CMsgArray failed",
    "CException -11 Handler error : new CMsg1 failed",
    "CException -11 Handler error : new CMsg2 failed",
    "CException -11 Handler error : tagnum=6,msgnum=100",
    "CException -11 Handler error : tagnum=16,msgnum=100",
};


std::vector<T_Op> Readers() {
  std::vector<T_Op> aOps;
  const auto fnAdd = [&](const std::string& p_sWhat, const std::string& p_sXml, const std::string& p_sGood,
                         const CTexts& p_asFailed) {
    const auto fnLoad = [sXml = p_sXml](T_World& w) mutable { return w.pReply->LoadXml(&sXml[0]); };
    const auto fnKeep = [sXml = p_sXml]() mutable { CMsgPtr(MA_NewMsg(0))->LoadXml(&sXml[0]); };
    aOps.push_back({"LoadXml " + p_sWhat, EMPTY, fnLoad, p_sGood, p_asFailed});
    if (p_sGood != "0") return;
    aOps.push_back({"LoadXml " + p_sWhat + ", reader kept", EMPTY, fnLoad, p_sGood, p_asFailed, false, fnKeep});
  };
  // Without the parser, and where that finds too little memory, with it after all; then with the parser from the start.
  const CTexts asShort = With(NO_MEMORY_READING, {UNNOTICED});
  const auto fnOther = [](std::string p_sXml) { return p_sXml.erase(p_sXml.find(" ?>"), 1); };
  std::string sRows = XML_HEAD + "<msg no=\"100\" ver=\"\">";
  for (int i = 0; i < 300; ++i) sRows += "<t16><t1>" + std::string(LONG_TEXT) + "</t1></t16>";
  sRows += "</msg>";
  fnAdd("by number", FullXml(false), "0", asShort);
  fnAdd("by name", FullXml(true), "0", asShort);
  fnAdd("of many rows", sRows, "0", asShort);
  fnAdd("by number and parser", fnOther(FullXml(false)), "0", NO_MEMORY_READING);
  fnAdd("by name and parser", fnOther(FullXml(true)), "0", NO_MEMORY_READING);
  fnAdd("of many rows by parser", fnOther(sRows), "0", NO_MEMORY_READING);
  fnAdd("of many rows that break off", sRows.substr(0, sRows.size() - 1),
        "CException -21 Handler error : [F]MemData (L:1, C:" + std::to_string(sRows.size()) + ") unterminated end tag 'msg'", asShort);
  fnAdd("of a malformed document", "<msg no='100'><t1>abc</t2></msg>",
        "CException -21 Handler error : [F]MemData (L:1, C:24) expected end of tag 't1'",
        With(NO_MEMORY_READING, {UNNOTICED}));
  fnAdd("of an unknown tag", "<msg no='100'><t99>abc</t99></msg>",
        "CException -21 Handler error : Unknown start tag element(t99, 99)", With(NO_MEMORY_READING, {UNNOTICED}));
  return aOps;
}

// ---- the C functions

std::vector<T_Op> CFunctions() {
  const CTexts asNone = {"-11"};
  const auto fnCell = [](const char* p_szArray) { return CTexts{"-11", NO_CELL, Memory(p_szArray)}; };
  const std::string sText = LONG_TEXT;
  const std::string sRow = XML_HEAD + "<msg no=\"101\" ver=\"\"><t1><![CDATA[" + sText + "]]></t1></msg>";
  return {
      {"MSG_GetNewMsg",
       EMPTY,
       [](T_World& w) {
         w.pReply.reset(MSG_GetNewMsg(100, &w.tOut.tErr));
         return w.pReply != nullptr ? 0 : -1;
       },
       "0",
       {"-1"}},
      {"MSG_GetNewMsg of an unknown number",
       EMPTY,
       [](T_World& w) { return MSG_GetNewMsg(4711, &w.tOut.tErr) == nullptr ? 0 : -1; },
       "0",
       {UNNOTICED}},
      {"MSG_Destroy",
       EMPTY,
       [](T_World& w) {
         MSG_Destroy(w.pSpare.release());
         w.pSpare.reset(MSG_GetNewMsg(0, nullptr));
         return w.pSpare != nullptr ? 0 : -1;
       },
       "0",
       {"-1"}},
      {"MSG_GetSelfNum", FULL, [](T_World& w) { return MSG_GetSelfNum(w.pMsg.get()); }, "100", {}},
      {"MSG_GetLastError", FULL, [](T_World& w) { return *MSG_GetLastError(w.pMsg.get()) == 0 ? 0 : -1; }, "0", {}},
      {"MSG_SetInt", EMPTY, [](T_World& w) { return MSG_SetInt(w.pMsg.get(), 2, 6); }, "0", {"-11", NO_CELL}},
      {"MSG_SetInt in an array", FULL, [](T_World& w) { return MSG_SetInt(w.pMsg.get(), 12, 6); }, "0",
       fnCell("new CIntArray failed")},
      {"MSG_SetInt under a string's tag", EMPTY, [](T_World& w) { return MSG_SetInt(w.pMsg.get(), 1, 6); }, "-17",
       asNone},
      {"MSG_SetDbl", EMPTY, [](T_World& w) { return MSG_SetDbl(w.pMsg.get(), 3, 2.5); }, "0", {"-11", NO_CELL}},
      {"MSG_SetDbl in an array", FULL, [](T_World& w) { return MSG_SetDbl(w.pMsg.get(), 13, 2.5); }, "0",
       fnCell("new CDblArray failed")},
      {"MSG_SetBool", EMPTY, [](T_World& w) { return MSG_SetBool(w.pMsg.get(), 4, 1); }, "0", {"-11", NO_CELL}},
      {"MSG_SetBool in an array", FULL, [](T_World& w) { return MSG_SetBool(w.pMsg.get(), 14, 1); }, "0",
       fnCell("new CBoolArray failed")},
      {"MSG_SetStr",
       EMPTY,
       [](T_World& w) { return MSG_SetStr(w.pMsg.get(), 1, OTHER_TEXT); },
       "0",
       {"-1", NO_CELL, Memory("new CString failed")}},
      {"MSG_SetStr again",
       FULL,
       [](T_World& w) { return MSG_SetStr(w.pMsg.get(), 1, OTHER_TEXT); },
       "0",
       {"-1", Memory("new CString failed")}},
      {"MSG_SetStr in an array",
       FULL,
       [](T_World& w) { return MSG_SetStr(w.pMsg.get(), 11, OTHER_TEXT); },
       "0",
       {"-1", NO_CELL, Memory("new CStrArray failed")}},
      {"MSG_SetStr under an integer's tag",
       FULL,
       [](T_World& w) { return MSG_SetStr(w.pMsg.get(), 2, OTHER_TEXT); },
       "-17",
       {"-1"}},
      {"MSG_SetDate",
       EMPTY,
       [](T_World& w) { return MSG_SetDate(w.pMsg.get(), 5, "20240131"); },
       "0",
       {"-11", NO_CELL, Memory("new CDate failed")}},
      {"MSG_SetDate in an array", FULL, [](T_World& w) { return MSG_SetDate(w.pMsg.get(), 15, "20240131"); }, "0",
       fnCell("new CDateArray failed")},
      {"MSG_SetSub",
       EMPTY,
       [](T_World& w) { return MSG_SetSub(w.pMsg.get(), 6, w.pSpare.get()); },
       "0",
       {"-11", NO_CELL, Memory("tagnum=6,msgnum=100")},
       true},
      {"MSG_SetSub again",
       FULL,
       [](T_World& w) { return MSG_SetSub(w.pMsg.get(), 6, w.pSpare.get()); },
       "0",
       {"-11", NO_CELL, Memory("tagnum=6,msgnum=100")},
       true},
      {"MSG_SetSub in an array",
       FULL,
       [](T_World& w) { return MSG_SetSub(w.pMsg.get(), 16, w.pSpare.get()); },
       "0",
       {"-11", NO_CELL, Memory("new CMsgArray failed"), Memory("tagnum=16,msgnum=100")},
       true},
      {"MSG_NewSub",
       FULL,
       [](T_World& w) {
         int iRet = 0;
         CMsg* pSub = MSG_NewSub(w.pMsg.get(), 16, &iRet);
         return pSub != nullptr ? MSG_SetInt(pSub, 2, 5) : iRet;
       },
       "0",
       {"-11", NO_CELL, Memory("new CMsg failed"), Memory("new CMsgArray failed"), Memory("tagnum=16,msgnum=100")}},
      {"MSG_Clear",
       FULL,
       [](T_World& w) {
         (void)w.pRow.release();    // goes with the others
         MSG_Clear(w.pMsg.get());
         return MSG_GetSelfNum(w.pMsg.get());
       },
       "100",
       {}},
      {"MSG_GetInt", FULL, [](T_World& w) { return MSG_GetInt(w.pMsg.get(), 2, &w.tOut.i); }, "0 i=5", {}},
      {"MSG_GetInt of nothing",
       EMPTY,
       [](T_World& w) { return MSG_GetInt(w.pMsg.get(), 2, &w.tOut.i); },
       "-1 MSG_Error(-1) : No Data found {tagnum=2} i=0",
       {"-11 i=0"}},
      {"MSG_GetDbl", FULL, [](T_World& w) { return MSG_GetDbl(w.pMsg.get(), 3, &w.tOut.d); }, "0 d=1.5", {}},
      {"MSG_GetDbl of nothing",
       EMPTY,
       [](T_World& w) { return MSG_GetDbl(w.pMsg.get(), 3, &w.tOut.d); },
       "-1 MSG_Error(-1) : No Data found {tagnum=3} d=0.000000",
       {"-11 d=0.000000"}},
      {"MSG_GetBool", FULL, [](T_World& w) { return MSG_GetBool(w.pMsg.get(), 4, &w.tOut.i); }, "0 i=255", {}},
      {"MSG_GetBool of nothing",
       EMPTY,
       [](T_World& w) { return MSG_GetBool(w.pMsg.get(), 4, &w.tOut.i); },
       "-1 MSG_Error(-1) : No Data found {tagnum=4} i=0",
       {"-11 i=0"}},
      {"MSG_GetStr", FULL, [](T_World& w) { return MSG_GetStr(w.pMsg.get(), 1, w.tOut.szText); }, "0 buffer=" + sText, {}},
      {"MSG_GetStr of nothing", EMPTY, [](T_World& w) { return MSG_GetStr(w.pMsg.get(), 1, w.tOut.szText); },
       "-1 MSG_Error(-1) : No Data found {tagnum=1}", asNone},
      {"MSG_GetStrLen", FULL, [](T_World& w) { return MSG_GetStrLen(w.pMsg.get(), 1); }, "45", {}},
      {"MSG_GetStrEx", FULL,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pCopy.reset(MSG_GetStrEx(w.pMsg.get(), 1, &iRet));
         return iRet;
       },
       "0 copy=" + sText, asNone},
      {"MSG_GetDate",
       FULL,
       [](T_World& w) { return MSG_GetDate(w.pMsg.get(), 5, w.tOut.szText); },
       "0 buffer=20240131",
       {}},
      {"MSG_GetDate of nothing", EMPTY, [](T_World& w) { return MSG_GetDate(w.pMsg.get(), 5, w.tOut.szText); },
       "-1 MSG_Error(-1) : No Data found {tagnum=5}", asNone},
      {"MSG_GetSub",
       FULL,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pMsg = MSG_GetSub(w.pMsg.get(), 6, &iRet);
         return iRet;
       },
       "0 message " + sRow,
       {}},
      {"MSG_GetSub of nothing", EMPTY,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pMsg = MSG_GetSub(w.pMsg.get(), 6, &iRet);
         return iRet;
       },
       "-1 MSG_Error(-1) : No Data found {tagnum=6}", asNone},
      {"MSG_GetArrSize", FULL, [](T_World& w) { return MSG_GetArrSize(w.pMsg.get(), 11); }, "4", {}},
      {"MSG_GetArrSize of nothing", EMPTY, [](T_World& w) { return MSG_GetArrSize(w.pMsg.get(), 11); },
       "-1 MSG_Error(-1) : No Data found {tagnum=11}", asNone},
      {"MSG_GetAtIntArr",
       FULL,
       [](T_World& w) { return MSG_GetAtIntArr(w.pMsg.get(), 12, 3, &w.tOut.i); },
       "0 i=3",
       {}},
      {"MSG_GetAtIntArr outside",
       FULL,
       [](T_World& w) { return MSG_GetAtIntArr(w.pMsg.get(), 12, 9, &w.tOut.i); },
       "-27 MSG_Error(-1) : No Data found {tagnum=12} i=0",
       {"-11 i=0"}},
      {"MSG_GetAtDblArr",
       FULL,
       [](T_World& w) { return MSG_GetAtDblArr(w.pMsg.get(), 13, 2, &w.tOut.d); },
       "0 d=2.25",
       {}},
      {"MSG_GetAtDblArr outside",
       FULL,
       [](T_World& w) { return MSG_GetAtDblArr(w.pMsg.get(), 13, 9, &w.tOut.d); },
       "-27 MSG_Error(-1) : No Data found {tagnum=13} d=0.000000",
       {"-11 d=0.000000"}},
      {"MSG_GetAtBoolArr",
       FULL,
       [](T_World& w) { return MSG_GetAtBoolArr(w.pMsg.get(), 14, 2, &w.tOut.i); },
       "0 i=255",
       {}},
      {"MSG_GetAtBoolArr outside",
       FULL,
       [](T_World& w) { return MSG_GetAtBoolArr(w.pMsg.get(), 14, 9, &w.tOut.i); },
       "-27 MSG_Error(-1) : No Data found {tagnum=14} i=0",
       {"-11 i=0"}},
      {"MSG_GetAtStrArr", FULL, [](T_World& w) { return MSG_GetAtStrArr(w.pMsg.get(), 11, 3, w.tOut.szText); },
       "0 buffer=" + sText, {}},
      {"MSG_GetAtStrLen", FULL, [](T_World& w) { return MSG_GetAtStrLen(w.pMsg.get(), 11, 3); }, "45", {}},
      {"MSG_GetAtStrArrEx", FULL,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pCopy.reset(MSG_GetAtStrArrEx(w.pMsg.get(), 11, 3, &iRet));
         return iRet;
       },
       "0 copy=" + sText, asNone},
      {"MSG_GetAtDateArr",
       FULL,
       [](T_World& w) { return MSG_GetAtDateArr(w.pMsg.get(), 15, 3, w.tOut.szText); },
       "0 buffer=20240229",
       {}},
      {"MSG_GetAtDateArr outside", FULL,
       [](T_World& w) { return MSG_GetAtDateArr(w.pMsg.get(), 15, 9, w.tOut.szText); },
       "-27 MSG_Error(-1) : No Data found {tagnum=15}", asNone},
      {"MSG_GetAtSubArr",
       FULL,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pMsg = MSG_GetAtSubArr(w.pMsg.get(), 16, 3, &iRet);
         return iRet;
       },
       "0 message " + sRow,
       {}},
      {"MSG_GetAtSubArr outside", FULL,
       [](T_World& w) {
         int iRet = 0;
         w.tOut.pMsg = MSG_GetAtSubArr(w.pMsg.get(), 16, 9, &iRet);
         return iRet;
       },
       "-27 MSG_Error(-1) : No Data found {tagnum=16}", asNone},
      {"MSG_GetIntColumn of texts", FULL,
       [](T_World& w) { return MSG_GetIntColumn(w.pMsg.get(), 16, 1, &w.tOut.i, nullptr, 1); },
       "-17 MSG_Error(-17) : Invalid tag type {Line:983, tagnum=1,type=(string/integer)} i=0", {"-11 i=0"}},
      {"MSG_GetIntColumn", FULL,
       [](T_World& w) { return MSG_GetIntColumn(w.pMsg.get(), 16, 2, &w.tOut.i, nullptr, 1); }, "4 i=0", {}},
      {"MSG_GetDblColumn", FULL,
       [](T_World& w) { return MSG_GetDblColumn(w.pMsg.get(), 16, 9, &w.tOut.d, nullptr, 1); },
       "-18 MSG_Error(-18) : Not defined tag in dictionary {msgnum=101, tagnum=9} d=0.000000", {"-11 d=0.000000"}},
      {"MSG_GetBoolColumn", EMPTY,
       [](T_World& w) { return MSG_GetBoolColumn(w.pMsg.get(), 16, 2, &w.tOut.i, nullptr, 1); },
       "-1 MSG_Error(-1) : No Data found {tagnum=16} i=0", {"-11 i=0"}},
      {"MSG_GetDateColumn", FULL,
       [](T_World& w) { return MSG_GetDateColumn(w.pMsg.get(), 16, 1, w.tOut.szText, nullptr, 1); },
       "-17 MSG_Error(-17) : Invalid tag type {Line:1103, tagnum=1,type=(string/date)} buffer=", {"-11 buffer="}},
      {"MSG_GetStrColumn", FULL,
       [](T_World& w) {
         size_t auOffset[3];
         return MSG_GetStrColumn(w.pMsg.get(), 16, 1, w.tOut.szText, sizeof(w.tOut.szText), auOffset, nullptr, 2);
       },
       "4 buffer=" + sText, {}},
      {"MSG_GetStrColumn without room", FULL,
       [](T_World& w) {
         size_t auOffset[5];
         return MSG_GetStrColumn(w.pMsg.get(), 16, 1, w.tOut.szText, 50, auOffset, nullptr, 4);
       },
       "-27 MSG_Error(-27) : Out of index boundary in array {tagnum=1} buffer=" + sText, {"-11 buffer=" + sText}},
      {"MSG_NextMsg", EMPTY, [](T_World&) { return MSG_NextMsg(10); }, "100", {}},
      {"MSG_FindMsg", EMPTY, [](T_World&) { return MSG_FindMsg("Everything"); }, "100", {}},
      {"MSG_GetMsgName", EMPTY, [](T_World&) { return MSG_GetMsgName(100) != nullptr ? 1 : 0; }, "1", {}},
      {"MSG_GetTagCount", EMPTY, [](T_World&) { return MSG_GetTagCount(100); }, "12", {}},
      {"MSG_GetTagNum", EMPTY, [](T_World&) { return MSG_GetTagNum(100, 11); }, "16", {}},
      {"MSG_FindTag", EMPTY, [](T_World&) { return MSG_FindTag(100, "rows"); }, "16", {}},
      {"MSG_GetTagName", EMPTY, [](T_World&) { return MSG_GetTagName(100, 16) != nullptr ? 1 : 0; }, "1", {}},
      {"MSG_GetTagType", EMPTY, [](T_World&) { return MSG_GetTagType(100, 16); }, "6", {}},
      {"MSG_GetTagSubMsg", EMPTY, [](T_World&) { return MSG_GetTagSubMsg(100, 16); }, "101", {}},
      {"MSG_IsArrayTag", EMPTY, [](T_World&) { return MSG_IsArrayTag(100, 16); }, "1", {}},
  };
}

// MSG_Dump to a file and, as the children's standard output is /dev/null, to standard output.
std::vector<T_Op> Dumps(const std::string& p_sPath) {
  const std::string sNoMemory = "-11 error -11 MSG_Error(-11) : Memory error {std::bad_alloc} 0";
  const auto fnDump = [](T_World& w, const char* p_szPath) { return MSG_Dump(w.pMsg.get(), p_szPath, &w.tOut.tErr); };
  return {
      {"MSG_Dump to a file",
       FULL,
       [=](T_World& w) { return fnDump(w, p_sPath.c_str()); },
       "0",
       // the C library writes without a buffer when it finds no memory for one
       {sNoMemory, "-1 error -32 cannot open file 0", UNNOTICED}},
      {"MSG_Dump to standard output",
       FULL,
       [=](T_World& w) { return fnDump(w, nullptr); },
       "0",
       {sNoMemory, UNNOTICED}},
      {"MSG_Dump to a folder",
       FULL,
       [=](T_World& w) { return fnDump(w, "/"); },
       "-1 error -32 cannot open file 0",
       {UNNOTICED}},
  };
}

// ---- whole calls

// The request of the typed call, and its reply.
class CTyped : public CMsgBase {
 public:
  CMsg* CreateMsg() override {
    CMsgPtr pMsg(MA_NewMsg(100));
    if (pMsg == nullptr || pMsg->SetValue("text", LONG_TEXT) < 0) return nullptr;
    return pMsg.release();
  }
  int LoadFromMsg(CMsg* p_pMsg) override {
    CString sText;
    return p_pMsg->GetValue("text", &sText);
  }
};

// What a call may say that runs out of memory, where p_sResult is the result of one that fails.
CTexts NoMemoryCalling(const std::string& p_sResult) {
  CTexts as = {
      "-4 Memory error(-1)((SendTo))",
      "-4 Compression failed(-16)((SendTo)(-4))",
      "-5 Memory error(-1)(ReceiveFrom)",
      "-5 Compression failed(-16)(ReceiveFrom(-4)(0))",
  };
  for (const std::string& s : NO_MEMORY_READING) {
    const std::string sThrown = "CException -11 ";
    if (s.compare(0, sThrown.size(), sThrown) == 0)
      as.push_back("-7 -11, Memory error(" + s.substr(sThrown.size()) + ")");
  }
  for (std::string& s : as) s = p_sResult + " error " + s + " -1";
  return as;
}

// Puts the error of a call that failed where the outcome is told from. Returns the call's result.
int Tell(int p_iRet, const CCallOrvError& p_cErr, T_World& p_tWorld) {
  if (p_iRet >= 0) return p_iRet;
  CallOrv_Error& tErr = p_tWorld.tOut.tErr;
  tErr.iCode = p_cErr.iCode;
  snprintf(tErr.szText, sizeof(tErr.szText), "%s", p_cErr.sText.ToStr());
  tErr.iRefSvcNum = p_cErr.iRefSvcNum;
  return p_iRet;
}

std::vector<T_Op> Calls() {
  std::vector<T_Op> aOps;
  const auto fnCall = [](E_Service p_eService) {
    return [=](T_World& w) {
      return CallOrv_CallService(p_eService, w.pMsg.get(), w.pReply.get(), &w.tOut.tErr);
    };
  };
  const auto fnTyped = [](T_World& w) {
    CTyped cIn, cOut;
    CCallOrvError cErr;
    const int iRet = CCallOrv::CallService(ECHO_PLAIN, &cIn, &cOut, &cErr);
    return Tell(iRet, cErr, w);
  };
  const auto fnTold = [](T_World& w) {
    CCallOrvError cErr;
    CCallOrv::T_Exchange tExchange;
    const int iRet = CCallOrv::CallServiceByMsg(ECHO_PLAIN, w.pMsg.get(), w.pReply.get(), &cErr, &tExchange);
    return Tell(iRet, cErr, w);
  };
  const std::string sNoMemory = "-11 error -11 MSG_Error(-11) : Memory error {";
  const CTexts asCall = With(NoMemoryCalling("-3"), {
      sNoMemory + "std::bad_alloc} 0",
      sNoMemory + "at adaptor(71 lines), (new Error) failed(std::bad_alloc)} 0",
      sNoMemory + "at adaptor(79 lines), (new char[iLen]) failed(std::bad_alloc)} 0",
  });
  const CTexts asUnnoticed = With(asCall, {UNNOTICED});    // the parser reads what was not read before for want of memory
  for (const E_Start eStart : {EMPTY, FULL}) {
    const std::string sHow = eStart == FULL ? ", long body" : ", short body";
    aOps.push_back({"CallOrv_CallService" + sHow, eStart, fnCall(ECHO_PLAIN), "0 reply ", asUnnoticed});
    aOps.push_back({"CallOrv_CallService, compressed" + sHow, eStart, fnCall(ECHO_COMPRESSED), "0 reply ", asUnnoticed});
  }
  aOps.push_back(
      {"CallOrv_CallService, rejected", EMPTY, fnCall(REJECTS), "-4 error 5 " + std::string(LONG_TEXT) + " 3", asCall});
  aOps.push_back({"CallOrv_CallService, malformed reply", EMPTY, fnCall(MALFORMED),
                  "-3 error -7 -21, XML parsing failed(Handler error : [F]MemData (L:1, C:15) input ended before all "
                  "started tags were ended; last tag started is 'msg') -1", asUnnoticed});
  aOps.push_back({"CallOrv_CallService, no reply", EMPTY, fnCall(CLOSES), "-3 error -5 Socket closed(-9)(OK) -1",
                  asCall});
  // Calls that hold no thread; what Start gives null for is told as by the blocking call.
  const auto fnStart = [](E_Service p_eService, T_World& w) {
    return CallOrv_Start(p_eService, w.pMsg.get(), 20000, &w.tOut.tErr);
  };
  const auto fnNotStarted = [](const T_World& w) { return w.tOut.tErr.iCode == -11 ? -11 : -3; };
  const auto fnStepped = [=](E_Service p_eService) {
    return [=](T_World& w) {
      CallOrv_Call* pCall = fnStart(p_eService, w);
      if (pCall == nullptr) return fnNotStarted(w);
      while (CallOrv_Step(pCall) == 1) {
        pollfd tPoll = {CallOrv_GetFd(pCall), static_cast<short>(CallOrv_GetEvents(pCall)), 0};
        poll(&tPoll, 1, CallOrv_GetTimeLeft(pCall));
      }
      return CallOrv_Finish(pCall, w.pReply.get(), &w.tOut.tErr);
    };
  };
  const auto fnWaited = [=](T_World& w) {
    CallOrv_Call* apCall[65];    // more than are waited for without memory
    int iStarted = 0;
    for (CallOrv_Call*& pCall : apCall) iStarted += (pCall = fnStart(ECHO_PLAIN, w)) != nullptr;
    int iOver = iStarted == 65 ? 0 : fnNotStarted(w);
    for (int iLeft = 65; iOver >= 0 && iLeft > 0; --iLeft) {
      iOver = CallOrv_WaitAny(apCall, 65, -1);
      if (iOver >= 0) CallOrv_Cancel(std::exchange(apCall[iOver], nullptr));
    }
    for (CallOrv_Call* pCall : apCall) CallOrv_Cancel(pCall);
    return std::min(iOver, 0);
  };
  const auto fnCancelled = [=](T_World& w) {
    CallOrv_Call* pCall = fnStart(ECHO_PLAIN, w);
    CallOrv_SetUser(pCall, &w);
    const bool bOwn = CallOrv_GetUser(pCall) == (pCall != nullptr ? &w : nullptr);
    CallOrv_Cancel(pCall);
    if (!bOwn) return -1;
    return pCall != nullptr ? 0 : fnNotStarted(w);
  };
  const auto fnWithin = [](T_World& w) {
    return CallOrv_CallServiceWithin(ECHO_PLAIN, w.pMsg.get(), w.pReply.get(), 20000, &w.tOut.tErr);
  };
  const auto fnResolve = [](T_World& w) { return CallOrv_Resolve(&w.tOut.tErr); };
  for (const E_Start eStart : {EMPTY, FULL}) {
    const std::string sHow = eStart == FULL ? ", long body" : ", short body";
    aOps.push_back({"CallOrv_Start, stepped" + sHow, eStart, fnStepped(ECHO_PLAIN), "0 reply ", asUnnoticed});
    aOps.push_back({"CallOrv_Start, stepped, compressed" + sHow, eStart, fnStepped(ECHO_COMPRESSED), "0 reply ", asUnnoticed});
    aOps.push_back({"CallOrv_CallServiceWithin" + sHow, eStart, fnWithin, "0 reply ", asUnnoticed});
    for (const char* szWhat : {"CallOrv_SetUser", "CallOrv_GetUser", "CallOrv_Cancel"}) {
      aOps.push_back({szWhat + sHow, eStart, fnCancelled, "0", asCall});
    }
  }
  for (const char* szWhat : {"CallOrv_Step", "CallOrv_Finish", "CallOrv_GetFd", "CallOrv_GetEvents", "CallOrv_GetTimeLeft"}) {
    aOps.push_back({szWhat + std::string(", no reply"), EMPTY, fnStepped(CLOSES), "-3 error -5 Socket closed(-9)(OK) -1",
                    asCall});
  }
  aOps.push_back({"CallOrv_WaitAny", EMPTY, fnWaited, "0", With(asCall, {"-2", UNNOTICED})});    // one may fail and be over
  aOps.push_back({"CallOrv_Resolve", EMPTY, fnResolve, "0", asCall});
  const CTexts asThrown = {BAD_ALLOC, "CException -11 at adaptor(71 lines), (new Error) failed(std::bad_alloc)",
                           "CException -11 at adaptor(79 lines), (new char[iLen]) failed(std::bad_alloc)"};
  aOps.push_back({"CCallOrv::CallService", EMPTY, fnTyped, "0",
                  With(With(NoMemoryCalling("-4"), asThrown),
                       {"-2 error -1 Input Msg is corrupted() 1", "-3 error -11 Out of memory 1", UNNOTICED})});
  aOps.push_back({"CCallOrv::CallServiceByMsg with T_Exchange", FULL, fnTold, "0 reply ",
                  With(With(NoMemoryCalling("-3"), asThrown), {UNNOTICED})});
  return aOps;
}

// ---- files

class CElements : public CDicReader {
 public:
  int m_iCount = 0;

 private:
  void OnElement(int, const char*, const T_Attribute*, int) override { ++m_iCount; }
};

std::vector<T_Op> FileReaders(const T_Files& p_tFiles) {
  const std::string sKey = p_tFiles.sKey, sPlain = p_tFiles.sPlain, sEncrypted = p_tFiles.sEncrypted;
  const std::string sConfig = p_tFiles.asConfig.at(sPlain);
  const auto fnElements = [](const std::string& p_sPath) {
    return [=](T_World&) {
      CElements cElements;
      cElements.Read(p_sPath.c_str());
      return cElements.m_iCount;
    };
  };
  const CTexts asReading = {BAD_ALLOC, "CException -11 XMLParser out of memory", UNNOTICED};
  return {
      {"CCfgReader",
       EMPTY,
       [=](T_World& w) {
         CCfgReader cConfig;
         CString sValue;
         if (cConfig.Load(sConfig.c_str()) < 0 || cConfig.GetStrVal("server", &sValue) < 0) return -1;
         return cConfig.GetIntVal("timeout", &w.tOut.i);
       },
       "0 i=" + std::to_string(TIME_OUT),
       {BAD_ALLOC, "-1", UNNOTICED}},
      {"CCallOrv::GetUserKey",
       EMPTY,
       [=](T_World&) {
         CString sUserKey, sErr;
         return CCallOrv::GetUserKey(sKey.c_str(), sUserKey, sErr);
       },
       "0",
       {BAD_ALLOC, "-1", UNNOTICED}},
      {"CCrypt::DecryptFileToStream",
       EMPTY,
       [=](T_World& w) {
         CString sErr;
         return CCrypt::DecryptFileToStream(sEncrypted.c_str(), w.stText, sErr);
       },
       "0",
       {BAD_ALLOC, "-5", UNNOTICED}},
      {"CDicReader", EMPTY, fnElements(sPlain), "23",
       With(asReading, {"CException -21 Handler error : [F] (L:0, C:0) : unable to open primary document entity '" +
                        sPlain + "'"})},
      {"CDicReader, encrypted", EMPTY, fnElements(sEncrypted), "23",
       With(asReading, {"CException -36 Handler error : File cannot be open(" + sEncrypted + ")"})},
  };
}

// ---- initialisation, each time in a process that has not had one

struct T_Start {
  std::string sName;
  std::function<std::string(const std::string& p_sDic)> fnRun;    // armed when called; result and text
  std::string sDic;
  CTexts asFailed;
  std::string sBroken,
      sLoaded;    // what it says when the parser never works again, and when message 1 is there already
};

// What is held for good after an initialisation that had all memory, by who asked for it: the C library and the
// parser's libraries keep some for themselves.
struct T_Kept {
  long aiBlocks[2];
};

T_Kept KeptBy(const T_Start& p_tStart) {
  const std::string sKept = InChild([&] {
    CMallocGate::Arm(0, 0);
    p_tStart.fnRun(p_tStart.sDic);
    MA_GetMsgDic()->~CMsgDic();
    return std::to_string(CMallocGate::GetLive(ASKER_OWN)) + " " + std::to_string(CMallocGate::GetLive(ASKER_PARSER));
  });
  return {{std::stol(sKept), std::stol(sKept.substr(sKept.find(' ')))}};
}

T_Outcome RunStart(const T_Start& p_tStart, const T_Files& p_tFiles, int p_iNth, int p_iCount,
                   const T_Kept& p_tKept) {
  T_Outcome tOutcome;
  const auto fnExpect = [&](bool p_bTrue, const std::string& p_sWhat) {
    if (!p_bTrue && tOutcome.sWhy.empty()) tOutcome.sWhy = p_sWhat;
  };
  CMallocGate::Arm(p_iNth, p_iCount);
  const std::string sSaid = p_tFiles.Named(p_tStart.fnRun(p_tStart.sDic));
  tOutcome.bLast = !CMallocGate::HasFailed();
  const bool bParserFailed = CMallocGate::HasParserFailed();
  const bool bGood = sSaid == "0", bLoaded = MA_GetMsgDic()->GetMsgInfo(1) != nullptr;
  fnExpect(bGood || (!tOutcome.bLast && std::count(p_tStart.asFailed.begin(), p_tStart.asFailed.end(), sSaid) == 1),
           "says: " + sSaid);

  const auto fnNext = [&](const std::string& p_sDic) {
    CMallocGate::Arm(0, 0);
    return p_tFiles.Named(p_tStart.fnRun(p_sDic));
  };
  const std::string sNext = fnNext(bLoaded ? p_tFiles.sEmpty : p_tStart.sDic);
  const bool bBroken = !bGood && bParserFailed && sNext == p_tStart.sBroken;
  fnExpect(sNext == "0" || bBroken, "the next one says: " + sNext);
  if (bLoaded) {
    const std::string sAgain = fnNext(p_tStart.sDic);
    fnExpect(sAgain == p_tStart.sLoaded, "one that loads the same messages says: " + sAgain);
  }
  if (bGood) {
    T_World tWorld(FULL);
    const std::string sXml = FullXml(false);
    fnExpect(Xml(*tWorld.pMsg) == sXml && sXml.size() > 1000, "the message is " + sXml);
  }
  MA_GetMsgDic()->~CMsgDic();
  const long iLost = CMallocGate::GetLive(ASKER_OWN) - p_tKept.aiBlocks[ASKER_OWN];
  const long iParserLost = CMallocGate::GetLive(ASKER_PARSER) - p_tKept.aiBlocks[ASKER_PARSER];
  fnExpect(iLost <= 0, std::to_string(iLost) + " blocks lost");
  fnExpect(iParserLost <= 0 || bBroken, std::to_string(iParserLost) + " blocks lost in the parser");
  return tOutcome;
}

std::vector<T_Start> Starts(const T_Files& p_tFiles, int p_iPort) {
  const auto fnSay = [](int p_iRet, const CallOrv_Error& p_tErr) {
    CMallocGate::Disarm();
    return ResultText(p_iRet, p_tErr);
  };
  const std::string sKey = p_tFiles.sKey;
  const auto fnConfig = [=, &p_tFiles](const std::string& p_sDic) {
    CallOrv_Error tErr = {};
    return fnSay(CallOrv_Initialize(p_tFiles.asConfig.at(p_sDic).c_str(), &tErr), tErr);
  };
  const auto fnEx = [=](const std::string& p_sDic) {
    CallOrv_Error tErr = {};
    return fnSay(CallOrv_InitializeEx(sKey.c_str(), p_sDic.c_str(), "127.0.0.1", p_iPort, 30, &tErr), tErr);
  };
  const auto fnDictionary = [](const std::string& p_sDic) -> std::string {
    try {
      MA_GetMsgDic()->InitDictionary(p_sDic.c_str());
      CMallocGate::Disarm();
      return "0";
    } catch (const CException& p_c) {
      CMallocGate::Disarm();
      return "CException " + std::to_string(p_c.GetCode()) + " " + p_c.GetText();
    } catch (const std::bad_alloc&) {
      CMallocGate::Disarm();
      return BAD_ALLOC;
    }
  };
  const std::string sBroken = "XMLPlatformUtils::Initialize() has failed before";
  const std::string sLoaded = "InitDictionary(Handler error : msgnum=1,msgname=Hello)";
  std::vector<T_Start> aStarts;
  for (const std::string& sDic : {p_tFiles.sPlain, p_tFiles.sEncrypted}) {
    const std::string sHow = sDic == p_tFiles.sPlain ? ", plain" : ", encrypted";
    const std::string sConfig = sDic == p_tFiles.sPlain ? "dic.xml.cfg" : "dic.exml.cfg";
    const CTexts asParser = {"XMLParser out of memory", "Unknown reason",
                             "Could not load a local code page transcoder"};
    CTexts asDic = {"XMLParser out of memory", "Handler error : (CMsgInfo)", "Handler error : (CTagInfo)"};
    if (sDic == p_tFiles.sEncrypted) {
      asDic.push_back("Handler error : File cannot be open(DIR/dic.exml)");
    } else {
      asDic.push_back("Handler error : [F] (L:0, C:0) : unable to open primary document entity 'DIR/dic.xml'");
    }
    CTexts asC = {"-11 error -11 MSG_Error(-11) : Memory error {std::bad_alloc} 0",
                  "-1 error 0 File cannot be open(DIR/user.key) 0"};
    CTexts asCpp = {BAD_ALLOC};
    for (const std::string& s : asParser) asC.push_back("-2 error 0 " + s + " 0");
    for (const std::string& s : asParser) asCpp.push_back("CException -26 " + s);
    for (const std::string& s : asDic) asC.push_back("-2 error 0 InitDictionary(" + s + ") 0");
    for (const std::string& s : asDic) {
      const char* szCode = s.find("[F]") != s.npos ? "-21" : s.find("open") != s.npos ? "-36" : "-11";
      asCpp.push_back("CException " + std::string(szCode) + " InitDictionary(" + s + ")");
    }
    aStarts.push_back({"CallOrv_Initialize" + sHow, fnConfig, sDic,
                       With(asC, {"-1 error 0 File open failed [DIR/" + sConfig + "](12,Cannot allocate memory) 0"}),
                       "-2 error 0 " + sBroken + " 0", "-2 error 0 " + sLoaded + " 0"});
    aStarts.push_back({"CallOrv_InitializeEx" + sHow, fnEx, sDic, asC, "-2 error 0 " + sBroken + " 0",
                       "-2 error 0 " + sLoaded + " 0"});
    aStarts.push_back({"InitDictionary" + sHow, fnDictionary, sDic, asCpp, "CException -26 " + sBroken,
                       "CException -22 " + sLoaded});
  }
  return aStarts;
}

// The functions of callorv/callorv.h, as the library exports them.
std::vector<std::string> ExportedCFunctions() {
  std::istringstream cList(ReadWholeFile(TEST_SUPPORT_DIR "/../../cmake/callorv.symbols"));
  std::vector<std::string> asFunction;
  for (std::string sName; std::getline(cList, sName);) {
    const bool bC = sName.find_first_of("(: ") == sName.npos;
    if (bC && (sName.compare(0, 4, "MSG_") == 0 || sName.compare(0, 8, "CallOrv_") == 0)) asFunction.push_back(sName);
  }
  if (asFunction.empty()) throw std::runtime_error("no list of what is exported");
  return asFunction;
}

enum { QUICK_STEP = 31 };    // of the allocations of an initialisation, of which there are thousands

}    // namespace

int main(int argc, char** argv) {
  CChildren cChildren("alloc", argc, argv);
  const CPeerProcess cPeer(Answer);
  const T_Files tFiles(cPeer.Port());
  CMallocGate::Begin();
  if (cChildren.IsQuick()) {
    fprintf(stderr, "alloc: of the allocations of an initialisation every %dth fails; of all others, each\n",
            QUICK_STEP);
  }
  for (const T_Start& tStart : Starts(tFiles, cPeer.Port())) {
    const T_Kept tKept = KeptBy(tStart);
    for (const T_Form& tForm : s_atForm) {
      cChildren.Run(tStart.sName + ", " + tForm.szName, cChildren.IsQuick() ? QUICK_STEP : 1, 1, [&] {
        return [&](int p_iNth) { return RunStart(tStart, tFiles, p_iNth, tForm.iCount, tKept); };
      });
    }
  }
  CallOrv_Error tErr;
  if (CallOrv_InitializeEx(tFiles.sKey.c_str(), tFiles.sPlain.c_str(), "127.0.0.1", cPeer.Port(), 30, &tErr) != 0)
    return 1;
  const std::string sDump = tFiles.cDir.Path("dump");
  std::set<std::string> asTried = {"CallOrv_Initialize", "CallOrv_InitializeEx"};
  for (const auto& aOps :
       {Setters(), Builders(), Writers(), Readers(), CFunctions(), Dumps(sDump), Calls(), FileReaders(tFiles)}) {
    for (const T_Op& tOp : aOps) {
      RunOp(cChildren, tOp);
      asTried.insert(tOp.sName.substr(0, tOp.sName.find_first_of(" ,")));
    }
  }
  for (const std::string& sFunction : ExportedCFunctions()) {
    cChildren.Check(asTried.count(sFunction) == 1, sFunction + " is not tried");
  }
  return cChildren.End();
}
