// Whole files.
#ifndef CALLORV_CRYPT_FILE_H
#define CALLORV_CRYPT_FILE_H

#include "callorv/base/str.h"
#include "callorv/base/stream.h"

namespace callorv::detail {

// Reads a file into p_stOut (emptied first, as is p_sErr). Of a file that changes meanwhile, at most the bytes that it had
// at first are read. A directory, like anything else that opens but gives no bytes, reads as empty.
//   p_iBlock  what the size must be a multiple of
//   returns   0; -1 "p_szFileName is NULL"; -2 "File not found(%s)"; -3 "File may be corrupted" (size); -5 "File cannot be
//             open(%s)", also for more than 2147483646 bytes
// Throws std::bad_alloc.
int ReadFile(const char* p_szFileName, CStream& p_stOut, CString& p_sErr, int p_iBlock = 1);

}    // namespace callorv::detail

#endif
