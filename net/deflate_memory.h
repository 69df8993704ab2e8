// What zlib compresses in.
#ifndef CALLORV_NET_DEFLATE_MEMORY_H
#define CALLORV_NET_DEFLATE_MEMORY_H

#include <zlib.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <utility>

namespace callorv::detail {

// The memory of a compression, which zlib asks for in five blocks, as one. Freed pieces at the end of the heap the C
// library gives back to the kernel, to fault them in again for the next request, which takes longer than compressing a
// short one; but once a block of this size is freed, it keeps as much.
class CDeflateMemory {
 public:
  CDeflateMemory() : m_pBlock(static_cast<char*>(malloc(SIZE))) {}
  ~CDeflateMemory() { free(m_pBlock); }
  CDeflateMemory(const CDeflateMemory&) = delete;
  CDeflateMemory& operator=(const CDeflateMemory&) = delete;

  void Serve(z_stream& p_tStream) {
    p_tStream.opaque = this;
    p_tStream.zalloc = [](voidpf p_pThis, uInt p_uItems, uInt p_uSize) {
      return static_cast<CDeflateMemory*>(p_pThis)->Allocate(size_t{p_uItems} * p_uSize);
    };
    p_tStream.zfree = [](voidpf p_pThis, voidpf p_p) { static_cast<CDeflateMemory*>(p_pThis)->Free(p_p); };
  }

 private:
  // As zlib's header says for the default level: 128 KB for the window, 128 KB for the rest, and some small objects.
  enum { SIZE = (1 << (MAX_WBITS + 2)) + (1 << (8 + 9)) + 8192, ALIGNMENT = alignof(max_align_t) };
  char* const m_pBlock;
  size_t m_uUsed = 0;

  void* Allocate(size_t p_uSize) {
    if (m_pBlock == nullptr) return nullptr;
    const size_t uEnd = (m_uUsed + p_uSize + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    return uEnd <= SIZE ? m_pBlock + std::exchange(m_uUsed, uEnd) : malloc(p_uSize);    // another zlib may want more
  }
  void Free(void* p_p) const {
    const std::less<const void*> fnLess;
    if (fnLess(p_p, m_pBlock) || !fnLess(p_p, m_pBlock + SIZE)) free(p_p);
  }
};

}    // namespace callorv::detail

#endif
