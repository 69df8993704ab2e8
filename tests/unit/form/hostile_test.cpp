// Sizes that must cost memory only: deep, long and badly hashed messages.
#include <ctime>

#include "support/small_stack.h"
#include "support/test_dic.h"

namespace {

const int MANY = 100000;

const size_t STACK = 256 * 1024;

// Processor time of this process, which what else the machine does cannot change much. What takes steps in proportion
// to the square of MANY takes minutes.
class CClock {
 public:
  double Seconds() const { return static_cast<double>(clock() - m_iStart) / CLOCKS_PER_SEC; }

 private:
  clock_t m_iStart = clock();
};
const double REASONABLE = 60;

// Message 121 with a text, and inside it another, and so on.
std::unique_ptr<CMsg> Nested(CMsgDic& p_cDic, int p_iDepth, int p_iTag) {
  std::unique_ptr<CMsg> pOuter;
  for (int i = 0; i < p_iDepth; ++i) {
    std::unique_ptr<CMsg> pInner = std::move(pOuter);
    pOuter.reset(NewRow(p_cDic, "x"));
    if (pInner != nullptr) REQUIRE(pOuter->SetValue(p_iTag, pInner.release()) == 0);
  }
  return pOuter;
}

}    // namespace

TEST_CASE("100,000 tags that share one bucket") {
  const CClock cClock;
  CLoadedDic cDic;
  cDic.SetMsgInfo(5, "m", "", "1");
  for (int i = 0; i < MANY; ++i) cDic.SetMsgDetail(5, i, ("n" + std::to_string(i)).c_str(), "integer", "N");
  auto pMsg = std::make_unique<CMsg>(5, 0, 0, &cDic);
  for (int i = 0; i < MANY; ++i) REQUIRE(pMsg->SetValue(i, i) == 0);
  for (int i = 0; i < MANY; ++i) {
    int iOut = -1;
    REQUIRE(pMsg->GetValue(i, &iOut) == 0);
    REQUIRE(iOut == i);
  }
  for (int i = 0; i < MANY; i += 100) {
    int iOut = -1;
    REQUIRE(pMsg->GetValue(("n" + std::to_string(i)).c_str(), &iOut) == 0);
    REQUIRE(iOut == i);
  }
  for (bool bByName : {false, true}) {
    const std::string sXml = ToXml(*pMsg, false, bByName);
    CMsg cRead(0, 0, 0, &cDic);
    REQUIRE(Load(cRead, sXml) == 0);
    CHECK(ToXml(cRead, false, bByName) == sXml);
  }
  pMsg->Init(5, 0, 0);
  REQUIRE(pMsg->SetValue(MANY - 1, 7) == 0);
  pMsg.reset();
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("100,000 messages inside each other, made from the innermost") {
  const CClock cClock;
  auto pDic = std::make_unique<CTestDic>();
  for (int iTag : {3, 4}) {
    std::unique_ptr<CMsg> pMsg = Nested(*pDic, MANY, iTag);
    std::string sXml;
    OnSmallStack([&] { sXml = ToXml(*pMsg); }, STACK);
    const std::string sOpen = "<t" + std::to_string(iTag) + "><t1><![CDATA[x]]></t1>";
    CHECK(sXml.find(sOpen + sOpen) != std::string::npos);
    CHECK(sXml.size() > static_cast<size_t>(MANY) * (sOpen.size() + 5));
    OnSmallStack([&] { pMsg.reset(); }, STACK);
  }
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("100,000 messages inside each other, made from the outermost") {
  const CClock cClock;
  CTestDic cDic;
  CMsg cMade(121, 0, 0, &cDic), cGiven(121, 0, 0, &cDic);
  CMsg* pMade = &cMade;
  CMsg* pGiven = &cGiven;
  for (int i = 0; i < MANY; ++i) {
    pMade = pMade->MakeSubMsgEntry(i % 2 == 0 ? 3 : 4);
    CMsg* pRow = NewRow(cDic, "a text that does not fit into the object that holds it");
    REQUIRE(pGiven->SetValue(i % 2 == 0 ? 3 : 4, pRow) == 0);
    pGiven = pRow;
  }
  CHECK(pGiven->SetValue(3, &cGiven) == -28);    // which is found out at any depth
  OnSmallStack([&] {
    CHECK(ToXml(cMade).size() > static_cast<size_t>(MANY) * 9);
    CHECK(ToXml(cGiven).size() > static_cast<size_t>(MANY) * 30);
  }, STACK);
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("messages inside each other in the readable forms") {    // whose indents take the square of the depth
  CTestDic cDic;
  const std::unique_ptr<CMsg> pMsg = Nested(cDic, 2000, 3);
  CStream stXml(0, 512), stList(0, 512);
  OnSmallStack([&] {
    pMsg->DumpXml(&stXml, false, 1);
    pMsg->Dump(&stList, false, 1);
  }, STACK);
  CHECK(Text(stXml).find("\n" + std::string(4000, ' ') + "<t1><![CDATA[x]]></t1>\n" + std::string(3998, ' ') +
                         "</t3>\n") != std::string::npos);
  CHECK(Text(stList).find("\n" + std::string(4002, ' ') + "[1](text) x\n=") != std::string::npos);
}

TEST_CASE("an Init drops messages of any depth on a small stack") {
  CTestDic cDic;
  auto pMsg = std::make_unique<CMsg>(121, 0, 0, &cDic);
  for (int i = 0; i < 3; ++i) {
    REQUIRE(pMsg->SetValue(3, Nested(cDic, 20000, 3).release()) == 0);
    REQUIRE(pMsg->SetValue(4, Nested(cDic, 20000, 4).release()) == 0);
    pMsg->Init(121, 0, 0);
  }
  OnSmallStack([&] { pMsg.reset(); }, STACK);
}

TEST_CASE("100,000 rows") {
  const CClock cClock;
  CLoadedDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  for (int i = 0; i < MANY; ++i) {
    CMsg* pRow = new CMsg(121, 0, 0, &cDic);
    REQUIRE(pRow->SetValue(2, i) == 0);
    REQUIRE(cMsg.SetValue(16, pRow) == 0);
  }
  CHECK(cMsg.GetArrSize(16) == MANY);
  const std::string sXml = ToXml(cMsg);
  CMsg cRead(0, 0, 0, &cDic);
  REQUIRE(Load(cRead, sXml) == 0);
  CHECK(cRead.GetArrSize(16) == MANY);
  CMsgArray apRow(false);
  REQUIRE(cRead.GetValue(16, &apRow) == 0);
  for (int i = 0; i < MANY; ++i) {
    int iOut = -1;
    REQUIRE(apRow.GetAt(i)->GetValue(2, &iOut) == 0);
    REQUIRE(iOut == i);
    CMsg* pRow = nullptr;
    REQUIRE(cMsg.GetValueAt(16, i, &pRow) == 0);
    REQUIRE(pRow->GetValue(2, &iOut) == 0);
    REQUIRE(iOut == i);
  }
  CHECK(ToXml(cRead) == sXml);
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("a million values of one tag") {
  const CClock cClock;
  CLoadedDic cDic;
  CMsg cMsg(120, 0, 0, &cDic);
  for (int i = 0; i < 10 * MANY; ++i) REQUIRE(cMsg.SetValue(17, i) == 0);
  CMsg cRead(0, 0, 0, &cDic);
  REQUIRE(Load(cRead, ToXml(cMsg)) == 0);
  CHECK(cRead.GetArrSize(17) == 10 * MANY);
  int iOut = -1;
  CHECK(cRead.GetValueAt(17, 10 * MANY - 1, &iOut) == 0);
  CHECK(iOut == 10 * MANY - 1);
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("documents that ask for much time are refused early or read quickly") {
  const CClock cClock;
  CLoadedDic cDic;
  struct T_Row {
    const char *szWhat, *szBegin, *szPiece, *szEnd;
    int iCode;
  };
  static const T_Row s_atRow[] = {
      {"open sub-messages", "<msg no='121'>", "<t3>", "", -21},
      {"open elements in a scalar", "<msg no='120'>", "<t7>", "", -21},
      {"one sub-message again and again", "<msg no='120'>", "<t6/>", "</msg>", 0},
      {"one scalar again and again", "<msg no='120'>", "<t7>1</t7>", "</msg>", 0},
      {"pieces of text", "<msg no='120'><t1>", "x<!---->", "</t1></msg>", 0},
      {"character references", "<msg no='120'><t1>", "&#65;", "</t1></msg>", 0},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(std::string(tRow.szWhat));
    std::string sXml = tRow.szBegin;
    for (int i = 0; i < 2 * MANY; ++i) sXml += tRow.szPiece;
    sXml += tRow.szEnd;
    CMsg cMsg(0, 0, 0, &cDic);
    CHECK(Caught([&] { Load(cMsg, sXml); }).iCode == tRow.iCode);
  }
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("an element of very many attributes is read quickly, and so is a text that looks like one") {
  const CClock cClock;
  std::string sAttributes;
  for (int i = 0; i < MANY; ++i) sAttributes += " a" + std::to_string(i) + "=''";
  CLoadedDic cDic;
  CMsg cMsg(0, 0, 0, &cDic);
  CHECK(Load(cMsg, "<msg no='120'" + sAttributes + "><t7 a=''>1</t7><t7" + sAttributes + "/></msg>") == 0);
  int iNumber = 0;
  CHECK(cMsg.GetValue(7, &iNumber) == 0);
  CHECK(iNumber == 1);
  CHECK(Load(cMsg, "<msg no='120'><t1><![CDATA[" + sAttributes + "]]></t1></msg>") == 0);
  CString sText;
  CHECK(cMsg.GetValue(1, &sText) == 0);
  CHECK((sText == sAttributes.substr(1).c_str()));

  std::string sHidden = "<?xml version='1.0' encoding='UTF-7'?><msg no='120'";
  for (int i = 0; i < MANY; ++i) sHidden += " a" + std::to_string(i) + "+AD0-''";
  CHECK(Load(cMsg, sHidden + "><t7>2</t7></msg>") == 0);
  CHECK(cMsg.GetValue(7, &iNumber) == 0);
  CHECK(iNumber == 2);

  const CTempDir cDir;
  CMsgDic cRead;
  cRead.InitDictionary(cDir.Write("dic.xml", "<msg_dictionary" + sAttributes + "><msg no='7' name='a' hash='16'" + sAttributes +
                                                 "/></msg_dictionary>").c_str());
  CHECK(cRead.GetMsgInfo(7) != nullptr);
  CHECK(cClock.Seconds() < REASONABLE);
}

TEST_CASE("a dictionary of all messages") {
  const CClock cClock;
  std::string sXml = "<msg_dictionary>";
  for (int i = 1; i <= 9999; ++i) {
    sXml += "<msg no='" + std::to_string(i) + "' name='Message" + std::to_string(i) + "' hash='" +
            std::to_string(i % 128 + 1) + "'>";
    for (int k = 0; k < 10; ++k) {
      sXml += "<tag no='" + std::to_string(k) + "' name='name" + std::to_string(k) + "' type='integer'/>";
    }
    sXml += "</msg>";
  }
  const CTempDir cDir;
  CMsgDic cDic;
  cDic.InitDictionary(cDir.Write("dic.xml", sXml + "</msg_dictionary>").c_str());
  for (int i = 1; i <= 9999; ++i) {
    REQUIRE(cDic.GetMsgInfo(i) != nullptr);
    REQUIRE(cDic.GetMsgInfo(i)->GetNoTags() == 10);
    REQUIRE(cDic.GetMsgInfo(i)->GetTagNumByName("name7") == 7);
    REQUIRE(cDic.GetMsgInfo(i)->GetHashKey() == i % 128 + 1);
  }
  CHECK(cClock.Seconds() < REASONABLE);
}
