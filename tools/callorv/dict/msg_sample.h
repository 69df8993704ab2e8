// A request with a plausible value in every tag.
#ifndef CALLORV_TOOLS_MSG_SAMPLE_H
#define CALLORV_TOOLS_MSG_SAMPLE_H

#include <callorv/msg/msg.h>

#include <memory>
#include <string>
#include <vector>

struct T_Sample {
  std::unique_ptr<CMsg> pMsg;
  std::vector<std::string> asValues;    // the same as TAG=VALUE, in UTF-8
  bool bWhole = true;                   // false: what is too much, or nested too deeply, is left out
};

// Arrays have two elements, or one row. A message that holds itself is not in itself. p_cDic is borrowed for as long as
// the sample is there. Throws CFailure.
T_Sample Sample(CMsgDic& p_cDic, const CMsgInfo& p_cInfo);

// What starts the call with that sample in a shell. p_sConfig and p_sService stand there as they are, quoted if need
// be.
std::string CallLine(const CMsgDic& p_cDic, const CMsgInfo& p_cInfo, const T_Sample& p_tSample,
                     const std::string& p_sConfig, const std::string& p_sService);

#endif
