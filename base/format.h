// printf-style formatting into a text.
#ifndef CALLORV_BASE_FORMAT_H
#define CALLORV_BASE_FORMAT_H

#include <cstdarg>

#include "callorv/base/str.h"

namespace callorv::detail {

// Sets *p_pOut to p_szFmt filled in, of any length; "" for null and for a format that cannot be printed. The arguments
// may point into *p_pOut. False when memory is short, *p_pOut being as before: the caller has to end its va_list
// before it throws.
bool VFormat(CString* p_pOut, const char* p_szFmt, va_list p_tArgs) noexcept CALLORV_PRINTF(2, 0);

}    // namespace callorv::detail

#endif
