// Programs of their own that call services: the C interface's test and the examples.
#include <doctest/doctest.h>

#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/client_files.h"
#include "support/service_peer.h"
#include "support/temp_file.h"

namespace {

struct T_Run {
  int iExit;           // -1: ended by a signal
  std::string sOut;    // standard output and error
};

T_Run Run(const std::string& p_sCommand) {
  T_Run tRun{-1, ""};
  FILE* pPipe = popen((p_sCommand + " 2>&1").c_str(), "r");
  REQUIRE(pPipe != nullptr);
  char szPart[500];
  while (size_t iLen = fread(szPart, 1, sizeof(szPart), pPipe)) tRun.sOut.append(szPart, iLen);
  const int iStatus = pclose(pPipe);
  if (WIFEXITED(iStatus)) tRun.iExit = WEXITSTATUS(iStatus);
  return tRun;
}

std::string Configuration(const CTempDir& p_cDir, const std::string& p_sDictionary, int p_iPort) {
  const std::string sKey = p_cDir.Write("user.key", KeyFile("TEST-USER-1"));
  return p_cDir.Write("callorv.cfg", "# for a test\nmsg_dic = " + p_sDictionary + "\nkey_file = " + sKey +
                                         "\nserver = 127.0.0.1 " + std::to_string(p_iPort) + "\ntimeout = 60\n");
}

}    // namespace

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

TEST_CASE("the examples run against their replies") {
  for (const char* szProgram : {EXAMPLE_C, EXAMPLE_CPP}) {
    CAPTURE(szProgram);
    CServicePeer cPeer([](const T_Request& p_tRequest) -> T_Answer {
      return {Packet(ReadWholeFile(EXAMPLE_DATA "/replies/" + std::to_string(p_tRequest.SvcNum()) + ".xml"))};
    });
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
  }
}
