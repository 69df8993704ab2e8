// Names and texts with characters that need more than a byte: the low byte of each counts, but for a dictionary's
// elements.
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <memory>
#include <string>

#include "support/temp_file.h"

namespace {

// What loading a dictionary of UTF-8 ends with, "" for success.
std::string Load(CMsgDic& p_cDic, const std::string& p_sInside) {
  const CTempDir cDir;
  const std::string sFile = cDir.Write("dic.xml", "<?xml version='1.0' encoding='UTF-8'?><msg_dictionary>" + p_sInside +
                                                      "</msg_dictionary>");
  try {
    p_cDic.InitDictionary(sFile.c_str());
  } catch (const CException& cError) {
    return std::to_string(cError.GetCode()) + ' ' + cError.GetText();
  }
  return "";
}

}    // namespace

// U+016E, U+0161 and U+014E end in the bytes of n, a and N.
TEST_CASE("the low bytes of an attribute's name count") {
  const auto pDic = std::make_unique<CMsgDic>();
  CHECK(Load(*pDic, "<msg \u016Eo='7' \u016E\u0161me='seven'><tag no='3' n\u0161me='Price' type='double'/></msg>") == "");
  CMsgInfo* pInfo = pDic->GetMsgInfo(7);
  REQUIRE(pInfo != nullptr);
  CHECK(pInfo->GetTagNumByName("Price") == 3);
}

// U+016D, U+0174 and U+0161 end in the bytes of m, t and a.
TEST_CASE("an element's name counts as it is written") {
  const auto pDic = std::make_unique<CMsgDic>();
  CHECK(Load(*pDic, "<\u016Dsg no='7' name='seven'/>") == "-21 InitDictionary(Handler error : Unknown element - \u016Dsg)");
  CHECK(Load(*pDic, "<msg no='8' name='eight'><\u0174ag no='3' name='Price' type='double'/></msg>") ==
        "-21 InitDictionary(Handler error : Unknown child element - \u0174ag)");
}

// U+0100 ends in a NUL.
TEST_CASE("an attribute's value ends at its first NUL") {
  const auto pDic = std::make_unique<CMsgDic>();
  CHECK(Load(*pDic, "<msg no='7' name='seven'><tag no='3\u01004' name='Pri\u0100ce' type='double\u0100x'/></msg>") == "");
  CMsgInfo* pInfo = pDic->GetMsgInfo(7);
  REQUIRE(pInfo != nullptr);
  CHECK(pInfo->GetTagNumByName("Pri") == 3);
  CHECK(pInfo->GetTagInfo(34) == nullptr);
}

TEST_CASE("a text ends at its first NUL, and then at its last character that is no blank") {
  const auto pDic = std::make_unique<CMsgDic>();
  REQUIRE(Load(*pDic, "<msg no='7' name='seven'><tag no='1' name='text' type='string'/></msg>") == "");
  CMsg cMsg(0, 0, 0, pDic.get());
  std::string sXml = "<?xml version='1.0' encoding='UTF-8'?><msg no='7'><t1>a \u0100b</t1></msg>";
  REQUIRE(cMsg.LoadXml(&sXml[0]) == 0);
  CString sText;
  REQUIRE(cMsg.GetValue(1, &sText) == 0);
  CHECK(sText.GetSize() == 1);
  CHECK(sText == "a");
}
