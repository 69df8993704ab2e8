// Tag definitions and the words for their types.
#include <callorv/dict/tag_info.h>

#include <doctest/doctest.h>

#include <climits>
#include <string>

TEST_CASE("every type has its word") {
  struct T_Row {
    int iType;
    const char* szWord;
  };
  static const T_Row s_atRow[] = {
      {0, "Unknown"}, {1, "string"},     {2, "integer"},     {3, "double"},
      {4, "bool"},    {5, "date"},       {6, "submsg"},      {7, "Unknown(7)"},
      {-1, "Unknown(-1)"}, {99, "Unknown(99)"}, {INT_MAX, "Unknown(2147483647)"}, {INT_MIN, "Unknown(-2147483648)"}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.iType);
    CHECK(CTagInfo::ReprType(static_cast<E_TagType>(tRow.iType)).ToStr() == std::string(tRow.szWord));
  }
}

TEST_CASE("the types have the numbers of the dictionary") {
  CHECK(TAG_UNKNOWN == 0);
  CHECK(TAG_STRING == 1);
  CHECK(TAG_INTEGER == 2);
  CHECK(TAG_DOUBLE == 3);
  CHECK(TAG_BOOL == 4);
  CHECK(TAG_DATE == 5);
  CHECK(TAG_SUBMSG == 6);
}

TEST_CASE("a default tag is empty") {
  const CTagInfo cTag;
  CHECK(cTag.m_iTagNum == 0);
  CHECK(cTag.m_sName.IsEmpty());
  CHECK(cTag.m_eType == TAG_UNKNOWN);
  CHECK(cTag.m_iSubMsg == 0);
  CHECK_FALSE(cTag.m_bArray);
  CHECK(cTag.m_pNext == nullptr);
}

TEST_CASE("a tag keeps copies of what it is made from") {
  std::string sName = "rows";
  const CTagInfo cTag(12, sName.c_str(), TAG_SUBMSG, 34, true);
  sName = "gone";
  CHECK(cTag.m_iTagNum == 12);
  CHECK(cTag.m_sName == "rows");
  CHECK(cTag.m_eType == TAG_SUBMSG);
  CHECK(cTag.m_iSubMsg == 34);
  CHECK(cTag.m_bArray);
  CHECK(cTag.m_pNext == nullptr);
}
