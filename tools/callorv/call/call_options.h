// What the arguments of `callorv call` say.
#ifndef CALLORV_TOOLS_CALL_OPTIONS_H
#define CALLORV_TOOLS_CALL_OPTIONS_H

#include <string>
#include <vector>

#include "call/measure.h"
#include "call/report.h"

struct T_CallOptions {
  std::string sConfig;
  std::string sDictionary, sKeyFile, sServer;    // instead of the configuration file
  int iTimeOut = 90;
  int iService = -1;    // none was given
  std::string sMessage;
  std::vector<std::string> asValues;
  std::string sXml;
  std::string sData;
  std::string sFormat = "dump";
  bool bAsLibrary = false;    // the library reads sXml
  bool bJson = false;
  bool bTrace = false;
  bool bShowKey = false;
  T_Report tReport;
  T_Load tLoad;           // of many calls; neither their number nor a duration for a single one
  bool bStream = false;
  bool bOrdered = false;
  int iDeadline = 0;      // milliseconds; 0: none but the time-out
};

#endif
