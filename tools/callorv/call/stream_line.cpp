// A line of `callorv call --stream`.
#include "call/stream_line.h"

#include <algorithm>
#include <vector>

#include "command.h"
#include "common/json_number.h"
#include "common/json_text.h"
#include "common/msg_from_json.h"
#include "common/near.h"

namespace {

enum { MAX_SERVICE = 9999, MAX_NAMES = 10000 };    // a number has many forms, also as a text

// The members, of which any may be missing.
struct T_Members {
  CJsonIn::CValue cService, cMessage, cData;
};

T_Members MembersOf(const CJsonIn::CValue& p_cRoot) {
  static const std::vector<std::string> s_asKnown{"service", "message", "data", "id"};
  if (p_cRoot.Kind() != JSON_OBJECT) {
    p_cRoot.Fail(p_cRoot.Words() + " stands where an object with service, message and data belongs");
  }
  T_Members t;
  for (CJsonIn::CValue c = p_cRoot.First(); c; c = c.Next()) {
    if (std::find(s_asKnown.begin(), s_asKnown.end(), c.Name()) == s_asKnown.end()) {
      c.Fail("a line has no member but service, message, data and id" + DidYouMean(c.Name(), s_asKnown));
    }
    if (c.Name() == "service") t.cService = c;
    if (c.Kind() == JSON_NULL) continue;
    if (c.Name() == "message") t.cMessage = c;
    if (c.Name() == "data") t.cData = c;
  }
  return t;
}

// What is no JSON, for somebody who has one line, or may think of several.
std::string InOneLine(std::string p_sText) {
  constexpr std::string_view s_sLine = ": line 1, column ";
  const size_t iLine = p_sText.find(s_sLine);
  if (iLine != std::string::npos) p_sText.replace(iLine, s_sLine.size(), ": column ");
  const bool bBroken = p_sText.find("unexpected end of input") != std::string::npos;
  return p_sText + (bBroken ? "; each object stands on one line, as jq -c writes it" : "");
}

}    // namespace

int CStreamReader::MessageOf(const CJsonIn::CValue& p_cMessage) {
  if (p_cMessage.Kind() != JSON_TEXT) return MessageAt(p_cMessage);
  const std::string sMessage(p_cMessage.Text());
  const auto cKnown = m_cMessages.find(sMessage);
  if (cKnown != m_cMessages.end()) return cKnown->second;
  const int iFound = MessageAt(p_cMessage);
  if (m_cMessages.size() < MAX_NAMES) m_cMessages[sMessage] = iFound;
  return iFound;
}

void CStreamReader::Read(const std::string& p_sName, std::string_view p_sLine, T_StreamCall& p_tCall,
                         CMsg& p_cRequest) {
  try {
    m_cLine.Read(p_sName, p_sLine);
  } catch (const CFailure& cError) {
    throw CFailure(InOneLine(cError.what()));
  }
  const CJsonIn::CValue cRoot = m_cLine.Root(), cId = cRoot.Find("id");
  if (cId) {
    p_tCall.sId.clear();
    AppendValue(p_tCall.sId, cId);
  }
  const T_Members t = MembersOf(cRoot);
  if (!t.cService) cRoot.Fail("there is no member service");
  if (t.cService.Kind() != JSON_NUMBER || !ToInt(t.cService.Text(), p_tCall.iService) || p_tCall.iService < 0 ||
      p_tCall.iService > MAX_SERVICE) {
    p_tCall.iService = 0;
    t.cService.Fail(t.cService.Words() + " stands where a service's number from 0 to 9999 belongs");
  }
  if (!t.cMessage && !t.cData) cRoot.Fail("there is no member message, nor data that says which it is");
  const int iMessage = t.cMessage ? MessageOf(t.cMessage) : 0;
  if (t.cData) return MsgFromJson(p_cRequest, t.cData, iMessage);
  p_cRequest.Init(iMessage, 0, 0);
}
