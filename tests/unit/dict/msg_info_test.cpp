// One message definition.
#include <callorv/base/stream.h>
#include <callorv/dict/msg_info.h>

#include <climits>
#include <type_traits>
#include <vector>

#include "support/test_dic.h"

namespace {

std::string Dump(const CMsgInfo& p_cInfo) {
  CStream stOut(0, 512);
  p_cInfo.Dump(&stOut);
  return Text(stOut);
}

}    // namespace

TEST_CASE("a default definition is empty") {
  const CMsgInfo cInfo;
  CHECK(cInfo.GetMsgNum() == 0);
  CHECK(cInfo.GetMsgName().IsEmpty());
  CHECK(cInfo.GetVersion().IsEmpty());
  CHECK(cInfo.GetHashKey() == 128);
  CHECK(cInfo.GetNoTags() == 0);
  CHECK(cInfo.GetTagInfo(0) == nullptr);
  CHECK(Dump(cInfo).empty());
}

TEST_CASE("a definition keeps number, name, version and hash key") {
  const CMsgInfo cInfo(42, "Quote", "2.1", 7);
  CHECK(cInfo.GetMsgNum() == 42);
  CHECK(cInfo.GetMsgName() == "Quote");
  CHECK(cInfo.GetVersion() == "2.1");
  CHECK(cInfo.GetHashKey() == 7);
}

TEST_CASE("a definition is an item that a pointer array can own") {
  CHECK(std::is_base_of<CPtrArrayItem, CMsgInfo>::value);
  CHECK(std::has_virtual_destructor<CMsgInfo>::value);
  CPtrArray apInfo(true);
  apInfo.Add(new CMsgInfo(1, "a", "", 1));
}

TEST_CASE("every hash key from 1 to 128 is used unchanged, any other is 128") {
  for (int i = 1; i <= 128; ++i) CHECK(CMsgInfo(1, "m", "", i).GetHashKey() == i);
  for (int i : {0, -1, -5, INT_MIN, 129, 1000, INT_MAX}) {
    CAPTURE(i);
    CHECK(CMsgInfo(1, "m", "", i).GetHashKey() == 128);
  }
}

TEST_CASE("tags are found by number and by name under every hash key") {
  for (int iKey : {1, 2, 7, 16, 127, 128}) {
    CAPTURE(iKey);
    CMsgInfo cInfo(1, "m", "", iKey);
    for (int i = 0; i < 300; ++i) {
      cInfo.SetTagInfo(i * 3, ("tag" + std::to_string(i)).c_str(), static_cast<E_TagType>(i % 6 + 1), i, i % 2 == 1);
    }
    REQUIRE(cInfo.GetNoTags() == 300);
    for (int i = 0; i < 300; ++i) {
      const std::string sName = "tag" + std::to_string(i);
      const CTagInfo* pTag = cInfo.GetTagInfo(i * 3);
      REQUIRE(pTag != nullptr);
      CHECK(pTag->m_iTagNum == i * 3);
      CHECK(pTag->m_sName == sName.c_str());
      CHECK(pTag->m_eType == i % 6 + 1);
      CHECK(pTag->m_iSubMsg == i);
      CHECK(pTag->m_bArray == (i % 2 == 1));
      CHECK(cInfo.IsDefinedTag(i * 3));
      CHECK_FALSE(cInfo.IsDefinedTag(i * 3 + 1));
      CHECK(cInfo.IsMultiTag(i * 3) == (i % 2 == 1));
      CHECK(cInfo.GetTagType(i * 3) == i % 6 + 1);
      CHECK(cInfo.GetTagName(i * 3) == sName);
      CHECK(cInfo.GetTagNumByName(sName.c_str()) == i * 3);
      CHECK(cInfo.GetTagNumAt(i) == i * 3);
    }
  }
}

TEST_CASE("tags that share a bucket stand in it in the order of their definition") {
  CMsgInfo cInfo(1, "m", "", 7);
  cInfo.SetTagInfo(15, "first", TAG_STRING, 0, false);
  cInfo.SetTagInfo(1, "second", TAG_STRING, 0, false);
  cInfo.SetTagInfo(2, "elsewhere", TAG_STRING, 0, false);
  cInfo.SetTagInfo(8, "third", TAG_STRING, 0, false);
  const CTagInfo* pTag = cInfo.GetTagInfo(15);
  REQUIRE(pTag != nullptr);
  CHECK(pTag->m_pNext == cInfo.GetTagInfo(1));
  CHECK(pTag->m_pNext->m_pNext == cInfo.GetTagInfo(8));
  CHECK(cInfo.GetTagInfo(8)->m_pNext == nullptr);
  CHECK(cInfo.GetTagInfo(2)->m_pNext == nullptr);
}

TEST_CASE("an undefined tag has no definition, no type and an empty name") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(5, "five", TAG_STRING, 0, true);
  for (int i : {0, 4, 6, 133, -1, -123, INT_MAX, INT_MIN}) {
    CAPTURE(i);
    CHECK(cInfo.GetTagInfo(i) == nullptr);
    CHECK_FALSE(cInfo.IsDefinedTag(i));
    CHECK_FALSE(cInfo.IsMultiTag(i));
    CHECK(cInfo.GetTagType(i) == TAG_UNKNOWN);
    REQUIRE(cInfo.GetTagName(i) != nullptr);
    CHECK(cInfo.GetTagName(i) == std::string());
  }
  CHECK(cInfo.GetTagNumByName("six") == -1);
  CHECK(cInfo.GetTagNumByName("Five") == -1);
  CHECK(cInfo.GetTagNumByName("") == -1);
  CHECK(cInfo.GetTagNumByName(nullptr) == -1);
}

TEST_CASE("the name of a tag is the tag's own text, not a copy") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(5, "five", TAG_STRING, 0, true);
  CHECK(cInfo.GetTagName(5) == cInfo.GetTagInfo(5)->m_sName.ToStr());
}

TEST_CASE("tag numbers come in the order of their definition, and 0 outside it") {
  CMsgInfo cInfo(1, "m", "", 0);
  for (int i : {9, 2, 130, 5}) cInfo.SetTagInfo(i, "", TAG_STRING, 0, false);
  REQUIRE(cInfo.GetNoTags() == 4);
  CHECK(cInfo.GetTagNumAt(0) == 9);
  CHECK(cInfo.GetTagNumAt(1) == 2);
  CHECK(cInfo.GetTagNumAt(2) == 130);
  CHECK(cInfo.GetTagNumAt(3) == 5);
  CHECK(cInfo.GetTagNumAt(4) == 0);
  CHECK(cInfo.GetTagNumAt(-1) == 0);
}

TEST_CASE("a tag defined twice counts twice, and the first definition serves the lookups") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(5, "old", TAG_STRING, 0, false);
  cInfo.SetTagInfo(6, "between", TAG_BOOL, 0, false);
  cInfo.SetTagInfo(5, "new", TAG_INTEGER, 0, true);
  CHECK(cInfo.GetNoTags() == 3);
  CHECK(cInfo.GetTagNumAt(0) == 5);
  CHECK(cInfo.GetTagNumAt(2) == 5);
  CHECK(cInfo.GetTagName(5) == std::string("old"));
  CHECK(cInfo.GetTagType(5) == TAG_STRING);
  CHECK_FALSE(cInfo.IsMultiTag(5));
  CHECK(cInfo.GetTagInfo(5)->m_pNext->m_sName == "new");
  CHECK(cInfo.GetTagNumByName("old") == 5);
  CHECK(cInfo.GetTagNumByName("new") == 5);
  CHECK(Dump(cInfo) ==
        "\t<tag no='5' name='old' type='string' array='N' />\n"
        "\t<tag no='6' name='between' type='bool' array='N' />\n"
        "\t<tag no='5' name='old' type='string' array='N' />\n");
}

TEST_CASE("a tag defined twice keeps its first definition in a long chain, too") {
  CMsgInfo cInfo(1, "m", "", 1);
  for (int i = 0; i < 100; ++i) cInfo.SetTagInfo(i, "first", TAG_STRING, 0, false);
  for (int i = 0; i < 100; ++i) cInfo.SetTagInfo(i, "second", TAG_INTEGER, 0, false);
  for (int i = 0; i < 100; ++i) CHECK(cInfo.GetTagName(i) == std::string("first"));
  CHECK(cInfo.GetNoTags() == 200);
}

TEST_CASE("of two tags with one name, the first is found by it") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(8, "same", TAG_STRING, 0, false);
  cInfo.SetTagInfo(3, "same", TAG_STRING, 0, false);
  CHECK(cInfo.GetTagNumByName("same") == 8);
}

TEST_CASE("a tag without a name is found by number only") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(8, nullptr, TAG_STRING, 0, false);
  CHECK(cInfo.IsDefinedTag(8));
  CHECK(cInfo.GetTagName(8) == std::string());
  CHECK(cInfo.GetTagNumByName("") == -1);
}

TEST_CASE("a negative tag number, which no dictionary has, stays in the table") {
  for (int iKey : {1, 7, 128}) {
    CMsgInfo cInfo(1, "m", "", iKey);
    cInfo.SetTagInfo(-5, "negative", TAG_STRING, 0, false);
    cInfo.SetTagInfo(INT_MIN, "least", TAG_STRING, 0, false);
    CHECK(cInfo.GetTagName(-5) == std::string("negative"));
    CHECK(cInfo.GetTagName(INT_MIN) == std::string("least"));
    CHECK(cInfo.GetTagNumByName("negative") == -5);
  }
}

TEST_CASE("the dump has a line for each tag") {
  CMsgInfo cInfo(1, "m", "", 0);
  cInfo.SetTagInfo(9, "nine", TAG_STRING, 0, false);
  cInfo.SetTagInfo(2, "two", TAG_INTEGER, 0, true);
  cInfo.SetTagInfo(0, "zero", TAG_DOUBLE, 0, false);
  cInfo.SetTagInfo(4, "four", TAG_BOOL, 0, true);
  cInfo.SetTagInfo(5, "five", TAG_DATE, 0, false);
  cInfo.SetTagInfo(6, "six", TAG_SUBMSG, 12, true);
  cInfo.SetTagInfo(7, "seven", TAG_SUBMSG, 9999, false);
  cInfo.SetTagInfo(8, "eight", TAG_UNKNOWN, 0, false);
  cInfo.SetTagInfo(10, "ten", static_cast<E_TagType>(7), 0, true);
  CHECK(Dump(cInfo) ==
        "\t<tag no='9' name='nine' type='string' array='N' />\n"
        "\t<tag no='2' name='two' type='integer' array='Y' />\n"
        "\t<tag no='0' name='zero' type='double' array='N' />\n"
        "\t<tag no='4' name='four' type='bool' array='Y' />\n"
        "\t<tag no='5' name='five' type='date' array='N' />\n"
        "\t<tag no='6' name='six' type='m0012' array='Y' />\n"
        "\t<tag no='7' name='seven' type='m9999' array='N' />\n"
        "\t<tag no='8' name='eight' type='unknown' array='N' />\n"
        "\t<tag no='10' name='ten' type='unknown' array='Y' />\n");
}

TEST_CASE("no memory for a tag: the exception names it, and what was defined before stays") {
  const std::string sName(200, 'n');
  const int iFailures = ForEachFailure([&](CFailAlloc& p_cFail) {
    CMsgInfo cInfo(1, "m", "", 0);
    cInfo.SetTagInfo(1, "one", TAG_STRING, 0, false);
    const T_Thrown tThrown = CaughtFailing(p_cFail, [&] { cInfo.SetTagInfo(2, sName.c_str(), TAG_STRING, 0, false); });
    CHECK(tThrown.iCode == (p_cFail.HasFailed() ? -11 : 0));
    CHECK(tThrown.sText == (p_cFail.HasFailed() ? "(CTagInfo)" : ""));
    CHECK(cInfo.IsDefinedTag(2) == !p_cFail.HasFailed());
    CHECK(cInfo.GetTagName(1) == std::string("one"));
    cInfo.SetTagInfo(3, "three", TAG_BOOL, 0, true);
    CHECK(cInfo.GetTagType(3) == TAG_BOOL);
    const std::string sDump = Dump(cInfo);    // skips what has no definition
    CHECK((sDump.find("no='2'") != std::string::npos) == !p_cFail.HasFailed());
    CHECK(sDump.find("\t<tag no='3' name='three' type='bool' array='Y' />\n") != std::string::npos);
  });
  CHECK(iFailures >= 3);
}

TEST_CASE("a tag that finds no memory is entered in the order first, then by its name") {
  std::vector<std::string> asLeft;
  ForEachFailure([&](CFailAlloc& p_cFail) {
    CMsgInfo cInfo(1, "m", "", 0);
    CaughtFailing(p_cFail, [&] { cInfo.SetTagInfo(2, "two", TAG_STRING, 0, false); });
    const std::string sLeft = std::to_string(cInfo.GetNoTags()) + " " + std::to_string(cInfo.GetTagNumByName("two")) +
                              (cInfo.IsDefinedTag(2) ? " defined" : "");
    if (asLeft.empty() || asLeft.back() != sLeft) asLeft.push_back(sLeft);
  });
  CHECK(asLeft == std::vector<std::string>{"0 -1", "1 -1", "1 2", "1 2 defined"});
}

TEST_CASE("no memory for the index of a long chain: everything is still found") {
  for (int iNth = 1; iNth <= 30; ++iNth) {
    CAPTURE(iNth);
    CMsgInfo cInfo(1, "m", "", 1);
    int iDefined = 0;
    CFailAlloc cFail(iNth);
    for (int i = 0; i < 40; ++i) {
      const std::string sName = "t" + std::to_string(i);
      cFail.Arm();
      try {
        cInfo.SetTagInfo(i, sName.c_str(), TAG_STRING, 0, false);
        ++iDefined;
      } catch (const CException&) {
      }
      cFail.Disarm();
    }
    int iFound = 0;
    for (int i = 0; i < 40; ++i) iFound += cInfo.IsDefinedTag(i) ? 1 : 0;
    CHECK(iFound == iDefined);
    CHECK(iDefined >= 39);
  }
}
