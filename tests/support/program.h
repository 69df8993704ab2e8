// Programs that are set up from a configuration file, run to their end.
#ifndef TESTS_SUPPORT_PROGRAM_H
#define TESTS_SUPPORT_PROGRAM_H

#include <doctest/doctest.h>

#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/client_files.h"
#include "support/service_peer.h"
#include "support/temp_file.h"

struct T_Run {
  int iExit;           // -1: ended by a signal
  std::string sOut;    // standard output and error
};

inline T_Run Run(const std::string& p_sCommand) {
  T_Run tRun{-1, ""};
  FILE* pPipe = popen((p_sCommand + " 2>&1").c_str(), "r");
  REQUIRE(pPipe != nullptr);
  char szPart[500];
  while (size_t iLen = fread(szPart, 1, sizeof(szPart), pPipe)) tRun.sOut.append(szPart, iLen);
  const int iStatus = pclose(pPipe);
  if (WIFEXITED(iStatus)) tRun.iExit = WEXITSTATUS(iStatus);
  return tRun;
}

// Writes shop.cfg, with a key file beside it; returns its path.
inline std::string Configuration(const CTempDir& p_cDir, const std::string& p_sDictionary, int p_iPort) {
  const std::string sKey = p_cDir.Write("user.key", KeyFile("TEST-USER-1"));
  return p_cDir.Write("shop.cfg", "# for a test\nmsg_dic = " + p_sDictionary + "\nkey_file = " + sKey +
                                         "\nserver = 127.0.0.1 " + std::to_string(p_iPort) + "\ntimeout = 60\n");
}

// What the server of the examples answers.
inline T_Answer ExampleReply(const T_Request& p_tRequest) {
  return {Packet(ReadWholeFile(EXAMPLE_DATA "/replies/" + std::to_string(p_tRequest.SvcNum()) + ".xml"))};
}

#endif
