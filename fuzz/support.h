// What the fuzz targets share.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

// The fuzzer's entry into a target. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize);

// Ends the process when something does not hold, so that the fuzzer keeps the input.
inline void Expect(bool p_bHolds, const char* p_szWhat) {
  if (p_bHolds) return;
  fprintf(stderr, "WRONG: %s\n", p_szWhat);
  abort();
}
inline void ExpectSame(long long p_iIs, long long p_iShould, const char* p_szWhat) {
  if (p_iIs == p_iShould) return;
  fprintf(stderr, "WRONG: %s: is %lld, should be %lld\n", p_szWhat, p_iIs, p_iShould);
  abort();
}
inline void ExpectSame(std::string_view p_sIs, std::string_view p_sShould, const char* p_szWhat) {
  if (p_sIs == p_sShould) return;
  fprintf(stderr, "WRONG: %s:\n  is        [%.*s]\n  should be [%.*s]\n", p_szWhat, static_cast<int>(p_sIs.size()),
          p_sIs.data(), static_cast<int>(p_sShould.size()), p_sShould.data());
  abort();
}

// What p_fn comes to, called again where the fuzzer's timer, which looks for hangs, has interrupted it.
template <class F>
auto Again(F p_fn) {
  for (;;) {
    const auto Result = p_fn();
    if (Result >= 0 || errno != EINTR) return Result;
  }
}
// What a wait of the library for a reply then comes to.
inline const char* const INTERRUPTED = "Failed in select()(-10)((recv errno=4,Interrupted system call))";

// Takes the fuzzer's bytes from the front; zeros when there are none left.
class CInput {
 public:
  CInput(const uint8_t* p_pData, size_t p_uSize) : m_p(p_pData), m_uLeft(p_uSize) {}

  bool IsEmpty() const { return m_uLeft == 0; }
  uint8_t Byte() {
    uint8_t b = 0;
    Fill(&b, 1);
    return b;
  }
  template <class T>
  T Number() {    // of any bytes
    T Value{};
    Fill(&Value, sizeof(Value));
    return Value;
  }
  std::string Bytes(size_t p_uMost) {
    std::string s(std::min(p_uMost, m_uLeft), '\0');
    Fill(s.data(), s.size());
    return s;
  }
  std::string Rest() { return Bytes(m_uLeft); }

 private:
  const uint8_t* m_p;
  size_t m_uLeft;

  void Fill(void* p_pOut, size_t p_uSize) {
    const size_t uHave = std::min(p_uSize, m_uLeft);
    if (uHave > 0) memcpy(p_pOut, m_p, uHave);
    m_p += uHave;
    m_uLeft -= uHave;
  }
};

// A file in the folder for temporary ones; scripts/fuzz names one in memory.
class CInputFile {
 public:
  explicit CInputFile(const char* p_szSuffix)
      : m_sPath((std::filesystem::temp_directory_path() / "callorv-fuzz-XXXXXX").string() + p_szSuffix),
        m_iFile(mkstemps(m_sPath.data(), static_cast<int>(strlen(p_szSuffix)))) {
    Expect(m_iFile >= 0, "no temporary file");
  }
  ~CInputFile() {
    close(m_iFile);
    unlink(m_sPath.c_str());
  }
  CInputFile(const CInputFile&) = delete;
  CInputFile& operator=(const CInputFile&) = delete;

  const char* Path() const { return m_sPath.c_str(); }
  void Write(std::string_view p_s) {    // instead of what it held
    const bool bWritten = pwrite(m_iFile, p_s.data(), p_s.size(), 0) == static_cast<ssize_t>(p_s.size());
    Expect(bWritten && ftruncate(m_iFile, static_cast<off_t>(p_s.size())) == 0, "cannot write temporary file");
  }
  std::string Read() const {
    std::string s(static_cast<size_t>(lseek(m_iFile, 0, SEEK_END)), '\0');
    Expect(pread(m_iFile, s.data(), s.size(), 0) == static_cast<ssize_t>(s.size()), "cannot read temporary file");
    return s;
  }

 private:
  std::string m_sPath;
  int m_iFile;
};

#endif
