// Texts stored into tags, as readers of message documents do it.
#include <climits>
#include <cmath>
#include <limits>

#include "support/test_dic.h"

namespace {

CString WithNul(const char* p_p, int p_iLen) {
  CString sText;
  sText.Set(p_p, p_iLen);
  return sText;
}

}    // namespace

TEST_CASE("a text is converted by the type of its tag") {
  CTestMsg cMsg(120);
  cMsg->SetParsedData(1, "abc");
  cMsg->SetParsedData(7, "42");
  cMsg->SetParsedData(3, "2.5");
  cMsg->SetParsedData(4, "true");
  cMsg->SetParsedData(5, "20240131");
  CString sText;
  int iValue = 0;
  double dValue = 0;
  bool bValue = false;
  CDate cDay;
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(cMsg->GetValue(3, &dValue) == 0);
  CHECK(cMsg->GetValue(4, &bValue) == 0);
  CHECK(cMsg->GetValue(5, &cDay) == 0);
  CHECK(sText == "abc");
  CHECK(iValue == 42);
  CHECK(dValue == 2.5);
  CHECK(bValue);
  CHECK(cDay.ToStr() == std::string("20240131"));
  CHECK(cDay.IsSet());
  CHECK_FALSE(cMsg->IsEmpty());
}

TEST_CASE("integers are read as strtol reads them where long has 32 bits") {
  struct T_Row {
    const char* szText;
    int iValue;
  };
  static const T_Row s_atRow[] = {
      {"0", 0},          {"-7", -7},          {"+7", 7},        {" \t\n\v\f\r7", 7},
      {"007", 7},        {"7abc", 7},         {"abc", 0},       {"", 0},
      {"-", 0},          {"--7", 0},          {"- 7", 0},       {"0x10", 0},
      {"1.9", 1},        {"1e5", 1},          {"2147483647", INT_MAX},  {"2147483648", INT_MAX},
      {"-2147483648", INT_MIN}, {"-2147483649", INT_MIN}, {"99999999999999999999", INT_MAX},
      {"-99999999999999999999", INT_MIN},     {"4294967297", INT_MAX}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CTestMsg cMsg(120);
    cMsg->SetParsedData(7, tRow.szText);
    cMsg->SetParsedData(17, tRow.szText);
    int iSingle = 9, iMulti = 9;
    CHECK(cMsg->GetValue(7, &iSingle) == 0);
    CHECK(cMsg->GetValue(17, &iMulti) == 0);
    CHECK(iSingle == tRow.iValue);
    CHECK(iMulti == tRow.iValue);
  }
}

TEST_CASE("doubles are read as strtod reads them") {
  const double dInf = std::numeric_limits<double>::infinity();
  struct T_Row {
    const char* szText;
    double dValue;
  };
  const T_Row s_atRow[] = {{"0", 0},       {"-1.5", -1.5},      {"+1.5", 1.5},   {"  2.5e+00", 2.5},
                           {".5", .5},     {"5.", 5},           {"1e3x", 1000},  {"1.5.5", 1.5},
                           {"abc", 0},     {"", 0},             {"1,5", 1},      {"0x10", 16},
                           {"1e999", dInf}, {"-1e999", -dInf},  {"inf", dInf},   {"1.797693134862316e+308", dInf},
                           {"4.9e-324", 4.9e-324},              {"1e-999", 0},   {"0.1", 0.1}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CTestMsg cMsg(120);
    cMsg->SetParsedData(3, tRow.szText);
    cMsg->SetParsedData(13, tRow.szText);
    double dSingle = 9, dMulti = 9;
    CHECK(cMsg->GetValue(3, &dSingle) == 0);
    CHECK(cMsg->GetValue(13, &dMulti) == 0);
    CHECK(dSingle == tRow.dValue);
    CHECK(dMulti == tRow.dValue);
  }
  CTestMsg cMsg(120);
  double dOut = 0;
  cMsg->SetParsedData(3, "nan");
  CHECK(cMsg->GetValue(3, &dOut) == 0);
  CHECK(std::isnan(dOut));
}

TEST_CASE("only \"true\" is true") {
  for (const char* szText : {"false", "TRUE", "True", "1", "", "true ", " true", "yes", "truest"}) {
    CAPTURE(szText);
    CTestMsg cMsg(120);
    cMsg->SetParsedData(4, szText);
    cMsg->SetParsedData(14, szText);
    cMsg->SetParsedData(14, "true");
    bool bOut = true;
    CHECK(cMsg->GetValue(4, &bOut) == 0);
    CHECK_FALSE(bOut);
    CHECK(cMsg->GetValueAt(14, 0, &bOut) == 0);
    CHECK_FALSE(bOut);
    CHECK(cMsg->GetValueAt(14, 1, &bOut) == 0);
    CHECK(bOut);
  }
}

TEST_CASE("a date is made from its text unchanged") {
  CTestMsg cMsg(120);
  for (const char* szText : {"20240131", "2024", "2024-01-31", "someday", ""}) cMsg->SetParsedData(15, szText);
  CDateArray acDay;
  CHECK(cMsg->GetValue(15, &acDay) == 0);
  REQUIRE(acDay.GetSize() == 5);
  CHECK(acDay.GetAt(0).ToStr() == std::string("20240131"));
  CHECK(acDay.GetAt(1).ToStr() == std::string("2024"));
  CHECK(acDay.GetAt(2).ToStr() == std::string("2024-01-"));
  CHECK(acDay.GetAt(3).ToStr() == std::string("someday"));
  CHECK(acDay.GetAt(4).ToStr() == std::string());
  CHECK_FALSE(acDay.GetAt(4).IsSet());
}

TEST_CASE("of a scalar the first text stays, of an array every text is an element") {
  CTestMsg cMsg(120);
  static const char* const s_aszText[3] = {"1", "true", "20240131"};
  for (int iTag : {1, 7, 3, 4, 5}) {
    CAPTURE(iTag);
    for (const char* szText : s_aszText) cMsg->SetParsedData(iTag, szText);
    for (const char* szText : s_aszText) cMsg->SetParsedData(iTag + 10, szText);
    CHECK(cMsg->GetArrSize(iTag) == 1);
    CHECK(cMsg->GetArrSize(iTag + 10) == 3);
  }
  CString sText;
  int iValue = 0;
  double dValue = 0;
  bool bValue = true;
  CDate cDay;
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(sText == "1");
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(iValue == 1);
  CHECK(cMsg->GetValue(3, &dValue) == 0);
  CHECK(dValue == 1);
  CHECK(cMsg->GetValue(4, &bValue) == 0);
  CHECK_FALSE(bValue);
  CHECK(cMsg->GetValue(5, &cDay) == 0);
  CHECK(cDay.ToStr() == std::string("1"));
  CHECK(cMsg->GetValueAt(11, 2, &sText) == 0);
  CHECK(sText == "20240131");
}

TEST_CASE("a value that a setter stored is not changed by a text") {
  CTestMsg cMsg(120);
  cMsg->SetValue(7, 5);
  cMsg->SetParsedData(7, "6");
  cMsg->SetValue(17, 5);
  cMsg->SetParsedData(17, "6");
  int iValue = 0;
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(iValue == 5);
  CHECK(cMsg->GetArrSize(17) == 2);
}

TEST_CASE("an empty text is stored like any other") {
  CTestMsg cMsg(120);
  cMsg->SetParsedData(1, "");
  CString sText("before");
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(sText.IsEmpty());
  cMsg->SetParsedData(1, "later");
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(sText.IsEmpty());
}

TEST_CASE("a text with NULs inside is kept whole by strings") {
  CTestMsg cMsg(120);
  cMsg->SetParsedData(1, WithNul("ab\0cd", 5));
  cMsg->SetParsedData(11, WithNul("\0x", 2));
  CString sText;
  CHECK(cMsg->GetValue(1, &sText) == 0);
  CHECK(std::string(sText.ToStr(), static_cast<size_t>(sText.GetSize())) == std::string("ab\0cd", 5));
  CHECK(cMsg->GetValueAt(11, 0, &sText) == 0);
  CHECK(sText.GetSize() == 2);
  cMsg->SetParsedData(7, WithNul("1\0002", 3));
  cMsg->SetParsedData(3, WithNul("1.5\0002", 5));
  cMsg->SetParsedData(4, WithNul("true\0x", 6));
  int iValue = 0;
  double dValue = 0;
  bool bValue = false;
  CHECK(cMsg->GetValue(7, &iValue) == 0);
  CHECK(iValue == 1);
  CHECK(cMsg->GetValue(3, &dValue) == 0);
  CHECK(dValue == 1.5);
  CHECK(cMsg->GetValue(4, &bValue) == 0);
  CHECK(bValue);
}

TEST_CASE("what cannot be stored is thrown") {
  CTestMsg cMsg(120), cNoDef(0);
  CheckThrows(-19, "msgnum=0", [&] { cNoDef->SetParsedData(7, "1"); });
  CheckThrows(-18, "tagnum=99", [&] { cMsg->SetParsedData(99, "1"); });
  CheckThrows(-18, "tagnum=-1", [&] { cMsg->SetParsedData(-1, "1"); });
  CheckThrows(-17, "tagnum=6,type=6", [&] { cMsg->SetParsedData(6, "1"); });
  CheckThrows(-17, "tagnum=16,type=6", [&] { cMsg->SetParsedData(16, "1"); });
  CHECK(cMsg->IsEmpty());
  CHECK(cMsg->GetLastError() == std::string());
  CHECK(cMsg->GetArrSize(6) == -1);
  CHECK(cMsg->GetLastError() == std::string("MSG_Error(-1) : No Data found {tagnum=6,Unset}"));

  CMsgDic cDic;
  cDic.SetMsgInfo(5, "m", "", "");
  cDic.GetMsgInfo(5)->SetTagInfo(7, "odd", TAG_UNKNOWN, 0, false);
  cDic.GetMsgInfo(5)->SetTagInfo(8, "odder", static_cast<E_TagType>(9), 0, true);
  CMsg cOdd(5, 0, 0, &cDic);
  CheckThrows(-17, "tagnum=7,type=0", [&] { cOdd.SetParsedData(7, "1"); });
  CheckThrows(-17, "tagnum=8,type=9", [&] { cOdd.SetParsedData(8, "1"); });
}
