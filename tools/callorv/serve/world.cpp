// What the simulator answers from.
#include "serve/world.h"

#include "command.h"
#include "common/refusal.h"
#include "serve/rules_reader.h"

namespace {

// A dictionary starts and ends the XML parser, which is not for several threads at once.
std::mutex s_cParser;

std::shared_ptr<CMsgDic> ReadDictionary(const std::string& p_sPath) {
  const auto fnFree = [](CMsgDic* p_pDic) {
    const std::lock_guard<std::mutex> cLock(s_cParser);
    delete p_pDic;
  };
  std::shared_ptr<CMsgDic> pDic(new CMsgDic, fnFree);
  const std::lock_guard<std::mutex> cLock(s_cParser);
  LoadDictionary(*pDic, p_sPath);
  return pDic;
}

std::string FolderOf(const std::string& p_sPath) {
  const size_t iSlash = p_sPath.rfind('/');
  return iSlash == std::string::npos ? "." : p_sPath.substr(0, iSlash + 1);
}

}    // namespace

CWorlds::CWorlds(const T_ServeOptions& p_tOptions, CServeLog& p_cLog)
    : m_tOptions(p_tOptions),
      m_cLog(p_cLog),
      m_bWatchDic(CFileState::Of(p_tOptions.sDictionary).IsOrdinary()),
      m_bRules(!p_tOptions.sRules.empty()),
      m_bWatchRules(m_bRules && CFileState::Of(p_tOptions.sRules).IsOrdinary()),
      m_cDicFile(p_tOptions.sDictionary),
      m_cRulesFile(p_tOptions.sRules) {
  if (m_bWatchDic) m_cDicFile.Refresh();
  if (m_bRules) m_cRulesFile.Refresh();
  m_pSeen = std::make_shared<T_Seen>(T_Seen{m_cDicFile.State(), m_cRulesFile.State(), Make(true)});
}

std::shared_ptr<const T_World> CWorlds::Make(bool p_bStart) const {
  auto pWorld = std::make_shared<T_World>();
  pWorld->pDic = ReadDictionary(m_tOptions.sDictionary);
  T_ReplyMode tMode;
  tMode.bAsLibrary = m_tOptions.bAsLibrary;
  tMode.bState = m_bRules;
  tMode.iCompressOver = m_tOptions.iCompressOver;
  if (!m_tOptions.sReplies.empty()) {
    pWorld->cReplies.emplace(m_tOptions.sReplies, tMode, *pWorld->pDic);
    if (p_bStart) pWorld->cReplies->CheckAll();
  }
  if (m_bRules) {
    if (!pWorld->cReplies) pWorld->cRuleFiles.emplace(FolderOf(m_tOptions.sRules), tMode, *pWorld->pDic);
    pWorld->pRules = ReadRules(m_tOptions.sRules, m_cRulesFile.Bytes(),
                               {*pWorld->pDic, pWorld->FilesOfRules(), tMode, m_tOptions.iSeed});
  }
  return pWorld;
}

std::shared_ptr<const CWorlds::T_Seen> CWorlds::Seen() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  return m_pSeen;
}

bool CWorlds::IsNewest(const T_Seen& p_tSeen) const {
  return (!m_bWatchDic || p_tSeen.cDic.IsSame(CFileState::Of(m_tOptions.sDictionary))) &&
         (!m_bWatchRules || p_tSeen.cRules.IsSame(CFileState::Of(m_tOptions.sRules)));
}

std::shared_ptr<const T_World> CWorlds::Now() {
  const std::shared_ptr<const T_Seen> pSeen = Seen();
  if (IsNewest(*pSeen)) return pSeen->pWorld;
  const std::lock_guard<std::mutex> cReading(m_cReading);
  std::shared_ptr<const T_World> pWorld = Seen()->pWorld;    // another thread may have been here meanwhile
  const bool bDic = m_bWatchDic && m_cDicFile.Refresh(), bRules = m_bWatchRules && m_cRulesFile.Refresh();
  if (bDic || bRules) {
    try {
      pWorld = Make(false);
      if (bDic) m_cLog.Line(m_tOptions.sDictionary + " has changed and is read again");
      if (bRules) m_cLog.Line(m_tOptions.sRules + " has changed and is read again");
    } catch (const CFailure& cError) {
      const char* szOld = !bRules ? "dictionary goes" : bDic ? "dictionary and rules go" : "rules go";
      std::string sWhy = cError.what();
      for (size_t i; (i = sWhy.find('\n')) != std::string::npos;) sWhy.replace(i, 1, "; ");
      m_cLog.Line(sWhy + "; the old " + szOld + " on");
    }
  }
  const auto pNow = std::make_shared<const T_Seen>(T_Seen{m_cDicFile.State(), m_cRulesFile.State(), pWorld});
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  m_pSeen = pNow;
  return pWorld;
}
