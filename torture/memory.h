// How much memory the process has.
#ifndef TORTURE_MEMORY_H
#define TORTURE_MEMORY_H

#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

// The sanitizers hold freed memory back, so that what is in use cannot be told.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool MEMORY_IS_KNOWN = false;
#else
constexpr bool MEMORY_IS_KNOWN = true;
#endif

// What malloc has handed out.
inline long long BytesInUse() {
  const struct mallinfo2 tInfo = mallinfo2();
  return static_cast<long long>(tInfo.uordblks) + static_cast<long long>(tInfo.hblkhd);
}

// What is resident.
inline long long ResidentBytes() {
  std::ifstream cIn("/proc/self/statm");
  long long lTotal = 0, lResident = 0;
  if (!(cIn >> lTotal >> lResident)) throw std::runtime_error("/proc/self/statm cannot be read");
  return lResident * sysconf(_SC_PAGESIZE);
}

#endif
