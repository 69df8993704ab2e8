// Reads rules.
#ifndef CALLORV_TOOLS_RULES_READER_H
#define CALLORV_TOOLS_RULES_READER_H

#include <memory>
#include <string>

#include "serve/reply_store.h"
#include "serve/rules.h"

// What rules refer to.
struct T_RulesSetting {
  CMsgDic& cDic;
  const CReplyStore& cFiles;
  T_ReplyMode tMode;
  int iSeed;    // of the delays
};

// The rules of a file named p_sName with these bytes (docs/schemas/rules.json). Throws CFailure with a line for
// everything that is wrong, "NAME: POINTER: reason".
std::shared_ptr<const CRules> ReadRules(const std::string& p_sName, const std::string& p_sBytes,
                                        const T_RulesSetting& p_t);

#endif
