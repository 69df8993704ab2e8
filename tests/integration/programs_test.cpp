// Programs of their own that call services: the C interface's test and those in the README.
#include <doctest/doctest.h>

#include <string>

#include "support/program.h"
#include "support/service_peer.h"

TEST_CASE("a C99 program finds the C interface as its header says") {
  CServicePeer cPeer([](const T_Request& p_tRequest) -> T_Answer {
    switch (p_tRequest.SvcNum()) {
      case 7: return {Packet(p_tRequest.sBody)};
      case 8: return {Packet("<msg no='10'><t6>4017</t6><t7>no funds</t7><t8>1234</t8></msg>")};
      case 9: return {Packet("<msg no='10'><t6>1</t6><t7>" + std::string(2000, 'r') + "</t7><t8>5678</t8></msg>")};
      default: return {""};
    }
  });
  const CTempDir cDir;
  const std::string sConfig = Configuration(cDir, cDir.Write("dic.xml", ClientDictionary()), cPeer.Port());
  const T_Run tRun = Run(C_API_PROGRAM " " + sConfig + " " + cDir.Path("."));
  CHECK(tRun.sOut == "");
  CHECK(tRun.iExit == 0);
}

TEST_CASE("the programs in the README print the price, or say what is wrong") {
  for (const std::string sProgram : {README_C, README_CPP}) {
    CAPTURE(sProgram);
    const bool bC = sProgram == README_C;
    const CTempDir cDir;
    const auto fnRun = [&](const std::string& p_sDictionary, const CServicePeer& p_cPeer) {
      Configuration(cDir, p_sDictionary, p_cPeer.Port());
      return Run("cd " + cDir.Path(".") + " && " + sProgram);
    };
    T_Run tRun = Run("cd " + cDir.Path(".") + " && " + sProgram);
    CHECK(tRun.sOut == "File open failed [shop.cfg](2,No such file or directory)\n");
    CHECK(tRun.iExit == 1);

    CServicePeer cPeer(ExampleReply);
    tRun = fnRun(EXAMPLE_DATA "/dictionary.xml", cPeer);
    CHECK(tRun.sOut == "101.25\n");
    CHECK(tRun.iExit == 0);

    tRun = fnRun(cDir.Write("lacks.xml", ClientDictionary()), cPeer);
    CHECK(tRun.sOut == (bC ? "the dictionary lacks message 1101, or there is no memory\n" : "-19 3.msgnum=1101\n"));
    CHECK(tRun.iExit == 1);

    std::string sOther = ReadWholeFile(EXAMPLE_DATA "/dictionary.xml");
    sOther.replace(sOther.find("no=\"1\" name=\"Symbol\""), 20, "no=\"9\" name=\"Ticker\"");
    tRun = fnRun(cDir.Write("other.xml", sOther), cPeer);
    CHECK(tRun.sOut == std::string("MSG_Error(-18) : Not defined tag in dictionary {msgnum=1101, tagnum=") +
                           (bC ? "1}\n" : "-1}\n"));
    CHECK(tRun.iExit == 1);

    CServicePeer cRejecting([](const T_Request&) -> T_Answer {
      return {Packet("<msg no='10'><t6>4017</t6><t7>no such symbol</t7><t8>1001</t8></msg>")};
    });
    tRun = fnRun(EXAMPLE_DATA "/dictionary.xml", cRejecting);
    CHECK(tRun.sOut == "4017 no such symbol\n");
    CHECK(tRun.iExit == 1);

    CServicePeer cEmpty([](const T_Request&) -> T_Answer { return {Packet("<msg no='1102'></msg>")}; });
    tRun = fnRun(EXAMPLE_DATA "/dictionary.xml", cEmpty);
    CHECK(tRun.sOut == "MSG_Error(-1) : No Data found {tagnum=2}\n");
    CHECK(tRun.iExit == 1);
  }
}
