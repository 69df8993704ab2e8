// Codes, their texts, and the last error that an adaptor keeps.
#include <doctest/doctest.h>

#include <climits>
#include <cwchar>
#include <string>

#include "callorv/base/exception.h"
#include "callorv/net/tcp_adaptor.h"
#include "support/fail_alloc.h"

TEST_CASE("ADAPT_GetErrorStr: every code, with either sign") {
  static const char* const s_aszText[] = {
      "Unknown error",          "Memory error",           "Parameter is NULL",
      "Cannot open socket",     "Failed in gethostbyname()", "Failed in connect()",
      "Failed in send()",       "Failed in recv()",       "Socket timeout",
      "Socket closed",          "Failed in select()",     "Failed in setsockopt()",
      "Socket not connected",   "Checksum is incorrect",  "Invalid trailer data",
      "Header format is incorrect", "Compression failed", "Packet is corrupted"};
  for (int i = 0; i <= 17; ++i) {
    CAPTURE(i);
    CHECK(ADAPT_GetErrorStr(i) == std::string(s_aszText[i]));
    CHECK(ADAPT_GetErrorStr(-i) == std::string(s_aszText[i]));
  }
  for (int i = 18; i <= 49; ++i) {
    CAPTURE(i);
    CHECK(ADAPT_GetErrorStr(i) == nullptr);
    CHECK(ADAPT_GetErrorStr(-i) == nullptr);
  }
  for (const int i : {50, -50, 1000, -1000, INT_MAX, -INT_MAX, INT_MIN}) {
    CAPTURE(i);
    CHECK(ADAPT_GetErrorStr(i) == std::string("Unknown error"));
  }
}

TEST_CASE("the named codes") {
  CHECK(ADAPT_MEMORY == -1);
  CHECK(ADAPT_NULL == -2);
  CHECK(ADAPT_SOCKET == -3);
  CHECK(ADAPT_HOST == -4);
  CHECK(ADAPT_CONNECT == -5);
  CHECK(ADAPT_SEND == -6);
  CHECK(ADAPT_RECV == -7);
  CHECK(ADAPT_TIMEOUT == -8);
  CHECK(ADAPT_CLOSED == -9);
  CHECK(ADAPT_SELECT == -10);
  CHECK(ADAPT_SOCKOPT == -11);
  CHECK(ADAPT_NOT_CONNECTED == -12);
  CHECK(ADAPT_CHECKSUM == -13);
  CHECK(ADAPT_HEADER == -15);
  CHECK(ADAPT_COMPRESSION == -16);
  CHECK(ADAPT_CORRUPTED == -17);
}

TEST_CASE("GetLastError of a fresh adaptor is empty") {
  CTcpAdaptor cAdaptor;
  CHECK(cAdaptor.GetLastError() == std::string(""));
}

TEST_CASE("SetLastError keeps text, code and detail") {
  CTcpAdaptor cAdaptor;
  cAdaptor.SetLastError(-8, "(recv to=%d)", 0);
  CHECK(cAdaptor.GetLastError() == std::string("Socket timeout(-8)((recv to=0))"));
  cAdaptor.SetLastError(-4, "(hostname=%s)", "nowhere");
  CHECK(cAdaptor.GetLastError() == std::string("Failed in gethostbyname()(-4)((hostname=nowhere))"));
  cAdaptor.SetLastError(-14, "%s", "");
  CHECK(cAdaptor.GetLastError() == std::string("Invalid trailer data(-14)()"));
  cAdaptor.SetLastError(8, "x");
  CHECK(cAdaptor.GetLastError() == std::string("Socket timeout(8)(x)"));
  cAdaptor.SetLastError(0, "x");
  CHECK(cAdaptor.GetLastError() == std::string("Unknown error(0)(x)"));
  cAdaptor.SetLastError(-50, "x");
  CHECK(cAdaptor.GetLastError() == std::string("Unknown error(-50)(x)"));
  cAdaptor.SetLastError(-20, "x");
  CHECK(cAdaptor.GetLastError() == std::string("(null)(-20)(x)"));
}

TEST_CASE("SetLastError: the detail may come from the text before") {
  CTcpAdaptor cAdaptor;
  cAdaptor.SetLastError(-1, "%s", "a text that is long enough for memory of its own");
  cAdaptor.SetLastError(-2, "%s", cAdaptor.GetLastError());
  CHECK(cAdaptor.GetLastError() ==
        std::string("Parameter is NULL(-2)(Memory error(-1)(a text that is long enough for memory of its own))"));
}

TEST_CASE("SetLastError cuts the detail at 1023 characters") {
  CTcpAdaptor cAdaptor;
  for (const size_t uLen : {1022u, 1023u, 1024u, 5000u}) {
    CAPTURE(uLen);
    cAdaptor.SetLastError(-9, "%s", std::string(uLen, 'd').c_str());
    CHECK(cAdaptor.GetLastError() == "Socket closed(-9)(" + std::string(uLen < 1023 ? uLen : 1023, 'd') + ")");
  }
}

TEST_CASE("SetLastError gives up on a detail that can never be printed") {
  CTcpAdaptor cAdaptor;
  cAdaptor.SetLastError(-9, "OK");
  const wchar_t aInvalid[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
  int iCode = 0;
  std::string sText;
  try {
    cAdaptor.SetLastError(-8, "%ls", aInvalid);
  } catch (const CException& c) {
    iCode = c.GetCode();
    sText = c.GetText();
  }
  CHECK(iCode == -11);
  CHECK(sText == "at adaptor(79 lines), (new char[iLen]) failed(vsnprintf)");
  CHECK(cAdaptor.GetLastError() == std::string("Socket closed(-9)(OK)"));
}

TEST_CASE("SetLastError without memory throws CException") {
  static const char* const s_aszText[] = {"at adaptor(71 lines), (new Error) failed(std::bad_alloc)",
                                          "at adaptor(79 lines), (new char[iLen]) failed(std::bad_alloc)"};
  int iSeen = 0;
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CTcpAdaptor cAdaptor;
    int iCode = 0;
    std::string sText;
    bool bThrew = false;
    try {
      bThrew = p_cFail.Run([&] { cAdaptor.SetLastError(-9, "%s", "a detail"); });
    } catch (const CException& c) {
      iCode = c.GetCode();
      sText = c.GetText();
    }
    CHECK_FALSE(bThrew);
    if (!p_cFail.HasFailed()) {
      CHECK(cAdaptor.GetLastError() == std::string("Socket closed(-9)(a detail)"));
      return;
    }
    CHECK(iCode == -11);
    CHECK((sText == s_aszText[0] || sText == s_aszText[1]));
    if (iSeen < 2) CHECK(sText == s_aszText[iSeen]);
    ++iSeen;
    CHECK(cAdaptor.GetLastError() == std::string(""));
    cAdaptor.SetLastError(-9, "OK");    // the adaptor is good for more
    CHECK(cAdaptor.GetLastError() == std::string("Socket closed(-9)(OK)"));
  });
  CHECK(iFailures >= 2);
}
