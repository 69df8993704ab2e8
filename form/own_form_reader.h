// Reads messages of the form that CMsg::ToXml writes.
#ifndef CALLORV_FORM_OWN_FORM_READER_H
#define CALLORV_FORM_OWN_FORM_READER_H

#include "callorv/msg/msg.h"

namespace callorv::detail {

// What every message that is sent begins with.
inline constexpr char XML_DECLARATION[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>";

// Fills the message as the parser and its handler would. False when the text is of any other form, has any fault, or
// when memory is short: the message is then initialised again at most, has no values, and the parser is to read the
// whole text.
bool ReadOwnForm(CMsg& p_cMsg, const char* p_szXml);

}    // namespace callorv::detail

#endif
