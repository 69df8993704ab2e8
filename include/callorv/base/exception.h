// The library's only exception.
#ifndef CALLORV_BASE_EXCEPTION_H
#define CALLORV_BASE_EXCEPTION_H

#include "callorv/base/str.h"
#include "callorv/export.h"

// A code (negative, see MA_GetErrorStr) and a text. A root class: `catch (const std::exception&)` does not see it.
// Thrown by value, caught by reference.
class CALLORV_API CException {
 public:
  CException(const char* p_szText, int p_iCode);                        // the text as it stands
  CException(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);
  CException(const CException& p_c) = default;
  CException& operator=(const CException& p_c) = default;
  ~CException();

  int GetCode() const { return m_iCode; }
  const char* GetText() const { return m_sText.ToStr(); }    // borrowed: lives as long as the exception

 private:
  int m_iCode;
  CString m_sText;
};

#endif
