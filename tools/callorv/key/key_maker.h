// Makes user-key files.
#ifndef CALLORV_TOOLS_KEY_MAKER_H
#define CALLORV_TOOLS_KEY_MAKER_H

#include <callorv/crypt/crypt.h>

#include <string>

enum {
  KEY_MAX = 31,           // bytes that two blocks hold besides their padding
  KEY_PACKET_MAX = 20     // of which a packet has room for so many
};

// A random key file from which CCrypt::ExtractUserKey takes p_sKey, of 1 to KEY_MAX bytes. Throws CFailure.
T_KeyFile MakeKeyFile(const std::string& p_sKey);

#endif
