// The array of messages.
#include <callorv/msg/msg_array.h>

#include <climits>
#include <vector>

#include "support/test_dic.h"

namespace {

// Messages that the test owns.
struct T_Msgs {
  CTestDic cDic;
  std::vector<std::unique_ptr<CMsg>> apMsg;

  CMsg* operator[](size_t p_i) {
    while (apMsg.size() <= p_i) apMsg.push_back(std::make_unique<CMsg>(121, 0, 0, &cDic));
    return apMsg[p_i].get();
  }
};

}    // namespace

TEST_CASE("a new array of messages is empty") {
  for (bool bAdopt : {false, true}) {
    CMsgArray apMsg(bAdopt);
    CHECK(apMsg.GetSize() == 0);
    CHECK(apMsg.GetCapacity() == 0);
    CHECK(apMsg.GetAdoptFlag() == bAdopt);
    CHECK(apMsg.GetLastError() == std::string());
    CHECK(apMsg.GetAt(0) == nullptr);
    CHECK(apMsg.GetLastError() ==
          std::string("MSG_Error(-27) : Out of index boundary in array {<CMsgArray::GetAt:(0 <= 0 < 0)>}"));
  }
}

TEST_CASE("Add returns the index, and the capacity grows by 4 and then by an eighth") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  std::vector<int> aiCapacity;
  for (int i = 0; i < 60; ++i) {
    CHECK(apMsg.Add(tMsgs[static_cast<size_t>(i)]) == i);
    CHECK(apMsg.GetSize() == i + 1);
    if (aiCapacity.empty() || aiCapacity.back() != apMsg.GetCapacity()) aiCapacity.push_back(apMsg.GetCapacity());
  }
  CHECK(aiCapacity == std::vector<int>{1, 5, 9, 13, 17, 21, 25, 29, 33, 37, 41, 46, 51, 57, 64});
  for (int i = 0; i < 60; ++i) CHECK(apMsg.GetAt(i) == tMsgs[static_cast<size_t>(i)]);
}

TEST_CASE("the capacity grows by at most 1,024 a step") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  apMsg.SetSize(8191);
  CHECK(apMsg.GetCapacity() == 8192);
  apMsg.Add(tMsgs[0]);
  apMsg.Add(tMsgs[0]);
  CHECK(apMsg.GetCapacity() == 8192 + 1024);
  apMsg.SetSize(20000);
  const int iCapacity = apMsg.GetCapacity();
  CHECK(iCapacity == 9216 + 20001);
  while (apMsg.GetSize() < iCapacity) apMsg.Add(tMsgs[0]);
  apMsg.Add(tMsgs[0]);
  CHECK(apMsg.GetCapacity() == iCapacity + 1024);
}

TEST_CASE("Add refuses null without a text") {
  CMsgArray apMsg(true);
  CHECK(apMsg.Add(nullptr) == -12);
  CHECK(apMsg.GetSize() == 0);
  CHECK(apMsg.GetCapacity() == 0);
  CHECK(apMsg.GetLastError() == std::string());
}

TEST_CASE("an index outside the array is an error of the array") {
  struct T_Row {
    int iIndex;
    const char *szGet, *szSet;
  };
  static const T_Row s_atRow[] = {
      {-1, "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::GetAt:(0 <= -1 < 3)>}",
       "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::SetAt:(0 <= -1 < 3)>}"},
      {3, "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::GetAt:(0 <= 3 < 3)>}",
       "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::SetAt:(0 <= 3 < 3)>}"},
      {INT_MAX, "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::GetAt:(0 <= 2147483647 < 3)>}",
       "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::SetAt:(0 <= 2147483647 < 3)>}"},
      {INT_MIN, "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::GetAt:(0 <= -2147483648 < 3)>}",
       "MSG_Error(-27) : Out of index boundary in array {<CMsgArray::SetAt:(0 <= -2147483648 < 3)>}"}};
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  for (size_t i = 0; i < 3; ++i) apMsg.Add(tMsgs[i]);
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iIndex);
    CHECK(apMsg.GetAt(tRow.iIndex) == nullptr);
    CHECK(apMsg.GetLastError() == std::string(tRow.szGet));
    CHECK(apMsg.SetAt(tRow.iIndex, tMsgs[3]) == -27);
    CHECK(apMsg.GetLastError() == std::string(tRow.szSet));
  }
  CHECK(apMsg.GetSize() == 3);
}

TEST_CASE("SetAt replaces") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  for (size_t i = 0; i < 3; ++i) apMsg.Add(tMsgs[i]);
  CHECK(apMsg.SetAt(1, tMsgs[3]) == 0);
  CHECK(apMsg.GetAt(0) == tMsgs[0]);
  CHECK(apMsg.GetAt(1) == tMsgs[3]);
  CHECK(apMsg.GetAt(2) == tMsgs[2]);
  CHECK(apMsg.SetAt(0, nullptr) == 0);
  CHECK(apMsg.GetAt(0) == nullptr);
  CHECK(apMsg.GetLastError() == std::string());
  CHECK(apMsg.GetSize() == 3);
}

TEST_CASE("an adopting array frees what is replaced, removed and left") {    // the leak checker counts
  CTestDic cDic;
  CMsgArray apMsg(true);
  for (int i = 0; i < 5; ++i) apMsg.Add(NewRow(cDic, "row"));
  CMsg* pNew = NewRow(cDic, "new");
  CHECK(apMsg.SetAt(2, pNew) == 0);
  CHECK(apMsg.SetAt(2, pNew) == 0);    // itself again
  CString sText;
  CHECK(apMsg.GetAt(2)->GetValue(1, &sText) == 0);
  CHECK(sText == "new");
  CHECK(apMsg.SetAt(3, nullptr) == 0);
  apMsg.RemoveAll();
  CHECK(apMsg.GetSize() == 0);
  CHECK(apMsg.GetCapacity() == 0);
  CHECK(apMsg.GetAdoptFlag());
  apMsg.Add(NewRow(cDic, "again"));
}

TEST_CASE("an array that does not adopt frees nothing") {
  T_Msgs tMsgs;
  {
    CMsgArray apMsg(true);
    apMsg.Add(tMsgs[0]);
    apMsg.Add(tMsgs[1]);
    apMsg.SetAdoptFlag(false);
    CHECK_FALSE(apMsg.GetAdoptFlag());
    apMsg.SetAt(0, tMsgs[2]);
    apMsg.RemoveAll();
    CHECK_FALSE(apMsg.GetAdoptFlag());
    CHECK(apMsg.Add(tMsgs[0]) == 0);
    CHECK(apMsg.GetCapacity() == 1);
  }
  CHECK(tMsgs[0]->SetValue(2, 1) == 0);
  CHECK(tMsgs[1]->SetValue(2, 1) == 0);
}

TEST_CASE("an explicit request adds its full amount to the capacity") {
  CMsgArray apMsg(false);
  apMsg.GrowBuffer(5);
  CHECK(apMsg.GetCapacity() == 5);
  apMsg.SetBufferSize(4);
  CHECK(apMsg.GetCapacity() == 5);
  apMsg.SetBufferSize(5);
  CHECK(apMsg.GetCapacity() == 5);
  apMsg.SetBufferSize(10);
  CHECK(apMsg.GetCapacity() == 15);
  apMsg.GrowBuffer(16);
  CHECK(apMsg.GetCapacity() == 31);
  CHECK(apMsg.GetSize() == 0);
}

TEST_CASE("a request below 1 grows as Add does") {
  CMsgArray apMsg(false);
  apMsg.GrowBuffer(0);
  CHECK(apMsg.GetCapacity() == 4);
  apMsg.SetBufferSize(-1);
  CHECK(apMsg.GetCapacity() == 8);
  apMsg.GrowBuffer(INT_MIN);
  CHECK(apMsg.GetCapacity() == 12);
  apMsg.SetSize(31);     // 12 + 32
  apMsg.GrowBuffer(0);
  CHECK(apMsg.GetCapacity() == 48);
  apMsg.SetSize(39);
  apMsg.GrowBuffer(0);
  CHECK(apMsg.GetCapacity() == 52);
  apMsg.SetSize(40);
  apMsg.GrowBuffer(0);
  CHECK(apMsg.GetCapacity() == 57);
}

TEST_CASE("growing keeps the messages and clears the new slots") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  apMsg.Add(tMsgs[0]);
  apMsg.Add(tMsgs[1]);
  apMsg.SetSize(300);
  CHECK(apMsg.GetSize() == 300);
  CHECK(apMsg.GetCapacity() == 5 + 301);
  CHECK(apMsg.GetAt(0) == tMsgs[0]);
  CHECK(apMsg.GetAt(1) == tMsgs[1]);
  for (int i = 2; i < 300; ++i) REQUIRE(apMsg.GetAt(i) == nullptr);
  CHECK(apMsg.GetLastError() == std::string());
}

TEST_CASE("shrinking frees and clears nothing") {
  T_Msgs tMsgs;
  CMsgArray apMsg(true);
  for (size_t i = 0; i < 3; ++i) apMsg.Add(tMsgs[i]);
  apMsg.SetSize(1);
  CHECK(apMsg.GetSize() == 1);
  CHECK(apMsg.GetCapacity() == 5);
  CHECK(apMsg.GetAt(1) == nullptr);
  apMsg.SetSize(3);
  CHECK(apMsg.GetAt(2) == tMsgs[2]);
  apMsg.SetSize(0);
  CHECK(apMsg.GetSize() == 0);
}

TEST_CASE("a negative size counts as 0") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  apMsg.Add(tMsgs[0]);
  apMsg.SetSize(-1);
  CHECK(apMsg.GetSize() == 0);
  apMsg.SetSize(INT_MIN);
  CHECK(apMsg.GetSize() == 0);
}

TEST_CASE("an array cannot become larger than memory") {
  T_Msgs tMsgs;
  CMsgArray apMsg(false);
  apMsg.Add(tMsgs[0]);
  CHECK_THROWS_AS(apMsg.GrowBuffer(INT_MAX), std::bad_alloc);
  CHECK_THROWS_AS(apMsg.SetSize(INT_MAX), std::bad_alloc);
  CHECK_THROWS_AS(apMsg.SetSize(INT_MAX - 1), std::bad_alloc);
  CHECK(apMsg.GetSize() == 1);
  CHECK(apMsg.GetCapacity() == 1);
  CHECK(apMsg.GetAt(0) == tMsgs[0]);
}

TEST_CASE("without memory an array stays as it was") {
  T_Msgs tMsgs;
  CMsg *pOne = tMsgs[0], *pTwo = tMsgs[1];
  SUBCASE("the first Add returns a code without a text") {
    CMsgArray apMsg(true);
    CFailAlloc cFail(1);
    int iRet = 0;
    CHECK_FALSE(cFail.Run([&] { iRet = apMsg.Add(pOne); }));
    CHECK(iRet == -11);
    CHECK(apMsg.GetLastError() == std::string());
    CHECK(apMsg.GetSize() == 0);
    CHECK(apMsg.GetCapacity() == 0);
    apMsg.SetAdoptFlag(false);
    CHECK(apMsg.Add(pOne) == 0);
  }
  SUBCASE("a later Add and a request throw") {
    CMsgArray apMsg(false);
    apMsg.Add(pOne);
    CHECK(CFailAlloc(1).Run([&] { apMsg.Add(pTwo); }));
    CHECK(CFailAlloc(1).Run([&] { apMsg.GrowBuffer(100); }));
    CHECK(CFailAlloc(1).Run([&] { apMsg.SetSize(100); }));
    CHECK(apMsg.GetSize() == 1);
    CHECK(apMsg.GetCapacity() == 1);
    CHECK(apMsg.GetAt(0) == pOne);
    CHECK(apMsg.Add(pTwo) == 1);
  }
}
