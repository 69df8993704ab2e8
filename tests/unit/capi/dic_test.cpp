// The dictionary through the C interface.
#include <callorv/callorv.h>
#include <doctest/doctest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/test_dic.h"

namespace {

// Messages of a process-wide dictionary to which other tests add: only those of the test are looked for.
void Define() {
  CMsgDic& cDic = GlobalDic();
  if (cDic.GetMsgInfo(9999) != nullptr) return;
  cDic.SetMsgInfo(9998, "A name that does not stand inside its object", "", "");
  cDic.SetMsgDetail(9998, 0, "zero", "integer", "N");
  cDic.SetMsgDetail(9998, 5, "five", "m4711", "Y");
  cDic.SetMsgDetail(9998, 5, "five again", "string", "N");
  cDic.SetMsgDetail(9998, 6, "five", "date", "N");
  cDic.SetMsgInfo(9999, "Row", "", "");    // 121 has this name, too
}

}    // namespace

TEST_CASE("messages are found one after the other and by name") {
  Define();
  std::vector<int> aiMsg;
  for (int i = MSG_NextMsg(0); i > 0; i = MSG_NextMsg(i)) {
    if (i == 120 || i == 121 || i > 9000) aiMsg.push_back(i);
  }
  CHECK(aiMsg == std::vector<int>{120, 121, 9998, 9999});
  CHECK(MSG_NextMsg(-5) == MSG_NextMsg(0));
  CHECK(MSG_NextMsg(INT_MIN) == MSG_NextMsg(0));
  CHECK(MSG_NextMsg(9997) == 9998);
  CHECK(MSG_NextMsg(9999) == 0);
  CHECK(MSG_NextMsg(INT_MAX) == 0);

  CHECK(std::string(MSG_GetMsgName(120)) == "Everything");
  CHECK(std::string(MSG_GetMsgName(9998)) == "A name that does not stand inside its object");
  for (int i : {4711, 0, -1, 10000}) CHECK(MSG_GetMsgName(i) == nullptr);
  CHECK(MSG_FindMsg("Everything") == 120);
  CHECK(MSG_FindMsg("Row") == 121);
  CHECK(MSG_FindMsg("everything") == -19);
  CHECK(MSG_FindMsg("") == -19);
  CHECK(MSG_FindMsg(nullptr) == -12);
}

TEST_CASE("tags are found in their order, by number and by name") {
  Define();
  CHECK(MSG_GetTagCount(120) == 12);
  CHECK(MSG_GetTagCount(9999) == 0);
  CHECK(MSG_GetTagCount(4711) == -19);
  CHECK(MSG_GetTagNum(120, 0) == 1);
  CHECK(MSG_GetTagNum(120, 1) == 7);
  CHECK(MSG_GetTagNum(120, 11) == 16);
  for (int i : {12, -1, INT_MAX}) CHECK(MSG_GetTagNum(120, i) == -27);
  CHECK(MSG_GetTagNum(9998, 0) == 0);
  CHECK(MSG_GetTagNum(4711, 0) == -19);

  CHECK(MSG_FindTag(120, "prices") == 13);
  CHECK(MSG_FindTag(9998, "five") == 5);
  CHECK(MSG_FindTag(9998, "zero") == 0);
  CHECK(MSG_FindTag(120, "Prices") == -18);
  CHECK(MSG_FindTag(4711, "prices") == -19);
  CHECK(MSG_FindTag(120, nullptr) == -12);
}

TEST_CASE("a tag has a name, a type, rows of some message, and may repeat") {
  Define();
  struct T_Row {
    int iMsg, iTag;
    const char* szName;
    int iType, iSubMsg, iArray;
  };
  for (const T_Row& tRow : {T_Row{120, 1, "text", MSG_TYPE_STRING, 0, 0}, T_Row{120, 7, "number", MSG_TYPE_INTEGER, 0, 0},
                            T_Row{120, 3, "price", MSG_TYPE_DOUBLE, 0, 0}, T_Row{120, 14, "flags", MSG_TYPE_BOOL, 0, 1},
                            T_Row{120, 5, "day", MSG_TYPE_DATE, 0, 0}, T_Row{120, 6, "row", MSG_TYPE_SUBMSG, 121, 0},
                            T_Row{120, 16, "rows", MSG_TYPE_SUBMSG, 121, 1}, T_Row{9998, 0, "zero", MSG_TYPE_INTEGER, 0, 0},
                            T_Row{9998, 5, "five", MSG_TYPE_SUBMSG, 4711, 1}}) {
    CAPTURE(tRow.iMsg);
    CAPTURE(tRow.iTag);
    CHECK(std::string(MSG_GetTagName(tRow.iMsg, tRow.iTag)) == tRow.szName);
    CHECK(MSG_GetTagType(tRow.iMsg, tRow.iTag) == tRow.iType);
    CHECK(MSG_GetTagSubMsg(tRow.iMsg, tRow.iTag) == tRow.iSubMsg);
    CHECK(MSG_IsArrayTag(tRow.iMsg, tRow.iTag) == tRow.iArray);
  }
  for (int iTag : {2, -1, INT_MIN}) {
    CHECK(MSG_GetTagName(120, iTag) == nullptr);
    CHECK(MSG_GetTagType(120, iTag) == -18);
    CHECK(MSG_GetTagSubMsg(120, iTag) == -18);
    CHECK(MSG_IsArrayTag(120, iTag) == -18);
  }
  CHECK(MSG_GetTagName(4711, 1) == nullptr);
  CHECK(MSG_GetTagType(4711, 1) == -19);
  CHECK(MSG_GetTagSubMsg(4711, 1) == -19);
  CHECK(MSG_IsArrayTag(4711, 1) == -19);
}
