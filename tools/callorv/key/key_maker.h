// Makes user-key files.
#ifndef CALLORV_TOOLS_KEY_MAKER_H
#define CALLORV_TOOLS_KEY_MAKER_H

#include <callorv/crypt/crypt.h>

#include <string_view>

enum {
  KEY_MAX = 31,           // bytes that two blocks hold besides their padding
  KEY_PACKET_MAX = 20     // of which a packet has room for so many
};

// A random key file with an encrypted key, one or two blocks; a key of 1 to KEY_MAX bytes is so many. Throws CFailure.
T_KeyFile MakeKeyFile(std::string_view p_sSecret);
// Its bytes.
inline std::string_view View(const T_KeyFile& p_tFile) {
  return {reinterpret_cast<const char*>(&p_tFile), sizeof(p_tFile)};
}

#endif
