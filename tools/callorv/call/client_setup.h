// Sets the library's client up for the command, and says what is wrong with what it is set up from.
#ifndef CALLORV_TOOLS_CLIENT_SETUP_H
#define CALLORV_TOOLS_CLIENT_SETUP_H

#include <string>

#include "call/call_error.h"

// Where the client then calls.
struct T_Server {
  std::string sHost;
  int iPort = 0;
  int iTimeOut = 0;    // seconds to wait for the reply
};

struct T_ClientFiles {
  std::string sDictionary;
  std::string sKeyFile;
};

// "HOST:PORT". Throws CUsage.
T_Server ParseServer(const std::string& p_sServer);

// From a configuration file, whose values are checked more strictly than the library does. p_eStage goes along with
// what is being read. Both throw CFailure.
T_Server SetUpClient(const std::string& p_sConfig, E_CallStage& p_eStage);
void SetUpClient(const T_ClientFiles& p_tFiles, const T_Server& p_tServer, E_CallStage& p_eStage);

#endif
