// Lines of a descriptor that are taken as they come.
#ifndef CALLORV_TOOLS_LINE_INPUT_H
#define CALLORV_TOOLS_LINE_INPUT_H

#include <cstddef>
#include <string>
#include <string_view>

class CLineInput {
 public:
  enum { MAX_LINE = 16 << 20 };
  enum E_Line { NOTHING_YET, LINE, LINE_TOO_LONG };

  CLineInput(int p_iFd, const std::string& p_sName) : m_iFd(p_iFd), m_sName(p_sName) {}

  // Reads what is there, 64 KB at most; waits when nothing is. Throws CFailure.
  void Read();
  // The next line without its line feed; the last needs none. Of one that is longer than MAX_LINE nothing is kept.
  //   p_sLine  valid until the next operation
  E_Line Next(std::string_view& p_sLine);
  // Whether no line comes any more, and whether nothing is to be read any more.
  bool IsOver() const { return m_bEnd && !m_bSkipping && m_iStart == m_sBytes.size(); }
  bool HasEnded() const { return m_bEnd; }

 private:
  const int m_iFd;
  const std::string m_sName;
  std::string m_sBytes;    // the lines that are not taken begin at m_iStart
  size_t m_iStart = 0;
  size_t m_iSeen = 0;      // behind m_iStart: no line feed stands before
  bool m_bSkipping = false;    // a line that is too long
  bool m_bEnd = false;
};

#endif
