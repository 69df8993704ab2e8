// Text appended to a stream.
#ifndef CALLORV_MSG_TEXT_OUT_H
#define CALLORV_MSG_TEXT_OUT_H

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "base/double_text.h"
#include "base/number.h"
#include "callorv/base/stream.h"
#include "callorv/base/str.h"

namespace callorv::detail {

// Writes straight into the stream's spare room; the stream's length is right again once this object is gone, also when an
// exception ended the writing. Throws std::bad_alloc when the stream cannot grow.
class CTextOut {
 public:
  explicit CTextOut(CStream& p_st)
      : m_st(p_st), m_pStart(p_st.GetBuffer(p_st.GetSize())), m_p(m_pStart + p_st.GetSize()),
        m_pEnd(m_pStart + p_st.GetCapacity()) {}
  ~CTextOut() { m_st.ReleaseBuffer(static_cast<int>(m_p - m_pStart)); }
  CTextOut(const CTextOut&) = delete;
  CTextOut& operator=(const CTextOut&) = delete;

  // Room for p_iLen bytes; write there, then End() with the first byte behind what was written.
  char* Begin(int p_iLen) {
    if (m_pEnd - m_p < p_iLen) Grow(p_iLen);
    return m_p;
  }
  void End(char* p_pEnd) { m_p = p_pEnd; }

  void Put(const char* p_p, int p_iLen) {
    char* p = Begin(p_iLen);
    memcpy(p, p_p, static_cast<size_t>(p_iLen));
    End(p + p_iLen);
  }
  void Put(const CString& p_s) { Put(p_s.ToStr(), p_s.GetSize()); }
  template <size_t N>
  void Put(const char (&p_sz)[N]) { Put(p_sz, static_cast<int>(N) - 1); }
  void PutText(const char* p_sz) { Put(p_sz, static_cast<int>(strlen(p_sz))); }    // up to its NUL
  void Put(char p_c) { *Begin(1) = p_c; ++m_p; }
  void PutBlanks(int p_iCount) {
    char* p = Begin(p_iCount);
    memset(p, ' ', static_cast<size_t>(p_iCount));
    End(p + p_iCount);
  }
  void PutNumber(int p_i) { End(FormatInt(Begin(11), p_i)); }
  void PutNumber(double p_d) { End(FormatDouble(Begin(DOUBLE_CHARS), p_d)); }

 private:
  CStream& m_st;
  char* m_pStart;
  char* m_p;
  char* m_pEnd;

  void Grow(int p_iLen) {
    const long long iSize = m_p - m_pStart, iWanted = std::max(iSize + p_iLen, iSize + iSize / 2);
    if (iSize + p_iLen >= INT_MAX - 1) throw std::bad_alloc();
    m_st.ReleaseBuffer(static_cast<int>(iSize));
    m_pStart = m_st.GetBuffer(static_cast<int>(std::min<long long>(iWanted, INT_MAX - 1)));
    m_p = m_pStart + iSize;
    m_pEnd = m_pStart + m_st.GetCapacity();
  }
};

}    // namespace callorv::detail

#endif
