// The program's own malloc.
#include "malloc_gate.h"

#include <errno.h>
#include <link.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

extern "C" {
void* __libc_malloc(size_t p_uBytes);
void* __libc_memalign(size_t p_uAlign, size_t p_uBytes);
void __libc_free(void* p_p);
}

namespace {

// In front of every block.
struct alignas(16) T_Head {
  size_t uSize;
  uint32_t uOffset;    // from the start of what the C library gave
  uint32_t uMark;      // MARK and the asker, and COUNTED
};
static_assert(sizeof(T_Head) == 16);
constexpr uint32_t MARK = 0x5ca1ab00, ASKER = 1, COUNTED = 2, FREED = 0xdeadbeef;

struct T_Range {
  uintptr_t uFrom, uTo;
  bool Holds(const void* p_p) const {
    return reinterpret_cast<uintptr_t>(p_p) >= uFrom && reinterpret_cast<uintptr_t>(p_p) < uTo;
  }
};

// The code that counts as our own.
T_Range s_atOwn[16];
int s_iOwn = 0;

std::atomic<long> s_aiLive[2];
thread_local bool s_bArmed = false;
int s_iNth = 0, s_iFail = 0, s_iCount = 0;    // of the armed thread
bool s_abFailed[2];

int AddOwn(dl_phdr_info* p_pInfo, size_t, void*) {
  static const char* const s_aszOwn[] = {"/libcallorv", "/libz.", "/libc.", "/libstdc++", "/libm.", "/libgcc_s"};
  bool bOwn = p_pInfo->dlpi_name[0] == 0;    // the program
  for (const char* szOwn : s_aszOwn) bOwn = bOwn || strstr(p_pInfo->dlpi_name, szOwn) != nullptr;
  for (int i = 0; bOwn && i < p_pInfo->dlpi_phnum; ++i) {
    const ElfW(Phdr)& tPart = p_pInfo->dlpi_phdr[i];
    if (tPart.p_type != PT_LOAD || (tPart.p_flags & PF_X) == 0 || s_iOwn == 16) continue;
    const uintptr_t uFrom = p_pInfo->dlpi_addr + tPart.p_vaddr;
    s_atOwn[s_iOwn++] = {uFrom, uFrom + tPart.p_memsz};
  }
  return 0;
}

E_Asker AskerAt(const void* p_pCaller) {
  for (int i = 0; i < s_iOwn; ++i) {
    if (s_atOwn[i].Holds(p_pCaller)) return ASKER_OWN;
  }
  return ASKER_PARSER;
}

bool MustFail(E_Asker p_eAsker) {
  if (!s_bArmed) return false;
  ++s_iCount;
  if (s_iNth == 0 || s_iCount < s_iNth || s_iCount - s_iNth >= s_iFail) return false;
  s_abFailed[p_eAsker] = true;
  return true;
}

T_Head& HeadOf(void* p_p) { return static_cast<T_Head*>(p_p)[-1]; }

// A block at a multiple of p_uAlign, which is a power of 2. p_pCaller: the code that asks.
void* Take(size_t p_uBytes, size_t p_uAlign, const void* p_pCaller) noexcept {
  const E_Asker eAsker = s_bArmed ? AskerAt(p_pCaller) : ASKER_OWN;
  const size_t uOffset = p_uAlign > sizeof(T_Head) ? p_uAlign : sizeof(T_Head);
  if (MustFail(eAsker) || p_uBytes > SIZE_MAX / 2 || uOffset > SIZE_MAX / 4) {
    errno = ENOMEM;
    return nullptr;
  }
  char* pBase = static_cast<char*>(p_uAlign > sizeof(T_Head) ? __libc_memalign(p_uAlign, uOffset + p_uBytes)
                                                             : __libc_malloc(uOffset + p_uBytes));
  if (pBase == nullptr) return nullptr;
  void* p = pBase + uOffset;
  HeadOf(p) = {p_uBytes, static_cast<uint32_t>(uOffset), MARK + eAsker + (s_bArmed ? COUNTED : 0)};
  if (s_bArmed) ++s_aiLive[eAsker];
  return p;
}

void Give(void* p_p) noexcept {
  if (p_p == nullptr) return;
  T_Head& tHead = HeadOf(p_p);
  if (tHead.uMark == FREED) __builtin_trap();    // twice
  if ((tHead.uMark & ~(ASKER | COUNTED)) != MARK) {
    __libc_free(p_p);    // from before this malloc was in its place
    return;
  }
  if (tHead.uMark & COUNTED) --s_aiLive[tHead.uMark & ASKER];
  tHead.uMark = FREED;
  __libc_free(static_cast<char*>(p_p) - tHead.uOffset);
}

void* TakeOrThrow(size_t p_uBytes, const void* p_pCaller) {
  if (void* p = Take(p_uBytes, 1, p_pCaller)) return p;
  throw std::bad_alloc();
}

}    // namespace

void CMallocGate::Begin() { dl_iterate_phdr(AddOwn, nullptr); }

void CMallocGate::Arm(int p_iNth, int p_iCount) {
  s_iNth = p_iNth;
  s_iFail = p_iCount;
  s_iCount = 0;
  s_abFailed[ASKER_OWN] = s_abFailed[ASKER_PARSER] = false;
  s_bArmed = true;
}

void CMallocGate::Disarm() { s_bArmed = false; }
bool CMallocGate::HasFailed() { return s_abFailed[ASKER_OWN] || s_abFailed[ASKER_PARSER]; }
bool CMallocGate::HasParserFailed() { return s_abFailed[ASKER_PARSER]; }
long CMallocGate::GetLive(E_Asker p_eAsker) { return s_aiLive[p_eAsker]; }

// Visible, so that the shared libraries find these before the C and the C++ library's.
#pragma GCC visibility push(default)

void* operator new(size_t p_uBytes) { return TakeOrThrow(p_uBytes, __builtin_return_address(0)); }
void* operator new[](size_t p_uBytes) { return TakeOrThrow(p_uBytes, __builtin_return_address(0)); }
void* operator new(size_t p_uBytes, const std::nothrow_t&) noexcept {
  return Take(p_uBytes, 1, __builtin_return_address(0));
}
void* operator new[](size_t p_uBytes, const std::nothrow_t&) noexcept {
  return Take(p_uBytes, 1, __builtin_return_address(0));
}
void operator delete(void* p_p) noexcept { Give(p_p); }
void operator delete[](void* p_p) noexcept { Give(p_p); }
void operator delete(void* p_p, size_t) noexcept { Give(p_p); }
void operator delete[](void* p_p, size_t) noexcept { Give(p_p); }
void operator delete(void* p_p, const std::nothrow_t&) noexcept { Give(p_p); }
void operator delete[](void* p_p, const std::nothrow_t&) noexcept { Give(p_p); }

extern "C" {

void* malloc(size_t p_uBytes) noexcept { return Take(p_uBytes, 1, __builtin_return_address(0)); }
void free(void* p_p) noexcept { Give(p_p); }

void* calloc(size_t p_uCount, size_t p_uBytes) noexcept {
  size_t uAll = 0;
  if (__builtin_mul_overflow(p_uCount, p_uBytes, &uAll)) {
    errno = ENOMEM;
    return nullptr;
  }
  void* p = Take(uAll, 1, __builtin_return_address(0));
  return p != nullptr ? memset(p, 0, uAll) : nullptr;
}

void* realloc(void* p_p, size_t p_uBytes) noexcept {
  if (p_p != nullptr && p_uBytes == 0) {
    Give(p_p);
    return nullptr;
  }
  void* p = Take(p_uBytes, 1, __builtin_return_address(0));
  if (p == nullptr || p_p == nullptr) return p;
  const size_t uOld = HeadOf(p_p).uSize;
  memcpy(p, p_p, uOld < p_uBytes ? uOld : p_uBytes);
  Give(p_p);
  return p;
}

void* memalign(size_t p_uAlign, size_t p_uBytes) noexcept {
  return Take(p_uBytes, p_uAlign, __builtin_return_address(0));
}
void* aligned_alloc(size_t p_uAlign, size_t p_uBytes) noexcept {
  return Take(p_uBytes, p_uAlign, __builtin_return_address(0));
}
int posix_memalign(void** p_pp, size_t p_uAlign, size_t p_uBytes) noexcept {
  *p_pp = Take(p_uBytes, p_uAlign, __builtin_return_address(0));
  return *p_pp != nullptr ? 0 : ENOMEM;
}
size_t malloc_usable_size(void* p_p) noexcept { return p_p != nullptr ? HeadOf(p_p).uSize : 0; }

}    // extern "C"
#pragma GCC visibility pop
