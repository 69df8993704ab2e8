// Who frees what: messages that are replaced, freed where they stand, made in another one, and cleared.
#include <climits>
#include <set>
#include <vector>

#include "dict/arena.h"
#include "support/test_dic.h"

namespace {

std::string TextOf(CMsg* p_pMsg) {
  CString sText("null");
  if (p_pMsg != nullptr) p_pMsg->GetValue(1, &sText);
  return sText.ToStr();
}

// A message's XML without what stands before its values.
std::string Values(const CMsg& p_cMsg) {
  const std::string sXml = ToXml(p_cMsg);
  return sXml.substr(sXml.find("ver=\"\">") + 7);
}

const char* const s_szLong = "a text that is too long to be stored in place";

// Every way in which an application frees a message of its own.
struct T_Way {
  const char* szName;
  void (*fnFree)(CMsg*);
};
const T_Way s_atWay[] = {
    {"delete", [](CMsg* p) { delete p; }},
    {"unique_ptr", [](CMsg* p) { std::unique_ptr<CMsg> pOwned(p); }},
    {"MA_FreeMsg", [](CMsg* p) { MA_FreeMsg(p); }},
    {"an adopting array", [](CMsg* p) {
       CMsgArray apAll(true);
       apAll.Add(p);
     }},
    {"an adopting array that gets another one", [](CMsg* p) {
       CMsgArray apAll(true);
       apAll.Add(p);
       apAll.SetAt(0, nullptr);
     }},
};

}    // namespace

// ---- replaced

TEST_CASE("a replaced sub-message is the application's") {    // the leak checker counts
  std::vector<std::unique_ptr<CMsg>> apAll;
  CTestDic cDic;
  {
    CMsg cMsg(120, 0, 0, &cDic);
    for (const char* szText : {"first", "second", "third"}) {
      apAll.emplace_back(NewRow(cDic, szText));
      CHECK(cMsg.SetValue(6, apAll.back().get()) == 0);
      CHECK(cMsg.GetValue(6) == apAll.back().get());
      CHECK(cMsg.GetArrSize(6) == 1);
    }
    CHECK(apAll[0]->GetParent() == nullptr);
    CHECK(apAll[1]->GetParent() == nullptr);
    CHECK(apAll[2]->GetParent() == &cMsg);
    CHECK(Values(cMsg) == "<t6><t1><![CDATA[third]]></t1></t6></msg>");
    (void)apAll.back().release();    // goes with its parent
    apAll.pop_back();
  }
  CHECK(TextOf(apAll[0].get()) == "first");
  CHECK(TextOf(apAll[1].get()) == "second");
  CHECK(apAll[0]->SetValue(2, 7) == 0);
}

TEST_CASE("a replaced sub-message may be stored again, there and elsewhere") {
  CTestMsg cMsg(120);
  CMsg* pOld = NewRow(cMsg.Dic(), "old");
  CMsg* pNew = NewRow(cMsg.Dic(), "new");
  CHECK(cMsg->SetValue(6, pOld) == 0);
  CHECK(cMsg->SetValue(6, pNew) == 0);

  SUBCASE("in its place") {
    for (int i = 0; i < 3; ++i) {
      CHECK(cMsg->SetValue(6, pOld) == 0);
      CHECK(TextOf(cMsg->GetValue(6)) == "old");
      CHECK(pNew->GetParent() == nullptr);
      CHECK(cMsg->SetValue(6, pNew) == 0);
      CHECK(TextOf(cMsg->GetValue(6)) == "new");
    }
    delete pOld;
  }
  SUBCASE("in an array") {
    CHECK(cMsg->SetValue(16, pOld) == 0);
    CHECK(cMsg->SetValue(16, pOld) == -28);
    CHECK(cMsg->GetValue(16) == pOld);
  }
  SUBCASE("in what replaced it") {
    CHECK(pNew->SetValue(3, pOld) == 0);
    CHECK(pOld->GetParent() == pNew);
    CHECK(pOld->SetValue(3, pNew) == -28);
  }
  SUBCASE("in a message that is gone earlier") {
    CMsg cOther(120, 0, 0, &cMsg.Dic());
    CHECK(cOther.SetValue(6, pOld) == 0);
    CHECK(pOld->GetParent() == &cOther);
  }
  SUBCASE("and may take the message that it stood in") {
    auto pOuter = std::make_unique<CMsg>(120, 0, 0, &cMsg.Dic());
    CMsg* pFirst = NewRow(cMsg.Dic(), "first");
    CHECK(pOuter->SetValue(6, pFirst) == 0);
    CHECK(pOuter->SetValue(6, NewRow(cMsg.Dic(), "second")) == 0);
    CHECK(pFirst->SetValue(3, pOuter.release()) == 0);
    delete pFirst;
    delete pOld;
  }
  SUBCASE("but not what it contains in it") {
    CMsg* pInner = NewRow(cMsg.Dic(), "inner");
    CHECK(pOld->SetValue(3, pInner) == 0);
    CHECK(pInner->SetValue(3, pOld) == -28);
    delete pOld;
  }
  CHECK(ToXml(*cMsg).find("new") != std::string::npos);
}

TEST_CASE("a replaced sub-message that the message made stays the message's") {
  CTestMsg cMsg(120), cOther(120);
  CMsg* pMade = nullptr;
  SUBCASE("as for reading") { pMade = cMsg->MakeSubMsgEntry(6); }
  SUBCASE("as new") { pMade = cMsg->NewSub(6); }
  CHECK(pMade->SetValue(1, s_szLong) == 0);
  CMsg* pInner = NewRow(cMsg.Dic(), "inner");
  CHECK(pMade->SetValue(4, pInner) == 0);
  CHECK(cMsg->SetValue(6, NewRow(cMsg.Dic(), "new")) == 0);
  CHECK(pMade->GetParent() == nullptr);
  CHECK(cOther->SetValue(6, pMade) == -28);
  CHECK(cMsg->SetValue(6, pMade) == -28);
  CHECK(pInner->SetValue(4, &*cMsg) == -28);    // the message would stand in what it frees
  MA_FreeMsg(pMade);
  CHECK(TextOf(pMade) == s_szLong);
  CHECK(cMsg->IsEmpty() == false);
  CHECK(Values(*cMsg) == "<t6><t1><![CDATA[new]]></t1></t6></msg>");
}

// ---- freed where it stands

TEST_CASE("a message that is freed while it stands in another one takes itself out of there") {
  for (const T_Way& tWay : s_atWay) {
    CAPTURE(tWay.szName);
    CTestMsg cMsg(120);
    CMsg* apRow[4];
    CMsg* pSingle = NewRow(cMsg.Dic(), "single");
    for (CMsg*& pRow : apRow) CHECK(cMsg->SetValue(16, pRow = NewRow(cMsg.Dic(), "row")) == 0);
    CHECK(cMsg->SetValue(6, pSingle) == 0);

    tWay.fnFree(pSingle);
    CMsg* pOut = &*cMsg;
    CHECK(cMsg->GetValue(6, &pOut) == -1);
    CHECK(pOut == nullptr);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=6,Unset}"));
    CHECK(cMsg->GetArrSize(6) == -1);

    tWay.fnFree(apRow[1]);
    tWay.fnFree(apRow[3]);
    CHECK(cMsg->GetArrSize(16) == 4);
    for (int i = 0; i < 4; ++i) {
      CHECK(cMsg->GetValueAt(16, i, &pOut) == 0);
      CHECK(pOut == (i % 2 == 0 ? apRow[i] : nullptr));
    }
    CMsgArray apAll(false);
    CHECK(cMsg->GetValue(16, &apAll) == 0);
    REQUIRE(apAll.GetSize() == 4);
    for (int i = 0; i < 4; ++i) CHECK(apAll.GetAt(i) == (i % 2 == 0 ? apRow[i] : nullptr));
    CHECK(Values(*cMsg) == "<t16><t1><![CDATA[row]]></t1></t16><t16><t1><![CDATA[row]]></t1></t16></msg>");

    CHECK(cMsg->SetValue(6, NewRow(cMsg.Dic(), "again")) == 0);
    CHECK(cMsg->SetValue(16, NewRow(cMsg.Dic(), "more")) == 0);
    CHECK(TextOf(cMsg->GetValue(6)) == "again");
    CHECK(cMsg->GetArrSize(16) == 5);
    tWay.fnFree(apRow[0]);
    CHECK(cMsg->GetValue(16, &pOut) == 0);
    CHECK(pOut == nullptr);
  }
}

TEST_CASE("a message on the stack takes itself out, too") {
  CTestMsg cMsg(120);
  {
    CMsg cRow(121, 0, 0, &cMsg.Dic());
    cRow.SetValue(1, "row");
    CHECK(cMsg->SetValue(6, &cRow) == 0);
  }
  CHECK(cMsg->GetValue(6) == nullptr);
}

TEST_CASE("what an Init left behind goes with the message, or earlier by the application") {    // the leak checker counts
  CTestMsg cMsg(120);
  CMsg* apSub[4];
  for (CMsg*& pSub : apSub) pSub = NewRow(cMsg.Dic(), s_szLong);
  CHECK(cMsg->SetValue(6, apSub[0]) == 0);
  for (int i = 1; i < 4; ++i) CHECK(cMsg->SetValue(16, apSub[i]) == 0);
  cMsg->Init(120, 0, 0);
  delete apSub[0];
  MA_FreeMsg(apSub[2]);
  CHECK(TextOf(apSub[1]) == s_szLong);
  CHECK(TextOf(apSub[3]) == s_szLong);
  CHECK(cMsg->GetArrSize(16) == -1);
}

TEST_CASE("a message that the library made is not freed alone") {
  CTestMsg cMsg(120);
  for (CMsg* pMade : {cMsg->MakeSubMsgEntry(6), cMsg->MakeSubMsgEntry(16), cMsg->NewSub(16)}) {
    pMade->SetValue(1, s_szLong);
    MA_FreeMsg(pMade);
    CHECK(TextOf(pMade) == s_szLong);
  }
  CHECK(cMsg->GetArrSize(16) == 2);
}

// ---- all or nothing

TEST_CASE("a sub-message that is not taken is the caller's, whatever failed, and may be freed when it was") {
  for (int iTag : {6, 16}) {
    for (const bool bMade : {false, true}) {    // what stands there before
      for (const int iCount : {1, INT_MAX}) {    // with and without memory for the text
        CAPTURE(iTag);
        CAPTURE(bMade);
        CAPTURE(iCount);
        for (int iNth = 1;; ++iNth) {
          CFailAlloc cFail(iNth, iCount);
          CTestMsg cMsg(120);
          std::unique_ptr<CMsg> pOld(NewRow(cMsg.Dic(), "old"));
          if (bMade) {
            cMsg->NewSub(iTag)->SetValue(1, "old");
          } else {
            REQUIRE(cMsg->SetValue(iTag, pOld.get()) == 0);
          }
          const std::string sBefore = Values(*cMsg);
          std::unique_ptr<CMsg> pSub(NewRow(cMsg.Dic(), s_szLong));
          int iRet = 99;
          bool bThrew = false;
          try {
            bThrew = cFail.Run([&] { iRet = cMsg->SetValue(iTag, pSub.get()); });
          } catch (const CException&) {
            bThrew = true;
          }
          if (!cFail.HasFailed()) {
            CHECK(iRet == 0);
            break;
          }
          if (!bThrew) CHECK(iRet == -11);
          if (bThrew || pSub->GetParent() == nullptr) {
            CHECK(pSub->GetParent() == nullptr);
            CHECK(pSub->GetRootNum() == 121);
            CHECK(Values(*cMsg) == sBefore);
          }
        }    // that the caller frees all of them is right in any case
      }
    }
  }
}

TEST_CASE("what was not taken is freed by the caller after the message, too") {    // the leak checker counts
  for (const int iTag : {6, 16}) {
    const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
      CTestDic cDic;
      std::unique_ptr<CMsg> pSub(NewRow(cDic, s_szLong));
      auto pMsg = std::make_unique<CMsg>(120, 0, 0, &cDic);
      int iRet = 99;
      p_cFail.Run([&] { iRet = pMsg->SetValue(iTag, pSub.get()); });
      CHECK(iRet == (p_cFail.HasFailed() ? -11 : 0));
      if (iRet == 0) {
        (void)pSub.release();
        return;
      }
      CMsg cOuter(120, 0, 0, &cDic);    // frees it as an empty one, as nothing was taken by it
      CHECK(cOuter.SetValue(6, pMsg.release()) == 0);
      CHECK(pSub->GetParent() == nullptr);
      CHECK(TextOf(pSub.get()) == s_szLong);
    });
    CHECK(iFailures > 1);
  }
}

// ---- trees

TEST_CASE("trees of many levels are built in either direction and freed") {    // in quadratic time it would take minutes
  enum { LEVELS = 100000 };
  CTestDic cDic;
  SUBCASE("from the outermost inwards") {
    CMsg cTop(121, 0, 0, &cDic);
    CMsg* pInmost = &cTop;
    for (int i = 0; i < LEVELS; ++i) {
      CMsg* pNext = NewRow(cDic, "next");
      if (pNext->SetValue(4, NewRow(cDic, "row")) != 0 || pInmost->SetValue(3, pNext) != 0) FAIL(i);
      pInmost = pNext;
    }
    CHECK(pInmost->SetValue(3, &cTop) == -28);
  }
  SUBCASE("from the inmost outwards") {
    CMsg* pOutmost = NewRow(cDic, "inmost");
    CMsg* pInmost = pOutmost;
    for (int i = 0; i < LEVELS; ++i) {
      CMsg* pNext = NewRow(cDic, "next");
      if (pNext->SetValue(4, NewRow(cDic, "row")) != 0 || pNext->SetValue(3, pOutmost) != 0) FAIL(i);
      pOutmost = pNext;
    }
    CHECK(pInmost->SetValue(3, pOutmost) == -28);
    delete pOutmost;
  }
  SUBCASE("with one that is replaced again and again") {
    CMsg cTop(121, 0, 0, &cDic);
    std::vector<std::unique_ptr<CMsg>> apReplaced;
    for (int i = 0; i < LEVELS; ++i) {
      apReplaced.emplace_back(NewRow(cDic, "row"));
      if (cTop.SetValue(3, apReplaced.back().get()) != 0) FAIL(i);
    }
    CHECK(cTop.GetValue(3) == apReplaced.back().get());
    apReplaced.clear();
    CHECK(cTop.GetArrSize(3) == -1);
  }
}

TEST_CASE("far down in a tree a message is taken whatever it holds, but for what it stands in") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "node", "", "1");    // all cells in one chain
  cDic.SetMsgDetail(5, 1, "number", "integer", "N");
  for (const int iTag : {2, 4}) cDic.SetMsgDetail(5, iTag, "node", "m5", "N");
  for (const int iTag : {3, 6}) cDic.SetMsgDetail(5, iTag, "nodes", "m5", "Y");
  const auto fnNew = [&] {
    auto pMsg = std::make_unique<CMsg>(5, 0, 0, &cDic);
    pMsg->SetValue(1, 1);
    return pMsg;
  };
  CMsg cTop(5, 0, 0, &cDic);
  CMsg* pDeep = &cTop;
  for (int i = 0; i < 300; ++i) {
    pDeep = pDeep->NewSub(2);
    pDeep->SetValue(1, i);
  }
  auto pGiven = fnNew();
  CMsg* pPlain = pGiven->NewSub(2);
  pPlain->SetValue(1, 2);
  auto pFreed = fnNew();
  CHECK(pGiven->SetValue(4, pFreed.get()) == 0);
  std::unique_ptr<CMsg> apRow[3] = {fnNew(), fnNew(), fnNew()};
  for (auto& pRow : apRow) CHECK(pGiven->SetValue(3, pRow.get()) == 0);
  pFreed.reset();
  apRow[0].reset();
  apRow[2].reset();
  CMsg* pInner = apRow[1].release();
  for (int i = 1; std::string(pGiven->GetLastError()).find("new CMsgArray failed") == std::string::npos; ++i) {
    CFailAlloc cFail(i);    // a row too many: its tag has a cell and no array
    const auto pNone = fnNew();
    cFail.Run([&] { pGiven->SetValue(6, pNone.get()); });
    REQUIRE(cFail.HasFailed());
  }
  for (int i = 0; i < 3; ++i) {    // what an Init left behind, alone and behind new values
    CMsg* pInit = pInner->NewSub(3);
    pInit->SetValue(1, i);
    CHECK(pInit->SetValue(2, fnNew().release()) == 0);
    CHECK(pInit->SetValue(3, fnNew().release()) == 0);
    pInit->Init(5, 0, 0);
    if (i > 0) CHECK(pInit->SetValue(4, fnNew().release()) == 0);
  }
  CHECK(pDeep->SetValue(3, pGiven.get()) == 0);
  (void)pGiven.release();
  for (CMsg* pSub : {pPlain, pInner, pDeep}) CHECK(pSub->SetValue(6, &cTop) == -28);
}

TEST_CASE("far down in a tree no message takes what it stands in, whatever else stands there first") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "node", "", "1");
  cDic.SetMsgDetail(5, 1, "number", "integer", "N");
  for (const int iTag : {2, 3, 4}) cDic.SetMsgDetail(5, iTag, "node", "m5", "N");
  for (const int iDeep : {2, 4}) {
    for (const bool bFirst : {true, false}) {
      CAPTURE(iDeep);
      CAPTURE(bFirst);
      CMsg cTop(5, 0, 0, &cDic);
      CMsg* pDeep = bFirst ? cTop.NewSub(iDeep) : nullptr;
      cTop.NewSub(6 - iDeep)->SetValue(1, 7);    // nothing stands below it
      if (!bFirst) pDeep = cTop.NewSub(iDeep);
      for (int i = 0; i < 300; ++i) pDeep = pDeep->NewSub(2);
      CHECK(pDeep->SetValue(3, &cTop) == -28);
      CHECK(pDeep->SetValue(1, 8) == 0);
    }
  }
}

TEST_CASE("no circle is possible, however the message is held") {
  CTestMsg cMsg(121);
  cMsg->SetValue(1, "top");
  CMsg* pRow = cMsg->NewSub(4);
  cMsg->NewSub(4)->SetValue(1, "filled");
  CMsg* pInit = NewRow(cMsg.Dic(), "init");
  CHECK(pRow->SetValue(3, pInit) == 0);
  CMsg* pDeep = NewRow(cMsg.Dic(), "deep");
  CHECK(pInit->SetValue(4, NewRow(cMsg.Dic(), "before")) == 0);
  CHECK(pInit->SetValue(4, pDeep) == 0);
  pInit->Init(121, 0, 0);    // its cells are in no slot any more
  CHECK(pInit->SetValue(4, NewRow(cMsg.Dic(), "new")) == 0);
  for (CMsg* pInner : {pRow, pInit, pDeep, pInit->GetValue(4), pDeep->NewSub(3)}) {
    for (const int iTag : {3, 4}) {
      CHECK(pInner->SetValue(iTag, &*cMsg) == -28);
      if (pInner != &*cMsg) CHECK(pDeep->SetValue(iTag, pInner) == (pInner->GetParent() == pDeep && iTag == 3 ? 0 : -28));
    }
  }
  CMsg* pFree = NewRow(cMsg.Dic(), "free");
  CHECK(pFree->SetValue(4, NewRow(cMsg.Dic(), "row")) == 0);
  CHECK(pDeep->SetValue(4, pFree) == 0);
}

// ---- NewSub

TEST_CASE("NewSub makes the rows of an array, and the one of a single tag once") {
  CTestMsg cMsg(120);
  std::string sName = "rows";
  CMsg* apRow[3] = {cMsg->NewSub(16), cMsg->NewSub("rows"), cMsg->NewSub(sName.c_str())};
  CMsg* pSingle = cMsg->NewSub(6);
  CHECK(cMsg->NewSub("row") == pSingle);
  CHECK(cMsg->GetValue(6) == pSingle);
  CHECK(cMsg->GetArrSize(6) == 1);
  CHECK(cMsg->GetArrSize(16) == 3);
  for (int i = 0; i < 3; ++i) {
    CMsg* pOut = nullptr;
    CHECK(cMsg->GetValueAt(16, i, &pOut) == 0);
    CHECK(pOut == apRow[i]);
    CHECK(pOut->GetMsgNum() == 121);
    CHECK(pOut->GetRootNum() == 120);
    CHECK(pOut->GetParentTag() == 16);
    CHECK(pOut->GetParent() == &*cMsg);
    CHECK(pOut->IsEmpty());
  }
  CHECK(pSingle->GetParentTag() == 6);
  CHECK(apRow[0]->NewSub(3)->GetRootNum() == 120);
  CHECK(cMsg->GetLastError() == std::string());
  CMsg* pGiven = NewRow(cMsg.Dic(), "given");
  CHECK(apRow[1]->SetValue(3, pGiven) == 0);
  CHECK(apRow[1]->NewSub(3) == pGiven);
}

TEST_CASE("while nothing is stored in it or below, a new sub-message is left out and its parent empty") {
  CTestMsg cMsg(120);
  CMsg* apRow[3] = {cMsg->NewSub(16), cMsg->NewSub(16), cMsg->NewSub(16)};
  CMsg* pDeep = apRow[1]->NewSub(3)->NewSub(4);
  cMsg->NewSub(6);
  const auto fnDump = [&](bool p_bXml) {
    CStream stOut(0, 512);
    p_bXml ? cMsg->DumpXml(&stOut, false, 1) : cMsg->Dump(&stOut, false, 1);
    return Text(stOut);
  };
  CHECK(cMsg->IsEmpty());
  CHECK(Values(*cMsg) == "</msg>");
  CHECK(fnDump(true) == "<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='120' type='index' ver=''>\n</msg>\n");
  CHECK(fnDump(false).find("SUBMSG") == std::string::npos);

  CHECK(pDeep->SetValue(2, 5) == 0);
  CHECK_FALSE(cMsg->IsEmpty());
  CHECK_FALSE(apRow[1]->IsEmpty());
  CHECK(apRow[0]->IsEmpty());
  CHECK(Values(*cMsg) == "<t16><t3><t4><t2>5</t2></t4></t3></t16></msg>");
  CHECK(fnDump(false).find(" SUBMSG(121) row 1\n") != std::string::npos);
  CHECK(apRow[2]->SetValue(1, "two") == 0);
  CHECK(Values(*cMsg) == "<t16><t3><t4><t2>5</t2></t4></t3></t16><t16><t1><![CDATA[two]]></t1></t16></msg>");
  CHECK(cMsg->GetArrSize(16) == 3);
}

TEST_CASE("every way of storing below makes a new sub-message count") {
  void (*const afnStore[])(CMsg&) = {
      [](CMsg& m) { m.SetValue(1, "text"); },
      [](CMsg& m) { m.SetValue(2, 5); },
      [](CMsg& m) { m.SetParsedData(2, "5"); },
      [](CMsg& m) { m.MakeSubMsgEntry(4); },
      [](CMsg& m) { m.MakeSubMsgEntry(3); },
      [](CMsg& m) { m.NewSub(4)->SetValue(1, "text"); },
      [](CMsg& m) { m.SetValue(4, NewRow(*MA_GetMsgDic(), "row")); },
  };
  GlobalDic();
  for (const auto& fnStore : afnStore) {
    CMsg cMsg(120, 0, 0, MA_GetMsgDic());
    CMsg* pRow = cMsg.NewSub(16)->NewSub(3);
    fnStore(*pRow);
    CHECK_FALSE(pRow->IsEmpty());
    CHECK_FALSE(cMsg.IsEmpty());
    CHECK(Values(cMsg).substr(0, 9) == "<t16><t3>");
  }
  CMsg cRead(120, 0, 0, MA_GetMsgDic());    // reading comes upon one that was offered
  CMsg* pSingle = cRead.NewSub(6);
  CHECK(cRead.MakeSubMsgEntry(6) == pSingle);
  CHECK(Values(cRead) == "<t6></t6></msg>");
}

TEST_CASE("a message with nothing but new sub-messages is empty, and is freed when it is handed over") {
  CTestMsg cMsg(120);
  CMsg* pRow = new CMsg(121, 0, 0, &cMsg.Dic());
  pRow->NewSub(3)->NewSub(4);
  CHECK(pRow->IsEmpty());
  CHECK(cMsg->SetValue(6, pRow) == 0);
  CHECK(cMsg->GetValue(6) == nullptr);
}

TEST_CASE("what is stored in a sub-message that cannot be reached any more does not count") {
  CTestMsg cMsg(120);
  CMsg* pGone = cMsg->NewSub(16);
  cMsg->Init(120, 0, 0);
  CMsg* pRow = cMsg->NewSub(16);
  CHECK(pGone->SetValue(1, "gone") == 0);
  CHECK(cMsg->IsEmpty());
  CHECK(pRow->SetValue(1, "there") == 0);
  CHECK_FALSE(cMsg->IsEmpty());
}

TEST_CASE("NewSub says what is wrong, as setters do") {
  CMsgDic cDic;
  DefineTestMessages(cDic);
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, 1, "single", "m77", "N");
  cDic.SetMsgDetail(5, 2, "rows", "m77", "Y");
  cDic.GetMsgInfo(5)->SetTagInfo(3, "odd", TAG_SUBMSG, 0, true);
  CMsg cNoDef(0, 0, 0, &cDic), cMsg(5, 0, 0, &cDic), cFull(120, 0, 0, &cDic);
  const auto fnFails = [](CMsg& p_cMsg, CMsg* p_pSub, const char* p_szText) {
    CHECK(p_pSub == nullptr);
    CHECK(p_cMsg.GetLastError() == std::string(p_szText));
  };
  fnFails(cNoDef, cNoDef.NewSub(6), "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=6}");
  fnFails(cNoDef, cNoDef.NewSub("row"), "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0}");
  fnFails(cFull, cFull.NewSub(99), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=99}");
  fnFails(cFull, cFull.NewSub(-1), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}");
  fnFails(cFull, cFull.NewSub("nonesuch"), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}");
  fnFails(cFull, cFull.NewSub(7), "MSG_Error(-17) : Invalid tag type {Line:1441, tagnum=7,type=(integer/submsg)}");
  fnFails(cMsg, cMsg.NewSub(1), "MSG_Error(-19) : Not defined msg in dictionary {3.msgnum=77}");
  fnFails(cMsg, cMsg.NewSub(2), "MSG_Error(-19) : Not defined msg in dictionary {3.msgnum=77}");
  fnFails(cMsg, cMsg.NewSub(3), "MSG_Error(-15) : Out of msgnum boundary {1.msgnum=0}");
  CMsg* pOut = &cMsg;
  CHECK(cFull.NewSub(99, &pOut) == -18);
  CHECK(pOut == nullptr);
  CHECK(cFull.NewSub(6, nullptr) == -12);
  CHECK(cFull.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
  for (const int iTag : {1, 2, 3}) CHECK(cMsg.GetArrSize(iTag) == -1);
  CHECK(cMsg.IsEmpty());
}

TEST_CASE("NewSub without memory leaves no row and no value behind") {
  for (const int iTag : {6, 16}) {
    std::set<std::string> asSeen;
    for (const int iRows : {0, 1, 5}) {    // 5: the array is full
      CAPTURE(iTag);
      CAPTURE(iRows);
      const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
        CTestMsg cMsg(120);
        const int iBefore = iTag == 6 ? 0 : iRows;
        for (int i = 0; i < iBefore; ++i) REQUIRE(cMsg->NewSub(iTag) != nullptr);
        CMsg* pSub = nullptr;
        const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { pSub = cMsg->NewSub(iTag); });
        CHECK(tThrown.iCode == 0);
        CHECK((pSub == nullptr) == p_cFail.HasFailed());
        if (p_cFail.HasFailed()) asSeen.insert(cMsg->GetLastError());
        CHECK(cMsg->GetArrSize(iTag) == (pSub != nullptr ? iBefore + 1 : iBefore > 0 ? iBefore : -1));
        CHECK(cMsg->NewSub(iTag) != nullptr);
      });
      CHECK(iFailures >= 1);
    }
    const std::string sFrame = "MSG_Error(-11) : Memory error {";
    std::set<std::string> asWanted = {sFrame + "new CMsgValue failed}", sFrame + "new CMsg failed}",
                                      sFrame + "tagnum=" + std::to_string(iTag) + ",msgnum=120}"};
    if (iTag == 16) asWanted.insert(sFrame + "new CMsgArray failed}");
    CHECK((asSeen == asWanted));
  }
}

// ---- Clear

TEST_CASE("a cleared message is as new, with its numbers") {
  CTestMsg cMsg(120);
  CMsg cTop(120, 99, 8, &cMsg.Dic());
  cTop.SetVer("2.0");
  cTop.SetValue(1, s_szLong);
  cTop.SetValue(11, s_szLong);
  cTop.SetValue(17, 4);
  cTop.SetValue(6, NewRow(cMsg.Dic(), s_szLong));
  CMsg* pReplaced = cTop.GetValue(6);
  cTop.SetValue(6, NewRow(cMsg.Dic(), s_szLong));
  cTop.NewSub(16)->SetValue(4, NewRow(cMsg.Dic(), s_szLong));
  cTop.Init(120, 99, 8);
  cTop.SetValue(1, s_szLong);
  cTop.SetValue(99, 1);
  cTop.Clear();
  CHECK(cTop.IsEmpty());
  CHECK(cTop.GetMsgNum() == 120);
  CHECK(cTop.GetRootNum() == 99);
  CHECK(cTop.GetParentTag() == 8);
  CHECK(cTop.GetParent() == nullptr);
  CHECK(cTop.GetVer() == std::string());
  CHECK(cTop.GetLastError() == std::string());
  CHECK(Values(cTop) == "</msg>");
  for (const int iTag : {1, 6, 7, 11, 16, 17}) {
    CHECK(cTop.GetArrSize(iTag) == -1);
    CHECK(cTop.GetLastError() == "MSG_Error(-1) : No Data found {tagnum=" + std::to_string(iTag) + "}");
  }
  CHECK(TextOf(pReplaced) == s_szLong);
  delete pReplaced;
  CHECK(cTop.SetValue(6, NewRow(cMsg.Dic(), "again")) == 0);
  CHECK(Values(cTop) == "<t6><t1><![CDATA[again]]></t1></t6></msg>");

  CMsg cNoDef(0, 0, 0, &cMsg.Dic());
  cNoDef.SetValue(1, 1);
  cNoDef.Clear();
  CHECK(cNoDef.GetMsgNum() == 0);
  CHECK(cNoDef.GetLastError() == std::string());
}

TEST_CASE("a sub-message that is cleared keeps its place and is left out until something is stored in it") {
  CTestMsg cMsg(120);
  CMsg* apSub[3] = {NewRow(cMsg.Dic(), "given"), nullptr, nullptr};
  CHECK(cMsg->SetValue(16, apSub[0]) == 0);
  apSub[1] = cMsg->NewSub(16);
  apSub[2] = cMsg->MakeSubMsgEntry(16);
  for (CMsg* pSub : apSub) {
    for (int i = 0; i < 3; ++i) {
      pSub->SetValue(1, s_szLong);
      pSub->NewSub(4)->SetValue(1, s_szLong);
      pSub->Clear();
      CHECK(pSub->GetParent() == &*cMsg);
    }
  }
  CHECK(Values(*cMsg) == "</msg>");
  CHECK(cMsg->GetArrSize(16) == 3);
  for (CMsg* pSub : apSub) pSub->NewSub(4)->SetValue(2, 1);
  CHECK(Values(*cMsg) == "<t16><t4><t2>1</t2></t4></t16><t16><t4><t2>1</t2></t4></t16><t16><t4><t2>1</t2></t4></t16></msg>");
}

TEST_CASE("a cleared message takes its memory again where that is large enough") {
  CTestDic cDic;
  CMsg cMsg(121, 0, 0, &cDic);
  cMsg.SetValue(2, 1);
  for (int i = 10; i < 30; ++i) {    // more than the definition had when the first memory was asked for
    cDic.SetMsgDetail(121, i, "more", "integer", "N");
    CHECK(cMsg.SetValue(i, i) == 0);
  }
  cMsg.Clear();
  CHECK(cMsg.NewSub(3)->SetValue(1, s_szLong) == 0);    // larger than any block of before
  for (int i = 10; i < 30; ++i) CHECK(cMsg.SetValue(i, -i) == 0);
  int iOut = 0;
  for (int i = 10; i < 30; ++i) CHECK((cMsg.GetValue(i, &iOut) == 0 && iOut == -i));
  CHECK(TextOf(cMsg.GetValue(3)) == s_szLong);
}

TEST_CASE("a message that was cleared where it stood is filled when it stands there no more") {
  CTestMsg cMsg(120);
  std::unique_ptr<CMsg> pGiven(NewRow(cMsg.Dic(), "given"));
  CHECK(cMsg->SetValue(6, pGiven.get()) == 0);
  pGiven->Clear();
  CHECK(cMsg->SetValue(6, NewRow(cMsg.Dic(), "new")) == 0);
  CHECK(pGiven->SetValue(1, "again") == 0);
  CHECK_FALSE(pGiven->IsEmpty());
  CHECK(cMsg->SetValue(16, pGiven.get()) == 0);
  CHECK(Values(*cMsg) == "<t6><t1><![CDATA[new]]></t1></t6><t16><t1><![CDATA[again]]></t1></t16></msg>");
}

TEST_CASE("a message that is cleared and filled again does not grow") {
  const CLoadedDic cDic;
  std::string sXml = "<msg no=\"120\"><t1>text</t1>";
  for (int i = 0; i < 40; ++i) sXml += "<t16><t2>" + std::to_string(i) + "</t2></t16>";
  sXml += "</msg>";
  const auto fnRead = [&](CMsg& p_cMsg) {
    std::string sCopy = sXml;
    CHECK(p_cMsg.LoadXml(&sCopy[0]) == 0);
  };
  const auto fnWrite = [&](CMsg& p_cMsg) {
    CHECK(p_cMsg.SetValue(1, "text") == 0);
    for (int i = 0; i < 40; ++i) CHECK(p_cMsg.NewSub(16)->SetValue(2, i) == 0);
  };
  CMsg cRead(0, 0, 0, const_cast<CLoadedDic*>(&cDic)), cWritten(120, 0, 0, const_cast<CLoadedDic*>(&cDic));
  fnRead(cRead);
  fnWrite(cWritten);
  const std::string sWanted = Values(cWritten);
  for (int i = 0; i < 3; ++i) {
    cRead.Clear();
    fnRead(cRead);
    CHECK(Values(cRead) == sWanted);
    cWritten.Clear();
    CFailAlloc cCount;
    cCount.Run([&] {
      cWritten.SetValue(1, "text");
      for (int k = 0; k < 40; ++k) cWritten.NewSub(16)->SetValue(2, k);
    });
    CHECK(Values(cWritten) == sWanted);
    CHECK(cCount.GetBytes() < 40 * 200);    // two arrays; the rows, of over 1,000 bytes each, stand where the last ones stood
  }
}

TEST_CASE("a cleared message gives back what is beyond 256 KB") {
  CTestMsg cMsg(120);
  const auto fnFill = [&] {
    for (int i = 0; i < 2000; ++i) cMsg->NewSub(16)->SetValue(2, i);    // about 2.2 MB
  };
  size_t auBytes[2];
  for (size_t& uBytes : auBytes) {
    CFailAlloc cCount;
    cCount.Run(fnFill);
    uBytes = cCount.GetBytes();
    cMsg->Clear();
    callorv::detail::CArena::DropKept();    // what goes back goes to other long messages first
  }
  CHECK(auBytes[1] < auBytes[0]);
  CHECK(auBytes[0] - auBytes[1] <= 256 * 1024);
}

// ---- what compiles, and means what it says

TEST_CASE("integers of every type are set, and refused outside an int") {
  CTestMsg cMsg(120);
  int iOut = 0;
  CHECK(cMsg->SetValue(7, 5u) == 0);
  CHECK(cMsg->SetValue(7, 6L) == 0);
  CHECK(cMsg->SetValue("number", 7UL) == 0);
  CHECK(cMsg->SetValue(7, static_cast<size_t>(8)) == 0);
  CHECK(cMsg->SetValue(7, -2147483647LL - 1) == 0);
  CHECK(cMsg->GetValue(7, &iOut) == 0);
  CHECK(iOut == INT_MIN);
  std::string sName = "number";
  CHECK(cMsg->SetValue(&sName[0], 2147483647ULL) == 0);
  CHECK(cMsg->GetValue(7, &iOut) == 0);
  CHECK(iOut == INT_MAX);
  const auto fnRefused = [&](int p_iRet) {
    CHECK(p_iRet == -28);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-28) : Invalid input msg of service {tagnum=7}"));
    CHECK(cMsg->GetValue(7, &iOut) == 0);
    CHECK(iOut == INT_MAX);
  };
  fnRefused(cMsg->SetValue(7, 2147483648u));
  fnRefused(cMsg->SetValue(7, ULLONG_MAX));
  fnRefused(cMsg->SetValue(7, LLONG_MIN));
  fnRefused(cMsg->SetValue(7, -2147483649LL));
  fnRefused(cMsg->SetValue("number", static_cast<size_t>(4294967295u)));
  fnRefused(cMsg->SetValue(&sName[0], 2147483648LL));
  CHECK(cMsg->SetValue(99, 4294967295u) == -18);
  CHECK(cMsg->SetValue(1, 4294967295u) == -17);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-17) : Invalid tag type {Line:1233, tagnum=1,type=(string/integer)}"));
  CHECK(CTestMsg(0)->SetValue(7, 4294967295u) == -19);
}

TEST_CASE("a CString is set as its text") {
  CTestMsg cMsg(120);
  std::string sName = "text";
  CString sOut;
  CHECK(cMsg->SetValue(1, CString("one")) == 0);
  CHECK(cMsg->SetValue("texts", CString("two")) == 0);
  CHECK(cMsg->SetValue(&sName[0], CString("three")) == 0);
  CHECK(cMsg->SetValue(99, CString()) == 0);    // as "": nothing is checked
  CHECK(cMsg->GetValue(1, &sOut) == 0);
  CHECK(sOut == "three");
  CHECK(cMsg->GetValue(11, &sOut) == 0);
  CHECK(sOut == "two");
}

namespace {

// Whether m.SetValue(key, value) compiles.
template <class KEY, class VALUE, class = void>
struct T_Sets : std::false_type {};
template <class KEY, class VALUE>
struct T_Sets<KEY, VALUE,
              decltype(void(std::declval<CMsg&>().SetValue(std::declval<KEY>(), std::declval<VALUE>())))> : std::true_type {};

static_assert(T_Sets<int, bool>::value && T_Sets<int, CMsg*>::value && T_Sets<int, const char*>::value);
static_assert(T_Sets<int, char*>::value && T_Sets<int, char (&)[4]>::value && T_Sets<char*, const char (&)[4]>::value);
static_assert(!T_Sets<int, const CMsg*>::value && !T_Sets<int, CString*>::value && !T_Sets<int, const CString*>::value);
static_assert(!T_Sets<int, int*>::value && !T_Sets<int, void*>::value && !T_Sets<int, unsigned char*>::value);
static_assert(!T_Sets<int, CDate*>::value && !T_Sets<int, void (*)()>::value && !T_Sets<int, CMsg**>::value);
static_assert(!T_Sets<char*, const CMsg*>::value && !T_Sets<char*, CString*>::value && !T_Sets<char*, double*>::value);

}    // namespace

TEST_CASE("a message that may only be read is read like any other") {
  CTestMsg cMsg(120);
  cMsg->SetValue(1, "text");
  cMsg->SetValue(7, 5);
  cMsg->SetValue(17, 6);
  cMsg->SetValue(5, CDate("20260131"));
  cMsg->NewSub(6)->SetValue(1, "row");
  const CMsg& cRead = *cMsg;
  std::string sName = "number";
  CString sOut;
  CInt cInt;
  CDate cDate;
  CIntArray aiOut;
  CMsgArray apOut(false);
  CMsg* pSub = nullptr;
  int iOut = 0;
  CHECK(cRead.GetValue(1, &sOut) == 0);
  CHECK(cRead.GetValue("number", &iOut) == 0);
  CHECK(iOut == 5);
  CHECK(cRead.GetValue(&sName[0], &cInt) == 0);
  CHECK(cInt.Get() == 5);
  CHECK(cRead.GetValue(5, &cDate) == 0);
  CHECK(cRead.GetValue(17, &aiOut) == 0);
  CHECK(cRead.GetValue(6, &apOut) == 0);
  CHECK(apOut.GetSize() == 1);
  CHECK(cRead.GetValueAt(17, 0, &iOut) == 0);
  CHECK(iOut == 6);
  CHECK(cRead.GetValueAt("numbers", 0, &iOut) == 0);
  CHECK(cRead.GetArrSize(17) == 1);
  CHECK(cRead.GetArrSize("numbers") == 1);
  CHECK(cRead.GetValue(6, &pSub) == 0);
  const CMsg* pConst = cRead.GetValue(6);
  CHECK(pConst == pSub);
  CHECK(cRead.GetValue("row") == pSub);
  CHECK(cRead.GetValue(99, &iOut) == -18);
  CHECK(cRead.GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=99}"));
}
