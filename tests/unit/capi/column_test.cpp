// One tag of all rows: what a column has for every kind of row, and what it says of wrong arguments.
#include <callorv/callorv.h>
#include <doctest/doctest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/fail_alloc.h"
#include "support/set_up.h"
#include "support/test_dic.h"

namespace {

using CInts = std::vector<int>;
using CMarks = std::vector<unsigned char>;
enum { ROWS = 1, ONE = 2, NUMBER = 3 };    // tags of message 130

// A message whose rows have a value of every type.
CMsgPtr NewTable() {
  CMsgDic& cDic = GlobalDic();
  if (cDic.GetMsgInfo(130) == nullptr) {
    cDic.SetMsgInfo(130, "Table", "", "");
    cDic.SetMsgDetail(130, ROWS, "rows", "m120", "Y");
    cDic.SetMsgDetail(130, ONE, "one", "m120", "N");
    cDic.SetMsgDetail(130, NUMBER, "number", "integer", "N");
  }
  return NewMsg(130);
}

CMsg* NewRow(CMsg* p_pMsg, int p_iTag = ROWS) {
  CMsg* pRow = MSG_NewSub(p_pMsg, p_iTag, nullptr);
  REQUIRE(pRow != nullptr);
  return pRow;
}

// Three rows, the second without a value.
CMsgPtr NewFullTable() {
  CMsgPtr pMsg = NewTable();
  for (int i = 0; i < 3; ++i) {
    CMsg* pRow = NewRow(pMsg.get());
    if (i == 1) continue;
    REQUIRE(MSG_SetStr(pRow, 1, i == 0 ? "first" : "a text that does not stand inside its object") == 0);
    REQUIRE(MSG_SetInt(pRow, 7, i - 5) == 0);
    REQUIRE(MSG_SetDbl(pRow, 3, i + 0.5) == 0);
    REQUIRE(MSG_SetBool(pRow, 4, i == 0) == 0);
    REQUIRE(MSG_SetDate(pRow, 5, i == 0 ? "20240229" : "2024") == 0);
  }
  return pMsg;
}

struct T_Texts {
  int iRet;
  std::vector<size_t> auOffset;
  CMarks abSet;
  std::string sBuf;
};

// MSG_GetStrColumn with that much room.
T_Texts Texts(CMsg* p_pMsg, int p_iN, size_t p_iSize) {
  const auto iN = static_cast<size_t>(p_iN);
  T_Texts t{0, std::vector<size_t>(iN + 1, 77), CMarks(iN, 7), std::string(p_iSize, '#')};
  t.iRet = MSG_GetStrColumn(p_pMsg, ROWS, 1, &t.sBuf[0], p_iSize, t.auOffset.data(), t.abSet.data(), p_iN);
  return t;
}

const std::string ALL_TEXTS("first\0\0a text that does not stand inside its object\0", 52);

}    // namespace

TEST_CASE("a column has the value of each row, and 0 without a mark where there is none") {
  const CMsgPtr pMsg = NewFullTable();
  CMarks abSet(4, 7);
  CInts aiOut(4, 42);
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut.data(), abSet.data(), 4) == 3);
  CHECK(aiOut == CInts{-5, 0, -3, 0});
  CHECK(abSet == CMarks{1, 0, 1, 0});

  abSet.assign(4, 7);
  std::vector<double> adOut(4, 42);
  CHECK(MSG_GetDblColumn(pMsg.get(), ROWS, 3, adOut.data(), abSet.data(), 4) == 3);
  CHECK(adOut == std::vector<double>{0.5, 0, 2.5, 0});
  CHECK(abSet == CMarks{1, 0, 1, 0});

  abSet.assign(4, 7);
  aiOut.assign(4, 42);
  CHECK(MSG_GetBoolColumn(pMsg.get(), ROWS, 4, aiOut.data(), abSet.data(), 4) == 3);
  CHECK(aiOut == CInts{255, 0, 0, 0});
  CHECK(abSet == CMarks{1, 0, 1, 0});

  abSet.assign(4, 7);
  std::string sOut(36, '#');
  CHECK(MSG_GetDateColumn(pMsg.get(), ROWS, 5, &sOut[0], abSet.data(), 4) == 3);
  CHECK(sOut == std::string("20240229\0" "\0\0\0\0\0\0\0\0\0" "2024\0\0\0\0\0" "\0\0\0\0\0\0\0\0\0", 36));
  CHECK(abSet == CMarks{1, 0, 1, 0});

  const T_Texts t = Texts(pMsg.get(), 4, 100);
  CHECK(t.iRet == 3);
  CHECK(t.sBuf.substr(0, 54) == ALL_TEXTS + std::string("\0#", 2));
  CHECK(t.auOffset == std::vector<size_t>{0, 6, 7, 52, 53});
  CHECK(t.abSet == CMarks{1, 0, 1, 0});
}

TEST_CASE("fewer values than rows: the first ones, and the number of rows all the same") {
  const CMsgPtr pMsg = NewFullTable();
  CInts aiOut(3, 42);
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut.data(), nullptr, 2) == 3);
  CHECK(aiOut == CInts{-5, 0, 42});
  for (int iN : {0, -1}) {
    CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, nullptr, nullptr, iN) == 3);
    char cOut = '#';
    CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 1, nullptr, 0, nullptr, nullptr, iN) == 3);
    CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 1, &cOut, 0, nullptr, nullptr, iN) == 3);
    CHECK(cOut == '#');
  }
  const T_Texts t = Texts(pMsg.get(), 1, 8);
  CHECK(t.iRet == 3);
  CHECK(t.sBuf == std::string("first\0##", 8));
  CHECK(t.auOffset == std::vector<size_t>{0, 6});
}

TEST_CASE("a single tag is one row, and a row that was freed none that has a value") {
  const CMsgPtr pMsg = NewTable();
  CInts aiOut(2, 42);
  CMarks abSet(2, 7);
  MSG_SetInt(NewRow(pMsg.get(), ONE), 7, 8);
  CHECK(MSG_GetIntColumn(pMsg.get(), ONE, 7, aiOut.data(), abSet.data(), 2) == 1);
  CHECK(aiOut == CInts{8, 0});
  CHECK(abSet == CMarks{1, 0});

  CMsg* apRow[] = {MSG_GetNewMsg(120, nullptr), MSG_GetNewMsg(120, nullptr)};
  for (CMsg* pRow : apRow) {
    REQUIRE(MSG_SetInt(pRow, 7, 9) == 0);
    REQUIRE(MSG_SetSub(pMsg.get(), ROWS, pRow) == 0);
  }
  MSG_Destroy(apRow[0]);
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut.data(), abSet.data(), 2) == 2);
  CHECK(aiOut == CInts{0, 9});
  CHECK(abSet == CMarks{0, 1});
}

TEST_CASE("of a tag that is an array in its row, a column has the first element") {
  const CMsgPtr pMsg = NewTable();
  CMsg* pRow = NewRow(pMsg.get());
  for (int i : {3, 4}) {
    REQUIRE(MSG_SetInt(pRow, 17, i) == 0);
    REQUIRE(MSG_SetStr(pRow, 11, i == 3 ? "three" : "four") == 0);
    REQUIRE(MSG_SetDate(pRow, 15, i == 3 ? "20030303" : "20040404") == 0);
  }
  int iOut = 42;
  unsigned char bSet = 7;
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 17, &iOut, &bSet, 1) == 1);
  CHECK(iOut == 3);
  CHECK(bSet == 1);
  char szOut[9];
  CHECK(MSG_GetDateColumn(pMsg.get(), ROWS, 15, szOut, nullptr, 1) == 1);
  CHECK(std::string(szOut) == "20030303");
  size_t auOffset[2];
  CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 11, szOut, sizeof(szOut), auOffset, &bSet, 1) == 1);
  CHECK(std::string(szOut) == "three");
  CHECK(auOffset[1] == 6);
}

TEST_CASE("texts that have no room are measured, and those that have are there") {
  const CMsgPtr pMsg = NewFullTable();
  const T_Texts tAll = Texts(pMsg.get(), 3, 52);
  CHECK(tAll.iRet == 3);
  CHECK(tAll.sBuf == ALL_TEXTS);
  CHECK(std::string(MSG_GetLastError(pMsg.get())) == "");
  for (size_t iSize : {51, 7, 6, 5, 0}) {
    CAPTURE(iSize);
    const T_Texts t = Texts(pMsg.get(), 3, iSize);
    CHECK(t.iRet == -27);
    CHECK(std::string(MSG_GetLastError(pMsg.get())) == "MSG_Error(-27) : Out of index boundary in array {tagnum=1}");
    CHECK(t.auOffset == tAll.auOffset);
    CHECK(t.abSet == tAll.abSet);
    const size_t iThere = iSize >= 7 ? 7 : iSize >= 6 ? 6 : 0;
    CHECK(t.sBuf == ALL_TEXTS.substr(0, iThere) + std::string(iSize - iThere, '#'));
  }
  size_t auOffset[4] = {};
  CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 1, nullptr, 0, auOffset, nullptr, 3) == 3);
  CHECK(auOffset[3] == 52);
  CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 1, nullptr, 5, auOffset, nullptr, 3) == 3);
}

TEST_CASE("what is wrong is told by code and text, and no value is left") {
  const CMsgPtr pMsg = NewFullTable();
  REQUIRE(MSG_SetInt(pMsg.get(), NUMBER, 5) == 0);
  const CMsgPtr pEmpty = NewTable();
  const CMsgPtr pNone = NewMsg(0);
  struct T_Row {
    CMsg* pMsg;
    int iRowsTag, iTag, iRet;
    const char* szText;
  };
  for (const T_Row& tRow :
       {T_Row{pMsg.get(), 9, 7, -18, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=130, tagnum=9}"},
        T_Row{pMsg.get(), -1, 7, -18, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=130, tagnum=-1}"},
        T_Row{pNone.get(), ROWS, 7, -19, "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=1}"},
        T_Row{pEmpty.get(), ROWS, 7, -1, "MSG_Error(-1) : No Data found {tagnum=1}"},
        T_Row{pMsg.get(), NUMBER, 7, -17, "MSG_Error(-17) : Invalid tag type {Line:1144, tagnum=3,type=(integer/submsg)}"},
        T_Row{pMsg.get(), ROWS, 99, -18, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=99}"},
        T_Row{pMsg.get(), ROWS, -1, -18, "MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=-1}"},
        T_Row{pMsg.get(), ROWS, 1, -17, "MSG_Error(-17) : Invalid tag type {Line:983, tagnum=1,type=(string/integer)}"}}) {
    CAPTURE(tRow.szText);
    CInts aiOut(3, 42);
    CMarks abSet(3, 7);
    CHECK(MSG_GetIntColumn(tRow.pMsg, tRow.iRowsTag, tRow.iTag, aiOut.data(), abSet.data(), 3) == tRow.iRet);
    CHECK(std::string(MSG_GetLastError(tRow.pMsg)) == tRow.szText);
    CHECK(aiOut == CInts{0, 0, 0});
    CHECK(abSet == CMarks{0, 0, 0});
  }
  // what a type-mismatch text names differs from type to type
  double d = 42;
  CHECK(MSG_GetDblColumn(pMsg.get(), ROWS, 1, &d, nullptr, 1) == -17);
  CHECK(d == 0);
  CHECK(std::string(MSG_GetLastError(pMsg.get())) ==
        "MSG_Error(-17) : Invalid tag type {Line:1023, tagnum=1,type=(string/double)}");
  int iOut = 42;
  CHECK(MSG_GetBoolColumn(pMsg.get(), ROWS, 1, &iOut, nullptr, 1) == -17);
  CHECK(iOut == 0);
  char szDate[9] = "20240628";
  CHECK(MSG_GetDateColumn(pMsg.get(), ROWS, 1, szDate, nullptr, 1) == -17);
  CHECK(memcmp(szDate, "\0\0\0\0\0\0\0\0\0", 9) == 0);
  size_t auOffset[2] = {7, 7};
  CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 7, nullptr, 0, auOffset, nullptr, 1) == -17);
  CHECK(auOffset[0] == 0);
  CHECK(auOffset[1] == 1);
}

TEST_CASE("a row that fails after others leaves none of their values") {
  const CMsgPtr pMsg = NewFullTable();
  CMsg* pOther = MSG_GetNewMsg(121, nullptr);    // has no tag 7
  REQUIRE(MSG_SetInt(pOther, 2, 5) == 0);
  REQUIRE(MSG_SetSub(pMsg.get(), ROWS, pOther) == 0);
  CInts aiOut(4, 42);
  CMarks abSet(4, 7);
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut.data(), abSet.data(), 3) == 4);
  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut.data(), abSet.data(), 4) == -18);
  CHECK(std::string(MSG_GetLastError(pMsg.get())) ==
        "MSG_Error(-18) : Not defined tag in dictionary {msgnum=121, tagnum=7}");
  CHECK(aiOut == CInts{0, 0, 0, 0});
  CHECK(abSet == CMarks{0, 0, 0, 0});
}

TEST_CASE("a null handle touches nothing, a null output is told") {
  const CMsgPtr pMsg = NewFullTable();
  int iOut = 42;
  double dOut = 42;
  char szOut[9] = "12345678";
  size_t auOffset[2] = {7, 7};
  unsigned char bSet = 7;
  CHECK(MSG_GetIntColumn(nullptr, ROWS, 7, &iOut, &bSet, 1) == -12);
  CHECK(MSG_GetDblColumn(nullptr, ROWS, 3, &dOut, &bSet, 1) == -12);
  CHECK(MSG_GetBoolColumn(nullptr, ROWS, 4, &iOut, &bSet, 1) == -12);
  CHECK(MSG_GetDateColumn(nullptr, ROWS, 5, szOut, &bSet, 1) == -12);
  CHECK(MSG_GetStrColumn(nullptr, ROWS, 1, szOut, 9, auOffset, &bSet, 1) == -12);
  CHECK(iOut == 42);
  CHECK(dOut == 42);
  CHECK(std::string(szOut) == "12345678");
  CHECK(auOffset[1] == 7);
  CHECK(bSet == 7);

  CHECK(MSG_GetIntColumn(pMsg.get(), ROWS, 7, nullptr, &bSet, 1) == -12);
  CHECK(std::string(MSG_GetLastError(pMsg.get())) == "MSG_Error(-12) : Parameter is NULL {}");
  CHECK(bSet == 0);
  CHECK(MSG_GetDblColumn(pMsg.get(), ROWS, 3, nullptr, nullptr, 1) == -12);
  CHECK(MSG_GetBoolColumn(pMsg.get(), ROWS, 4, nullptr, nullptr, 1) == -12);
  CHECK(MSG_GetDateColumn(pMsg.get(), ROWS, 5, nullptr, nullptr, 1) == -12);
  CHECK(MSG_GetStrColumn(pMsg.get(), ROWS, 1, szOut, 9, nullptr, nullptr, 1) == -12);
  CHECK(std::string(szOut) == "12345678");
}

TEST_CASE("a column needs no memory; a failure without any for its text gives -11 and no value") {
  const CMsgPtr pMsg = NewFullTable();
  int aiOut[3] = {42, 42, 42}, iRet = 0, iFailed = 0;
  unsigned char abSet[3] = {7, 7, 7};
  CFailAlloc cFail(1, 1000000);
  CHECK_FALSE(cFail.Run([&] {
    iRet = MSG_GetIntColumn(pMsg.get(), ROWS, 7, aiOut, abSet, 3);
    iFailed = MSG_GetIntColumn(pMsg.get(), ROWS, 1, aiOut, abSet, 3);
  }));
  CHECK(iRet == 3);
  CHECK(iFailed == -11);
  CHECK(aiOut[0] == 0);
  CHECK(abSet[0] == 0);
}
