// What many failed calls say.
#include "call/failure_texts.h"

#include "call/connection_words.h"
#include "common/text.h"

T_CallError CFailureTexts::Explain(int p_iRet, const CCallOrvError& p_cError, int p_iService, double p_dSeconds) {
  using Clock = std::chrono::steady_clock;
  constexpr size_t MOST = 64;    // some texts have numbers in them
  T_CallError tError;
  tError.iService = p_iService;
  if (p_iRet != -3) {
    ExplainFailure(p_iRet, p_cError, m_tServer, p_dSeconds, tError);
    return tError;
  }
  if (Clock::now() - m_tSince > std::chrono::seconds(1) || m_cKnown.size() > MOST) {
    m_cKnown.clear();
    m_tSince = Clock::now();
  }
  const auto [cPlace, bNew] = m_cKnown.try_emplace(std::to_string(p_cError.GetCode()) + p_cError.GetText().ToStr());
  if (bNew) {
    ExplainFailure(p_iRet, p_cError, m_tServer, p_dSeconds, cPlace->second);
    cPlace->second.sText = PrintableFailure(cPlace->second.sText);
  }
  tError = cPlace->second;
  tError.iService = p_iService;
  return tError;
}
