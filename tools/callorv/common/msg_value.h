// One value of a message as text: what a person wrote, checked, and what a message holds.
#ifndef CALLORV_TOOLS_MSG_VALUE_H
#define CALLORV_TOOLS_MSG_VALUE_H

#include <callorv/msg/msg.h>

#include <functional>
#include <string>
#include <string_view>

// Changes a text before it is stored; false: it cannot be said yet, nothing is stored. May throw CFailure.
using CTextFilter = std::function<bool(std::string& p_sText)>;

// Stores a value under a tag that holds no sub-messages; an array grows by one element. The text is UTF-8 and must have
// the tag's type to the letter: a text that ISO-8859-1 can write, a number, true or false, a date of up to eight
// characters. "" is stored by no text and no date. Throws CFailure, the reason beginning with p_sName.
void SetValue(CMsg& p_cMsg, const CTagInfo& p_tTag, const std::string& p_sName, const std::string& p_sValue);

// A text and a version for the wire (ISO-8859-1). Both throw CFailure, the reason beginning with p_sBefore, unless it
// is a character that ISO-8859-1 lacks.
std::string WireText(const std::string& p_sText, const std::string& p_sBefore);
std::string WireVersion(const std::string& p_sText, const std::string& p_sBefore);
// Whether it has the shape that SetValue wants of a date.
bool IsDate(std::string_view p_sText);

// One value as the wire has it (ISO-8859-1), "" when there is none: of an array the element at p_iIndex. Throws
// CFailure, the reason beginning with p_sName, for a tag that holds sub-messages.
std::string GetValue(CMsg& p_cMsg, const CTagInfo& p_tTag, int p_iIndex, const std::string& p_sName);

#endif
