// What the simulator answers from: the dictionary and the replies. A changed file makes another one.
#ifndef CALLORV_TOOLS_WORLD_H
#define CALLORV_TOOLS_WORLD_H

#include <callorv/dict/msg_dic.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "serve/file_state.h"
#include "serve/reply_store.h"
#include "serve/serve_log.h"
#include "serve/server.h"

// A call keeps the one that it began with, and its messages must not outlive it. Any thread.
struct T_World {
  std::shared_ptr<CMsgDic> pDic;
  std::optional<CReplyStore> cReplies;    // none: echo
};

class CWorlds {
 public:
  // Throws CFailure with everything that is wrong.
  CWorlds(const T_ServeOptions& p_tOptions, CServeLog& p_cLog);

  // The world as the files are now. A dictionary that cannot be used is said in the log, once, and the old world goes
  // on. Any thread.
  std::shared_ptr<const T_World> Now();

 private:
  struct T_Seen {
    CFileState cDic;    // when the world was made, or seen to be the newest
    std::shared_ptr<const T_World> pWorld;
  };
  const T_ServeOptions& m_tOptions;
  CServeLog& m_cLog;
  const bool m_bWatch;    // what is no ordinary file is read once
  std::mutex m_cReading;
  CWatchedFile m_cDicFile;    // with m_cReading
  std::mutex m_cMutex;
  std::shared_ptr<const T_Seen> m_pSeen;    // with m_cMutex

  std::shared_ptr<const T_World> Make(bool p_bStart) const;
  std::shared_ptr<const T_Seen> Seen();
};

#endif
