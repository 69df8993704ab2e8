// A line of `callorv call --stream`: {"service": 1201, "message": "Quote", "data": {...}, "id": ...}.
#ifndef CALLORV_TOOLS_STREAM_LINE_H
#define CALLORV_TOOLS_STREAM_LINE_H

#include <callorv/msg/msg.h>

#include <map>
#include <string>
#include <string_view>

#include "common/json_in.h"

struct T_StreamCall {
  std::string sId = "null";    // as JSON
  int iService = 0;
};

class CStreamReader {
 public:
  // p_sName  of the line, for the texts
  // Throws CFailure; p_tCall then has what was found before.
  void Read(const std::string& p_sName, std::string_view p_sLine, T_StreamCall& p_tCall, CMsg& p_cRequest);

 private:
  CJsonIn m_cLine;                          // kept for its memory
  std::map<std::string, int> m_cMessages;    // by name, which takes long to look up

  int MessageOf(const CJsonIn::CValue& p_cMessage);
};

#endif
