// A date text of up to eight characters.
#include "callorv/base/date.h"

#include <doctest/doctest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

static_assert(sizeof(CDate) == 10, "");
static_assert(offsetof(CDate, m_szDate) == 0, "");
static_assert(offsetof(CDate, m_bSet) == 9, "");
static_assert(std::is_trivially_copy_constructible<CDate>::value, "");

TEST_CASE("CDate: a new one is unset and all zeros") {
  const CDate c;
  CHECK_FALSE(c.IsSet());
  CHECK(std::string(c.m_szDate, 9) == std::string(9, '\0'));
  CHECK(std::string(c.ToStr()) == "");
}

TEST_CASE("CDate takes the first eight characters of any text") {
  struct T_Row {
    const char* szText;
    std::string sText;
    bool bSet;
  };
  static const T_Row s_atRow[] = {
      {nullptr, "", false},
      {"", "", false},
      {"2", "2", true},
      {"202403", "202403", true},
      {"20240315", "20240315", true},
      {"2024031599", "20240315", true},
      {"99999999", "99999999", true},
      {"no date", "no date", true},
      {"        ", "        ", true},
      {"\xFF\xFE", "\xFF\xFE", true},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sText);
    std::string sBytes = tRow.sText;
    sBytes.resize(9);    // zero-filled
    const CDate cMade(tRow.szText);
    CHECK(std::string(cMade.m_szDate, 9) == sBytes);
    CHECK(cMade.IsSet() == tRow.bSet);
    CDate cSet("19991231");
    cSet.Set(tRow.szText);
    CHECK(std::string(cSet.m_szDate, 9) == sBytes);
    CHECK(cSet.m_bSet == tRow.bSet);
    CHECK(std::string(cSet.ToStr()) == tRow.sText);
  }
}

TEST_CASE("CDate reads no more than eight characters") {
  const char acNoNul[] = {'2', '0', '2', '4', '0', '3', '1', '5'};
  CHECK(std::string(CDate(acNoNul).ToStr()) == "20240315");
}

TEST_CASE("CDate::Set from its own text") {
  CDate c("20240315");
  c.Set(c.ToStr());
  CHECK(std::string(c.ToStr()) == "20240315");
  c.Set(c.ToStr() + 4);
  CHECK(std::string(c.m_szDate, 9) == std::string("0315\0\0\0\0\0", 9));
  c.Set(c.ToStr() + 4);
  CHECK_FALSE(c.IsSet());
}

TEST_CASE("CDate: copies carry the text and the flag") {
  const CDate c("20240315");
  CDate cCopy(c), cAssigned;
  cAssigned = c;
  CHECK(std::string(cCopy.ToStr()) == "20240315");
  CHECK(cAssigned.IsSet());
  cAssigned = CDate();
  CHECK_FALSE(cAssigned.IsSet());
  CHECK(std::string(cAssigned.ToStr()) == "");
  // By text and flag: an unset date may still hold a text.
  CDate cByHand;
  cByHand.Set(c.ToStr());
  cByHand.m_bSet = false;
  CHECK_FALSE(cByHand.IsSet());
  CHECK(std::string(CDate(cByHand).ToStr()) == "20240315");
  CHECK_FALSE(CDate(cByHand).IsSet());
}
