// Messages in JSON that people and programs write: nothing in it is cut, converted or left out in silence.
#ifndef CALLORV_TOOLS_MSG_FROM_JSON_H
#define CALLORV_TOOLS_MSG_FROM_JSON_H

#include <callorv/msg/msg.h>

#include <string>

#include "common/json_in.h"
#include "common/msg_value.h"

// A message comes as its values alone, an object with a member for each tag by name or by number, or as the whole
// object that MsgToJson (msg_json.h) makes, which has the members `message` and `values`.
bool IsWholeMessage(const CJsonIn::CValue& p_cData);

// The number of a message that is given by number or name. Throws CFailure with the place.
int MessageAt(const CJsonIn::CValue& p_cMessage);

// Fills p_cMsg, which is initialised again. Of a whole message the version is taken, too; it may be of no other message
// than p_iMessage, and its name must be that of its number. null is no value. A double whose text on the wire is
// shorter than it was written is warned of.
//   p_iMessage  the message's number; 0: p_cData says which it is
//   p_fnFilter  for each text of a value; one that it changes is stored as SetValue (msg_value.h) does, whatever type
//               the tag has, and "" is no value; may be null
// Throws CFailure with the place of what a message cannot take: p_cMsg then keeps what it got.
void MsgFromJson(CMsg& p_cMsg, const CJsonIn::CValue& p_cData, int p_iMessage,
                 const CTextFilter& p_fnFilter = nullptr);

#endif
