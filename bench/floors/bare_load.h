// The floor of the first use of the library in a process: the parser, loaded and initialised.
#ifndef BENCH_FLOORS_BARE_LOAD_H
#define BENCH_FLOORS_BARE_LOAD_H

#include <dlfcn.h>

// False when it failed. p_szLibrary: the parser's shared library.
inline bool LoadBareParser(const char* p_szLibrary) {
  void* pLibrary = dlopen(p_szLibrary, RTLD_NOW);
  if (pLibrary == nullptr) return false;
  // static void XMLPlatformUtils::Initialize(const char*, const char*, PanicHandler*, MemoryManager*)
  using Initialize = void (*)(const char*, const char*, void*, void*);
  const auto fnInitialize = reinterpret_cast<Initialize>(
      dlsym(pLibrary, "_ZN11xercesc_3_216XMLPlatformUtils10InitializeEPKcS2_PNS_12PanicHandlerEPNS_13MemoryManagerE"));
  if (fnInitialize == nullptr) return false;
  fnInitialize("en_US", nullptr, nullptr, nullptr);
  return true;
}

#endif
