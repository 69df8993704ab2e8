// The handler behind LoadXml, where a document alone does not lead.
#include "form/msg_handler.h"

#include "support/test_dic.h"

namespace {

// Sees every element end with one and the same name. The parser itself sees to it that the names at both ends match.
class CMisnamed : public MsgHandler {
 public:
  CMisnamed(CMsg* p_pMsg, CMsgDic* p_pDic, const char16_t* p_szName) : MsgHandler(p_pMsg, p_pDic), m_szName(p_szName) {}
  void OnEnd(const char16_t*, int p_iDepth) override { MsgHandler::OnEnd(m_szName, p_iDepth); }

 private:
  const char16_t* m_szName;
};

}    // namespace

TEST_CASE("a handler needs a message and its dictionary") {
  CTestMsg cMsg(120);
  CheckThrows(-12, "MsgHandler::MsgHandler - Parameter is NULL((nil),(nil))",
              [] { MsgHandler cHandler(nullptr, nullptr); });
  CheckThrows(-12, CFormat("MsgHandler::MsgHandler - Parameter is NULL(%p,(nil))", static_cast<void*>(&*cMsg)).ToStr(),
              [&] { MsgHandler cHandler(&*cMsg, nullptr); });
  CheckThrows(-12,
              CFormat("MsgHandler::MsgHandler - Parameter is NULL((nil),%p)", static_cast<void*>(&cMsg.Dic())).ToStr(),
              [&] { MsgHandler cHandler(nullptr, &cMsg.Dic()); });
}

TEST_CASE("a handler needs a text") {
  CTestMsg cMsg(120);
  MsgHandler cHandler(&*cMsg, &cMsg.Dic());
  CheckThrows(-12, "Parameter is NULL", [&] { cHandler.Action(nullptr); });
}

TEST_CASE("an unknown name at the end of an element") {
  CLoadedDic cDic;
  struct T_Row {
    const char* szXml;
    const char16_t* szName;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {"<msg no='120' type='name'><number/></msg>", u"zzz", "Handler error : Unknown end tagname(zzz)"},
      {"<msg no='120'><t7/></msg>", u"x7", "Handler error : Unknown end tag element(x7)"},
      {"<msg no='120'><t7/></msg>", u"t99", "Handler error : Unknown end tag element(t99, 99)"},
      {"<msg no='120'><t7/></msg>", u"a", "Handler error : Unknown end tag element(a, 0)"},
      {"<msg no='120'><t6><t2/></t6></msg>", u"t7", "Handler error : Unknown end tag element(t7, 7)"},    // of the row
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CMsg cMsg(0, 0, 0, &cDic);
    CheckThrows(-21, tRow.szText, [&] { CMisnamed(&cMsg, &cDic, tRow.szName).Action(tRow.szXml); });
  }
  // A known one is taken, whatever stood at the start.
  CMsg cMsg(0, 0, 0, &cDic);
  CMisnamed(&cMsg, &cDic, u"a17").Action("<msg no='120'><t7>1</t7></msg>");
  CHECK(cMsg.GetArrSize(7) == 1);
}
