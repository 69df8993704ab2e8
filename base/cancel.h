// Threads that are cancelled.
#ifndef CALLORV_BASE_CANCEL_H
#define CALLORV_BASE_CANCEL_H

#include <pthread.h>

#include <cstdio>
#include <memory>

namespace callorv::detail {

// While this lives, a pthread_cancel of the calling thread waits. For what must not end half-way, and for destructors:
// closing a file is a cancellation point, and a cancellation that leaves a destructor ends the process.
class CNoCancel {
 public:
  CNoCancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_iBefore); }
  ~CNoCancel() { pthread_setcancelstate(m_iBefore, nullptr); }
  CNoCancel(const CNoCancel&) = delete;
  CNoCancel& operator=(const CNoCancel&) = delete;

 private:
  int m_iBefore = PTHREAD_CANCEL_ENABLE;
};

// Closes a file; what fclose returned.
inline int Close(FILE* p_pFile) {
  const CNoCancel cWhole;
  return fclose(p_pFile);
}

struct T_CloseFile {
  void operator()(FILE* p_pFile) const { (void)Close(p_pFile); }    // where nothing is to be lost
};
using CFilePtr = std::unique_ptr<FILE, T_CloseFile>;

}    // namespace callorv::detail

#endif
