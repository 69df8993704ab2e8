// Lines of a descriptor that are taken as they come.
#include "common/line_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "command.h"
#include "common/input.h"

void CLineInput::Read() {
  constexpr size_t PIECE = 65536;
  m_sBytes.erase(0, m_iStart);
  m_iStart = 0;
  const size_t iSize = m_sBytes.size();
  m_sBytes.resize(iSize + PIECE);
  const ssize_t iRead = read(m_iFd, &m_sBytes[iSize], PIECE);
  const int iErrno = errno;
  m_sBytes.resize(iSize + static_cast<size_t>(std::max<ssize_t>(iRead, 0)));
  if (iRead < 0 && iErrno != EINTR && iErrno != EAGAIN) throw CFailure(m_sName + ": " + FileErrorText(iErrno));
  m_bEnd = iRead == 0;
}

CLineInput::E_Line CLineInput::Next(std::string_view& p_sLine) {
  const size_t iFound = m_sBytes.find('\n', m_iStart + m_iSeen);
  const bool bWhole = iFound != std::string::npos;
  const size_t iEnd = bWhole ? iFound : m_sBytes.size();
  const bool bTooLong = m_bSkipping || iEnd - m_iStart > MAX_LINE;
  if (!bWhole && (!m_bEnd || (iEnd == m_iStart && !m_bSkipping))) {
    m_bSkipping = bTooLong;
    m_iStart = bTooLong ? iEnd : m_iStart;
    m_iSeen = iEnd - m_iStart;
    return NOTHING_YET;
  }
  p_sLine = std::string_view(m_sBytes).substr(m_iStart, iEnd - m_iStart);
  m_iStart = bWhole ? iEnd + 1 : iEnd;
  m_iSeen = 0;
  m_bSkipping = false;
  return bTooLong ? LINE_TOO_LONG : LINE;
}
