// The library's only exception.
#ifndef CALLORV_BASE_EXCEPTION_H
#define CALLORV_BASE_EXCEPTION_H

#include "callorv/export.h"

// A code (negative, see MA_GetErrorStr) and a text. A root class: `catch (const std::exception&)` does not see it.
// Thrown by value, caught by reference. Copies share the text, so copying needs no memory and never fails.
class CALLORV_API CException {
 public:
  // Both throw std::bad_alloc when there is no memory for the text.
  CException(const char* p_szText, int p_iCode);    // the text as it stands; null counts as ""
  CException(int p_iCode, const char* p_szFmt, ...) CALLORV_PRINTF(3, 4);
  CException(const CException& p_c) noexcept;
  CException& operator=(const CException& p_c) noexcept;
  virtual ~CException();    // virtual: the type is known by one symbol in every library that throws or catches it

  int GetCode() const { return m_iCode; }    // as it was given, normally negative
  const char* GetText() const;    // borrowed: lives as long as the exception and its copies

 private:
  struct T_Text;
  int m_iCode;
  T_Text* m_pText;    // counts the exceptions that share it
};

#endif
