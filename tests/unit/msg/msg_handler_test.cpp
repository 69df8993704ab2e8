// The handler behind LoadXml, where a document alone does not lead.
#include "msg/msg_handler.h"

#include "unit/msg/test_dic.h"

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

// The parser sees to it that the names at both ends of an element match, so a document cannot bring these about.
TEST_CASE("an unknown name at the end of an element") {
  CLoadedDic cDic;
  struct T_Row {
    const char *szRoot;
    const char16_t* szName;
    const char* szText;
  };
  static const T_Row s_atRow[] = {
      {"<msg no='120' type='name'/>", u"zzz", "Unknown end tagname(zzz)"},
      {"<msg no='120'/>", u"x7", "Unknown end tag element(x7)"},
      {"<msg no='120'/>", u"t99", "Unknown end tag element(t99, 99)"},
      {"<msg no='120'/>", u"a", "Unknown end tag element(a, 0)"},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.szText);
    CMsg cMsg(0, 0, 0, &cDic);
    MsgHandler cHandler(&cMsg, &cDic);
    cHandler.Action(tRow.szRoot);
    CheckThrows(-21, tRow.szText, [&] { cHandler.endElement(u"", tRow.szName, tRow.szName); });
  }
}

TEST_CASE("the events that carry nothing change nothing") {
  CTestMsg cMsg(120);
  MsgHandler cHandler(&*cMsg, &cMsg.Dic());
  cHandler.startDocument();
  cHandler.ignorableWhitespace(u" ", 1);
  cHandler.endDocument();
  CHECK(cMsg->IsEmpty());
}
