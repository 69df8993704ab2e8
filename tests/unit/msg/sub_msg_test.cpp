// Sub-messages: storing, ownership, rows.
#include <climits>
#include <thread>
#include <vector>

#include "support/test_dic.h"

namespace {

std::string TextOf(CMsg* p_pMsg) {
  CString sText("null");
  if (p_pMsg != nullptr) p_pMsg->GetValue(1, &sText);
  return sText.ToStr();
}

}    // namespace

TEST_CASE("a sub-message belongs to its parent") {
  CTestMsg cMsg(120);
  for (int iTag : {6, 16}) {
    CAPTURE(iTag);
    CMsg* pRow = NewRow(cMsg.Dic(), "row");
    CHECK(pRow->GetRootNum() == 121);
    CHECK(pRow->GetParent() == nullptr);
    CHECK(cMsg->SetValue(iTag, pRow) == 0);
    CHECK(pRow->GetRootNum() == 120);
    CHECK(pRow->GetParent() == &*cMsg);
    CHECK(pRow->GetParentTag() == 0);
    CHECK(pRow->GetMsgNum() == 121);
    CHECK_FALSE(cMsg->IsEmpty());
    CHECK(cMsg->GetLastError() == std::string());
  }
}

TEST_CASE("the root of a sub-message is its parent's root") {
  CTestDic cDic;
  CMsg cMsg(121, 77, 0, &cDic);
  CMsg* pRow = NewRow(cDic, "row");
  CHECK(cMsg.SetValue(3, pRow) == 0);
  CHECK(pRow->GetRootNum() == 77);
}

TEST_CASE("a sub-message may be of another number than the dictionary says") {
  CTestMsg cMsg(120);
  auto pOther = std::make_unique<CMsg>(120, 0, 0, &cMsg.Dic());
  pOther->SetValue(7, 5);
  CHECK(cMsg->SetValue(6, pOther.release()) == 0);
  CHECK(cMsg->GetValue(6)->GetMsgNum() == 120);
}

TEST_CASE("every form of getter gives the sub-message") {
  CTestMsg cMsg(120);
  CMsg* pSingle = NewRow(cMsg.Dic(), "single");
  CMsg* apRow[3];
  CHECK(cMsg->SetValue("row", pSingle) == 0);
  for (CMsg*& pRow : apRow) CHECK(cMsg->SetValue("rows", pRow = NewRow(cMsg.Dic(), "row")) == 0);

  CMsg* pOut = nullptr;
  CHECK(cMsg->GetValue(6, &pOut) == 0);
  CHECK(pOut == pSingle);
  CHECK(cMsg->GetValue(6) == pSingle);
  CHECK(cMsg->GetValue("row") == pSingle);
  CHECK(cMsg->GetValueAt(6, 17, &pOut) == 0);
  CHECK(pOut == pSingle);
  CHECK(cMsg->GetValue(16, &pOut) == 0);
  CHECK(pOut == apRow[0]);
  CHECK(cMsg->GetValue(16) == apRow[0]);
  for (int i = 0; i < 3; ++i) {
    CHECK(cMsg->GetValueAt(16, i, &pOut) == 0);
    CHECK(pOut == apRow[i]);
  }
  CHECK(cMsg->GetArrSize(16) == 3);
}

TEST_CASE("the short getter of a sub-message gives null and leaves the text") {
  CTestMsg cMsg(120), cNoDef(0);
  std::string sName = "row", sUnknown = "nonesuch";
  CHECK(cMsg->GetValue(6) == nullptr);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=6}"));
  CHECK(cMsg->GetValue(99) == nullptr);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=99}"));
  CHECK(cMsg->GetValue(&sUnknown[0]) == nullptr);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"));
  cMsg->SetValue(7, 5);
  CHECK(cMsg->GetValue(7) == nullptr);
  CHECK(cMsg->GetLastError() ==
        std::string("MSG_Error(-17) : Invalid tag type {Line:891, tagnum=7,type=(integer/submsg)}"));
  CHECK(cNoDef->GetValue(6) == nullptr);
  CHECK(cNoDef->GetLastError() == std::string("MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=6}"));
  CHECK(cNoDef->GetValue(&sName[0]) == nullptr);
  CHECK(cNoDef->GetLastError() == std::string("MSG_Error(-19) : Not defined msg in dictionary {msgnum=0}"));
}

TEST_CASE("no sub-message is an error before anything else") {
  CTestMsg cMsg(120), cNoDef(0);
  CMsg* pNone = nullptr;
  for (int iTag : {6, 16, 7, 99, -1}) {
    CMsg cFresh(120, 0, 0, &cMsg.Dic());
    CHECK(cFresh.SetValue(iTag, pNone) == -12);
    CHECK(cFresh.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
  }
  CHECK(cNoDef->SetValue(6, pNone) == -12);
}

TEST_CASE("an empty sub-message is freed and nothing is stored, whatever the tag") {    // the leak checker counts
  CTestMsg cMsg(120), cNoDef(0);
  for (int iTag : {6, 16, 7, 99, -1}) {
    CAPTURE(iTag);
    CHECK(cMsg->SetValue(iTag, new CMsg(121, 0, 0, &cMsg.Dic())) == 0);
    CHECK(cMsg->GetArrSize(iTag) < 0);
  }
  CHECK(cMsg->SetValue("nonesuch", new CMsg(121, 0, 0, &cMsg.Dic())) == 0);
  CHECK(cNoDef->SetValue(6, new CMsg(0, 0, 0, &cMsg.Dic())) == 0);
  CHECK(cMsg->IsEmpty());
  CHECK(cMsg->GetArrSize(6) == -1);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=6}"));
}

TEST_CASE("an empty sub-message leaves the one stored before") {
  CTestMsg cMsg(120);
  cMsg->SetValue(6, NewRow(cMsg.Dic(), "kept"));
  CHECK(cMsg->SetValue(6, new CMsg(121, 0, 0, &cMsg.Dic())) == 0);
  CHECK(TextOf(cMsg->GetValue(6)) == "kept");
}

TEST_CASE("a refused sub-message stays the caller's") {
  CTestMsg cMsg(120), cNoDef(0);
  std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "mine"));
  CHECK(cNoDef->SetValue(6, pRow.get()) == -19);
  CHECK(cMsg->SetValue(-1, pRow.get()) == -18);
  CHECK(cMsg->SetValue(99, pRow.get()) == -18);
  CHECK(cMsg->SetValue(7, pRow.get()) == -17);
  CHECK(cMsg->SetValue("nonesuch", pRow.get()) == -18);
  CHECK(pRow->GetParent() == nullptr);
  CHECK(pRow->GetRootNum() == 121);
  CHECK(TextOf(pRow.get()) == "mine");
  CHECK(cMsg->IsEmpty());
}

TEST_CASE("a sub-message may be stored again in the single tag that has it") {
  CTestMsg cMsg(120);
  CMsg* pRow = NewRow(cMsg.Dic(), "row");
  for (int i = 0; i < 3; ++i) {
    CHECK(cMsg->SetValue(6, pRow) == 0);
    CHECK(cMsg->GetValue(6) == pRow);
  }
  CHECK(cMsg->GetLastError() == std::string());
  CMsg* pEmpty = pRow->MakeSubMsgEntry(3);
  CHECK(pRow->SetValue(3, pEmpty) == 0);    // and is not freed, as it is in use
  CHECK(pRow->GetValue(3) == pEmpty);
}

TEST_CASE("a message cannot be stored twice or inside itself") {
  CTestMsg cMsg(120);
  const std::string sRefused = "MSG_Error(-28) : Invalid input msg of service {tagnum=16,msgnum=120}";
  CMsg* pRow = NewRow(cMsg.Dic(), "row");
  CHECK(cMsg->SetValue(16, pRow) == 0);

  SUBCASE("under the same tag") {
    CHECK(cMsg->SetValue(16, pRow) == -28);
    CHECK(cMsg->GetLastError() == sRefused);
  }
  SUBCASE("under another tag and in another message") {
    CHECK(cMsg->SetValue(6, pRow) == -28);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-28) : Invalid input msg of service {tagnum=6,msgnum=120}"));
    CMsg cOther(120, 0, 0, &cMsg.Dic());
    CHECK(cOther.SetValue(16, pRow) == -28);
    CHECK(cOther.IsEmpty());
  }
  SUBCASE("one that another single tag has") {
    CMsg* pSingle = NewRow(cMsg.Dic(), "single");
    CHECK(cMsg->SetValue(6, pSingle) == 0);
    CHECK(pRow->SetValue(3, pSingle) == -28);
    CHECK(cMsg->GetValue(6) == pSingle);
  }
  SUBCASE("itself") {
    CHECK(cMsg->SetValue(16, &*cMsg) == -28);
    CHECK(cMsg->GetLastError() == sRefused);
    CMsg cEmpty(120, 0, 0, &cMsg.Dic());
    CHECK(cEmpty.SetValue(16, &cEmpty) == -28);
  }
  SUBCASE("its parent and the parent's parent") {
    CHECK(pRow->SetValue(3, &*cMsg) == -28);
    CHECK(pRow->GetLastError() == std::string("MSG_Error(-28) : Invalid input msg of service {tagnum=3,msgnum=121}"));
    CMsg* pInner = NewRow(cMsg.Dic(), "inner");
    CHECK(pRow->SetValue(4, pInner) == 0);
    CHECK(pInner->SetValue(4, &*cMsg) == -28);
    CHECK(pInner->SetValue(4, pRow) == -28);
  }
  SUBCASE("an owned message that is empty is not freed") {
    CMsg* pEmpty = cMsg->MakeSubMsgEntry(16);
    CHECK(pEmpty->IsEmpty());
    CHECK(cMsg->SetValue(16, pEmpty) == -28);
    CHECK(cMsg->GetArrSize(16) == 2);
  }
  CHECK(TextOf(cMsg->GetValue(16)) == "row");
}

TEST_CASE("initialising anew does not make a circle possible") {
  CTestMsg cMsg(120);
  CMsg* pRow = NewRow(cMsg.Dic(), "row");
  CMsg* pInner = NewRow(cMsg.Dic(), "inner");
  CHECK(cMsg->SetValue(16, pRow) == 0);
  CHECK(pRow->SetValue(4, pInner) == 0);

  SUBCASE("of the outer message, which no longer shows what it owns") {
    cMsg->Init(120, 0, 0);
    CHECK(pRow->SetValue(4, &*cMsg) == -28);
    CHECK(pInner->SetValue(4, &*cMsg) == -28);
  }
  SUBCASE("of the sub-message, which no longer shows its parent") {
    pRow->Init(121, 0, 0);
    CHECK(pRow->GetParent() == nullptr);
    CHECK(pRow->SetValue(4, &*cMsg) == -28);
    CHECK(pInner->SetValue(4, &*cMsg) == -28);
    CHECK(cMsg->SetValue(16, pRow) == -28);
  }
}

TEST_CASE("messages of many levels are freed with the outermost") {    // the leak checker counts
  CTestMsg cMsg(120);
  for (int i = 0; i < 5; ++i) {
    CMsg* pRow = NewRow(cMsg.Dic(), "row");
    CMsg* pInner = NewRow(cMsg.Dic(), "inner");
    CHECK(pInner->SetValue(3, NewRow(cMsg.Dic(), "innermost")) == 0);
    CHECK(pInner->SetValue(4, NewRow(cMsg.Dic(), "innermost")) == 0);
    CHECK(pRow->SetValue(4, pInner) == 0);
    CHECK(cMsg->SetValue(i == 0 ? 6 : 16, pRow) == 0);
  }
  CMsg* pFound = nullptr;
  CHECK(cMsg->GetValueAt(16, 1, &pFound) == 0);
  CHECK(TextOf(pFound->GetValue(4)->GetValue(3)) == "innermost");
}

TEST_CASE("rows come out borrowed, and the array that receives them stops adopting") {
  CTestMsg cMsg(120);
  for (const char* szText : {"one", "two"}) cMsg->SetValue(16, NewRow(cMsg.Dic(), szText));
  cMsg->SetValue(6, NewRow(cMsg.Dic(), "single"));
  {
    CMsgArray apRow(true);
    apRow.Add(NewRow(cMsg.Dic(), "freed by GetValue"));
    CHECK(cMsg->GetValue(16, &apRow) == 0);
    CHECK_FALSE(apRow.GetAdoptFlag());
    REQUIRE(apRow.GetSize() == 2);
    CHECK(TextOf(apRow.GetAt(0)) == "one");
    CHECK(TextOf(apRow.GetAt(1)) == "two");
    CHECK(cMsg->GetValue(6, &apRow) == 0);
    REQUIRE(apRow.GetSize() == 1);
    CHECK(TextOf(apRow.GetAt(0)) == "single");
    apRow.SetAdoptFlag(false);
    CHECK(cMsg->GetValue(7, &apRow) == -1);
    CHECK(apRow.GetSize() == 0);
  }
  CHECK(TextOf(cMsg->GetValue(16)) == "one");
}

TEST_CASE("a value in a row may be changed through a borrowed pointer") {
  CTestMsg cMsg(120);
  cMsg->SetValue(16, NewRow(cMsg.Dic(), "before"));
  CHECK(cMsg->GetValue(16)->SetValue(1, "after") == 0);
  CHECK(ToXml(*cMsg).find("after") != std::string::npos);
}

TEST_CASE("AddChild lists a message without owning it") {
  CTestMsg cMsg(120);
  std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "row"));
  CHECK(cMsg->AddChild(pRow.get()) == 0);
  CHECK(cMsg->AddChild(pRow.get()) == 0);
  CHECK(cMsg->AddChild(nullptr) == -12);
  CHECK(cMsg->GetLastError() == std::string());
  CHECK(cMsg->IsEmpty());
  CHECK(pRow->GetParent() == nullptr);
  CHECK(ToXml(*cMsg) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"></msg>");
}

TEST_CASE("MakeSubMsgEntry makes a row each time, and a single sub-message once") {
  CTestMsg cMsg(120);
  CMsg* pOne = cMsg->MakeSubMsgEntry(16);
  CMsg* pTwo = cMsg->MakeSubMsgEntry(16);
  REQUIRE(pOne != nullptr);
  CHECK(pOne != pTwo);
  CHECK(cMsg->GetArrSize(16) == 2);
  CHECK(cMsg->GetValue(16) == pOne);
  CMsg* pSingle = cMsg->MakeSubMsgEntry(6);
  CHECK(cMsg->MakeSubMsgEntry(6) == pSingle);
  CHECK(cMsg->GetValue(6) == pSingle);
  for (CMsg* pSub : {pOne, pTwo}) {
    CHECK(pSub->GetMsgNum() == 121);
    CHECK(pSub->GetRootNum() == 120);
    CHECK(pSub->GetParentTag() == 16);
    CHECK(pSub->GetParent() == &*cMsg);
    CHECK(pSub->IsEmpty());
  }
  CHECK(pSingle->GetParentTag() == 6);
  CHECK(pSingle->GetParent() == &*cMsg);
  CHECK_FALSE(cMsg->IsEmpty());
  CHECK(pOne->MakeSubMsgEntry(3)->GetRootNum() == 121);    // the number of the message that it was made by
}

TEST_CASE("MakeSubMsgEntry uses a sub-message that was stored before") {
  CTestMsg cMsg(120);
  CMsg* pRow = NewRow(cMsg.Dic(), "row");
  cMsg->SetValue(6, pRow);
  pRow->Init(121, 0, 0);
  CHECK(pRow->GetParent() == nullptr);
  CHECK(cMsg->MakeSubMsgEntry(6) == pRow);
  CHECK(pRow->GetParent() == &*cMsg);
  CHECK(pRow->SetValue(1, "again") == 0);
  CHECK(TextOf(cMsg->GetValue(6)) == "again");
}

TEST_CASE("MakeSubMsgEntry says what is wrong") {
  CMsgDic cDic;
  DefineTestMessages(cDic);
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgDetail(5, 1, "single", "m77", "N");
  cDic.SetMsgDetail(5, 2, "rows", "m77", "Y");
  cDic.GetMsgInfo(5)->SetTagInfo(3, "odd", TAG_SUBMSG, 0, false);
  cDic.GetMsgInfo(5)->SetTagInfo(4, "far", TAG_SUBMSG, 10000, true);
  CMsg cNoDef(0, 0, 0, &cDic), cMsg(5, 0, 0, &cDic), cFull(120, 0, 0, &cDic);
  CheckThrows(-19, "tagnum=6,submsgnum=0", [&] { cNoDef.MakeSubMsgEntry(6); });
  CheckThrows(-18, "tagnum=99", [&] { cFull.MakeSubMsgEntry(99); });
  CheckThrows(-18, "tagnum=-1", [&] { cFull.MakeSubMsgEntry(-1); });
  CheckThrows(-17, "tagnum=7,type=2", [&] { cFull.MakeSubMsgEntry(7); });
  CheckThrows(-17, "tagnum=11,type=1", [&] { cFull.MakeSubMsgEntry(11); });
  CheckThrows(-19, "3.msgnum=77", [&] { cMsg.MakeSubMsgEntry(1); });
  CheckThrows(-19, "3.msgnum=77", [&] { cMsg.MakeSubMsgEntry(2); });
  CheckThrows(-15, "1.msgnum=0", [&] { cMsg.MakeSubMsgEntry(3); });
  CheckThrows(-15, "1.msgnum=10000", [&] { cMsg.MakeSubMsgEntry(4); });
  CHECK(cMsg.IsEmpty());
  CHECK(cMsg.GetLastError() == std::string());
  CHECK(cMsg.GetValue(1) == nullptr);
  CHECK(cMsg.GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=1,Unset}"));
  // An array is there before its first row is made.
  CMsg* pOut = &cMsg;
  CHECK(cMsg.GetArrSize(2) == 0);
  CHECK(cMsg.GetValue(2, &pOut) == 0);
  CHECK(pOut == nullptr);
  CHECK(cMsg.GetArrSize(4) == 0);
  CHECK(ToXml(cMsg) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"5\" ver=\"\"></msg>");
}

TEST_CASE("a row whose definition has no tags can become a message that has some") {
  CMsgDic cDic;
  DefineTestMessages(cDic);
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.SetMsgInfo(6, "bare", "", "");
  cDic.SetMsgDetail(5, 1, "rows", "m6", "Y");
  CMsg cMsg(5, 0, 0, &cDic);
  for (int i = 0; i < 3; ++i) {
    CMsg* pRow = cMsg.MakeSubMsgEntry(1);
    pRow->Init(120, 0, 0);
    CHECK(pRow->SetValue(1, "text") == 0);
    CHECK(pRow->SetValue(7, i) == 0);
    CHECK(pRow->SetValue(17, i) == 0);
    int iOut = -1;
    CHECK(pRow->GetValue(17, &iOut) == 0);
    CHECK(iOut == i);
    CHECK(TextOf(pRow) == "text");
  }
}

TEST_CASE("a definition may gain tags while messages of it exist") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "1");
  cDic.SetMsgInfo(6, "row", "", "1");
  cDic.SetMsgDetail(5, 1, "rows", "m6", "Y");
  cDic.SetMsgDetail(6, 0, "t", "integer", "N");
  CMsg cMsg(5, 0, 0, &cDic);
  CMsg* pRow = cMsg.MakeSubMsgEntry(1);
  for (int i = 1; i < 200; ++i) cDic.SetMsgDetail(6, i, "t", i % 2 == 0 ? "integer" : "string", "N");
  for (int i = 0; i < 200; ++i) CHECK((i % 2 == 0 ? pRow->SetValue(i, i) : pRow->SetValue(i, "text")) == 0);
  for (int i = 0; i < 200; i += 2) {
    int iOut = -1;
    CHECK(pRow->GetValue(i, &iOut) == 0);
    CHECK(iOut == i);
  }
}
