// The simulator's answers: a folder of reply files.
#ifndef CALLORV_TOOLS_REPLY_STORE_H
#define CALLORV_TOOLS_REPLY_STORE_H

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "serve/file_state.h"
#include "serve/reply.h"

// The service has no reply file.
class CNoReply : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Service 1201 is answered from 1201.xml, a message in XML. A file is read and parsed when it is first asked for and
// again when it has changed, which counts at once. Any thread.
class CReplyStore {
 public:
  // Throws CFailure when the folder cannot be read. p_cDic outlives the store.
  CReplyStore(std::string p_sFolder, const T_ReplyMode& p_tMode, CMsgDic& p_cDic);

  // Reads the file of every service, unless the library reads them. Throws CFailure with a line for each that cannot be
  // used.
  void CheckAll() const;
  // The reply in a file of the folder. Throws CNoReply; CFailure when the file cannot be used, the text naming it.
  CReplyPtr Find(const std::string& p_sName) const;

 private:
  struct T_Entry {
    explicit T_Entry(std::string p_sPath) : cFile(std::move(p_sPath)) {}
    std::mutex cMutex;
    CWatchedFile cFile;
    CReplyPtr pReply;    // null: sWhy says why there is none
    std::string sWhy;
  };
  const std::string m_sFolder;
  const T_ReplyMode m_tMode;
  CMsgDic& m_cDic;
  mutable std::mutex m_cMutex;
  mutable std::unordered_map<std::string, std::unique_ptr<T_Entry>> m_cEntries;

  T_Entry& Entry(const std::string& p_sName, const std::string& p_sPath) const;
  void Read(T_Entry& p_tEntry, const std::string& p_sName) const;
};

#endif
