// Texts that stay long when they are compressed.
#ifndef TESTS_SUPPORT_LONG_TEXT_H
#define TESTS_SUPPORT_LONG_TEXT_H

#include <fstream>
#include <random>
#include <string>

// One that compression makes a quarter shorter. It has no character that ends a CDATA section.
inline std::string RandomText(size_t p_uLen) {
  std::mt19937 cRandom(1);
  std::string sText(p_uLen, ' ');
  for (char& c : sText) c = static_cast<char>('!' + cRandom() % 60);
  return sText;
}

// One of which the kernel cannot take all while the peer does not read: half as much again as it keeps for sending.
inline std::string TextBeyondBuffers() {
  size_t uLeast = 0, uDefault = 0, uMost = 4 << 20;
  std::ifstream("/proc/sys/net/ipv4/tcp_wmem") >> uLeast >> uDefault >> uMost;
  return RandomText(2 * uMost);
}

#endif
