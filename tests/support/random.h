// Numbers for tests of many cases.
#ifndef TESTS_SUPPORT_RANDOM_H
#define TESTS_SUPPORT_RANDOM_H

#include <cstdint>
#include <string>

// Numbers that look random and are the same in every run.
class CRandom {
 public:
  explicit CRandom(uint32_t p_iSeed) : m_iState(p_iSeed) {}
  unsigned char Byte() {
    m_iState = m_iState * 1664525 + 1013904223;
    return static_cast<unsigned char>(m_iState >> 24);
  }
  std::string Bytes(size_t p_iCount) {
    std::string s(p_iCount, '\0');
    for (char& c : s) c = static_cast<char>(Byte());
    return s;
  }

 private:
  uint32_t m_iState;
};

#endif
