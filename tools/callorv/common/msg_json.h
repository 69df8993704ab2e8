// A message as JSON.
#ifndef CALLORV_TOOLS_MSG_JSON_H
#define CALLORV_TOOLS_MSG_JSON_H

#include <callorv/msg/msg.h>

#include <nlohmann/json.hpp>
#include <string>

// {"message": 3, "name": "Quote", "version": "1.0", "values": {"code": "ABC", "rows": [{"price": 1.5}]}}
// Values stand in the dictionary's order under the tag's name; under its number when the name is empty, a number, or an
// earlier tag's, so that MsgFromJson (msg_from_json.h) finds the tag again.
// Tags without a value are left out.
nlohmann::ordered_json MsgToJson(CMsg& p_cMsg);
// The same as a text on one line, which is much less work.
void AppendMsg(std::string& p_sOut, CMsg& p_cMsg);

// Under which name a tag's value stands there. UTF-8.
std::string JsonName(const CMsgInfo& p_cInfo, const CTagInfo& p_tTag);

#endif
