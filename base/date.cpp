// A date text of up to eight characters.
#include "callorv/base/date.h"

#include <cstring>

CDate::CDate() noexcept : m_szDate(), m_bSet(false) {}

CDate::CDate(const char* p_sz) noexcept { Set(p_sz); }

void CDate::Set(const char* p_sz) noexcept {
  char szDate[sizeof m_szDate] = "";    // p_sz may point into the old text
  if (p_sz != nullptr) memcpy(szDate, p_sz, strnlen(p_sz, sizeof szDate - 1));
  memcpy(m_szDate, szDate, sizeof m_szDate);
  m_bSet = szDate[0] != 0;
}
