// The inline parts of the public headers where char is unsigned, as -funsigned-char makes it.
#include <doctest/doctest.h>

#include <climits>
#include <string>

#include "callorv/base/str.h"

static_assert(CHAR_MIN == 0, "the build compiles this file with -funsigned-char");

TEST_CASE("CString: texts of every length where char is unsigned") {
  for (int iLen = 0; iLen <= 40; ++iLen) {
    CAPTURE(iLen);
    const std::string sExpected(static_cast<size_t>(iLen), 'x');
    const CString s(sExpected.c_str());
    CHECK(s.GetSize() == iLen);
    CHECK(s.IsEmpty() == (iLen == 0));
    CHECK(std::string(s.ToStr()) == sExpected);
  }
}
