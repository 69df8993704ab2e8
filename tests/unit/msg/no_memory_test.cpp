// Every allocation of the layer made to fail: the codes and texts, and that everything is as before.
#include <callorv/crypt/crypt.h>

#include <climits>
#include <set>

#include "support/child.h"
#include "support/descriptors.h"
#include "support/huge_text.h"
#include "support/parser_leaks.h"
#include "support/test_dic.h"

namespace {

// What a call says that failed.
using CTexts = std::set<std::string>;

struct T_Setter {
  const char* szWhat;
  int iTag;
  int (*fnSet)(CMsg&, bool p_bSecond);
  CTexts asText;
};

// For doctest, which would print a set as {?}.
std::string Say(const CTexts& p_as) {
  std::string sAll;
  for (const std::string& s : p_as) sAll += s + "\n";
  return sAll;
}

const char* const s_szLong = "a text that is too long to be stored in place";
const char* const s_szOther = "another text that is too long to be stored in place";

const char* const s_szNoCell = "MSG_Error(-11) : Memory error {new CMsgValue failed}";
const T_Setter s_atSetter[] = {
    {"string", 1, [](CMsg& m, bool b) { return m.SetValue(1, b ? s_szOther : s_szLong); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CString failed}"}},
    {"integer", 7, [](CMsg& m, bool b) { return m.SetValue(7, b ? 6 : 5); }, {s_szNoCell}},
    {"double", 3, [](CMsg& m, bool b) { return m.SetValue(3, b ? 2.5 : 1.5); }, {s_szNoCell}},
    {"bool", 4, [](CMsg& m, bool b) { return m.SetValue(4, !b); }, {s_szNoCell}},
    {"date", 5, [](CMsg& m, bool b) { return m.SetValue(5, CDate(b ? "20240229" : "20240131")); }, {s_szNoCell}},
    {"strings", 11, [](CMsg& m, bool b) { return m.SetValue(11, b ? s_szOther : s_szLong); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CStrArray failed}"}},
    {"integers", 17, [](CMsg& m, bool b) { return m.SetValue(17, b ? 6 : 5); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CIntArray failed}"}},
    {"doubles", 13, [](CMsg& m, bool b) { return m.SetValue(13, CDbl(b ? 2.5 : 1.5)); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CDblArray failed}"}},
    {"bools", 14, [](CMsg& m, bool b) { return m.SetValue("flags", CBool(!b)); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CBoolArray failed}"}},
    {"dates", 15, [](CMsg& m, bool b) { return m.SetValue(15, CDate(b ? "20240229" : "20240131")); },
     {s_szNoCell, "MSG_Error(-11) : Memory error {new CDateArray failed}"}},
};

}    // namespace

TEST_CASE("a setter without memory says what was missing and stores nothing") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    CTexts asSeen;
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CTestMsg cMsg(120);
      int iRet = 99;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { iRet = tSetter.fnSet(*cMsg, false); });
      CHECK(tThrown.iCode == 0);
      CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
      if (!p_cFail.HasFailed()) return;
      const std::string sText = cMsg->GetLastError();
      asSeen.insert(sText);
      CHECK(cMsg->IsEmpty());
      CHECK(cMsg->GetArrSize(tSetter.iTag) == -1);
      CHECK(cMsg->GetLastError() == "MSG_Error(-1) : No Data found {tagnum=" + std::to_string(tSetter.iTag) +
                                        (sText == s_szNoCell ? "}" : ",Unset}"));
      CHECK(ToXml(*cMsg) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"></msg>");
      CHECK(tSetter.fnSet(*cMsg, false) == 0);
      CHECK(cMsg->GetArrSize(tSetter.iTag) == 1);
      CTestMsg cWanted(120);
      tSetter.fnSet(*cWanted, false);
      CHECK(ToXml(*cMsg) == ToXml(*cWanted));
    });
    CHECK(iFailures >= 1);
    CHECK(Say(asSeen) == Say(tSetter.asText));
  }
}

TEST_CASE("a setter without memory leaves the values that are there") {
  for (const T_Setter& tSetter : s_atSetter) {
    CAPTURE(tSetter.szWhat);
    ForEachFailure([&](CFailAlloc& p_cFail) {
      CTestMsg cMsg(120);
      for (const T_Setter& tOther : s_atSetter) REQUIRE(tOther.fnSet(*cMsg, false) == 0);
      const bool bMulti = tSetter.iTag > 10;
      for (int i = 0; bMulti && i < 3; ++i) REQUIRE(tSetter.fnSet(*cMsg, false) == 0);    // no room for one more
      const std::string sBefore = ToXml(*cMsg);
      int iRet = 99;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { iRet = tSetter.fnSet(*cMsg, true); });
      CHECK(tThrown.iCode == 0);
      CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
      CHECK((ToXml(*cMsg) == sBefore) == p_cFail.HasFailed());
      CHECK(tSetter.fnSet(*cMsg, true) == 0);
      CHECK(ToXml(*cMsg) != sBefore);
    });
  }
}

TEST_CASE("a text or a date that finds no memory behind its cell") {
  for (const char* szType : {"string", "date"}) {
    CAPTURE(std::string(szType));
    const bool bDate = szType[0] == 'd';
    CTexts asSeen;
    for (int iInts = 0; iInts < 8; ++iInts) {    // different places in the message's blocks
      ForEachFailure([&](CFailAlloc& p_cFail) {
        CMsgDic cDic;
        cDic.SetMsgInfo(5, "m", "", "");
        for (int i = 0; i < iInts; ++i) cDic.SetMsgDetail(5, i, "i", "integer", "N");
        for (int i = 10; i < 60; ++i) cDic.SetMsgDetail(5, i, "t", szType, "N");
        CMsg cMsg(5, 0, 0, &cDic);
        for (int i = 0; i < iInts; ++i) REQUIRE(cMsg.SetValue(i, i) == 0);
        const auto fnSet = [&](int i) { return bDate ? cMsg.SetValue(i, CDate("2024")) : cMsg.SetValue(i, "short"); };
        for (int i = 10; i < 60; ++i) {
          int iRet = 0;
          CHECK(CaughtFailing(p_cFail, [&] { iRet = fnSet(i); }).iCode == 0);
          if (iRet == 0) continue;
          CHECK(iRet == -11);
          asSeen.insert(cMsg.GetLastError());
          CHECK(cMsg.GetArrSize(i) == -1);
          CHECK(fnSet(i) == 0);
        }
        for (int i = 10; i < 60; ++i) REQUIRE(cMsg.GetArrSize(i) == 1);
      });
    }
    CHECK(Say(asSeen) == Say(CTexts{s_szNoCell, bDate ? "MSG_Error(-11) : Memory error {new CDate failed}"
                                                      : "MSG_Error(-11) : Memory error {new CString failed}"}));
  }
}

TEST_CASE("many values without memory now and then") {
  for (int iNth = 1; iNth < 60; ++iNth) {
    CAPTURE(iNth);
    CMsgDic cDic;
    cDic.SetMsgInfo(5, "m", "", "1");
    for (int i = 0; i < 100; ++i) cDic.SetMsgDetail(5, i, "t", i % 2 == 0 ? "integer" : "string", "N");
    CMsg cMsg(5, 0, 0, &cDic);
    CFailAlloc cFail(iNth);
    int iStored = 0;
    for (int i = 0; i < 100; ++i) {
      int iRet = -1;
      CaughtFailing(cFail, [&] { iRet = i % 2 == 0 ? cMsg.SetValue(i, i) : cMsg.SetValue(i, s_szLong); });
      if (iRet == 0) ++iStored;
      CHECK((cMsg.GetArrSize(i) == 1) == (iRet == 0));
    }
    CHECK(iStored >= 99);
    int iFound = 0;
    for (int i = 0; i < 100; ++i) iFound += cMsg.GetArrSize(i) == 1 ? 1 : 0;
    CHECK(iFound == iStored);
  }
}

TEST_CASE("an error that finds no memory for its text is thrown") {
  CTexts asSeen;
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CTestMsg cMsg(120);
    int iRet = 99;
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { iRet = cMsg->SetValue(99, 1); });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(iRet == (p_cFail.HasFailed() ? 99 : -18));
    if (p_cFail.HasFailed()) asSeen.insert(tThrown.sText);
    CHECK(cMsg->SetValue(99, 1) == -18);
  });
  CHECK(iFailures == 3);
  CHECK(Say(asSeen) == Say(CTexts{"at msg_error(79 lines), (new Error) failed(std::bad_alloc)",
                         "at msg_error(87 lines), (new char[iLen]) failed(std::bad_alloc)"}));
}

TEST_CASE("when all memory is used up, something is thrown and the message stays") {
  for (int i = 1; i < 10; ++i) {
    CTestMsg cMsg(120);
    cMsg->SetValue(7, 5);
    CFailAlloc cAll(i, INT_MAX);
    const T_Thrown tThrown = CaughtFailing(cAll, [&] {
      for (int k = 0; k < 20; ++k) cMsg->SetValue(99, 1);
    });
    CHECK(tThrown.iCode == 1);    // there is not even memory for the exception's text
    CHECK(cMsg->SetValue(1, s_szLong) == 0);
    CHECK(cMsg->GetArrSize(7) == 1);
  }
}

TEST_CASE("a sub-message without memory stays the caller's, unless it is stored already") {
  for (int iTag : {6, 16}) {
    CAPTURE(iTag);
    const std::string sTag = std::to_string(iTag);
    CTexts asSeen;
    ForEachFailure([&](CFailAlloc& p_cFail) {
      CTestMsg cMsg(120);
      std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "row"));
      int iRet = 99;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { iRet = cMsg->SetValue(iTag, pRow.get()); });
      CHECK(tThrown.iCode == 0);
      CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
      const std::string sError = p_cFail.HasFailed() ? cMsg->GetLastError() : "";
      if (p_cFail.HasFailed()) asSeen.insert(sError);
      const bool bTaken = sError.empty() || sError == "MSG_Error(-11) : Memory error {tagnum=" + sTag + ",msgnum=120}";
      CHECK((cMsg->GetArrSize(iTag) == 1) == bTaken);
      CHECK((cMsg->GetValue(iTag) == pRow.get()) == bTaken);
      CHECK((pRow->GetParent() == &*cMsg) == bTaken);
      CHECK(cMsg->IsEmpty() == p_cFail.HasFailed());
      if (bTaken) {
        CHECK(cMsg->SetValue(16, pRow.get()) == -28);
        CHECK(pRow->SetValue(4, &*cMsg) == -28);    // it would be inside itself
        MA_FreeMsg(pRow.release());    // which may be done in any case
        CHECK(cMsg->GetValue(iTag) == nullptr);
      } else {
        CHECK(cMsg->SetValue(iTag, pRow.release()) == 0);
        CHECK(cMsg->GetArrSize(iTag) == 1);
      }
    });
    CTexts asWanted{"MSG_Error(-11) : Memory error {new CMsgValue failed}",
                    "MSG_Error(-11) : Memory error {tagnum=" + sTag + ",msgnum=120}"};
    if (iTag == 16) asWanted.insert("MSG_Error(-11) : Memory error {new CMsgArray failed}");
    CHECK(Say(asSeen) == Say(asWanted));
  }
}

TEST_CASE("a message whose own sub-message is not listed for want of memory cannot become part of that") {
  CTestMsg cMsg(120);    // which counts as empty all the time
  const std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "row"));
  for (int i = 1; pRow->GetParent() == nullptr; ++i) {
    CFailAlloc cFail(i, 1);
    int iRet = 99;
    REQUIRE(CaughtFailing(cFail, [&] { iRet = cMsg->SetValue(6, pRow.get()); }).iCode == 0);
    REQUIRE(iRet == -11);
  }
  CHECK(cMsg->IsEmpty());
  CHECK(cMsg->GetValue(6)->SetValue(4, &*cMsg) == -28);
  CHECK(ToXml(*cMsg->GetValue(6)) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"121\" ver=\"\"><t1><![CDATA[row]]></t1></msg>");
  CHECK(cMsg->SetValue(6, pRow.get()) == 0);    // now it is taken
  CHECK_FALSE(cMsg->IsEmpty());
}

#ifdef HAVE_HUGE_TEXT
TEST_CASE("a text that no value can hold is refused as a lack of memory") {
  const CHugeText cHuge;
  CTestMsg cMsg(120);
  REQUIRE(cMsg->SetValue(1, "old") == 0);
  for (const char* szHuge : {cHuge.ToStr(), cHuge.ToStr() + 1}) {    // 2147483648 bytes, 2147483647
    CHECK(cMsg->SetValue(1, szHuge) == -11);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-11) : Memory error {new CString failed}"));
    CHECK(cMsg->SetValue("text", szHuge) == -11);
    CHECK(cMsg->SetValue(11, szHuge) == -11);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-11) : Memory error {new CStrArray failed}"));
    CHECK(cMsg->SetValue(7, szHuge) == -17);
  }
  CHECK(ToXml(*cMsg) ==
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"><t1><![CDATA[old]]></t1></msg>");
}
#endif

TEST_CASE("replacing a sub-message without memory leaves the old one") {
  ForEachFailure([](CFailAlloc& p_cFail) {
    CTestMsg cMsg(120);
    const std::unique_ptr<CMsg> pOld(NewRow(cMsg.Dic(), "old")), pNew(NewRow(cMsg.Dic(), "new"));
    cMsg->SetValue(6, pOld.get());
    int iRet = 99;
    CHECK(CaughtFailing(p_cFail, [&] { iRet = cMsg->SetValue(6, pNew.get()); }).iCode == 0);
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
    const bool bTaken = pNew->GetParent() != nullptr;
    CHECK(cMsg->GetValue(6) == (bTaken ? pNew.get() : pOld.get()));
    CString sText;
    CHECK(pOld->GetValue(1, &sText) == 0);
    CHECK(sText == "old");
    if (!bTaken) CHECK(cMsg->SetValue(6, pNew.get()) == 0);
  });
}

TEST_CASE("AddChild without memory returns a code and no text") {
  ForEachFailure([](CFailAlloc& p_cFail) {
    CTestMsg cMsg(120), cChild(121);
    int iRet = 99;
    CHECK(CaughtFailing(p_cFail, [&] { iRet = cMsg->AddChild(&*cChild); }).iCode == 0);
    CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(cMsg->GetLastError() == std::string());
    CHECK(cMsg->AddChild(&*cChild) == 0);
  });
  CTestMsg cMsg(120), cChild(121);
  cMsg->AddChild(&*cChild);
  CFailAlloc cFail(1);
  int iRet = 99;
  CHECK(CaughtFailing(cFail, [&] { iRet = cMsg->AddChild(&*cChild); }).iCode == 0);    // growing
  CHECK(iRet == -11);
}

TEST_CASE("texts and arrays that cannot grow throw std::bad_alloc") {
  CTestMsg cMsg(120);
  for (const T_Setter& tSetter : s_atSetter) {
    for (int i = 0; i < 5; ++i) tSetter.fnSet(*cMsg, false);
  }
  for (int i = 0; i < 3; ++i) cMsg->SetValue(16, NewRow(cMsg.Dic(), "row"));
  struct T_Row {
    const char* szWhat;
    int (*fnGet)(CMsg&);
  };
  static const T_Row s_atRow[] = {
      {"string", [](CMsg& m) { CString s; return m.GetValue(1, &s) == 0 && s == s_szLong ? 0 : -1; }},
      {"string at", [](CMsg& m) { CString s; return m.GetValueAt(11, 2, &s) == 0 && s == s_szLong ? 0 : -1; }},
      {"strings", [](CMsg& m) { CStrArray a; return m.GetValue(11, &a) == 0 && a.GetSize() == 5 ? 0 : -1; }},
      {"integers", [](CMsg& m) { CIntArray a; return m.GetValue(17, &a) == 0 && a.GetSize() == 5 ? 0 : -1; }},
      {"integer", [](CMsg& m) { CIntArray a; return m.GetValue(7, &a) == 0 && a.GetSize() == 1 ? 0 : -1; }},
      {"doubles", [](CMsg& m) { CDblArray a; return m.GetValue(13, &a) == 0 && a.GetSize() == 5 ? 0 : -1; }},
      {"bools", [](CMsg& m) { CBoolArray a; return m.GetValue(14, &a) == 0 && a.GetSize() == 5 ? 0 : -1; }},
      {"dates", [](CMsg& m) { CDateArray a; return m.GetValue(15, &a) == 0 && a.GetSize() == 5 ? 0 : -1; }},
      {"rows", [](CMsg& m) { CMsgArray a(false); return m.GetValue(16, &a) == 0 && a.GetSize() == 3 ? 0 : -1; }},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szWhat);
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      int iRet = 99;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { iRet = tRow.fnGet(*cMsg); });
      CHECK(tThrown.iCode == (p_cFail.HasFailed() ? 1 : 0));
      CHECK(iRet == (p_cFail.HasFailed() ? 99 : 0));
    });
    CHECK(iFailures >= 1);
  }
  CHECK(cMsg->GetLastError() == std::string());
}

TEST_CASE("Init without memory leaves the message as it was") {
  const int iFailures = ForEachFailure([](CFailAlloc& p_cFail) {
    CTestMsg cMsg(120);
    cMsg->SetValue(7, 5);
    cMsg->SetValue(16, NewRow(cMsg.Dic(), "row"));
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cMsg->Init(121, 0, 0); });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? 1 : 0));
    CHECK(cMsg->GetMsgNum() == (p_cFail.HasFailed() ? 120 : 121));
    if (p_cFail.HasFailed()) CHECK(cMsg->GetArrSize(16) == 1);
    cMsg->Init(121, 0, 0);
    CHECK(cMsg->SetValue(2, 5) == 0);
  });
  CHECK(iFailures == 1);
}

TEST_CASE("a text that finds no memory is thrown as what was missing") {
  struct T_Row {
    int iTag;
    const char* szText;
    CTexts asText;
  };
  const T_Row s_atRow[] = {
      {1, s_szLong, {"new CMsgValue failed", "new CString failed"}},
      {7, "5", {"new CMsgValue failed"}},
      {3, "1.5", {"new CMsgValue failed"}},
      {4, "true", {"new CMsgValue failed"}},
      {5, "20240131", {"new CMsgValue failed"}},
      {11, s_szLong, {"new CMsgValue failed", "new CStrArray failed"}},
      {17, "5", {"new CMsgValue failed", "new CIntArray failed"}},
      {13, "1.5", {"new CMsgValue failed", "new CDblArray failed"}},
      {14, "true", {"new CMsgValue failed", "new CBoolArray failed"}},
      {15, "20240131", {"new CMsgValue failed", "new CDateArray failed"}},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iTag);
    CTexts asSeen;
    ForEachFailure([&](CFailAlloc& p_cFail) {
      CTestMsg cMsg(120);
      CString sText(tRow.szText);
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cMsg->SetParsedData(tRow.iTag, std::move(sText)); });
      CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
      if (!p_cFail.HasFailed()) return;
      asSeen.insert(tThrown.sText);
      CHECK(cMsg->IsEmpty());
      CHECK(cMsg->GetArrSize(tRow.iTag) == -1);
      cMsg->SetParsedData(tRow.iTag, tRow.szText);
      CHECK(cMsg->GetArrSize(tRow.iTag) == 1);
    });
    CHECK(Say(asSeen) == Say(tRow.asText));
  }
}

TEST_CASE("a new sub-message that finds no memory is thrown as what was missing") {
  for (int iTag : {6, 16}) {
    CAPTURE(iTag);
    CTexts asSeen;
    for (int iBefore = 0; iBefore < 3; ++iBefore) {    // rows that are there already: the arrays have to grow or not
      ForEachFailure([&](CFailAlloc& p_cFail) {
        CTestMsg cMsg(120);
        for (int i = 0; iTag == 16 && i < iBefore; ++i) cMsg->MakeSubMsgEntry(16)->SetValue(2, i);
        CMsg* pSub = nullptr;
        const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { pSub = cMsg->MakeSubMsgEntry(iTag); });
        CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
        CHECK((pSub == nullptr) == p_cFail.HasFailed());
        if (p_cFail.HasFailed()) asSeen.insert(tThrown.sText);
        pSub = cMsg->MakeSubMsgEntry(iTag);
        REQUIRE(pSub != nullptr);
        CHECK(pSub->SetValue(1, s_szLong) == 0);
        CHECK(pSub->GetParent() == &*cMsg);
      });
    }
    if (iTag == 6) {
      CHECK(Say(asSeen) == Say(CTexts{"new CMsgValue failed", "new CMsg2 failed", "tagnum=6,msgnum=120"}));
    } else {
      CHECK(Say(asSeen) ==
            Say(CTexts{"new CMsgValue failed", "new CMsg1 failed", "new CMsgArray failed", "tagnum=16,msgnum=120"}));
    }
  }
}

TEST_CASE("reading without memory fails with its code, and the next reading works") {
  CLoadedDic cDic;
  std::string sXml = "<?xml version='1.0' encoding='ISO-8859-1'?><msg no='120' ver='1.0'>";
  sXml += std::string("<t1>") + s_szLong + "</t1><t7>5</t7><t5>20240131</t5>";
  for (int i = 0; i < 6; ++i) {
    sXml += std::string("<t11>") + s_szLong + "</t11><t17>5</t17><t13>1.5</t13><t14>true</t14><t15>20240131</t15>";
    sXml += std::string("<t16><t1>") + s_szLong + "</t1><t4><t2>5</t2></t4></t16>";
  }
  sXml += "</msg>";
  CMsg cWanted(0, 0, 0, &cDic);
  REQUIRE(Load(cWanted, sXml) == 0);
  CTexts asSeen;
  for (bool bKept : {false, true}) {
    CAPTURE(bKept);
    ForEachFailure([&](CFailAlloc& p_cFail) {
      CMsg cMsg(0, 0, 0, &cDic);
      if (bKept) {
        REQUIRE(Load(cMsg, sXml) == 0);    // leaves a reader
      } else {
        CHECK(Caught([&] { Load(cMsg, "<x/>"); }).iCode == -21);    // takes it away
      }
      std::string sCopy = sXml;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cMsg.LoadXml(&sCopy[0]); });
      CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
      if (p_cFail.HasFailed()) asSeen.insert(tThrown.sText);
      CHECK(Load(cMsg, sXml) == 0);
      CHECK(ToXml(cMsg) == ToXml(cWanted));
    });
  }
  CHECK(Say(asSeen) == Say(CTexts{"Out of memory 0", "XMLParser out of memory", "Handler error : new CMsgValue failed",
                         "Handler error : new CString failed", "Handler error : new CStrArray failed",
                         "Handler error : new CIntArray failed", "Handler error : new CDblArray failed",
                         "Handler error : new CBoolArray failed", "Handler error : new CDateArray failed",
                         "Handler error : new CMsgArray failed", "Handler error : new CMsg1 failed",
                         "Handler error : tagnum=16,msgnum=120", "Handler error : tagnum=4,msgnum=121"}));
}

TEST_CASE("loading a dictionary without memory fails with its code, and the next loading works") {
  const CTempDir cDir;
  const std::string sXml =
      "<msg_dictionary><msg no='1' name='a name that is too long to be stored in place'>"
      "<tag no='1' name='another name that is too long' type='string'/></msg></msg_dictionary>";
  CStream stPlain(0, 512), stEncrypted(0, 512);
  CString sErr;
  stPlain.AppendData(sXml.data(), static_cast<int>(sXml.size()));
  REQUIRE(CCrypt::EncryptStream(stPlain, stEncrypted, sErr) == 0);
  CLoadedDic cOther;    // the parser is ready
  for (const std::string& sPath : {cDir.Write("dic.xml", sXml), cDir.Write("dic.exml", Text(stEncrypted))}) {
    CAPTURE(sPath);
    CTexts asSeen;
    const long iOpen = OpenDescriptors();
    ForEachFailure([&](CFailAlloc& p_cFail) {
      CMsgDic cDic;
      const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cDic.InitDictionary(sPath.c_str()); });
      CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
      if (p_cFail.HasFailed()) asSeen.insert(tThrown.sText);
      if (!p_cFail.HasFailed()) CHECK(cDic.GetMsgInfo(1)->IsDefinedTag(1));
    });
    CHECK(OpenDescriptors() == iOpen);
    CHECK(Say(asSeen) ==
          Say(CTexts{"InitDictionary(XMLParser out of memory)", "InitDictionary(Handler error : (CMsgInfo))",
                     "InitDictionary(Handler error : (CTagInfo))"}));
  }
}

TEST_CASE("a parser that found no memory to start with is not touched again") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("dic.xml", "<msg_dictionary><msg no='1'/></msg_dictionary>");
  CTexts asSeen;
  for (int iNth = 1; iNth < 4500; iNth = iNth * 3 / 2 + 1) {
    CAPTURE(iNth);
    const std::string sSaid = InChild([&] {
      CParserLeaks cLeaks;
      CMsgDic cDic, cSecond;
      CFailAlloc cFail(iNth);
      const T_Thrown tFirst = CaughtFailing(cFail, [&] { cDic.InitDictionary(sPath.c_str()); });
      const T_Thrown tSecond = Caught([&] { cSecond.InitDictionary(sPath.c_str()); });
      DefineTestMessages(cDic);
      CMsg cMsg(0, 0, 0, &cDic);
      const T_Thrown tThird = Caught([&] { Load(cMsg, "<msg no='120'/>"); });
      return std::to_string(tFirst.iCode) + " " + tFirst.sText + "|" + std::to_string(tSecond.iCode) + " " +
             tSecond.sText + "|" + std::to_string(tThird.iCode) + " " + tThird.sText;
    });
    asSeen.insert(sSaid);
  }
  const std::string sAfter =
      "|-26 XMLPlatformUtils::Initialize() has failed before|-26 XMLPlatformUtils::Initialize() was not called";
  asSeen.erase("0 |0 |0 ");
  asSeen.erase("-11 InitDictionary(XMLParser out of memory)|0 |0 ");    // behind the start
  CHECK(Say(asSeen) == Say(CTexts{"-26 XMLParser out of memory" + sAfter, "-26 Unknown reason" + sAfter}));
}
