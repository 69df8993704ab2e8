// Text appended to a stream.
#ifndef CALLORV_BASE_TEXT_OUT_H
#define CALLORV_BASE_TEXT_OUT_H

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "base/double_text.h"
#include "base/number.h"
#include "callorv/base/str.h"
#include "callorv/base/stream.h"

namespace callorv::detail {

// Writes straight into the stream's spare room; the stream's length is right again once this object is gone, also when
// an exception ended the writing. Throws std::bad_alloc when the stream cannot grow.
class CTextOut {
 public:
  explicit CTextOut(CStream& p_st)
      : m_st(p_st), m_pStart(p_st.GetBuffer(p_st.GetSize())), m_p(m_pStart + p_st.GetSize()),
        m_pEnd(m_pStart + p_st.GetCapacity()) {}
  ~CTextOut() { m_st.ReleaseBuffer(static_cast<int>(m_p - m_pStart)); }
  CTextOut(const CTextOut&) = delete;
  CTextOut& operator=(const CTextOut&) = delete;

  // Room for p_uLen bytes; write there, then End() with the first byte behind what was written.
  char* Begin(size_t p_uLen) {
    if (static_cast<size_t>(m_pEnd - m_p) < p_uLen) Grow(p_uLen);
    return m_p;
  }
  void End(char* p_pEnd) { m_p = p_pEnd; }

  void Put(const char* p_p, size_t p_uLen) { End(Copy(Begin(p_uLen), p_p, p_uLen)); }
  void Put(const CString& p_s) { Put(p_s.ToStr(), static_cast<size_t>(p_s.GetSize())); }
  template <size_t N>
  void Put(const char (&p_sz)[N]) { Put(p_sz, N - 1); }
  void PutText(const char* p_sz) { Put(p_sz, strlen(p_sz)); }    // up to its NUL
  void Put(char p_c) { *Begin(1) = p_c; ++m_p; }
  void PutBlanks(int p_iCount) {
    const auto uCount = static_cast<size_t>(p_iCount);
    End(static_cast<char*>(memset(Begin(uCount), ' ', uCount)) + uCount);
  }
  void PutNumber(int p_i) { End(FormatInt(Begin(INT_CHARS), p_i)); }

  // Copies and returns the end.
  static char* Copy(char* p_pOut, const char* p_p, size_t p_uLen) {
    memcpy(p_pOut, p_p, p_uLen);
    return p_pOut + p_uLen;
  }
  template <size_t N>
  static char* Copy(char* p_pOut, const char (&p_sz)[N]) { return Copy(p_pOut, p_sz, N - 1); }

 private:
  CStream& m_st;
  char* m_pStart;
  char* m_p;
  char* m_pEnd;

  void Grow(size_t p_uLen) {
    const long long iSize = m_p - m_pStart, iNeeded = iSize + static_cast<long long>(p_uLen);
    const long long iWanted = std::max(iNeeded, iSize + iSize / 2);
    if (iNeeded >= INT_MAX - 1) throw std::bad_alloc();
    m_st.ReleaseBuffer(static_cast<int>(iSize));
    m_pStart = m_st.GetBuffer(static_cast<int>(std::min<long long>(iWanted, INT_MAX - 1)));
    m_p = m_pStart + iSize;
    m_pEnd = m_pStart + m_st.GetCapacity();
  }
};

}    // namespace callorv::detail

#endif
