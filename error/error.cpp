// Error codes of the message layer, and the last error that an object keeps.
#include "callorv/error/error.h"

#include <cstdarg>
#include <utility>

#include "base/detail_text.h"
#include "callorv/base/exception.h"
#include "callorv/base/str.h"

namespace {

const char s_szNA[] = "N/A";
// The text of code -n; the slots from 37 on are reserved.
constexpr const char* s_szaErrStr[50] = {
    "Unknown error",
    "No Data found",
    s_szNA, s_szNA, s_szNA, s_szNA, s_szNA, s_szNA, s_szNA, s_szNA, s_szNA,
    "Memory error",
    "Parameter is NULL",
    "TagDic error",
    "Out of tagnum boundary",
    "Out of msgnum boundary",
    "Out of submsg bounaryd",    // sic
    "Invalid tag type",
    "Not defined tag in dictionary",
    "Not defined msg in dictionary",
    "Not defined tag in msg dictionary",
    "XML parsing failed",
    "Duplicated message defined",
    "Duplicated tag defined",
    "Invalid msg assert format",
    "Invalid tag restriction format",
    "Xerces(XML parser) initialization error",
    "Out of index boundary in array",
    "Invalid input msg of service",
    "Import dictionary error",
    "Undefined statment id",    // sic
    "JSON parsing failed",
    "File not found",
    "Socket error",
    "Config file error",
    "Not Initialized",
    "Dictionary loading failed",
};
static_assert(sizeof(s_szaErrStr) / sizeof(*s_szaErrStr) == 50 && s_szaErrStr[36] != nullptr &&
              s_szaErrStr[37] == nullptr);

// The source file and the lines that the texts of a failed allocation name.
const char s_szSource[] = "msg_error";
enum { LINE_RECORD = 79, LINE_BUFFER = 87 };

}    // namespace

const char* MA_GetErrorStr(int p_iCode) {
  const unsigned iIndex = p_iCode < 0 ? 0u - static_cast<unsigned>(p_iCode) : static_cast<unsigned>(p_iCode);
  return s_szaErrStr[iIndex < 50 ? iIndex : 0];
}

struct CLastError::Error {
  int code = 0;
  CString text;
};

CLastError::~CLastError() { DropLastError(); }

void CLastError::DropLastError() noexcept { delete std::exchange(m_pError, nullptr); }

const char* CLastError::GetLastError() { return m_pError != nullptr ? m_pError->text.ToStr() : ""; }

void CLastError::SetLastError(int p_iCode, const char* p_szFmt, ...) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  Record(p_iCode, p_szFmt, tArgs);
  va_end(tArgs);
}

int CLastError::Fail(int p_iCode, const char* p_szFmt, ...) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  Record(p_iCode, p_szFmt, tArgs);
  va_end(tArgs);
  return p_iCode;
}

void CLastError::Record(int p_iCode, const char* p_szFmt, va_list p_tArgs) {
  if (m_pError == nullptr) {
    try {
      m_pError = new Error;
    } catch (const std::bad_alloc& cNoMemory) {
      callorv::detail::ThrowNoMemory(s_szSource, LINE_RECORD, "Error", cNoMemory.what());
    }
  }
  m_pError->code = p_iCode;
  const auto pDetail = callorv::detail::FormatDetail(s_szSource, LINE_BUFFER, "char[iLen]", p_szFmt, p_tArgs);
  const char* szText = MA_GetErrorStr(p_iCode);
  try {
    m_pError->text.Format("MSG_Error(%d) : %s {%s}", p_iCode, szText != nullptr ? szText : "(null)", pDetail.get());
  } catch (const std::bad_alloc& cNoMemory) {
    callorv::detail::ThrowNoMemory(s_szSource, LINE_BUFFER, "char[iLen]", cNoMemory.what());
  }
}
