// What valgrind cannot host: it hands out descriptors and memory itself, and takes a bad pointer for a mistake.
#ifndef TESTS_SUPPORT_VALGRIND_H
#define TESTS_SUPPORT_VALGRIND_H

#include <cstdio>
#include <cstdlib>
#include <cstring>

inline bool IsUnderValgrind() {
  const char* szPreload = getenv("LD_PRELOAD");
  return szPreload != nullptr && strstr(szPreload, "vgpreload") != nullptr;
}

// Leaves a test case that valgrind cannot host. CTest sees the words, and counts the test as skipped.
#define NOT_UNDER_VALGRIND(WHY)                         \
  do {                                                  \
    if (IsUnderValgrind()) {                            \
      puts("NOT TRIED under valgrind: " WHY);           \
      return;                                           \
    }                                                   \
  } while (false)

#endif
