// Text as the wire, the terminal and JSON have it.
#ifndef CALLORV_TOOLS_TEXT_H
#define CALLORV_TOOLS_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

// The wire speaks ISO-8859-1, one byte a character; terminals and JSON speak UTF-8.
std::string ToUtf8(std::string_view p_sLatin1);
// Text of the command line for the wire. Bytes that are no UTF-8 are taken as they are. Throws CFailure when a
// character has no byte in ISO-8859-1.
std::string ToLatin1(std::string_view p_sText);
// The same with "?" for each such character.
std::string NearestLatin1(std::string_view p_sText);

// ISO-8859-1 text as UTF-8 for people: control characters become U+FFFD, so that what a peer sends cannot steer the
// terminal. Line feeds and tabs stay with p_bLines.
std::string Printable(std::string_view p_sLatin1, bool p_bLines);
// What a failure says, for people: UTF-8 stays, as names of files and what has been made printable are; anything else
// is taken for ISO-8859-1, as the library quotes dictionaries and replies. Control characters but line feeds and tabs
// become U+FFFD.
std::string PrintableFailure(std::string_view p_sText);

// "1 error", "2 errors", "2 classes".
std::string Counted(uint64_t p_uCount, const char* p_szNoun);

// A user key for logs: its first two characters and stars, stars alone for one of up to four characters.
std::string MaskKey(std::string_view p_sKey);

// The whole text as a decimal number from p_iMin to p_iMax. Returns false, with p_iOut as it was, when it is none.
bool ParseNumber(std::string_view p_sText, int p_iMin, int p_iMax, int& p_iOut);

#endif
