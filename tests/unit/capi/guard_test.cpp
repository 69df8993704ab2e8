// What becomes of errors and exceptions at the edge of the C interface.
#include "capi/guard.h"

#include <callorv/msg/msg.h>
#include <doctest/doctest.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

using callorv::detail::Guard;
using callorv::detail::GuardService;

namespace {

// Not all zero behind its text, so that what is written there can be seen.
CallOrv_Error OldRecord() {
  CallOrv_Error tErr;
  memset(static_cast<void*>(&tErr), '~', sizeof(tErr));
  tErr.iCode = 99;
  tErr.iRefSvcNum = 77;
  memcpy(tErr.szText, "old", 4);
  return tErr;
}

void CheckRecord(const CallOrv_Error& p_tErr, int p_iCode, const std::string& p_sText, int p_iRefSvcNum) {
  CHECK(p_tErr.iCode == p_iCode);
  CHECK(p_tErr.szText == p_sText);
  CHECK(p_tErr.iRefSvcNum == p_iRefSvcNum);
}

// A message, and a service function, that throw or fail as a test wants.
template <class F>
int OfMessage(F p_fnCall) {
  CMsg cMsg(0, 0, 0, MA_GetMsgDic());
  return Guard(&cMsg, p_fnCall);
}

}    // namespace

TEST_CASE("a null record or handle stops before the call") {
  CHECK(GuardService(nullptr, [](CCallOrvError*) -> int { throw 1; }) == -12);
  CHECK(Guard(static_cast<CMsg*>(nullptr), []() -> int { throw 1; }) == -12);
}

TEST_CASE("results pass, and success leaves the record alone") {
  CallOrv_Error tErr = OldRecord();
  CHECK(OfMessage([] { return 5; }) == 5);
  CHECK(OfMessage([] { return -17; }) == -17);
  CHECK(GuardService(&tErr, [](CCallOrvError* p_pErr) {
          p_pErr->SetError(1, "not a failure", 2);
          return 0;
        }) == 0);
  CHECK(GuardService(&tErr, [](CCallOrvError*) { return 3; }) == 0);
  CheckRecord(tErr, 99, "old", 77);
}

TEST_CASE("a failed service fills the record with its error") {
  CallOrv_Error tErr = OldRecord();
  CHECK(GuardService(&tErr, [](CCallOrvError* p_pErr) {
          CHECK(p_pErr->GetCode() == 0);
          CHECK(p_pErr->GetText() == "");
          p_pErr->SetError(4017, "100% of funds", 1234);
          return -4;
        }) == -4);
  CheckRecord(tErr, 4017, "100% of funds", 1234);
}

TEST_CASE("a text is cut at 1022 characters") {
  for (size_t iLen : {0, 1, 1021, 1022, 1023, 1024, 5000}) {
    CAPTURE(iLen);
    const std::string sText(iLen, 'x');
    CallOrv_Error tErr = OldRecord();
    GuardService(&tErr, [&](CCallOrvError* p_pErr) {
      p_pErr->SetError(-3, sText.c_str(), -1);
      return -3;
    });
    CheckRecord(tErr, -3, sText.substr(0, 1022), -1);
    CHECK(tErr.szText[1022] == 0);
    CHECK(std::string_view(reinterpret_cast<const char*>(&tErr), sizeof(tErr))[1027] == '~');    // nothing behind it

    GuardService(&tErr, [&](CCallOrvError*) -> int { throw CException(sText.c_str(), -12); });
    CheckRecord(tErr, -12, ("MSG_Error(-12) : Parameter is NULL {" + sText + "}").substr(0, 1022), 0);
    CHECK(tErr.szText[1022] == 0);
  }
}

TEST_CASE("a CException becomes its code, and the record's text has the frame of the message layer") {
  struct T_Row {
    int iCode;
    const char* szText;
  };
  for (const T_Row& tRow : {T_Row{-12, "MSG_Error(-12) : Parameter is NULL {100% null}"},
                            T_Row{-21, "MSG_Error(-21) : XML parsing failed {100% null}"},
                            T_Row{-40, "MSG_Error(-40) : (null) {100% null}"},
                            T_Row{-50, "MSG_Error(-50) : Unknown error {100% null}"}}) {
    const auto fnThrow = [&]() -> int { throw CException("100% null", tRow.iCode); };
    CallOrv_Error tErr = OldRecord();
    CHECK(GuardService(&tErr, [&](CCallOrvError*) { return fnThrow(); }) == tRow.iCode);
    CheckRecord(tErr, tRow.iCode, tRow.szText, 0);
    tErr = OldRecord();
    CHECK(Guard(&tErr, fnThrow) == tRow.iCode);
    CheckRecord(tErr, tRow.iCode, tRow.szText, 0);
    CHECK(Guard(static_cast<CallOrv_Error*>(nullptr), fnThrow) == tRow.iCode);
    CHECK(OfMessage(fnThrow) == tRow.iCode);
  }
}

TEST_CASE("a shortage of memory becomes -11") {
  CallOrv_Error tErr = OldRecord();
  CHECK(GuardService(&tErr, [](CCallOrvError*) -> int { throw std::bad_alloc(); }) == -11);
  CheckRecord(tErr, -11, "MSG_Error(-11) : Memory error {std::bad_alloc}", 0);
  CHECK(OfMessage([]() -> int { throw std::bad_alloc(); }) == -11);
}

TEST_CASE("any other exception passes and leaves the record alone") {
  CallOrv_Error tErr = OldRecord();
  CHECK_THROWS_AS(GuardService(&tErr, [](CCallOrvError*) -> int { throw std::runtime_error("x"); }),
                  std::runtime_error);
  CHECK_THROWS_AS(OfMessage([]() -> int { throw 42; }), int);
  CheckRecord(tErr, 99, "old", 77);
}
