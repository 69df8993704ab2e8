// How many descriptors the process has open.
#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <filesystem>
#include <iterator>

inline long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

#endif
