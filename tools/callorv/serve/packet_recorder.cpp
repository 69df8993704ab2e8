// Keeps the packets of the simulator's calls as files.
#include "serve/packet_recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "command.h"

namespace {

// Creates p_sPath, which must not exist. Nothing is synced: there may be thousands of files a second.
void WriteNewFile(const std::string& p_sPath, const std::string& p_sBytes) {
  const int iFile = open(p_sPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  int iErrno = iFile < 0 ? errno : 0;
  for (size_t iDone = 0; iErrno == 0 && iDone < p_sBytes.size();) {
    const ssize_t iLen = write(iFile, p_sBytes.data() + iDone, p_sBytes.size() - iDone);
    if (iLen >= 0) {
      iDone += static_cast<size_t>(iLen);
    } else if (errno != EINTR) {
      iErrno = errno;
    }
  }
  if (iFile >= 0 && close(iFile) < 0 && iErrno == 0) iErrno = errno;
  if (iErrno != 0) throw CFailure(p_sPath + ": " + std::generic_category().message(iErrno));
}

}    // namespace

CPacketRecorder::CPacketRecorder(const std::string& p_sFolder) : m_sFolder(p_sFolder), m_iCount(0) {
  std::error_code cError;
  std::filesystem::create_directories(p_sFolder, cError);
  for (std::filesystem::directory_iterator cEntry(p_sFolder, cError), cEnd; !cError && cEntry != cEnd;
       cEntry.increment(cError)) {
    const std::string sName = cEntry->path().filename();
    unsigned i = 0;
    std::from_chars(sName.data(), sName.data() + sName.size(), i);
    m_iCount = std::max(m_iCount.load(), i);
  }
  if (cError) throw CFailure(p_sFolder + ": " + cError.message());
}

void CPacketRecorder::Save(const std::string& p_sRequest, const std::string& p_sReply, int p_iSvcNum) {
  char szName[64];
  std::snprintf(szName, sizeof szName, "/%06u-%d-", ++m_iCount, p_iSvcNum);
  WriteNewFile(m_sFolder + szName + "request.packet", p_sRequest);
  if (!p_sReply.empty()) WriteNewFile(m_sFolder + szName + "reply.packet", p_sReply);
}
