// A growable byte buffer.
#ifndef CALLORV_BASE_STREAM_H
#define CALLORV_BASE_STREAM_H

#include <utility>

#include "callorv/export.h"

// Bytes with a length, always followed by a NUL that the length does not count, so that text in a stream can be
// handed on as a C string. Not copyable. Use from one thread at a time.
class CALLORV_API CStream {
 public:
  // p_iInitialSize  bytes to make room for at once (0 or less: none)
  // p_iGrowBy       the least number of bytes by which the room grows (below 1: 1); it grows faster when the
  //                 stream is long, so that appending stays linear
  // Throws std::bad_alloc when the first room cannot be had.
  CStream(int p_iInitialSize, int p_iGrowBy);
  ~CStream();
  CStream(const CStream&) = delete;
  CStream& operator=(const CStream&) = delete;

  int GetSize() const { return m_iSize; }        // length in bytes
  // The bytes, never null. Borrowed: valid until the stream next grows or is destroyed. Write below GetSize() only.
  char* GetData() const { return m_pData; }

  // Appends exactly p_iLen bytes, NULs included; p_pData may lie inside this stream. 0, or -1 when memory is
  // short or the length would pass 2147483646; the stream is then as before. p_iLen below 1 appends nothing.
  int AppendData(const char* p_pData, int p_iLen);

  void Clear();    // length 0; the room is kept

  // Makes room for p_iSize bytes and the NUL; what the stream holds stays. Returns the start of the data, to be
  // written up to p_iSize and then confirmed with ReleaseBuffer. Throws std::bad_alloc, leaving the stream as it was.
  char* GetBuffer(int p_iSize);
  // Sets the length to p_iLen (at most what GetBuffer made room for) and puts the NUL behind it.
  void ReleaseBuffer(int p_iLen);
  int GetCapacity() const { return m_iCapacity; }    // bytes that fit without growing
  // Changes places with another stream; nothing is copied. Data that was borrowed moves with its stream.
  void Swap(CStream& p_st) noexcept {
    std::swap(m_pData, p_st.m_pData);
    std::swap(m_iSize, p_st.m_iSize);
    std::swap(m_iCapacity, p_st.m_iCapacity);
    std::swap(m_iGrowBy, p_st.m_iGrowBy);
  }

 private:
  char* m_pData;
  int m_iSize;
  int m_iCapacity;    // without the byte for the NUL; 0: m_pData is not ours
  int m_iGrowBy;

  bool Grow(long long p_iSize);
  bool Reallocate(int p_iCapacity);
};

#endif
