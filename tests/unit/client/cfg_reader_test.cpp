// The configuration file.
#include <callorv/client/cfg_reader.h>
#include <doctest/doctest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <thread>

#include "support/descriptors.h"
#include "support/fail_alloc.h"
#include "support/random.h"
#include "support/temp_file.h"

namespace {

const char s_szNone[] = "(no such key)";

std::string StrVal(CCfgReader& p_cCfg, const char* p_szKey) {
  CString sValue("untouched");
  if (p_cCfg.GetStrVal(p_szKey, &sValue) == 0) return sValue.ToStr();
  CHECK(sValue == "untouched");
  return s_szNone;
}

// All values, each in brackets.
std::string StrArr(CCfgReader& p_cCfg, const char* p_szKey) {
  CStrArray asValue;
  asValue.Add("untouched");
  std::string sAll;
  const int iRet = p_cCfg.GetStrArr(p_szKey, &asValue);
  for (int i = 0; i < asValue.GetSize(); ++i) sAll += std::string("[") + asValue[i].ToStr() + "]";
  if (iRet == 0) return sAll;
  CHECK(sAll == "[untouched]");
  return s_szNone;
}

// A reader that has loaded a file of this content.
struct T_Loaded {
  CCfgReader c;
  explicit T_Loaded(const std::string& p_sContent) {
    const CTempDir cDir;
    REQUIRE(c.Load(cDir.Write("file.cfg", p_sContent).c_str()) == 0);
    CHECK(c.GetLastError() == "");
  }
};

}    // namespace

TEST_CASE("CCfgReader: how a line is read") {
  struct T_Row {
    const char *szLine, *szKey, *szValue;
  };
  static const T_Row s_atRow[] = {
      {"server = hostA 7000 # main\n", "server", "hostA 7000"},
      {"a=b\n", "a", "b"},
      {"a=b", "a", "b"},
      {"a=b=c\n", "a", "b"},
      {"a==b\n", "a", "b"},
      {"a= =b\n", "a", "b"},
      {"a = b c = d = e\n", "a", "b c"},
      {" \t a \t = \t b \t \r\n", "a", "b"},
      {"a\tb = c\td\n", "a\tb", "c\td"},
      {"a b=c\n", "a b", "c"},
      {"a\n", "a", ""},
      {"a=\n", "a", ""},
      {"  a  =  \n", "a", ""},
      {"a=#b\n", "a", ""},
      {"a#=b\n", "a", ""},
      {"a=b#c#d\n", "a", "b"},
      {"a=b\\#c\n", "a", "b\\"},
      {"a=b;c // d\n", "a", "b;c // d"},
      {"a=it's\n", "a", "it's"},
      {"a=\"b # c\"\n", "a", "\"b"},
      {"=a\n", "a", ""},
      {"=a=b\n", "a", "b"},
      {" = = a = b\n", "a", "b"},
      {"a=\xC4\xFF\n", "a", "\xC4\xFF"},
      {"\xEF\xBB\xBF""a=b\n", "\xEF\xBB\xBF""a", "b"},
      {"a=b\r\n", "a", "b"},
      {"a=b\rc\n", "a", "b\rc"},
      {"a=b\v\n", "a", "b\v"},
      {"\n\n \n\t\r\n#\n # x = y\n#a=c\na=b\n\n", "a", "b"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szLine);
    T_Loaded tCfg(tRow.szLine);
    CHECK(StrArr(tCfg.c, tRow.szKey) == "[" + std::string(tRow.szValue) + "]");
  }
}

TEST_CASE("CCfgReader: lines that define nothing") {
  T_Loaded tCfg("\n \n=\n==\n = = \n#\n#a=b\n  # a=b\n\r\n\t\n=#a\n");
  for (const char* szKey : {"", "a", "=", "#", " ", "#a"}) {
    CAPTURE(szKey);
    CHECK(StrArr(tCfg.c, szKey) == s_szNone);
  }
}

TEST_CASE("CCfgReader: an empty file loads") {
  T_Loaded tCfg("");
  CHECK(StrVal(tCfg.c, "a") == s_szNone);
}

TEST_CASE("CCfgReader: keys are compared exactly") {
  T_Loaded tCfg("Key=1\nkey=2\nkey =3\nKEY=4\n");
  CHECK(StrArr(tCfg.c, "Key") == "[1]");
  CHECK(StrArr(tCfg.c, "key") == "[2][3]");
  CHECK(StrArr(tCfg.c, "KEY") == "[4]");
  for (const char* szKey : {"kEY", " key", "key ", "ke", "keys"}) {
    CAPTURE(szKey);
    CHECK(StrArr(tCfg.c, szKey) == s_szNone);
  }
}

TEST_CASE("CCfgReader: a key that comes several times keeps all its values, the first in front") {
  T_Loaded tCfg("x=1\ny=a\nx=2\nx\nx=1\nx=3\n");
  CHECK(StrArr(tCfg.c, "x") == "[1][2][][1][3]");
  CHECK(StrVal(tCfg.c, "x") == "1");
  int iValue = 99;
  CHECK(tCfg.c.GetIntVal("x", &iValue) == 0);
  CHECK(iValue == 1);
}

TEST_CASE("CCfgReader: a second file adds to the first") {
  const CTempDir cDir;
  CCfgReader cCfg;
  REQUIRE(cCfg.Load(cDir.Write("one", "x=1\ny=a\n").c_str()) == 0);
  REQUIRE(cCfg.Load(cDir.Write("two", "x=2\nz=b\n").c_str()) == 0);
  CHECK(StrArr(cCfg, "x") == "[1][2]");
  CHECK(StrArr(cCfg, "y") == "[a]");
  CHECK(StrArr(cCfg, "z") == "[b]");
  REQUIRE(cCfg.Load(cDir.Path("one").c_str()) == 0);
  CHECK(StrArr(cCfg, "x") == "[1][2][1]");
  CHECK(cCfg.Load(cDir.Path("none").c_str()) == -1);
  CHECK(StrArr(cCfg, "x") == "[1][2][1]");
}

TEST_CASE("CCfgReader: numbers") {
  struct T_Row {
    const char* szValue;
    int iValue;
  };
  static const T_Row s_atRow[] = {
      {"90", 90},
      {"-7", -7},
      {"+7", 7},
      {"007", 7},
      {"12abc", 12},
      {"1 2", 1},
      {"1.9", 1},
      {"0x10", 0},
      {"abc", 0},
      {"", 0},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"-2147483648", -2147483647 - 1},
      {"-99999999999999999999", -2147483647 - 1}};
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szValue);
    T_Loaded tCfg("n = " + std::string(tRow.szValue) + "\n");
    int iValue = 99;
    CHECK(tCfg.c.GetIntVal("n", &iValue) == 0);
    CHECK(iValue == tRow.iValue);
  }
}

TEST_CASE("CCfgReader: a missing key is an error, and leaves the output alone") {
  T_Loaded tCfg("a=1\n");
  int iValue = 99;
  CHECK(tCfg.c.GetIntVal("timeout", &iValue) == -1);
  CHECK(iValue == 99);
  CHECK(tCfg.c.GetLastError() == "cannot found 'timeout' key in config file");
  CString sValue("before");
  CHECK(tCfg.c.GetStrVal("msg_dic", &sValue) == -1);
  CHECK(sValue == "before");
  CHECK(tCfg.c.GetLastError() == "cannot found 'msg_dic' key in config file");
  CStrArray asValue;
  asValue.Add("before");
  CHECK(tCfg.c.GetStrArr("100%s%n", &asValue) == -1);
  CHECK(asValue.GetSize() == 1);
  CHECK(tCfg.c.GetLastError() == "cannot found '100%s%n' key in config file");
  CHECK(tCfg.c.GetStrVal("", &sValue) == -1);
  CHECK(tCfg.c.GetLastError() == "cannot found '' key in config file");
  CHECK(tCfg.c.GetStrVal(nullptr, &sValue) == -1);
  CHECK(tCfg.c.GetLastError() == "cannot found '(null)' key in config file");
}

TEST_CASE("CCfgReader: the last error stays until there is another, and is a copy") {
  T_Loaded tCfg("a=1\n");
  CString sValue;
  REQUIRE(tCfg.c.GetStrVal("x", &sValue) == -1);
  const CString sFirst = tCfg.c.GetLastError();
  CHECK(tCfg.c.GetStrVal("a", &sValue) == 0);
  int iValue = 0;
  CHECK(tCfg.c.GetIntVal("a", &iValue) == 0);
  CStrArray asValue;
  CHECK(tCfg.c.GetStrArr("a", &asValue) == 0);
  const CTempDir cDir;
  CHECK(tCfg.c.Load(cDir.Write("more.cfg", "b=2\n").c_str()) == 0);
  CHECK(tCfg.c.GetLastError() == "cannot found 'x' key in config file");
  REQUIRE(tCfg.c.GetStrVal("y", &sValue) == -1);
  CHECK(tCfg.c.GetLastError() == "cannot found 'y' key in config file");
  CHECK(sFirst == "cannot found 'x' key in config file");
}

TEST_CASE("CCfgReader: a file that cannot be opened") {
  CCfgReader cCfg;
  CHECK(cCfg.GetLastError() == "");
  CHECK(cCfg.Load("/no/such/100%s%n.cfg") == -1);
  CHECK(cCfg.GetLastError() == "File open failed [/no/such/100%s%n.cfg](2,No such file or directory)");
  CHECK(cCfg.Load("") == -1);
  CHECK(cCfg.GetLastError() == "File open failed [](2,No such file or directory)");
  CHECK(cCfg.Load(nullptr) == -1);
  CHECK(cCfg.GetLastError() == "File open failed [(null)](22,Invalid argument)");
  const std::string sLong = "/" + std::string(5000, 'n');
  CHECK(cCfg.Load(sLong.c_str()) == -1);
  CHECK(cCfg.GetLastError() == ("File open failed [" + sLong + "](36,File name too long)").c_str());
  const CTempDir cDir;
  CHECK(cCfg.Load((cDir.Write("file", "a=1") + "/in it").c_str()) == -1);
  CHECK(cCfg.GetLastError() == ("File open failed [" + cDir.Path("file") + "/in it](20,Not a directory)").c_str());
}

TEST_CASE("CCfgReader: the text of a failure is that of this failure, whatever errno was") {
  errno = EEXIST;
  CCfgReader cCfg;
  CHECK(cCfg.Load(nullptr) == -1);
  CHECK(cCfg.GetLastError() == "File open failed [(null)](22,Invalid argument)");
}

TEST_CASE("CCfgReader: a folder loads as an empty file") {
  const CTempDir cDir;
  CCfgReader cCfg;
  const long iOpen = OpenDescriptors();
  CHECK(cCfg.Load(cDir.Path().c_str()) == 0);
  CHECK(cCfg.GetLastError() == "");
  CHECK(OpenDescriptors() == iOpen);
}

TEST_CASE("CCfgReader: a pipe is read to its end") {
  const CTempDir cDir;
  REQUIRE(mkfifo(cDir.Path("pipe").c_str(), 0600) == 0);
  std::thread cWriter([&] { cDir.Write("pipe", "a=1\nb=2"); });
  CCfgReader cCfg;
  CHECK(cCfg.Load(cDir.Path("pipe").c_str()) == 0);
  cWriter.join();
  CHECK(StrVal(cCfg, "a") == "1");
  CHECK(StrVal(cCfg, "b") == "2");
}

TEST_CASE("CCfgReader: the file is closed, whatever happens") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("file", "a=1\na=a value that is longer than what fits without memory\n");
  const long iOpen = OpenDescriptors();
  ForEachFailure([&](CFailAlloc& p_cFail) {
    CCfgReader cCfg;
    int iRet = 99;
    const bool bThrew = p_cFail.Run([&] { iRet = cCfg.Load(sPath.c_str()); });
    if (!bThrew) CHECK(iRet == 0);
    if (!p_cFail.HasFailed()) CHECK(StrArr(cCfg, "a") == "[1][a value that is longer than what fits without memory]");
    CHECK(OpenDescriptors() == iOpen);
  });
}

TEST_CASE("CCfgReader: lines are cut after 2047 bytes, and each piece is a line") {
  // "k=" and so many bytes; then what the next piece is
  const std::string sFull = "k=" + std::string(2045, 'v');
  T_Loaded tExact(sFull + "\nx=1\n");
  CHECK(StrArr(tExact.c, "k") == "[" + std::string(2045, 'v') + "]");
  CHECK(StrArr(tExact.c, "x") == "[1]");

  T_Loaded tMore(sFull + "next=2\nx=1\n");
  CHECK(StrArr(tMore.c, "k") == "[" + std::string(2045, 'v') + "]");
  CHECK(StrArr(tMore.c, "next") == "[2]");
  CHECK(StrArr(tMore.c, "x") == "[1]");

  T_Loaded tOneLess("k=" + std::string(2044, 'v') + "\nx=1\n");
  CHECK(StrArr(tOneLess.c, "k") == "[" + std::string(2044, 'v') + "]");
  CHECK(StrArr(tOneLess.c, "x") == "[1]");

  T_Loaded tComment("#" + std::string(2046, 'c') + "a=1\n");    // a comment that is cut does not go on
  CHECK(StrArr(tComment.c, "a") == "[1]");

  T_Loaded tLong(std::string(3 * 2047, 'x') + "a=1");
  CHECK(StrArr(tLong.c, std::string(2047, 'x').c_str()) == "[][][]");
  CHECK(StrArr(tLong.c, "a") == "[1]");

  T_Loaded tBlank("a=1" + std::string(2044, ' ') + "b=2\n");
  CHECK(StrArr(tBlank.c, "a") == "[1]");
  CHECK(StrArr(tBlank.c, "b") == "[2]");
}

TEST_CASE("CCfgReader: a NUL ends its line") {
  const std::string sNul(1, '\0');
  T_Loaded tCfg("a=1" + sNul + "2\nb=2\n" + sNul + "c=3\n" + sNul + "\n" + sNul + sNul + "d=4\ne=5" + sNul);
  CHECK(StrArr(tCfg.c, "a") == "[1]");
  CHECK(StrArr(tCfg.c, "b") == "[2]");
  CHECK(StrArr(tCfg.c, "c") == s_szNone);
  CHECK(StrArr(tCfg.c, "d") == s_szNone);
  CHECK(StrArr(tCfg.c, "e") == "[5]");
}

TEST_CASE("CCfgReader: bytes at random are never an error") {
  const CTempDir cDir;
  CRandom cRandom(13);
  for (int i = 0; i < 20; ++i) {
    std::string sContent = cRandom.Bytes(20000);
    for (char& c : sContent) {
      if (cRandom.Byte() < 40) c = "=#\n \t\r"[cRandom.Byte() % 6];
    }
    CCfgReader cCfg;
    CHECK(cCfg.Load(cDir.Write("file", sContent + "\nlast=1\n").c_str()) == 0);
    CHECK(StrVal(cCfg, "last") == "1");
  }
}

TEST_CASE("CCfgReader: many keys") {
  std::string sContent;
  for (int i = 0; i < 5000; ++i) sContent += "key" + std::to_string(i) + "=" + std::to_string(i * 3) + "\n";
  T_Loaded tCfg(sContent);
  for (int i = 0; i < 5000; ++i) {
    REQUIRE(StrArr(tCfg.c, ("key" + std::to_string(i)).c_str()) == "[" + std::to_string(i * 3) + "]");
  }
}
