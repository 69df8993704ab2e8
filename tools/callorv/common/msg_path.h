// Values of a message by path: code, 1, list[2], rows[0].price.
#ifndef CALLORV_TOOLS_MSG_PATH_H
#define CALLORV_TOOLS_MSG_PATH_H

#include <callorv/msg/msg.h>

#include <string>

// Each step of a path is a tag's name or number, with the index of an element in brackets behind an array's.

// Whether the text has a path's shape.
bool IsPath(const std::string& p_sPath);

// The type of the value at a path in message p_iMsgNum of the dictionary. Throws CFailure when there is no such tag.
E_TagType TypeAt(CMsgDic& p_cDic, int p_iMsgNum, const std::string& p_sPath);

// Stores PATH=VALUE, the value as SetValue (msg_value.h) takes it. An array tag grows by one element, and an index must
// be that of the next; rows that the path names are made in order as well. Throws CUsage when the text has another
// shape, CFailure when the message cannot take it.
void SetByPath(CMsg& p_cMsg, const std::string& p_sAssignment);

// The value at a path as the wire has it (ISO-8859-1), "" when there is none. Of an array without an index the first.
// Throws CFailure when the message has no such tag.
std::string GetByPath(CMsg& p_cMsg, const std::string& p_sPath);

#endif
