// The example programs against a server.
#include <doctest/doctest.h>

#include <string>

#include "support/program.h"
#include "support/service_peer.h"

TEST_CASE("the examples run against their replies") {
  for (const char* szProgram : {EXAMPLE_C, EXAMPLE_CPP}) {
    CAPTURE(szProgram);
    CServicePeer cPeer(ExampleReply);
    const CTempDir cDir;
    const T_Run tRun = Run(szProgram + (" " + Configuration(cDir, EXAMPLE_DATA "/dictionary.xml", cPeer.Port())));
    CHECK(tRun.iExit == 0);
    CHECK(tRun.sOut ==
          "quote: ACME 101.25, 48200 traded on 20240628\n"
          "orders: 30 accepted\n"
          "  90001 ACME, 300 filled at 101.25, 101.30\n"
          "  90002 BLUE, 50 filled at 12.50\n"
          "  90003 CORN, 0 filled\n"
          "cancel: rejected with 4017, order 90001 is filled already (service 1003)\n");
    const std::vector<T_Request> cRequests = cPeer.Requests();
    REQUIRE(cRequests.size() == 3);
    CHECK(cRequests[0].MsgNum() == 1101);
    CHECK_FALSE(cRequests[0].Compressed());
    CHECK(cRequests[1].MsgNum() == 1201);
    CHECK(cRequests[1].Compressed());
    CHECK(cRequests[2].MsgNum() == 1301);
  }
}

TEST_CASE("the examples say what they lack") {
  for (const char* szProgram : {EXAMPLE_C, EXAMPLE_CPP}) {
    CAPTURE(szProgram);
    CHECK(Run(szProgram).iExit == 1);
    const T_Run tRun = Run(szProgram + std::string(" /nonexistent/callorv.cfg"));
    CHECK(tRun.iExit == 1);
    CHECK(tRun.sOut ==
          "initialisation: File open failed [/nonexistent/callorv.cfg](2,No such file or directory)\n");
    CServicePeer cPeer([](const T_Request&) { return T_Answer{""}; });
    const CTempDir cDir;
    CHECK(Run(szProgram + (" " + Configuration(cDir, EXAMPLE_DATA "/dictionary.xml", cPeer.Port()))).iExit == 1);
    const std::string sLacks = Configuration(cDir, cDir.Write("lacks.xml", ClientDictionary()), cPeer.Port());
    const T_Run tLacks = Run(szProgram + (" " + sLacks));
    CHECK(tLacks.iExit == 1);
    CHECK(tLacks.sOut == (szProgram == std::string(EXAMPLE_C)
                              ? "the dictionary lacks message 1101, or there is no memory\n"
                              : "CCallOrvError: Input Msg is corrupted(MSG_Error(-19) : Not defined msg in dictionary "
                                "{3.msgnum=1101})\n"));
  }
}
