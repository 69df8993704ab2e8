// Sets the library's client up for the command.
#include "call/client_setup.h"

#include <callorv/base/array.h>
#include <callorv/client/callorv_client.h>
#include <callorv/client/cfg_reader.h>

#include <algorithm>

#include "command.h"
#include "common/input.h"
#include "common/refusal.h"
#include "common/text.h"

namespace {

// As the library has them for a configuration file, in seconds.
enum { DEFAULT_TIME_OUT = 90, MIN_TIME_OUT = 60 };

// A byte order mark hides the key of the first line from the library, which then takes a default, or misses the key.
void RefuseMark(const std::string& p_sConfig) {
  if (!WhyUnreadable(p_sConfig).empty() || !IsOrdinaryFile(p_sConfig)) return;
  const std::string sFile = ReadWholeFile(p_sConfig);
  const std::string sLine = sFile.substr(0, sFile.find_first_of("#\n"));
  if (sLine.rfind("\xEF\xBB\xBF", 0) != 0 || sLine.find_first_not_of(" \t\r", 3) == std::string::npos) return;
  throw CFailure(p_sConfig +
                 ":1: a byte order mark stands before the first key, which the library takes for a part of it: "
                 "save the file without one");
}

T_Server ServerIn(const std::string& p_sConfig, const CString& p_sValue) {
  CStrArray asPiece;
  p_sValue.Split(' ', &asPiece, true);
  const std::string sHost = asPiece.GetSize() > 0 ? asPiece[0].ToStr() : "";
  if (sHost.find('\t') != std::string::npos) {
    throw CFailure(p_sConfig + ": 'server' has a tab behind the host, where the library wants a blank");
  }
  if (asPiece.GetSize() < 2) {
    throw CFailure(p_sConfig + ": 'server' is no host, blank and port, as in server = 192.0.2.10 7000");
  }
  T_Server tServer{sHost, 0, 0};
  if (!ParseNumber(asPiece[1].ToStr(), 1, 65535, tServer.iPort)) {
    throw CFailure(p_sConfig + ": 'server' has '" + asPiece[1].ToStr() + "' where a port from 1 to 65535 belongs");
  }
  return tServer;
}

// The library takes whatever a key file decrypts to; a key that is noise would go to the server with every request.
void RequireKey(const std::string& p_sPath) {
  if (const std::string sReason = KeyReason(p_sPath); !sReason.empty()) throw CFailure(p_sPath + ": " + sReason);
}

}    // namespace

T_Server ParseServer(const std::string& p_sServer) {
  const size_t iColon = p_sServer.rfind(':');
  T_Server tServer{p_sServer.substr(0, iColon), 0, 0};
  if (tServer.sHost.empty() || iColon == std::string::npos ||
      !ParseNumber(p_sServer.substr(iColon + 1), 1, 65535, tServer.iPort)) {
    throw CUsage("--server: '" + p_sServer + "' is not HOST:PORT");
  }
  return tServer;
}

T_Server SetUpClient(const std::string& p_sConfig, E_CallStage& p_eStage) {
  p_eStage = CALL_CONFIG;
  RefuseMark(p_sConfig);
  CCfgReader cConfig;
  CString sDictionary, sKeyFile, sServer;
  if (cConfig.Load(p_sConfig.c_str()) < 0 || cConfig.GetStrVal("msg_dic", &sDictionary) < 0 ||
      cConfig.GetStrVal("key_file", &sKeyFile) < 0 || cConfig.GetStrVal("server", &sServer) < 0) {
    throw CFailure(Refusal(p_sConfig, WhyUnreadable(p_sConfig), cConfig.GetLastError().ToStr()));
  }
  T_Server tServer = ServerIn(p_sConfig, sServer);
  tServer.iTimeOut = DEFAULT_TIME_OUT;
  cConfig.GetIntVal("timeout", &tServer.iTimeOut);    // absent: the default stays
  tServer.iTimeOut = std::max<int>(tServer.iTimeOut, MIN_TIME_OUT);
  SetUpClient({sDictionary.ToStr(), sKeyFile.ToStr()}, tServer, p_eStage);
  return tServer;
}

void SetUpClient(const T_ClientFiles& p_tFiles, const T_Server& p_tServer, E_CallStage& p_eStage) {
  CCallOrvError cError;
  const int iRet = CCallOrv::Initialize(p_tFiles.sKeyFile.c_str(), p_tFiles.sDictionary.c_str(),
                                        p_tServer.sHost.c_str(), p_tServer.iPort, p_tServer.iTimeOut, &cError);
  p_eStage = iRet == -2 ? CALL_DICTIONARY : CALL_KEY;
  const std::string sText = cError.GetText().ToStr();
  if (iRet == -2) throw CFailure(DictionaryRefusal(p_tFiles.sDictionary, sText));
  if (iRet < 0) throw CFailure(KeyRefusal(p_tFiles.sKeyFile, sText));
  RequireKey(p_tFiles.sKeyFile);
}
