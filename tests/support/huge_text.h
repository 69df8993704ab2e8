// A text of more bytes than an int can count, which takes hardly any memory. For 64-bit programs.
#ifndef TESTS_SUPPORT_HUGE_TEXT_H
#define TESTS_SUPPORT_HUGE_TEXT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>

// ThreadSanitizer keeps several bytes for each byte that is read, and so would not get far.
#if __SIZEOF_POINTER__ == 8 && !defined(__SANITIZE_THREAD__)
#define HAVE_HUGE_TEXT 1

// The same megabyte, mapped over and over, with a NUL behind it: 2147483648 times 'x'.
class CHugeText {
 public:
  CHugeText() {
    const int iFile = memfd_create("huge_text", 0);
    if (iFile < 0 || ftruncate(iFile, PIECE) != 0) throw std::bad_alloc();
    m_pText = static_cast<char*>(Map(nullptr, SIZE + PIECE, -1));
    for (size_t i = 0; i < SIZE; i += PIECE) Map(m_pText + i, PIECE, iFile);
    close(iFile);
    memset(m_pText, 'x', PIECE);
  }
  ~CHugeText() { munmap(m_pText, SIZE + PIECE); }
  CHugeText(const CHugeText&) = delete;
  CHugeText& operator=(const CHugeText&) = delete;

  const char* ToStr() const { return m_pText; }

 private:
  static const size_t PIECE = size_t{1} << 20, SIZE = size_t{1} << 31;
  char* m_pText;

  static void* Map(void* p_pAt, size_t p_iSize, int p_iFile) {
    const int iWhat = p_iFile < 0 ? MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE : MAP_SHARED | MAP_FIXED;
    void* p = mmap(p_pAt, p_iSize, PROT_READ | PROT_WRITE, iWhat, p_iFile, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    return p;
  }
};

#endif

#endif
