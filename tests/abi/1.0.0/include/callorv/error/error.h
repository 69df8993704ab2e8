// Error codes of the message layer, and the last error that an object keeps.
#ifndef CALLORV_ERROR_ERROR_H
#define CALLORV_ERROR_ERROR_H

#include <cstdarg>

#include "callorv/export.h"

namespace callorv {
namespace detail {
struct COwner;
}
}    // namespace callorv

// The codes that callers meet by number; MA_GetErrorStr has the text of each.
enum E_MsgError {
  MSG_OK = 0,
  MSG_NO_DATA = -1,
  MSG_MEMORY = -11,
  MSG_NULL = -12,
  MSG_TAG_RANGE = -14,
  MSG_MSG_RANGE = -15,
  MSG_SUBMSG_RANGE = -16,
  MSG_TAG_TYPE = -17,
  MSG_UNDEF_TAG = -18,
  MSG_UNDEF_MSG = -19,
  MSG_UNDEF_MSG_TAG = -20,
  MSG_XML = -21,
  MSG_DUP_MSG = -22,
  MSG_XML_INIT = -26,
  MSG_INDEX = -27,
  MSG_INPUT = -28,
  MSG_FILE = -32,
  MSG_NOT_INIT = -35,
  MSG_DIC_LOAD = -36
};

// The text of a message-layer code; n and -n have the same. Constant, never freed.
//   returns  "Unknown error" for 0 and from 50 on; null for 37 to 49, which are reserved
// Any thread.
CALLORV_API const char* MA_GetErrorStr(int p_iCode);

// Keeps the text of the latest failure of one object. Not copyable. Use from one thread at a time.
class CALLORV_API CLastError {
 public:
  constexpr CLastError() noexcept : m_pError(nullptr) {}
  ~CLastError();
  CLastError(const CLastError&) = delete;
  CLastError& operator=(const CLastError&) = delete;

  // Text of the latest failure, "" when there was none; a later success does not clear it.
  // Borrowed: valid until the next failure on this object or its destruction.
  const char* GetLastError();
  const char* GetLastError() const { return const_cast<CLastError*>(this)->GetLastError(); }

  // Keeps "MSG_Error(<code>) : <MA_GetErrorStr(code)> {<detail>}", the detail cut at 1023 characters.
  // Throws CException (-11) when there is no memory for it; the text kept before then stays.
  void SetLastError(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);

 protected:
  // SetLastError, and returns p_iCode.
  int Fail(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);
 private:
  struct Error;
  mutable Error* m_pError;    // made by the first failure, which reading may be

  void DropLastError() noexcept;    // as if nothing had failed yet
  void Record(int p_iCode, const char* p_szFmt, va_list p_tArgs) CALLORV_PRINTF(3, 0);

  friend struct callorv::detail::COwner;
};
static_assert(sizeof(CLastError) == sizeof(void*), "programs know its size");

#endif
