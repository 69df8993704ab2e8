// The allocation functions of every test program.
#include "support/fail_alloc.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

thread_local CFailAlloc* s_pArmed = nullptr;

// While the next function in line works: forms of operator new call one another.
class CPause {
 public:
  CPause() : m_pArmed(s_pArmed) { s_pArmed = nullptr; }
  ~CPause() { s_pArmed = m_pArmed; }
  CPause(const CPause&) = delete;
  CPause& operator=(const CPause&) = delete;

 private:
  CFailAlloc* m_pArmed;
};

typedef void* (*FnNew)(size_t);
const bool LONG_SIZE = sizeof(size_t) == sizeof(unsigned long long);    // of the two mangled forms of size_t

// The operator new that the program would have without this file: the library's, or a sanitizer's.
FnNew NextNew() {
  static const FnNew s_fnNew = reinterpret_cast<FnNew>(dlsym(RTLD_NEXT, LONG_SIZE ? "_Znwm" : "_Znwj"));
  return s_fnNew;
}

FnNew NextNewArray() {
  static const FnNew s_fnNew = reinterpret_cast<FnNew>(dlsym(RTLD_NEXT, LONG_SIZE ? "_Znam" : "_Znaj"));
  return s_fnNew;
}

void* New(FnNew p_fnNext, size_t p_uBytes) {
  if (CFailAlloc::OnAlloc(p_uBytes)) throw std::bad_alloc();
  CPause cPause;
  return p_fnNext(p_uBytes);
}

void* NewNoThrow(FnNew p_fnNext, size_t p_uBytes) noexcept {
  try {
    return New(p_fnNext, p_uBytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}    // namespace

CFailAlloc::CFailAlloc(int p_iNth, int p_iCount)
    : m_iNth(p_iNth), m_iFail(p_iCount), m_iCount(0), m_uBytes(0), m_bFailed(false) {}

CFailAlloc::~CFailAlloc() { Disarm(); }

void CFailAlloc::Arm() { s_pArmed = this; }

void CFailAlloc::Disarm() {
  if (s_pArmed == this) s_pArmed = nullptr;
}

bool CFailAlloc::OnAlloc(size_t p_uBytes) {
  CFailAlloc* p = s_pArmed;
  if (p == nullptr) return false;
  ++p->m_iCount;
  p->m_uBytes += p_uBytes;
  if (p->m_iNth == 0 || p->m_iCount < p->m_iNth || p->m_iCount - p->m_iNth >= p->m_iFail) return false;
  p->m_bFailed = true;
  return true;
}

void CFailAlloc::OnFreeArray() {
  if (s_pArmed != nullptr) ++s_pArmed->m_iFreedArrays;
}

void* operator new(size_t p_uBytes) { return New(NextNew(), p_uBytes); }
void* operator new[](size_t p_uBytes) { return New(NextNewArray(), p_uBytes); }
void* operator new(size_t p_uBytes, const std::nothrow_t&) noexcept { return NewNoThrow(NextNew(), p_uBytes); }
void* operator new[](size_t p_uBytes, const std::nothrow_t&) noexcept { return NewNoThrow(NextNewArray(), p_uBytes); }
void operator delete[](void* p_p) noexcept {
  static const auto s_fnNext = reinterpret_cast<void (*)(void*)>(dlsym(RTLD_NEXT, "_ZdaPv"));
  if (p_p != nullptr) CFailAlloc::OnFreeArray();
  s_fnNext(p_p);
}

// The linker's --wrap option sends our code's calls of malloc here, and calls of __real_malloc to malloc. Visible, as
// it resolves what the shared libraries of a sanitizer build refer to in the same way.
#pragma GCC visibility push(default)
extern "C" {

void* __real_malloc(size_t p_uBytes);
void* __real_calloc(size_t p_uCount, size_t p_uBytes);
void* __real_realloc(void* p_p, size_t p_uBytes);
char* __real_strdup(const char* p_sz);

void* __wrap_malloc(size_t p_uBytes) {
  if (!CFailAlloc::OnAlloc(p_uBytes)) return __real_malloc(p_uBytes);
  errno = ENOMEM;
  return nullptr;
}

void* __wrap_calloc(size_t p_uCount, size_t p_uBytes) {
  if (!CFailAlloc::OnAlloc(p_uCount * p_uBytes)) return __real_calloc(p_uCount, p_uBytes);
  errno = ENOMEM;
  return nullptr;
}

void* __wrap_realloc(void* p_p, size_t p_uBytes) {
  if (!CFailAlloc::OnAlloc(p_uBytes)) return __real_realloc(p_p, p_uBytes);
  errno = ENOMEM;
  return nullptr;
}

char* __wrap_strdup(const char* p_sz) {
  if (!CFailAlloc::OnAlloc(strlen(p_sz) + 1)) return __real_strdup(p_sz);
  errno = ENOMEM;
  return nullptr;
}

}    // extern "C"
#pragma GCC visibility pop
