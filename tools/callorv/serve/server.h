// The simulated service: a TCP server that answers packets.
#ifndef CALLORV_TOOLS_SERVER_H
#define CALLORV_TOOLS_SERVER_H

#include <string>
#include <vector>

struct T_ServeOptions {
  std::string sDictionary;
  std::string sHost = "127.0.0.1";
  int iPort = 0;           // 0: a free one
  std::string sReplies;    // folder; "" with bEcho
  bool bAsLibrary = false;    // the library reads the reply files
  bool bEcho = false;
  std::string sRules;    // file; "": none
  int iSeed = 0;         // of the delays in rules
  std::string sMetricsHost;    // "": no counters over HTTP
  int iMetricsPort = 0;        // 0: a free one
  int iDelay = 0;              // milliseconds before every answer
  int iCompressOver = 1024;    // bytes of XML; a longer reply is compressed
  std::string sRecord;         // folder; "": nothing is kept
  std::vector<std::string> asFaults;
  int iReadTimeOut = 60;    // seconds for a request to come in
  int iThreads = 0;         // 0: one for each processor
  bool bQuiet = false;
};

// Serves until SIGINT or SIGTERM, then returns. Throws CFailure and CUsage.
void Serve(const T_ServeOptions& p_tOptions);

#endif
