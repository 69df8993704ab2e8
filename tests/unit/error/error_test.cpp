// Error texts, and the last error of an object.
#include <callorv/base/exception.h>
#include <callorv/error/error.h>

#include <doctest/doctest.h>

#include <climits>
#include <cwchar>
#include <string>

#include "support/test_dic.h"

TEST_CASE("every code has its text, whatever its sign") {
  static const char* const s_aszText[37] = {
      "Unknown error",
      "No Data found",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "N/A",
      "Memory error",
      "Parameter is NULL",
      "TagDic error",
      "Out of tagnum boundary",
      "Out of msgnum boundary",
      "Out of submsg bounaryd",
      "Invalid tag type",
      "Not defined tag in dictionary",
      "Not defined msg in dictionary",
      "Not defined tag in msg dictionary",
      "XML parsing failed",
      "Duplicated message defined",
      "Duplicated tag defined",
      "Invalid msg assert format",
      "Invalid tag restriction format",
      "Xerces(XML parser) initialization error",
      "Out of index boundary in array",
      "Invalid input msg of service",
      "Import dictionary error",
      "Undefined statment id",
      "JSON parsing failed",
      "File not found",
      "Socket error",
      "Config file error",
      "Not Initialized",
      "Dictionary loading failed",
  };
  for (int i = 0; i < 37; ++i) {
    CAPTURE(i);
    CHECK(MA_GetErrorStr(i) == std::string(s_aszText[i]));
    CHECK(MA_GetErrorStr(-i) == std::string(s_aszText[i]));
  }
}

TEST_CASE("the reserved codes have no text") {
  for (int i = 37; i < 50; ++i) {
    CAPTURE(i);
    CHECK(MA_GetErrorStr(i) == nullptr);
    CHECK(MA_GetErrorStr(-i) == nullptr);
  }
}

TEST_CASE("codes beyond the table are unknown errors") {
  for (int i : {50, -50, 1000, -1000, INT_MAX, -INT_MAX, INT_MIN}) {
    CAPTURE(i);
    CHECK(MA_GetErrorStr(i) == std::string("Unknown error"));
  }
}

TEST_CASE("the codes with a name have the numbers that callers know") {
  CHECK(MSG_OK == 0);
  CHECK(MSG_NO_DATA == -1);
  CHECK(MSG_MEMORY == -11);
  CHECK(MSG_NULL == -12);
  CHECK(MSG_TAG_RANGE == -14);
  CHECK(MSG_MSG_RANGE == -15);
  CHECK(MSG_SUBMSG_RANGE == -16);
  CHECK(MSG_TAG_TYPE == -17);
  CHECK(MSG_UNDEF_TAG == -18);
  CHECK(MSG_UNDEF_MSG == -19);
  CHECK(MSG_UNDEF_MSG_TAG == -20);
  CHECK(MSG_XML == -21);
  CHECK(MSG_DUP_MSG == -22);
  CHECK(MSG_XML_INIT == -26);
  CHECK(MSG_INDEX == -27);
  CHECK(MSG_INPUT == -28);
  CHECK(MSG_FILE == -32);
  CHECK(MSG_NOT_INIT == -35);
  CHECK(MSG_DIC_LOAD == -36);
}

TEST_CASE("an object without a failure has an empty text") {
  CLastError cError;
  REQUIRE(cError.GetLastError() != nullptr);
  CHECK(cError.GetLastError() == std::string());
}

TEST_CASE("the last error has code, table text and detail") {
  CLastError cError;
  cError.SetLastError(-18, "msgnum=%d, tagnum=%d", 120, 7);
  CHECK(cError.GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=120, tagnum=7}"));
  cError.SetLastError(-12, "%s", "");
  CHECK(cError.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
  cError.SetLastError(11, "%s", "positive");
  CHECK(cError.GetLastError() == std::string("MSG_Error(11) : Memory error {positive}"));
  cError.SetLastError(-5, "%c%%", 'x');
  CHECK(cError.GetLastError() == std::string("MSG_Error(-5) : N/A {x%}"));
  cError.SetLastError(-1000, "%s", "far");
  CHECK(cError.GetLastError() == std::string("MSG_Error(-1000) : Unknown error {far}"));
}

TEST_CASE("a code without a text is printed as the formatter prints null") {
  CLastError cError;
  cError.SetLastError(-40, "%s", "slot");
  CHECK(cError.GetLastError() == std::string("MSG_Error(-40) : (null) {slot}"));
}

TEST_CASE("only the latest failure is kept") {
  CLastError cError, cOther;
  cError.SetLastError(-1, "%s", "first");
  cError.SetLastError(-27, "%s", "second");
  CHECK(cError.GetLastError() == std::string("MSG_Error(-27) : Out of index boundary in array {second}"));
  CHECK(cOther.GetLastError() == std::string());
}

TEST_CASE("a detail may come from the text kept before") {
  CLastError cError;
  cError.SetLastError(-1, "%s", "first");
  cError.SetLastError(-2, "%s", cError.GetLastError());
  CHECK(cError.GetLastError() == std::string("MSG_Error(-2) : N/A {MSG_Error(-1) : No Data found {first}}"));
}

TEST_CASE("a detail is cut at 1023 characters") {
  struct T_Row {
    size_t iGiven, iKept;
  };
  static const T_Row s_atRow[] = {{511, 511}, {512, 512}, {1022, 1022}, {1023, 1023}, {1024, 1023}, {2000, 1023}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iGiven);
    CLastError cError;
    cError.SetLastError(-1, "%s", std::string(tRow.iGiven, 'x').c_str());
    CHECK(cError.GetLastError() == "MSG_Error(-1) : No Data found {" + std::string(tRow.iKept, 'x') + "}");
  }
}

TEST_CASE("a detail of more than 2147483647 characters is cut, and one of none is nothing") {
  CLastError cError;
  const char* volatile szTooLong = "beginning%99999999999d";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  cError.SetLastError(-1, szTooLong, 1);
#pragma GCC diagnostic ignored "-Wformat-zero-length"
  CLastError cEmpty;
  cEmpty.SetLastError(-12, "");
#pragma GCC diagnostic pop
  CHECK(cEmpty.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {}"));
  CHECK(cError.GetLastError() == std::string("MSG_Error(-1) : No Data found {beginning}"));
}

TEST_CASE("a detail that can never be printed does not eat the memory") {
  CLastError cError;
  cError.SetLastError(-1, "%s", "before");
  try {
    cError.SetLastError(-1, "%ls", L"\x3000");    // not in the character set of the "C" locale
    FAIL("nothing was thrown");
  } catch (const CException& cThrown) {
    CHECK(cThrown.GetCode() == -11);
    CHECK(cThrown.GetText() == std::string("at msg_error(87 lines), (new char[iLen]) failed(vsnprintf)"));
  }
  CHECK(cError.GetLastError() == std::string("MSG_Error(-1) : No Data found {before}"));
}

TEST_CASE("no memory for a first failure: an exception says what was missing, and the object still works") {
  static const char* const s_aszText[] = {"at msg_error(79 lines), (new Error) failed(std::bad_alloc)",
                                          "at msg_error(87 lines), (new char[iLen]) failed(std::bad_alloc)",
                                          "at msg_error(87 lines), (new char[iLen]) failed(std::bad_alloc)"};
  int iRun = 0;
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CLastError cError;
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cError.SetLastError(-18, "%s", "detail"); });
    if (p_cFail.HasFailed()) {
      REQUIRE(iRun < 3);
      CHECK(tThrown.iCode == -11);
      CHECK(tThrown.sText == s_aszText[iRun++]);
      CHECK(cError.GetLastError() == std::string());
    } else {
      CHECK(tThrown.iCode == 0);
      CHECK(cError.GetLastError() == std::string("MSG_Error(-18) : Not defined tag in dictionary {detail}"));
    }
    cError.SetLastError(-12, "%s", "next");
    CHECK(cError.GetLastError() == std::string("MSG_Error(-12) : Parameter is NULL {next}"));
  });
  CHECK(iFailures == 3);
}

TEST_CASE("no memory for a later failure: the text kept before stays") {
  const std::string sLong(700, 'x');
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CLastError cError;
    cError.SetLastError(-1, "%s", "before");
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cError.SetLastError(-18, "%s", sLong.c_str()); });
    if (p_cFail.HasFailed()) {
      CHECK(tThrown.iCode == -11);
      CHECK(tThrown.sText == "at msg_error(87 lines), (new char[iLen]) failed(std::bad_alloc)");
      CHECK(cError.GetLastError() == std::string("MSG_Error(-1) : No Data found {before}"));
    } else {
      CHECK(tThrown.iCode == 0);
      CHECK(cError.GetLastError() == "MSG_Error(-18) : Not defined tag in dictionary {" + sLong + "}");
    }
  });
  CHECK(iFailures == 3);
}
