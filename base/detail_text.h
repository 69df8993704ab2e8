// The detail of an error text, as both error records format it.
#ifndef CALLORV_BASE_DETAIL_TEXT_H
#define CALLORV_BASE_DETAIL_TEXT_H

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

#include "callorv/base/exception.h"

namespace callorv::detail {

// "at <source>(<line> lines), (new <what>) failed(<why>)" with the code for no memory in either table of codes.
[[noreturn]] inline void ThrowNoMemory(const char* p_szSource, int p_iLine, const char* p_szWhat, const char* p_szWhy) {
  throw CException(-11, "at %s(%d lines), (new %s) failed(%s)", p_szSource, p_iLine, p_szWhat, p_szWhy);
}

// A detail is cut to what fits into this many bytes with its NUL.
enum { DETAIL_SIZE = 1024, DETAIL_MAX_SIZE = 1 << 20 };

// p_szFmt filled in, cut at DETAIL_SIZE - 1 characters. The buffer grows only while the formatter reports failure, and
// not beyond DETAIL_MAX_SIZE: a format that can never be printed must not eat the process's memory.
// Throws CException (-11), naming p_szSource, p_iLine and p_szWhat, when no buffer can be had.
CALLORV_PRINTF(4, 0)
inline std::unique_ptr<char[]> FormatDetail(const char* p_szSource, int p_iLine, const char* p_szWhat,
                                            const char* p_szFmt, va_list p_tArgs) {
  for (int iLen = DETAIL_SIZE; iLen <= DETAIL_MAX_SIZE; iLen += DETAIL_SIZE) {
    std::unique_ptr<char[]> pBuf;
    try {
      pBuf.reset(new char[static_cast<size_t>(iLen)]);
    } catch (const std::bad_alloc& cNoMemory) {
      ThrowNoMemory(p_szSource, p_iLine, p_szWhat, cNoMemory.what());
    }
    va_list tArgs;
    va_copy(tArgs, p_tArgs);
    const int iRet = vsnprintf(pBuf.get(), static_cast<size_t>(iLen), p_szFmt, tArgs);
    va_end(tArgs);
    if (iRet >= 0 || errno == EOVERFLOW) return pBuf;    // the whole would have more than 2147483647 characters
  }
  ThrowNoMemory(p_szSource, p_iLine, p_szWhat, "vsnprintf");
}

}    // namespace callorv::detail

#endif
