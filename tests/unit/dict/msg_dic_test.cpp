// The dictionary: defining messages and tags, finding them, printing them.
#include <callorv/dict/msg_dic.h>

#include <climits>
#include <thread>
#include <vector>

#include "support/test_dic.h"

namespace {

std::string Dump(const CMsgDic& p_cDic) {
  CStream stOut(0, 512);
  p_cDic.Dump(&stOut);
  return Text(stOut);
}

}    // namespace

TEST_CASE("the process has one dictionary") {
  REQUIRE(MA_GetMsgDic() != nullptr);
  CHECK(MA_GetMsgDic() == MA_GetMsgDic());
}

TEST_CASE("a new dictionary is empty and has no last error") {
  CMsgDic cDic;
  for (int i = -1; i <= 10000; ++i) REQUIRE(cDic.GetMsgInfo(i) == nullptr);
  CHECK(Dump(cDic).empty());
  CHECK(cDic.GetLastError() == std::string());
}

TEST_CASE("messages are found by number from 1 to 9999") {
  CMsgDic cDic;
  cDic.SetMsgInfo(1, "First", "", "");
  cDic.SetMsgInfo(9999, "Last", "3", "128");
  REQUIRE(cDic.GetMsgInfo(1) != nullptr);
  CHECK(cDic.GetMsgInfo(1)->GetMsgName() == "First");
  REQUIRE(cDic.GetMsgInfo(9999) != nullptr);
  CHECK(cDic.GetMsgInfo(9999)->GetMsgNum() == 9999);
  CHECK(cDic.GetMsgInfo(9999)->GetVersion() == "3");
  for (int i : {0, -1, 10000, 2, 9998, INT_MIN, INT_MAX}) {
    CAPTURE(i);
    CHECK(cDic.GetMsgInfo(i) == nullptr);
  }
}

TEST_CASE("SetMsgInfo reads the hash key from its text") {
  struct T_Row {
    const char* szHash;
    int iKey;
  };
  static const T_Row s_atRow[] = {{"", 128},  {"0", 128},   {"-5", 128},  {"1", 1},     {"7", 7},
                                  {"16", 16}, {"128", 128}, {"129", 128}, {"abc", 128}, {"12abc", 12},
                                  {" 9", 9},  {"99999999999", 128}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szHash);
    CMsgDic cDic;
    cDic.SetMsgInfo(5, "m", "", tRow.szHash);
    CHECK(cDic.GetMsgInfo(5)->GetHashKey() == tRow.iKey);
  }
}

TEST_CASE("SetMsgInfo refuses a number outside 1 to 9999") {
  CMsgDic cDic;
  CheckThrows(-15, "msgnum=0", [&] { cDic.SetMsgInfo(0, "m", "", ""); });
  CheckThrows(-15, "msgnum=-1", [&] { cDic.SetMsgInfo(-1, "m", "", ""); });
  CheckThrows(-15, "msgnum=10000", [&] { cDic.SetMsgInfo(10000, "m", "", ""); });
  CHECK(cDic.GetLastError() == std::string());
}

TEST_CASE("SetMsgInfo refuses a number that is taken and keeps the old definition") {
  CMsgDic cDic;
  cDic.SetMsgInfo(12, "Old", "", "7");
  const CMsgInfo* pOld = cDic.GetMsgInfo(12);
  CheckThrows(-22, "msgnum=12,msgname=Order", [&] { cDic.SetMsgInfo(12, "Order", "", ""); });
  CHECK(cDic.GetMsgInfo(12) == pOld);
  CHECK(pOld->GetMsgName() == "Old");
}

TEST_CASE("SetMsgInfo without memory leaves the number free") {
  const CString sName(std::string(40, 'n').c_str()), sVer(std::string(40, 'v').c_str()), sHash("7");
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CMsgDic cDic;
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cDic.SetMsgInfo(12, sName, sVer, sHash); });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(tThrown.sText == (p_cFail.HasFailed() ? "(CMsgInfo)" : ""));
    if (p_cFail.HasFailed()) {
      CHECK(cDic.GetMsgInfo(12) == nullptr);
      cDic.SetMsgInfo(12, sName, sVer, sHash);
    }
    CHECK(cDic.GetMsgInfo(12) != nullptr);
  });
  CHECK(iFailures == 4);    // the definition, its two long texts and, for the first one, where tags will stand
}

TEST_CASE("SetMsgDetail knows every type") {
  struct T_Row {
    const char* szType;
    E_TagType eType;
    int iSubMsg;
  };
  static const T_Row s_atRow[] = {{"string", TAG_STRING, 0},   {"integer", TAG_INTEGER, 0}, {"double", TAG_DOUBLE, 0},
                                  {"bool", TAG_BOOL, 0},       {"date", TAG_DATE, 0},       {"m1", TAG_SUBMSG, 1},
                                  {"m12", TAG_SUBMSG, 12},     {"m0012", TAG_SUBMSG, 12},   {"m9999", TAG_SUBMSG, 9999},
                                  {"m12abc", TAG_SUBMSG, 12}};
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "m", "", "");
  int iTag = 0;
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szType);
    cDic.SetMsgDetail(3, ++iTag, "name", tRow.szType, "N");
    const CTagInfo* pTag = cDic.GetMsgInfo(3)->GetTagInfo(iTag);
    REQUIRE(pTag != nullptr);
    CHECK(pTag->m_eType == tRow.eType);
    CHECK(pTag->m_iSubMsg == tRow.iSubMsg);
  }
}

TEST_CASE("SetMsgDetail says what is wrong, the first thing first") {
  struct T_Row {
    int iMsg, iTag;
    const char* szType;
    int iCode;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {0, 1, "string", -15, "msgnum=0"},
      {-3, -1, "bad", -15, "msgnum=-3"},
      {10000, 1, "string", -15, "msgnum=10000"},
      {4, 1, "string", -19, "msgnum=4"},
      {4, -1, "bad", -19, "msgnum=4"},
      {3, -1, "string", -14, "msgnum=3,tagnum=-1"},
      {3, -2, "bad", -14, "msgnum=3,tagnum=-2"},
      {3, 1, "m0", -16, "submsg=m0"},
      {3, 1, "m10000", -16, "submsg=m10000"},
      {3, 1, "m-1", -16, "submsg=m-1"},
      {3, 1, "m", -16, "submsg=m"},
      {3, 1, "mabc", -16, "submsg=mabc"},
      {3, 1, "m99999999999", -16, "submsg=m99999999999"},
      {3, 1, "", -17, "tagtype="},
      {3, 1, "M12", -17, "tagtype=M12"},
      {3, 1, "Integer", -17, "tagtype=Integer"},
      {3, 1, "STRING", -17, "tagtype=STRING"},
      {3, 1, "submsg", -17, "tagtype=submsg"},
      {3, 1, "Unknown", -17, "tagtype=Unknown"},
      {3, 1, " string", -17, "tagtype= string"},
      {3, 1, "string ", -17, "tagtype=string "},
      {3, 1, "strin", -17, "tagtype=strin"},
  };
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "m", "", "");
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CheckThrows(tRow.iCode, tRow.szText, [&] { cDic.SetMsgDetail(tRow.iMsg, tRow.iTag, "name", tRow.szType, "N"); });
  }
  CHECK(cDic.GetMsgInfo(3)->GetNoTags() == 0);
  CHECK(cDic.GetLastError() == std::string());
}

TEST_CASE("tag numbers begin at 0 and have no upper bound") {
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "m", "", "");
  cDic.SetMsgDetail(3, 0, "zero", "string", "N");
  cDic.SetMsgDetail(3, INT_MAX, "most", "string", "N");
  CHECK(cDic.GetMsgInfo(3)->GetTagName(0) == std::string("zero"));
  CHECK(cDic.GetMsgInfo(3)->GetTagName(INT_MAX) == std::string("most"));
}

TEST_CASE("only \"Y\" makes a tag repeat") {
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "m", "", "");
  cDic.SetMsgDetail(3, 1, "one", "string", "Y");
  CHECK(cDic.GetMsgInfo(3)->IsMultiTag(1));
  int iTag = 1;
  for (const char* szArray : {"N", "", "y", "yes", "Yes", "YES", "1", "true", " Y", "YY"}) {
    CAPTURE(szArray);
    cDic.SetMsgDetail(3, ++iTag, "name", "string", szArray);
    CHECK(cDic.GetMsgInfo(3)->IsDefinedTag(iTag));
    CHECK_FALSE(cDic.GetMsgInfo(3)->IsMultiTag(iTag));
  }
}

TEST_CASE("a tag may be defined twice and may name a message that does not exist") {
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "m", "", "");
  cDic.SetMsgDetail(3, 5, "rows", "m77", "Y");
  cDic.SetMsgDetail(3, 5, "rows", "m77", "Y");
  CHECK(cDic.GetMsgInfo(3)->GetNoTags() == 2);
  CHECK(Dump(cDic) ==
        "<msg no='3' name='m' hash='128'>\n"
        "\t<tag no='5' name='rows' type='m0077' array='Y' />\n"
        "\t<tag no='5' name='rows' type='m0077' array='Y' />\n"
        "</msg>\n\n");
}

TEST_CASE("SetMsgDetail without memory") {
  const CString sName("rows"), sType("m00000000000000000012"), sArray("Y");
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CMsgDic cDic;
    cDic.SetMsgInfo(3, "m", "", "");
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cDic.SetMsgDetail(3, 5, sName, sType, sArray); });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(tThrown.sText == (p_cFail.HasFailed() ? "(CTagInfo)" : ""));
    CHECK(cDic.GetMsgInfo(3)->IsDefinedTag(5) == !p_cFail.HasFailed());
  });
  CHECK(iFailures >= 3);
}

TEST_CASE("tags that find no memory in the dictionary's block") {
  enum { TAGS = 40 };    // more than the first block holds
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CMsgDic cDic;
    cDic.SetMsgInfo(3, "m", "", "");
    int iTag = 0;
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] {
      for (; iTag < TAGS; ++iTag) cDic.SetMsgDetail(3, iTag, "a", "integer", "N");
    });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(tThrown.sText == (p_cFail.HasFailed() ? "(CTagInfo)" : ""));
    for (int i = 0; i < TAGS; ++i) CHECK(cDic.GetMsgInfo(3)->IsDefinedTag(i) == (i < iTag));
  });
  CHECK(iFailures >= 6);
}

TEST_CASE("the dump of one message") {
  CMsgDic cDic;
  cDic.SetMsgInfo(3, "Quote", "1.0", "16");
  cDic.SetMsgDetail(3, 1, "code", "string", "N");
  cDic.SetMsgDetail(3, 2, "rows", "m4", "Y");
  CHECK(Dump(cDic) ==
        "<msg no='3' name='Quote' hash='16'>\n"
        "\t<tag no='1' name='code' type='string' array='N' />\n"
        "\t<tag no='2' name='rows' type='m0004' array='Y' />\n"
        "</msg>\n"
        "\n");
}

TEST_CASE("the dump has messages in ascending number and appends") {
  CMsgDic cDic;
  cDic.SetMsgInfo(9999, "Last", "", "");
  cDic.SetMsgInfo(1, "First", "2", "300");
  cDic.SetMsgInfo(20, "Middle", "", "1");
  cDic.SetMsgDetail(20, 4, "x", "date", "N");
  CStream stOut(0, 512);
  stOut.AppendData("kept\n", 5);
  cDic.Dump(&stOut);
  CHECK(Text(stOut) ==
        "kept\n"
        "<msg no='1' name='First' hash='128'>\n</msg>\n\n"
        "<msg no='20' name='Middle' hash='1'>\n\t<tag no='4' name='x' type='date' array='N' />\n</msg>\n\n"
        "<msg no='9999' name='Last' hash='128'>\n</msg>\n\n");
}

TEST_CASE("a dump that finds no memory leaves whole bytes behind") {
  CTestDic cDic;
  const std::string sAll = "kept\n" + Dump(cDic);
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CStream stOut(0, 16);
    stOut.AppendData("kept\n", 5);
    const bool bThrew = p_cFail.Run([&] { cDic.Dump(&stOut); });
    CHECK(bThrew == p_cFail.HasFailed());
    CHECK(Text(stOut) == sAll.substr(0, static_cast<size_t>(stOut.GetSize())));
    if (!p_cFail.HasFailed()) CHECK(Text(stOut) == sAll);
  });
  CHECK(iFailures > 5);
}

TEST_CASE("threads may look up at once") {
  CTestDic cDic;
  std::vector<std::thread> acThread;
  std::vector<int> aiFound(4, 0);
  for (size_t i = 0; i < aiFound.size(); ++i) {
    acThread.emplace_back([&cDic, &aiFound, i] {
      for (int k = 0; k < 20000; ++k) {
        const CMsgInfo* pInfo = cDic.GetMsgInfo(120);
        if (pInfo->GetTagNumByName("prices") == 13 && pInfo->IsMultiTag(13) && pInfo->GetTagType(6) == TAG_SUBMSG) {
          ++aiFound[i];
        }
      }
    });
  }
  for (std::thread& cThread : acThread) cThread.join();
  for (int iFound : aiFound) CHECK(iFound == 20000);
}
