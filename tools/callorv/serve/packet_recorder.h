// Keeps the packets of the simulator's calls as files.
#ifndef CALLORV_TOOLS_PACKET_RECORDER_H
#define CALLORV_TOOLS_PACKET_RECORDER_H

#include <atomic>
#include <string>

// One pair of files for each call: 000001-1201-request.packet and 000001-1201-reply.packet, the bytes as they went over
// the wire (`callorv decode` reads them). A call without an answer has no reply file. Only the owner may read the
// files, as requests carry user keys. The count goes on behind the files that the folder has. Any thread.
class CPacketRecorder {
 public:
  // Makes the folder when it is missing. Throws CFailure.
  explicit CPacketRecorder(const std::string& p_sFolder);

  // Throws CFailure.
  void Save(const std::string& p_sRequest, const std::string& p_sReply, int p_iSvcNum);

 private:
  const std::string m_sFolder;
  std::atomic<unsigned> m_iCount;    // calls kept
};

#endif
