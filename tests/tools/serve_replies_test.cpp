// The replies of `callorv serve` have the form that the client reads without the parser.
#include <callorv/callorv.hpp>
#include <doctest/doctest.h>

#include <cstdio>
#include <string>

#include "form/msg_handler.h"
#include "support/child.h"
#include "support/client_files.h"
#include "support/set_up.h"
#include "support/temp_file.h"

TEST_CASE("replies from files and echoes are read without the parser, whatever the files look like") {
  const CTempDir cDir;
  const std::string sDictionary = cDir.Write("dictionary.xml", ClientDictionary());
  cDir.Write("7.xml", "<?xml version='1.0' encoding='UTF-8'?>\n<!-- a reply -->\n<msg no='100' ver='1.0'>\n"
                      "  <t1>gr\xc3\xbc\xc3\x9f &amp; more</t1>\n  <t2>{{tag:2}}</t2>\n  <t3>1.5</t3>\n  <t4>true</t4>\n  <t5>20240131</t5>\n"
                      "  <t6><t1>single</t1></t6>\n  <t16><t1>row</t1></t16>\n  <t16><t2>2</t2></t16>\n</msg>\n");
  for (bool bEcho : {false, true}) {
    CAPTURE(bEcho);
    std::vector<std::string> asArgs{CALLORV_COMMAND, "serve", "--dictionary", sDictionary};
    if (bEcho) asArgs.push_back("--echo");
    if (!bEcho) asArgs.insert(asArgs.end(), {"--replies", cDir.Path("")});
    CProgram cServer(asArgs);
    int iPort = 0;
    REQUIRE(sscanf(cServer.ReadLine().c_str(), "listening on 127.0.0.1 %d", &iPort) == 1);
    SetUp(iPort);
    CCallOrvError cErr;
    CMsg cIn(100, 0, 0, MA_GetMsgDic()), cOut(0, 0, 0, MA_GetMsgDic());
    REQUIRE(cIn.SetValue(2, 42) == 0);
    REQUIRE(cIn.SetValue(1, "a\tb\n\xe9") == 0);
    const unsigned uBefore = MsgHandler::Parsed();
    REQUIRE(CCallOrv::CallServiceByMsg(7, &cIn, &cOut, &cErr) == 0);
    CHECK(MsgHandler::Parsed() == uBefore);
    int iNumber = 0;
    CHECK(cOut.GetValue(2, &iNumber) == 0);
    CHECK(iNumber == 42);
    CHECK(cOut.GetArrSize(16) == (bEcho ? -1 : 2));
    // the counter does count
    CHECK_THROWS_AS(cOut.LoadXml(const_cast<char*>("<x/>")), CException);
    CHECK(MsgHandler::Parsed() == uBefore + 1);
  }
}
