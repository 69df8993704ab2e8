// What the simulator answers from: dictionary, rules and replies. A changed file makes another one.
#ifndef CALLORV_TOOLS_WORLD_H
#define CALLORV_TOOLS_WORLD_H

#include <callorv/dict/msg_dic.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "serve/file_state.h"
#include "serve/reply_store.h"
#include "serve/rules.h"
#include "serve/serve_log.h"
#include "serve/server.h"

// A call keeps the one that it began with, and its messages must not outlive it. Any thread.
struct T_World {
  std::shared_ptr<CMsgDic> pDic;
  std::optional<CReplyStore> cReplies;      // by service; none: echo, or rules alone
  std::optional<CReplyStore> cRuleFiles;    // of rules alone
  std::shared_ptr<const CRules> pRules;     // null: there are none

  const CReplyStore& FilesOfRules() const { return cReplies ? *cReplies : *cRuleFiles; }
};

class CWorlds {
 public:
  // Throws CFailure with everything that is wrong.
  CWorlds(const T_ServeOptions& p_tOptions, CServeLog& p_cLog);

  // The world as the files are now. A dictionary or rules that cannot be used are said in the log, once, and the old
  // world goes on. Any thread.
  std::shared_ptr<const T_World> Now();

 private:
  struct T_Seen {
    CFileState cDic, cRules;    // when the world was made, or seen to be the newest
    std::shared_ptr<const T_World> pWorld;
  };
  const T_ServeOptions& m_tOptions;
  CServeLog& m_cLog;
  const bool m_bWatchDic;    // what is no ordinary file is read once
  const bool m_bRules, m_bWatchRules;
  std::mutex m_cReading;
  CWatchedFile m_cDicFile, m_cRulesFile;    // with m_cReading
  std::mutex m_cMutex;
  std::shared_ptr<const T_Seen> m_pSeen;    // with m_cMutex

  std::shared_ptr<const T_World> Make(bool p_bStart) const;
  bool IsNewest(const T_Seen& p_tSeen) const;
  std::shared_ptr<const T_Seen> Seen();
};

#endif
