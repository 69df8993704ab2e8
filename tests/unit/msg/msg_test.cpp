// A message's life: construction, definition, version, the cell table, the end.
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>

#include "support/test_dic.h"

namespace {

// Where fields of a message are, for when it is none any more. An explicit instantiation may name private members.
struct T_Places {
  const void *pRootNum, *pMsgNum, *pParent;
};
T_Places PlacesIn(CMsg& p_cMsg);
template <int CMsg::*ROOT_NUM, int CMsg::*MSG_NUM, CMsg* CMsg::*PARENT>
struct T_OpenPlaces {
  friend T_Places PlacesIn(CMsg& p_cMsg) { return {&(p_cMsg.*ROOT_NUM), &(p_cMsg.*MSG_NUM), &(p_cMsg.*PARENT)}; }
};
template struct T_OpenPlaces<&CMsg::m_iRootNum, &CMsg::m_iMsgNum, &CMsg::m_pParent>;

// The bytes of an object that is gone, in memory that is still there.
template <class T>
T Left(const void* p_pAt) {
  T Value;
  memcpy(&Value, p_pAt, sizeof(Value));
  return Value;
}

}    // namespace

TEST_CASE("a message without a dictionary cannot be made") {
  CheckThrows(-12, "CMsg: Parameter is NULL", [] { CMsg cMsg(120, 0, 0, nullptr); });
  CheckThrows(-12, "CMsg: Parameter is NULL", [] { CMsg cMsg(0, 0, 0, nullptr); });
}

TEST_CASE("a new message is empty") {
  CTestDic cDic;
  CMsg cMsg(120, 121, 6, &cDic);
  CHECK(cMsg.GetMsgNum() == 120);
  CHECK(cMsg.GetRootNum() == 121);
  CHECK(cMsg.GetParentTag() == 6);
  CHECK(cMsg.IsEmpty());
  CHECK(cMsg.GetParent() == nullptr);
  CHECK(cMsg.GetMsgInfo() == cDic.GetMsgInfo(120));
  CHECK(cMsg.GetVer() == std::string());
  CHECK(cMsg.GetLastError() == std::string());
}

TEST_CASE("a message's root is itself unless another is given") {
  CTestDic cDic;
  CHECK(CMsg(120, 0, 0, &cDic).GetRootNum() == 120);
  CHECK(CMsg(120, -1, 0, &cDic).GetRootNum() == 120);
  CHECK(CMsg(120, 9999, 0, &cDic).GetRootNum() == 9999);
}

TEST_CASE("a message number below 1 makes a message without a definition") {
  CTestDic cDic;
  for (int i : {0, -1, INT_MIN}) {
    CAPTURE(i);
    CMsg cMsg(i, 120, 6, &cDic);
    CHECK(cMsg.GetMsgNum() == 0);
    CHECK(cMsg.GetRootNum() == 0);
    CHECK(cMsg.GetParentTag() == 0);
    CHECK(cMsg.GetMsgInfo() == nullptr);
    CHECK(cMsg.IsEmpty());
    CHECK(cMsg.SetValue(7, 1) == -19);
    CHECK(cMsg.GetLastError() == std::string("MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=7}"));
  }
}

TEST_CASE("the numbers of a message are checked, by the constructor and by Init") {
  struct T_Row {
    int iMsgNum, iRootNum, iCode;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {10000, 0, -15, "1.msgnum=10000"},       {INT_MAX, 0, -15, "1.msgnum=2147483647"},
      {10000, 10000, -15, "1.msgnum=10000"},   {120, 10000, -15, "2.msgnum=10000"},
      {122, 10000, -15, "2.msgnum=10000"},     {120, INT_MAX, -15, "2.msgnum=2147483647"},
      {122, 0, -19, "3.msgnum=122"},           {9999, 120, -19, "3.msgnum=9999"}};
  CTestDic cDic;
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CheckThrows(tRow.iCode, tRow.szText, [&] { CMsg cMsg(tRow.iMsgNum, tRow.iRootNum, 0, &cDic); });
    CMsg cMsg(0, 0, 0, &cDic);
    CheckThrows(tRow.iCode, tRow.szText, [&] { cMsg.Init(tRow.iMsgNum, tRow.iRootNum, 0); });
    CHECK(cMsg.GetMsgInfo() == nullptr);
    CHECK(cMsg.GetLastError() == std::string());
  }
  CMsg cMsg(0, 0, 0, &cDic);
  CheckThrows(-15, "1.msgnum=0", [&] { cMsg.Init(0, 0, 0); });
  CheckThrows(-15, "1.msgnum=-7", [&] { cMsg.Init(-7, 120, 0); });
}

TEST_CASE("Init defines a message that had no definition") {
  CTestDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  cMsg.Init(120, 121, 16);
  CHECK(cMsg.GetMsgNum() == 120);
  CHECK(cMsg.GetRootNum() == 121);
  CHECK(cMsg.GetParentTag() == 16);
  CHECK(cMsg.GetMsgInfo() == cDic.GetMsgInfo(120));
  CHECK(cMsg.SetValue(7, 5) == 0);
  CHECK_FALSE(cMsg.IsEmpty());
}

TEST_CASE("a refused Init leaves the message as it was") {
  CTestMsg cMsg(120);
  cMsg->SetValue(7, 5);
  CHECK_THROWS_AS(cMsg->Init(10000, 0, 0), CException);
  CHECK_THROWS_AS(cMsg->Init(121, 10000, 0), CException);
  CHECK_THROWS_AS(cMsg->Init(122, 0, 0), CException);
  int iValue = 0;
  CHECK(cMsg->GetMsgNum() == 120);
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(iValue == 5);
}

TEST_CASE("Init takes the values out of reach but keeps what was lent") {
  CTestMsg cMsg(120);
  cMsg->SetVer("1.5");
  cMsg->SetValue(7, 5);
  cMsg->SetValue(1, "a text that is too long to be stored in place");
  cMsg->SetValue(6, NewRow(cMsg.Dic(), "single"));
  cMsg->SetValue(16, NewRow(cMsg.Dic(), "in a row"));
  CMsg* pSingle = cMsg->GetValue(6);
  CMsg* pRow = cMsg->GetValue(16);
  cMsg->Init(120, 0, 0);

  int iValue = 1;
  CHECK(cMsg->GetValue(7, &iValue) == -1);
  CHECK(cMsg->GetValue(6) == nullptr);
  CHECK(cMsg->GetValue(16) == nullptr);
  CHECK_FALSE(cMsg->IsEmpty());    // a value was stored once
  CHECK(cMsg->GetVer() == std::string("1.5"));
  CString sText;
  CHECK(pSingle->GetValue(1, &sText) == 0);
  CHECK(sText == "single");
  CHECK(pRow->GetValue(1, &sText) == 0);
  CHECK(sText == "in a row");

  cMsg->Init(121, 0, 0);
  CHECK(cMsg->SetValue(2, 9) == 0);
  CHECK(cMsg->GetValue(2, &iValue) == 0);
  CHECK(iValue == 9);
}

TEST_CASE("Init can be repeated") {
  CTestMsg cMsg(120);
  for (int i = 0; i < 50; ++i) {
    cMsg->SetValue(7, i);
    cMsg->SetValue(16, NewRow(cMsg.Dic(), "row"));
    cMsg->Init(120, 0, 0);
  }
  CHECK(cMsg->GetArrSize(16) == -1);
}

TEST_CASE("Init goes from one hash key to another") {
  CMsgDic cDic;
  for (int iKey : {1, 128, 7, 64}) {
    cDic.SetMsgInfo(iKey, "m", "", std::to_string(iKey).c_str());
    for (int i = 0; i < 200; ++i) cDic.SetMsgDetail(iKey, i, "t", "integer", "N");
  }
  CMsg cMsg(1, 0, 0, &cDic);
  for (int iKey : {1, 128, 7, 64, 1}) {
    CAPTURE(iKey);
    cMsg.Init(iKey, 0, 0);
    int iValue = 0;
    for (int i = 0; i < 200; ++i) CHECK(cMsg.GetValue(i, &iValue) == -1);
    for (int i = 0; i < 200; ++i) CHECK(cMsg.SetValue(i, i + iKey) == 0);
    for (int i = 0; i < 200; ++i) {
      CHECK(cMsg.GetValue(i, &iValue) == 0);
      CHECK(iValue == i + iKey);
    }
  }
}

TEST_CASE("cells are found under every hash key, also when all tags share one slot") {
  for (int iKey : {1, 2, 7, 127, 128}) {
    CAPTURE(iKey);
    CMsgDic cDic;
    cDic.SetMsgInfo(5, "m", "", std::to_string(iKey).c_str());
    for (int i = 0; i < 60; ++i) cDic.SetMsgDetail(5, i * 5, "t", i % 2 == 0 ? "integer" : "string", "N");
    CMsg cMsg(5, 0, 0, &cDic);
    for (int i = 59; i >= 0; --i) {
      CHECK((i % 2 == 0 ? cMsg.SetValue(i * 5, i) : cMsg.SetValue(i * 5, std::to_string(i).c_str())) == 0);
    }
    for (int i = 0; i < 60; ++i) {
      int iValue = -1;
      CString sText;
      CHECK((i % 2 == 0 ? cMsg.GetValue(i * 5, &iValue) : cMsg.GetValue(i * 5, &sText)) == 0);
      if (i % 2 == 0) CHECK(iValue == i);
      if (i % 2 == 1) CHECK(sText == std::to_string(i).c_str());
    }
  }
}

TEST_CASE("cells are found, set again and added when one slot is long and others are short or empty") {
  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "4");
  for (int i = 0; i < 100; ++i) cDic.SetMsgDetail(5, i * 4, "t", "integer", i % 10 == 9 ? "Y" : "N");    // slot 0
  for (int i = 0; i < 3; ++i) cDic.SetMsgDetail(5, i * 4 + 1, "t", "integer", "N");                      // slot 1
  cDic.SetMsgDetail(5, 6, "t", "integer", "N");                                                          // slot 2
  CMsg cMsg(5, 0, 0, &cDic);
  const auto fnTest = [&cMsg](int p_iTag) {
    int iOut = -1;
    CHECK(cMsg.SetValue(p_iTag, p_iTag) == 0);
    CHECK(cMsg.SetValue(p_iTag, p_iTag + 1000) == 0);
    CHECK(cMsg.GetValue(p_iTag, &iOut) == 0);
    const bool bMulti = cMsg.GetMsgInfo()->IsMultiTag(p_iTag);
    CHECK(iOut == (bMulti ? p_iTag : p_iTag + 1000));
    CHECK(cMsg.GetArrSize(p_iTag) == (bMulti ? 2 : 1));
  };
  fnTest(1);
  for (int i = 0; i < 50; ++i) fnTest(i * 4);
  fnTest(5);
  fnTest(6);
  for (int i = 50; i < 100; ++i) fnTest(i * 4);
  fnTest(9);
  int iOut = -1;
  CHECK(cMsg.GetValue(1, &iOut) == 0);
  CHECK(cMsg.GetValue(2, &iOut) == -18);
  CHECK(cMsg.GetArrSize(99 * 4) == 2);
}

TEST_CASE("SetVer keeps 16 characters and returns the field") {
  CTestMsg cMsg(120);
  CHECK(cMsg->SetVer("1.0") == cMsg->GetVer());
  CHECK(cMsg->GetVer() == std::string("1.0"));
  CHECK(cMsg->SetVer("0123456789abcdef") == std::string("0123456789abcdef"));
  CHECK(cMsg->SetVer("0123456789abcdefg") == std::string("0123456789abcdef"));
  CHECK(cMsg->SetVer(std::string(10000, 'v').c_str()) == std::string("vvvvvvvvvvvvvvvv"));
  CHECK(cMsg->SetVer("2") == std::string("2"));
  CHECK(cMsg->SetVer("") == std::string());
  CHECK(cMsg->IsEmpty());
}

TEST_CASE("MA_NewMsg makes messages of the process-wide dictionary") {
  GlobalDic();
  CMsg* pMsg = MA_NewMsg(120);
  REQUIRE(pMsg != nullptr);
  CHECK(pMsg->GetMsgNum() == 120);
  CHECK(pMsg->GetRootNum() == 120);
  CHECK(pMsg->GetParentTag() == 0);
  CHECK(pMsg->GetMsgInfo() == MA_GetMsgDic()->GetMsgInfo(120));
  MA_FreeMsg(pMsg);
}

TEST_CASE("MA_NewMsg makes a message without a definition for 0 and below") {
  for (int i : {0, -1, INT_MIN}) {
    CAPTURE(i);
    CMsg* pMsg = MA_NewMsg(i);
    REQUIRE(pMsg != nullptr);
    CHECK(pMsg->GetMsgNum() == 0);
    CHECK(pMsg->SetValue(1, 5) == -19);
    MA_FreeMsg(pMsg);
  }
}

TEST_CASE("MA_NewMsg gives null for a number that cannot be") {
  GlobalDic();
  CHECK(MA_NewMsg(10000) == nullptr);
  CHECK(MA_NewMsg(122) == nullptr);
  CHECK(MA_NewMsg(INT_MAX) == nullptr);
}

TEST_CASE("MA_NewMsg gives null when memory is short") {
  GlobalDic();
  CHECK(ForEachFailure([](CFailAlloc& p_cFail) {
          CMsg* pMsg = nullptr;
          const bool bThrew = p_cFail.Run([&] { pMsg = MA_NewMsg(120); });
          CHECK_FALSE(bThrew);
          CHECK((pMsg == nullptr) == p_cFail.HasFailed());
          MA_FreeMsg(pMsg);
        }) == 1);
  // The error that would say why finds no memory, either.
  CFailAlloc cNone(1, INT_MAX);
  CMsg* pMsg = nullptr;
  CHECK_FALSE(cNone.Run([&] { pMsg = MA_NewMsg(122); }));
  CHECK(pMsg == nullptr);
}

TEST_CASE("a message that is gone has no numbers and no parent") {
  CTestDic cDic;
  CMsg cParent(120, 0, 0, &cDic);
  alignas(CMsg) unsigned char aMemory[sizeof(CMsg)];
  auto* pOwn = new (aMemory) CMsg(121, 0, 0, &cDic);
  pOwn->SetValue(2, 7);
  REQUIRE(cParent.SetValue(6, pOwn) == 0);
  CMsg* pMade = cParent.NewSub(16);
  REQUIRE(pMade != nullptr);
  pMade->SetValue(2, 7);
  T_Places atPlaces[] = {PlacesIn(*pOwn), PlacesIn(*pMade)};
  for (const T_Places& tPlaces : atPlaces) {
    CHECK(Left<int>(tPlaces.pRootNum) == 120);
    CHECK(Left<int>(tPlaces.pMsgNum) == 121);
    CHECK(Left<CMsg*>(tPlaces.pParent) == &cParent);
  }
  pOwn->~CMsg();
  cParent.Clear();    // ends the other one, and keeps the memory that it stood in
  for (const T_Places& tPlaces : atPlaces) {
    CHECK(Left<int>(tPlaces.pRootNum) == 0);
    CHECK(Left<int>(tPlaces.pMsgNum) == 0);
    CHECK(Left<CMsg*>(tPlaces.pParent) == nullptr);
  }
}

// A text of up to 15 bytes stands in its object, a longer one in memory of its own.
TEST_CASE("a message gives back the memory of every text, of whatever length") {
  using Fn = std::function<void(CMsg&, const char*)>;
  struct T_Row {
    std::string sWhat;
    Fn fnFill;
  };
  const T_Row s_atRow[] = {
      {"set", [](CMsg& p_cMsg, const char* p_sz) { p_cMsg.SetValue(1, p_sz); }},
      {"set by name", [](CMsg& p_cMsg, const char* p_sz) { p_cMsg.SetValue("text", p_sz); }},
      {"set instead of a shorter one",
       [](CMsg& p_cMsg, const char* p_sz) {
         p_cMsg.SetValue(1, "1");
         p_cMsg.SetValue(1, p_sz);
       }},
      {"replaced by a shorter one",
       [](CMsg& p_cMsg, const char* p_sz) {
         p_cMsg.SetValue(1, p_sz);
         p_cMsg.SetValue(1, "1");
       }},
      {"parsed", [](CMsg& p_cMsg, const char* p_sz) { p_cMsg.SetParsedData(1, p_sz); }},
      {"read",
       [](CMsg& p_cMsg, const char* p_sz) { Load(p_cMsg, std::string("<msg no='120'><t1>") + p_sz + "</t1></msg>"); }},
      {"in a sub-message", [](CMsg& p_cMsg, const char* p_sz) { p_cMsg.NewSub(6)->SetValue(1, p_sz); }},
      {"in a row of the application",
       [](CMsg& p_cMsg, const char* p_sz) { p_cMsg.SetValue(16, NewRow(GlobalDic(), p_sz)); }},
      {"behind an Init",
       [](CMsg& p_cMsg, const char* p_sz) {
         p_cMsg.SetValue(1, p_sz);
         p_cMsg.Init(121, 0, 0);
       }},
  };
  CLoadedDic cDic;
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sWhat);
    for (const int iLen : {1, 14, 15, 16, 17, 100}) {
      CAPTURE(iLen);
      auto pMsg = std::make_unique<CMsg>(120, 0, 0, &cDic);
      tRow.fnFill(*pMsg, std::string(static_cast<size_t>(iLen), 'x').c_str());
      CFailAlloc cCount;
      cCount.Run([&] { pMsg.reset(); });
      CHECK(cCount.GetFreedArrays() == (iLen > 15 ? 1 : 0));
    }
  }
}

TEST_CASE("MA_FreeMsg ignores null") { MA_FreeMsg(nullptr); }

TEST_CASE("a message cannot be copied") {
  CHECK_FALSE(std::is_copy_constructible<CMsg>::value);
  CHECK_FALSE(std::is_copy_assignable<CMsg>::value);
}

TEST_CASE("a success does not clear the last error") {
  CTestMsg cMsg(120);
  CHECK(cMsg->SetValue(99, 1) == -18);
  const std::string sText = "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=99}";
  CHECK(cMsg->GetLastError() == sText);
  CHECK(cMsg->SetValue(7, 1) == 0);
  CHECK(cMsg->GetLastError() == sText);
  CHECK(cMsg->SetValue(-1, 1) == -18);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"));
}

TEST_CASE("distinct messages of one dictionary are independent") {
  CTestDic cDic;
  CMsg cOne(120, 0, 0, &cDic), cTwo(120, 0, 0, &cDic);
  CHECK(cOne.SetValue(7, 1) == 0);
  CHECK(cTwo.SetValue(7, 2) == 0);
  CHECK(cTwo.SetValue(99, 2) == -18);
  int iValue = 0;
  CHECK(cOne.GetValue(7, &iValue) == 0);
  CHECK(iValue == 1);
  CHECK(cOne.GetLastError() == std::string());
}
