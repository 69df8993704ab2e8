// The error of a service call.
#include <callorv/client/callorv_error.h>
#include <doctest/doctest.h>

#include <cstring>
#include <string>

namespace {

void CheckError(const CCallOrvError& p_cErr, int p_iCode, const char* p_szText, int p_iRefSvcNum) {
  CHECK(p_cErr.iCode == p_iCode);
  CHECK(p_cErr.GetCode() == p_iCode);
  CHECK(std::strcmp(p_cErr.sText.ToStr(), p_szText) == 0);
  CHECK(std::strcmp(p_cErr.GetText().ToStr(), p_szText) == 0);
  CHECK(p_cErr.iRefSvcNum == p_iRefSvcNum);
  CHECK(p_cErr.GetRefSvcNum() == p_iRefSvcNum);
}

}    // namespace

TEST_CASE("an error is clear at first, keeps what it is given, and can be cleared") {
  CCallOrvError cErr;
  CheckError(cErr, 0, "", 0);
  CHECK(cErr.SetError(4017, "no funds", 1234) == 1234);
  CheckError(cErr, 4017, "no funds", 1234);
  CHECK(cErr.SetError(-3, "Failed in connect()", -1) == -1);
  CheckError(cErr, -3, "Failed in connect()", -1);
  cErr.SetError("Invalid UserKey");    // of initialisation: no code, no service
  CheckError(cErr, 0, "Invalid UserKey", 0);
  cErr.SetError(5, "x", 6);
  cErr.Clear();
  CheckError(cErr, 0, "", 0);
}

TEST_CASE("GetText gives a copy") {
  CCallOrvError cErr;
  cErr.SetError("first");
  const CString sText = cErr.GetText();
  cErr.SetError("second");
  CHECK(sText == "first");
}

TEST_CASE("an error may be set from its own text") {
  CCallOrvError cErr;
  cErr.SetError("a text that is longer than what a string keeps inside itself");
  cErr.SetError(5, cErr.sText.ToStr() + 2, 6);
  CheckError(cErr, 5, "text that is longer than what a string keeps inside itself", 6);
}

TEST_CASE("Repr tells a rejection from a failure by the sign of the code") {
  struct T_Row {
    int iCode;
    const char* szRepr;
  };
  for (const T_Row& tRow : {T_Row{1, "CCallOrvError: Code=1, Text=100% sure, RefSvcNum=1234"},
                            T_Row{4017, "CCallOrvError: Code=4017, Text=100% sure, RefSvcNum=1234"},
                            T_Row{0, "CCallOrvError: 100% sure"}, T_Row{-3, "CCallOrvError: 100% sure"}}) {
    CCallOrvError cErr;
    cErr.SetError(tRow.iCode, "100% sure", 1234);
    CHECK(cErr.Repr().ToStr() == std::string(tRow.szRepr));
  }
}
