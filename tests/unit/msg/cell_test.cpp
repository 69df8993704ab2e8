// Cells in states that only a lack of memory or another program's damage leaves behind.
#include "msg/access.h"
#include "msg/cells.h"
#include "support/test_dic.h"

namespace {

CMsgValue& Cell(CTestMsg& p_cMsg, int p_iTag) { return *callorv::detail::CCells::GetHashBag(*p_cMsg, p_iTag); }

// Message 120 with a value in every tag.
class CFullMsg : public CTestMsg {
 public:
  CFullMsg() : CTestMsg(120) {
    CMsg& cMsg = **this;
    for (int iTag : {0, 10}) {
      cMsg.SetValue(iTag + 1, "abc");
      cMsg.SetValue(iTag + 7, 5);
      cMsg.SetValue(iTag + 3, 1.5);
      cMsg.SetValue(iTag + 4, true);
      cMsg.SetValue(iTag + 5, CDate("20240131"));
      cMsg.SetValue(iTag + 6, NewRow(Dic(), "row"));
    }
  }
};

// CHECKs that no getter of the tag's type finds data, and that each says p_sText.
template <class T, class ARRAY>
void CheckNoDataAs(CMsg& p_cMsg, int p_iTag, const std::string& p_sText, ARRAY&& p_aOut) {
  T Value{};
  CHECK(p_cMsg.GetValue(p_iTag, &Value) == -1);
  CHECK(p_cMsg.GetLastError() == p_sText);
  CHECK(p_cMsg.GetValueAt(p_iTag, 0, &Value) == -1);
  CHECK(p_cMsg.GetLastError() == p_sText);
  CHECK(p_cMsg.GetValue(p_iTag, &p_aOut) == -1);
  CHECK(p_cMsg.GetLastError() == p_sText);
}

// The same for a tag of message 120 by its number; returns the text, whose detail ends in p_szWhy.
std::string CheckNoData(CMsg& p_cMsg, int p_iTag, const char* p_szWhy) {
  const std::string sText =
      "MSG_Error(-1) : No Data found {tagnum=" + std::to_string(p_iTag) + "," + p_szWhy + "}";
  CAPTURE(p_iTag);
  switch (p_iTag % 10) {
    case 1: CheckNoDataAs<CString>(p_cMsg, p_iTag, sText, CStrArray()); break;
    case 7: CheckNoDataAs<int>(p_cMsg, p_iTag, sText, CIntArray()); break;
    case 3: CheckNoDataAs<double>(p_cMsg, p_iTag, sText, CDblArray()); break;
    case 4: CheckNoDataAs<bool>(p_cMsg, p_iTag, sText, CBoolArray()); break;
    case 5: CheckNoDataAs<CDate>(p_cMsg, p_iTag, sText, CDateArray()); break;
    default: CheckNoDataAs<CMsg*>(p_cMsg, p_iTag, sText, CMsgArray(false));
  }
  return sText;
}

// Takes the array out of a multi cell. The caller frees it; rows stay in it.
template <class ARRAY>
std::unique_ptr<ARRAY> TakeArray(ARRAY*& p_pArray) {
  return std::unique_ptr<ARRAY>(std::exchange(p_pArray, nullptr));
}

}    // namespace

TEST_CASE("a new cell is all zero") {
  const CMsgValue cCell;
  CHECK(cCell.m_iTagNum == 0);
  CHECK(cCell.m_eType == TAG_UNKNOWN);
  CHECK_FALSE(cCell.m_bSet);
  CHECK_FALSE(cCell.m_bMulti);
  CHECK(cCell.m_dVal == 0);
  CHECK(cCell.m_pStr == nullptr);
  CHECK(cCell.m_pNext == nullptr);
}

TEST_CASE("a cell without a value is unset to every getter") {
  CFullMsg cMsg;
  for (int iTag : {1, 7, 3, 4, 5, 6, 11, 17, 13, 14, 15, 16}) {
    CAPTURE(iTag);
    Cell(cMsg, iTag).m_bSet = false;
    const std::string sText = CheckNoData(*cMsg, iTag, "Unset");
    CHECK(cMsg->GetArrSize(iTag) == -1);
    CHECK(cMsg->GetLastError() == sText);
  }
  CHECK(ToXml(*cMsg) == "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"120\" ver=\"\"></msg>");
  CInt cInt(9);
  CHECK(cMsg->GetValue(7, &cInt) == -1);
  CHECK_FALSE(cInt.IsSet());
}

TEST_CASE("the type of a value is compared before it is found unset") {
  CFullMsg cMsg;
  Cell(cMsg, 7).m_bSet = false;
  CString sText;
  CHECK(cMsg->GetValue(7, &sText) == -17);
}

TEST_CASE("a string or date that is missing is NULL to every getter") {
  CFullMsg cMsg;
  Cell(cMsg, 1).m_pStr = nullptr;    // short, so nothing leaks
  Cell(cMsg, 5).m_pDate = nullptr;
  for (int iTag : {1, 5}) {
    CAPTURE(iTag);
    CheckNoData(*cMsg, iTag, "NULL");
    CHECK(cMsg->GetArrSize(iTag) == 1);    // a single cell counts by its type
  }
  std::string_view svText = "as before";    // how the C functions read
  CHECK(callorv::detail::CAccess::Get(*cMsg, 1, &svText) == -1);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=1,NULL}"));
  CHECK(svText == "as before");
  const std::string sXml = ToXml(*cMsg);
  CHECK(sXml.find("ver=\"\"><t7>") != std::string::npos);    // tag 1 would come first
  CHECK(sXml.find("<t5>") == std::string::npos);
}

TEST_CASE("a sub-message that is missing is a null pointer") {
  CTestMsg cMsg(120);
  std::unique_ptr<CMsg> pRow(NewRow(cMsg.Dic(), "row"));
  cMsg->SetValue(6, pRow.get());
  Cell(cMsg, 6).m_pMsg = nullptr;
  CMsg* pOut = &*cMsg;
  CHECK(cMsg->GetValue(6, &pOut) == 0);
  CHECK(pOut == nullptr);
  CHECK(cMsg->GetValue(6) == nullptr);
  CHECK(cMsg->GetArrSize(6) == 1);
  CHECK(ToXml(*cMsg).find("t6") == std::string::npos);
}

TEST_CASE("an array that is missing is NULL to every getter") {
  CFullMsg cMsg;
  const auto pStr = TakeArray(Cell(cMsg, 11).m_pStrArr);
  const auto pInt = TakeArray(Cell(cMsg, 17).m_pIntArr);
  const auto pDbl = TakeArray(Cell(cMsg, 13).m_pDblArr);
  const auto pBool = TakeArray(Cell(cMsg, 14).m_pBoolArr);
  const auto pDate = TakeArray(Cell(cMsg, 15).m_pDateArr);
  delete cMsg->GetValue(16);    // it would look for itself in the array
  const auto pMsg = TakeArray(Cell(cMsg, 16).m_pMsgArr);
  for (int iTag : {11, 17, 13, 14, 15, 16}) {
    CAPTURE(iTag);
    const std::string sText = CheckNoData(*cMsg, iTag, "NULL");
    CHECK(cMsg->GetArrSize(iTag) == -1);
    CHECK(cMsg->GetLastError() == sText);
  }
  CStream stXml(0, 512), stList(0, 512);
  cMsg->DumpXml(&stXml, false, 1);
  cMsg->Dump(&stList, false, 1);
  for (const char* szTag : {"11", "17", "13", "14", "15", "16"}) {
    CHECK(ToXml(*cMsg).find("<t" + std::string(szTag) + ">") == std::string::npos);
    CHECK(Text(stXml).find("<t" + std::string(szTag) + ">") == std::string::npos);
    CHECK(Text(stList).find("[" + std::string(szTag) + "]") == std::string::npos);
  }
  // A setter makes the array again.
  CHECK(cMsg->SetValue(17, 8) == 0);
  CHECK(cMsg->GetArrSize(17) == 1);
}

TEST_CASE("an empty array has no first element") {
  CFullMsg cMsg;
  Cell(cMsg, 17).m_pIntArr->RemoveAll();
  Cell(cMsg, 16).m_pMsgArr->RemoveAll();
  int iOut = 9;
  CHECK(cMsg->GetValueAt(17, 0, &iOut) == -27);
  CHECK(cMsg->GetArrSize(17) == 0);
  CIntArray aiOut;
  CHECK(cMsg->GetValue(17, &aiOut) == 0);
  CHECK(aiOut.GetSize() == 0);
  CMsg* pOut = &*cMsg;
  CHECK(cMsg->GetValue(16, &pOut) == 0);
  CHECK(pOut == nullptr);
  CHECK(cMsg->GetValue(16) == nullptr);
}

TEST_CASE("a value of no known type is counted by nobody and written by nobody") {
  CFullMsg cMsg;
  for (int iType : {0, 7, -1}) {
    CAPTURE(iType);
    Cell(cMsg, 7).m_eType = static_cast<E_TagType>(iType);
    CHECK(cMsg->GetArrSize(7) == -17);
    CHECK(cMsg->GetLastError() == std::string("MSG_Error(-17) : Invalid tag type {tagnum=7,NULL}"));
    CHECK(ToXml(*cMsg).find("<t7>") == std::string::npos);
  }
  int iOut = 9;
  CHECK(cMsg->GetValue(7, &iOut) == -17);
  CHECK(cMsg->GetLastError() ==
        std::string("MSG_Error(-17) : Invalid tag type {Line:740, tagnum=7,type=(Unknown(-1)/integer)}"));
  Cell(cMsg, 7).m_bSet = false;
  CHECK(cMsg->GetArrSize(7) == -1);
}

TEST_CASE("rows that are missing are skipped by the forms and kept by the indexes") {
  CFullMsg cMsg;
  CMsgArray& apRow = *Cell(cMsg, 16).m_pMsgArr;
  CMsg* pOnly = apRow.GetAt(0);
  apRow.SetSize(3);
  CHECK(cMsg->GetArrSize(16) == 3);
  CMsg* pOut = pOnly;
  CHECK(cMsg->GetValueAt(16, 1, &pOut) == 0);
  CHECK(pOut == nullptr);
  CMsgArray apOut(false);
  CHECK(cMsg->GetValue(16, &apOut) == 0);
  REQUIRE(apOut.GetSize() == 3);
  CHECK(apOut.GetAt(0) == pOnly);
  CHECK(apOut.GetAt(1) == nullptr);
  CHECK(apOut.GetAt(2) == nullptr);
}
