// Messages in XML that people write: nothing in them is cut, converted or left out in silence.
#ifndef CALLORV_TOOLS_MSG_FILE_H
#define CALLORV_TOOLS_MSG_FILE_H

#include <callorv/msg/msg.h>

#include <string>

#include "common/msg_value.h"
#include "common/xml_file.h"

// Fills p_cMsg from a document as CMsg::ToXml and DumpXml write it. A value is the element's whole text, to the letter,
// checked as SetValue (msg_value.h) does; an empty one counts as none. Unknown elements and attributes, text between
// tags, and a second value of what is no array are refused.
//   p_sName     the file's name, for the texts
//   p_sData     its bytes
//   p_fnFilter  for each text that is stored and for the version; may be null
// Throws CFailure "NAME:LINE: reason"; the message then keeps what it got.
void ReadMsgFile(CMsg& p_cMsg, const std::string& p_sName, const std::string& p_sData,
                 const CTextFilter& p_fnFilter = nullptr);
// The same from a document that is read more than once. Any number of threads may read one.
void ReadMsgFile(CMsg& p_cMsg, const CXmlFile& p_cFile, const CTextFilter& p_fnFilter);

#endif
