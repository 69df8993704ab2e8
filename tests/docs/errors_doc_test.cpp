// docs/errors.md says what the library says.
#include <doctest/doctest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "callorv/callorv.hpp"

namespace {

// The rows "| code | text | ... |" below the heading, by code.
std::map<int, std::string> Table(const std::string& p_sHeading) {
  std::ifstream cFile(TEST_DOCS_DIR "/errors.md");
  REQUIRE(cFile.good());
  std::map<int, std::string> mText;
  bool bHere = false;
  for (std::string sLine; std::getline(cFile, sLine);) {
    if (sLine.rfind("## ", 0) == 0) bHere = sLine.find(p_sHeading) != std::string::npos;
    int iCode = 0;
    if (!bHere || sscanf(sLine.c_str(), "| %d |", &iCode) != 1) continue;
    const size_t iFrom = sLine.find('|', 1) + 2;
    mText[iCode] = sLine.substr(iFrom, sLine.find(" |", iFrom) - iFrom);
  }
  return mText;
}

void CheckTable(const std::string& p_sHeading, const char* (*p_fnText)(int)) {
  const auto mText = Table(p_sHeading);
  size_t uTexts = 0;
  for (int i = 0; i > -50; --i) {
    CAPTURE(i);
    const char* szText = p_fnText(i);
    REQUIRE((szText != nullptr) == (mText.count(i) == 1));
    if (szText == nullptr) continue;
    CHECK(mText.at(i) == szText);
    ++uTexts;
  }
  CHECK(mText.size() == uTexts);    // it lists no other
}

}    // namespace

TEST_CASE("docs/errors.md lists every message code with its text") { CheckTable("MA_GetErrorStr", MA_GetErrorStr); }
TEST_CASE("docs/errors.md lists every adaptor code with its text") {
  CheckTable("ADAPT_GetErrorStr", ADAPT_GetErrorStr);
}
