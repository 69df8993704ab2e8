// The simulator's answers: a folder of reply files.
#include "serve/reply_store.h"

#include <climits>
#include <filesystem>
#include <map>

#include "command.h"
#include "common/input.h"
#include "common/text.h"

namespace fs = std::filesystem;

namespace {

// The reply files of a folder by their services.
std::map<int, fs::path> FilesIn(const std::string& p_sFolder) {
  std::map<int, fs::path> cFiles;
  std::error_code cError;
  fs::directory_iterator cEntry(p_sFolder, cError);
  for (; !cError && cEntry != fs::directory_iterator(); cEntry.increment(cError)) {
    const fs::path& cPath = cEntry->path();
    int iService = 0;
    if (cPath.extension() == ".xml" && ParseNumber(cPath.stem().string(), INT_MIN, INT_MAX, iService) &&
        cPath.stem() == std::to_string(iService)) {
      cFiles[iService] = cPath;
    }
  }
  if (cError) throw CFailure(p_sFolder + ": " + cError.message());
  return cFiles;
}

}    // namespace

CReplyStore::CReplyStore(std::string p_sFolder, const T_ReplyMode& p_tMode, CMsgDic& p_cDic)
    : m_sFolder(std::move(p_sFolder)), m_tMode(p_tMode), m_cDic(p_cDic) {
  std::error_code cError;
  if (!fs::is_directory(m_sFolder, cError)) {
    throw CFailure(m_sFolder + ": " + (cError ? cError.message() : "not a folder"));
  }
}

void CReplyStore::CheckAll() const {
  if (m_tMode.bAsLibrary) return;
  std::string sWrong;
  for (const auto& [iService, cPath] : FilesIn(m_sFolder)) {
    try {
      ReplyFromFile(cPath.string(), ReadWholeFile(cPath.string()), m_tMode, m_cDic);
    } catch (const CFailure& cError) {
      sWrong += (sWrong.empty() ? "" : "\n") + std::string(cError.what());
    }
  }
  if (!sWrong.empty()) throw CFailure(sWrong);
}

CReplyStore::T_Entry& CReplyStore::Entry(const std::string& p_sName, const std::string& p_sPath) const {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  std::unique_ptr<T_Entry>& pEntry = m_cEntries[p_sName];
  if (!pEntry) pEntry = std::make_unique<T_Entry>(p_sPath);
  return *pEntry;
}

void CReplyStore::Read(T_Entry& p_tEntry, const std::string& p_sName) const {
  p_tEntry.pReply.reset();
  try {
    p_tEntry.pReply = ReplyFromFile(p_sName, p_tEntry.cFile.Bytes(), m_tMode, m_cDic);
  } catch (const CFailure& cError) {
    p_tEntry.sWhy = cError.what();
  } catch (...) {    // out of memory: another call may have more
    p_tEntry.cFile.Forget();
    throw;
  }
}

CReplyPtr CReplyStore::Find(const std::string& p_sName) const {
  const std::string sPath = m_sFolder + "/" + p_sName;
  const CFileState cNow = CFileState::Of(sPath);
  if (!cNow.IsFile() && !fs::exists(sPath)) throw CNoReply("no reply file " + p_sName);
  T_Entry& tEntry = Entry(p_sName, sPath);
  const std::lock_guard<std::mutex> cLock(tEntry.cMutex);
  if (tEntry.cFile.Refresh(cNow)) Read(tEntry, p_sName);
  if (!tEntry.pReply) throw CFailure(tEntry.sWhy);
  return tEntry.pReply;
}
