// Standard output that nobody waits for.
#include "common/output.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "command.h"
#include "common/input.h"

COutput::COutput(int p_iFd) : m_iFd(p_iFd) {
  struct stat tStat;
  m_bWaits = fstat(p_iFd, &tStat) == 0 && !S_ISREG(tStat.st_mode) && !S_ISBLK(tStat.st_mode);
}

void COutput::Flush() {
  while (Size() > 0) {
    // A pipe that says it takes something takes so much; of more it could keep the writer waiting.
    const size_t iPiece = m_bWaits ? std::min<size_t>(Size(), PIPE_BUF) : Size();
    pollfd tPoll = {m_iFd, POLLOUT, 0};
    if (m_bWaits && poll(&tPoll, 1, 0) == 0) break;
    const ssize_t iWritten = write(m_iFd, m_sBytes.data() + m_iStart, iPiece);
    if (iWritten < 0 && errno == EAGAIN) break;
    if (iWritten < 0 && errno != EINTR) throw CFailure("standard output cannot be written: " + FileErrorText(errno));
    m_iStart += static_cast<size_t>(std::max<ssize_t>(iWritten, 0));
  }
  m_sBytes.erase(0, m_iStart);
  m_iStart = 0;
}
