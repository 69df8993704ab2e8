// Rules: which reply a request gets.
#ifndef CALLORV_TOOLS_RULES_H
#define CALLORV_TOOLS_RULES_H

#include <callorv/msg/msg.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "serve/condition.h"
#include "serve/delay.h"
#include "serve/fault.h"
#include "serve/reply.h"

// What requests have set. It outlives the rules that are read anew.
struct T_State {
  std::mutex cMutex;
  CStateValues cValues;    // none is empty
};

// One reply of a rule: a file of the folder, a message, or a rejection.
struct T_RuleReply {
  std::string sFile;            // "" unless it is a file
  CReplyPtr pReply;             // null unless it is a message
  int iRejectCode = 0;          // else
  std::string sRejectText;
};

struct T_Rule {
  enum E_Then { LAST, REPEAT, NEXT };
  std::string sName;    // for the log: its number, from 1, and its name when it has one
  // What it wants; what is empty or 0 wants nothing.
  std::vector<std::pair<int, int>> aServices;                        // from, to
  int iMsgNum = 0;
  std::vector<std::string> asUserKeys;                               // as the wire has them
  std::vector<std::pair<size_t, CCondition>> aValues;                // by place in CRules' paths
  CStateValues cWhen;                                                // "": not set
  // What it does.
  CStateValues cSet;                                                 // "": set no more
  std::vector<T_RuleReply> atReplies;                                // none: as without the rule
  E_Then eThen = LAST;                                               // behind the last reply
  std::unique_ptr<CDelay> pDelay;
  std::unique_ptr<CFaults> pFaults;
  size_t iReplies = 0;    // given so far; with the state's mutex

  bool Covers(int p_iSvcNum) const;
};

struct T_Incoming {
  int iSvcNum;
  std::string sUserKey;
  CMsg& cRequest;
};

// What a rule says of one call.
struct T_Choice {
  const T_Rule* pRule = nullptr;          // null: no rule does
  const T_RuleReply* pReply = nullptr;    // null: as without the rule
  CStateValues cState;                    // after the rule has set its own
  bool bKeyRefused = false;               // no rule is asked then
};

// Any thread.
class CRules {
 public:
  // The rules in their order, the paths of their conditions, and the user keys that are taken (none: all).
  CRules(std::vector<std::unique_ptr<T_Rule>> p_apRules, std::vector<std::string> p_asPaths,
         std::vector<std::string> p_asUserKeys);

  // The first rule that fits. Its part of the state is set, and its sequence goes on. Throws CFailure when a value that
  // it sets cannot be said.
  T_Choice Choose(const T_Incoming& p_t, T_State& p_tState) const;

 private:
  class CRequestValues;
  using CRuleList = std::vector<T_Rule*>;
  const std::vector<std::unique_ptr<T_Rule>> m_apRules;
  const std::vector<std::string> m_asPaths;
  const std::vector<std::string> m_asUserKeys;
  std::unordered_map<int, CRuleList> m_cByService;    // of services that a rule names: all that cover it
  CRuleList m_apOthers;                               // that cover services which no rule names

  const CRuleList& RulesOf(int p_iSvcNum) const;
  bool Fits(const T_Rule& p_tRule, const T_Incoming& p_t, CRequestValues& p_cValues) const;
  static bool Fits(const T_Rule& p_tRule, const CStateValues& p_cState);
  static void Take(T_Rule& p_tRule, const T_Incoming& p_t, T_State& p_tState, T_Choice& p_tChoice);
};

#endif
