// The simulator's answers: a folder of reply files.
#ifndef CALLORV_TOOLS_REPLY_STORE_H
#define CALLORV_TOOLS_REPLY_STORE_H

#include <callorv/msg/msg.h>

#include <stdexcept>
#include <string>

// The service has no reply file.
class CNoReply : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Service 1201 is answered from 1201.xml, a message in XML. The file is read again for every call, so that a changed
// one counts at once. {{tag:PATH}} in it stands for that value of the request, nothing when the request has none.
class CReplyStore {
 public:
  // p_bAsLibrary  the files are read by the library, as it reads messages; else as ReadMsgFile (msg_file.h) does, every
  //               one here already, as far as it can be without a request
  // Throws CFailure when the folder cannot be read, or with a line for each file that cannot be used.
  CReplyStore(const std::string& p_sFolder, bool p_bAsLibrary);

  // Fills p_cReply. Throws CNoReply; CFailure when the file cannot be used, the text naming it. Any thread.
  void Load(int p_iSvcNum, CMsg& p_cRequest, CMsg& p_cReply) const;

 private:
  const std::string m_sFolder;
  const bool m_bAsLibrary;

  void CheckAll() const;
};

#endif
