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
  // Throws CFailure when the folder cannot be read.
  explicit CReplyStore(const std::string& p_sFolder);

  // Fills p_cReply. Throws CNoReply; CFailure when the file cannot be used, the text naming it. Any thread.
  void Load(int p_iSvcNum, CMsg& p_cRequest, CMsg& p_cReply) const;

 private:
  std::string m_sFolder;
};

// The text with every {{tag:PATH}} filled in from p_cRequest, in the encoding that the text declares. A value that
// markup would break stands in a CDATA section of its own. Throws CFailure.
std::string FillTemplate(const std::string& p_sXml, CMsg& p_cRequest);

#endif
