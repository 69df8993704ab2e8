// A dictionary file shown element by element.
#include <callorv/dict/dic_reader.h>

#include <stdexcept>

#include "support/test_dic.h"

namespace {

// Keeps a line for each element; throws at the n-th if asked to.
class CKeep : public CDicReader {
 public:
  std::string sAll;
  int iThrowAt = 0;
  bool bForeign = false;

 protected:
  void OnElement(int p_iDepth, const char* p_szName, const T_Attribute* p_atAttr, int p_iAttrs) override {
    sAll +=
        std::to_string(GetLine()) + ":" + std::to_string(GetColumn()) + " " + std::to_string(p_iDepth) + " " + p_szName;
    for (int i = 0; i < p_iAttrs; ++i) {
      sAll += std::string(" ") + p_atAttr[i].sName.ToStr() + "=" + p_atAttr[i].sValue.ToStr() +
              (p_atAttr[i].bCut ? "!" : "");
    }
    sAll += "\n";
    if (--iThrowAt != 0) return;
    if (bForeign) throw std::runtime_error("mine");
    throw CException(-99, "stop at %s", p_szName);
  }
};

}    // namespace

TEST_CASE("every start tag is shown with its attributes and its place") {
  const CTempDir cDir;
  CKeep cKeep;
  CHECK(cKeep.GetLine() == 0);
  CHECK(cKeep.GetColumn() == 0);
  cKeep.Read(cDir.Write("dic.xml",
                        "<?xml version='1.0' encoding='UTF-8'?>\n"
                        "<any_root xmlns:p='u'>\n"
                        "  <msg name='caf\xc3\xa9' no='3'>\n"
                        "    <tag p:no='\xc5\x81' array=''/><x><y \xc4\x81='1'/></x>\n"
                        "  </msg>\n"
                        "  <caf\xc3\xa9/>\n"
                        "</any_root>\n").c_str());
  CHECK(cKeep.sAll ==
        "2:23 1 any_root\n"
        "3:27 2 msg name=caf\xe9 no=3\n"
        "4:29 3 tag no=A! array=\n"
        "4:32 3 x\n"
        "4:42 4 y \x01=1!\n"
        "6:10 2 caf\xc3\xa9\n");
}

TEST_CASE("a reader can be used again and again") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("dic.xml", "<a/>");
  CKeep cKeep;
  cKeep.Read(sPath.c_str());
  cKeep.Read(sPath.c_str());
  CHECK(cKeep.sAll == "1:5 1 a\n1:5 1 a\n");
}

TEST_CASE("what cannot be read is thrown as by the loader, without the loader's frame") {
  const CTempDir cDir;
  CKeep cKeep;
  CheckThrows(-12, "MsgDic Path", [&] { cKeep.Read(nullptr); });
  CheckThrows(-21,
              "Handler error : [F] (L:0, C:0) : unable to open primary document entity '" + cDir.Path("none.xml") + "'",
              [&] { cKeep.Read(cDir.Path("none.xml").c_str()); });
  CHECK(cKeep.GetLine() == 0);
  CHECK(cKeep.GetColumn() == 0);
  CheckThrows(-36, "Handler error : File not found(" + cDir.Path("none.exml") + ")",
              [&] { cKeep.Read(cDir.Path("none.exml").c_str()); });
  const std::string sBroken = cDir.Write("broken.xml", "<a>\n <b></c></a>");
  CheckThrows(-21, "Handler error : [F]" + sBroken + " (L:2, C:7) : expected end of tag 'b'",
              [&] { cKeep.Read(sBroken.c_str()); });
  CHECK(cKeep.GetLine() == 2);
  CHECK(cKeep.GetColumn() == 7);
  CHECK(cKeep.sAll == "1:4 1 a\n2:5 2 b\n");
  const std::string sWarned = cDir.Write("warned.xml", "<?xml version='1.0' encoding='UTF-16'?><a/>");
  CHECK(Caught([&] { cKeep.Read(sWarned.c_str()); }).iCode == -21);
  CHECK(cKeep.GetColumn() == 40);
}

TEST_CASE("whoever is shown an element may stop the reading") {
  const CTempDir cDir;
  const std::string sPath = cDir.Write("dic.xml", "<a>\n<b/><c/></a>");
  CKeep cKeep;
  cKeep.iThrowAt = 2;
  CheckThrows(-99, "Handler error : stop at b", [&] { cKeep.Read(sPath.c_str()); });
  CHECK(cKeep.GetLine() == 2);
  CHECK(cKeep.GetColumn() == 5);
  CHECK(cKeep.sAll == "1:4 1 a\n2:5 2 b\n");
  cKeep.iThrowAt = 1;
  cKeep.bForeign = true;
  CHECK_THROWS_AS(cKeep.Read(sPath.c_str()), std::runtime_error);
}

TEST_CASE("elements are refused beyond 1,024 open ones") {
  const CTempDir cDir;
  std::string sXml;
  for (int i = 0; i < 1025; ++i) sXml += "<a>";
  CKeep cKeep;
  CheckThrows(-21, "Handler error : More than 1024 open elements",
              [&] { cKeep.Read(cDir.Write("dic.xml", sXml).c_str()); });
}

TEST_CASE("a reader gives its initialisation of the parser back") {
  const CTempDir cDir;
  CTestDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  CKeep cKeep;
  cKeep.Read(cDir.Write("dic.xml", "<a/>").c_str());
  CHECK(Caught([&] { Load(cMsg, "<msg no='120'/>"); }).iCode == -26);
}
