// Captured bytes, as people keep them.
#ifndef CALLORV_TOOLS_CAPTURE_H
#define CALLORV_TOOLS_CAPTURE_H

#include <optional>
#include <string>

// The bytes that a text of hexadecimal digits writes: digits with blanks, colons and line breaks between them as one
// likes, or lines that begin with their offset and may end with the characters, as xxd, hexdump -C and od -A x -t x1z
// write them. None when it is not such a text.
//   p_bCut  half a byte at its end is left out, as the text may be cut off there
//   p_sWhy  on failure why it is none, with the line
std::optional<std::string> FromHex(const std::string& p_sText, bool p_bCut, std::string& p_sWhy);

#endif
