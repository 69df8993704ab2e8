// Finds what may be a user key among bytes that are no whole packet.
#ifndef CALLORV_TOOLS_KEY_GUARD_H
#define CALLORV_TOOLS_KEY_GUARD_H

#include <string_view>
#include <vector>

// Which bytes may belong to the user key of a header that is cut off at either end: those where the key of one that
// begins here would stand, those behind a time stamp, and those before the fields that follow the key; all when
// HoldsHexKey.
std::vector<bool> MayBeKey(std::string_view p_sBytes);

// Whether a text writes the beginning of a packet, perhaps among other things, or bytes that may be a user key, in
// hexadecimal digits.
bool HoldsHexKey(std::string_view p_sText);

#endif
