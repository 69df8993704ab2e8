// Standard output that nobody waits for: what it does not take is kept.
#ifndef CALLORV_TOOLS_OUTPUT_H
#define CALLORV_TOOLS_OUTPUT_H

#include <cstddef>
#include <string>

class COutput {
 public:
  explicit COutput(int p_iFd);

  std::string& Bytes() { return m_sBytes; }    // append to it
  size_t Size() const { return m_sBytes.size() - m_iStart; }    // of what is kept

  // Writes what is taken without waiting: all of it to a file. Throws CFailure when nothing can be written any more.
  void Flush();

 private:
  const int m_iFd;
  bool m_bWaits;    // a pipe, a terminal or a socket, which may be full
  std::string m_sBytes;
  size_t m_iStart = 0;    // before it everything was written
};

#endif
