// The library's only exception.
#include "callorv/base/exception.h"

#include <atomic>
#include <cstdarg>
#include <new>
#include <utility>

#include "base/format.h"

struct CException::T_Text {
  CString sText;
  std::atomic<int> iUsers{1};
};

CException::CException(const char* p_szText, int p_iCode) : m_iCode(p_iCode), m_pText(new T_Text{p_szText}) {}

CException::CException(int p_iCode, const char* p_szFmt, ...) : CException("", p_iCode) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  const bool bDone = callorv::detail::VFormat(&m_pText->sText, p_szFmt, tArgs);
  va_end(tArgs);
  if (!bDone) throw std::bad_alloc();
}

CException::CException(const CException& p_c) noexcept : m_iCode(p_c.m_iCode), m_pText(p_c.m_pText) {
  m_pText->iUsers.fetch_add(1, std::memory_order_relaxed);
}

CException& CException::operator=(const CException& p_c) noexcept {
  CException cCopy(p_c);
  std::swap(m_iCode, cCopy.m_iCode);
  std::swap(m_pText, cCopy.m_pText);
  return *this;
}

CException::~CException() {
  if (m_pText->iUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) delete m_pText;
}

const char* CException::GetText() const { return m_pText->sText.ToStr(); }
