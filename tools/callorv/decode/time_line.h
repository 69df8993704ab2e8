// The time line of a capture's calls.
#ifndef CALLORV_TOOLS_TIME_LINE_H
#define CALLORV_TOOLS_TIME_LINE_H

#include <nlohmann/json.hpp>

#include "decode/byte_source.h"
#include "decode/framer.h"

struct T_TimeLineOptions {
  T_Wish tWish;
  int iPort = 0;           // the server's; 0 takes all
  bool bFollow = false;    // each call as it is complete
};

// Prints the calls of a capture; what goes into the one object of --json stands in p_cObject instead. Throws CFailure
// when something is damaged, or there is no call.
void PrintTimeLine(CByteSource& p_cSource, const T_TimeLineOptions& p_tOptions, nlohmann::ordered_json& p_cObject);

#endif
