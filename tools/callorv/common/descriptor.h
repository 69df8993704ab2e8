// A descriptor that is closed with what it is for.
#ifndef CALLORV_TOOLS_DESCRIPTOR_H
#define CALLORV_TOOLS_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "command.h"

class CDescriptor {
 public:
  // Of what a system call returned. Throws CFailure when that was none.
  explicit CDescriptor(int p_iFd) : m_iFd(p_iFd) {
    if (p_iFd < 0) throw CFailure(std::generic_category().message(errno));
  }
  ~CDescriptor() { close(m_iFd); }
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;
  operator int() const { return m_iFd; }

 private:
  const int m_iFd;
};

#endif
