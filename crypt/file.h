// Files that are read.
#ifndef CALLORV_CRYPT_FILE_H
#define CALLORV_CRYPT_FILE_H

#include "base/cancel.h"
#include "callorv/base/str.h"
#include "callorv/base/stream.h"

namespace callorv::detail {

// Reads a whole file into p_stOut; that and p_sErr are emptied first, but for a null name. Of a file that changes
// meanwhile, at most as many bytes as it had at first. A directory has a size but reads as empty. A pipe or a device is
// empty, if it may be read, and not even opened, since that could wait or have effects; a socket cannot be opened.
//   p_iBlock  what the size must be a multiple of
//   returns   0; -1 "p_szFileName is NULL"; -2 "File not found(%s)"; -3 "File may be corrupted" (its size); -5 "File
//             cannot be open(%s)", also for more than 2147483646 bytes
// Throws std::bad_alloc.
int ReadFile(const char* p_szFileName, CStream& p_stOut, CString& p_sErr, int p_iBlock = 1);

}    // namespace callorv::detail

#endif
