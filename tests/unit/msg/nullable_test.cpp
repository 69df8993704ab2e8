// Values that may be absent.
#include <callorv/msg/nullable.h>

#include <doctest/doctest.h>

TEST_CASE_TEMPLATE("a nullable value", T, CInt, CDbl, CBool) {
  T cValue;
  CHECK_FALSE(cValue.IsSet());
  CHECK(cValue.Get() == decltype(cValue.Get())());

  SUBCASE("set and cleared") {
    cValue.Set(1);
    CHECK(cValue.m_bSet);
    CHECK(cValue.m_Value == 1);
    cValue.Clear();
    CHECK_FALSE(cValue.m_bSet);
    CHECK(cValue.m_Value == 0);
  }
  SUBCASE("made with a value") {
    const T cMade(1);
    CHECK(cMade.IsSet());
    CHECK(cMade.Get() == 1);
    cValue = cMade;
    CHECK(cValue.IsSet());
    CHECK(cValue.Get() == 1);
  }
}
