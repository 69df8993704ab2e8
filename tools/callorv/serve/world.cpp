// What the simulator answers from.
#include "serve/world.h"

#include "command.h"
#include "common/refusal.h"

namespace {

// A dictionary starts and ends the XML parser, which is not for several threads at once.
std::mutex s_cParser;

std::shared_ptr<CMsgDic> ReadDictionary(const std::string& p_sPath) {
  const auto fnFree = [](CMsgDic* p_pDic) {
    const std::lock_guard<std::mutex> cLock(s_cParser);
    delete p_pDic;
  };
  const std::shared_ptr<CMsgDic> pDic(new CMsgDic, fnFree);
  const std::lock_guard<std::mutex> cLock(s_cParser);
  LoadDictionary(*pDic, p_sPath);
  return pDic;
}

}    // namespace

CWorlds::CWorlds(const T_ServeOptions& p_tOptions, CServeLog& p_cLog)
    : m_tOptions(p_tOptions),
      m_cLog(p_cLog),
      m_bWatch(CFileState::Of(p_tOptions.sDictionary).IsOrdinary()),
      m_cDicFile(p_tOptions.sDictionary) {
  if (m_bWatch) m_cDicFile.Refresh();
  m_pSeen = std::make_shared<T_Seen>(T_Seen{m_cDicFile.State(), Make(true)});
}

std::shared_ptr<const T_World> CWorlds::Make(bool p_bStart) const {
  auto pWorld = std::make_shared<T_World>();
  pWorld->pDic = ReadDictionary(m_tOptions.sDictionary);
  if (!m_tOptions.sReplies.empty()) {
    T_ReplyMode tMode;
    tMode.bAsLibrary = m_tOptions.bAsLibrary;
    tMode.iCompressOver = m_tOptions.iCompressOver;
    pWorld->cReplies.emplace(m_tOptions.sReplies, tMode, *pWorld->pDic);
    if (p_bStart) pWorld->cReplies->CheckAll();
  }
  return pWorld;
}

std::shared_ptr<const CWorlds::T_Seen> CWorlds::Seen() {
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  return m_pSeen;
}

std::shared_ptr<const T_World> CWorlds::Now() {
  std::shared_ptr<const T_Seen> pSeen = Seen();
  if (!m_bWatch || pSeen->cDic.IsSame(CFileState::Of(m_tOptions.sDictionary))) return pSeen->pWorld;
  const std::lock_guard<std::mutex> cReading(m_cReading);
  std::shared_ptr<const T_World> pWorld = Seen()->pWorld;    // another thread may have been here meanwhile
  if (m_cDicFile.Refresh()) {
    try {
      pWorld = Make(false);
      m_cLog.Line(m_tOptions.sDictionary + " has changed and is read again");
    } catch (const CFailure& cError) {
      m_cLog.Line(std::string(cError.what()) + "; the old dictionary goes on");
    }
  }
  const auto pNow = std::make_shared<const T_Seen>(T_Seen{m_cDicFile.State(), pWorld});
  const std::lock_guard<std::mutex> cLock(m_cMutex);
  m_pSeen = pNow;
  return pWorld;
}
