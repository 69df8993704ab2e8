// The error of a service call.
#ifndef CALLORV_CLIENT_CALLORV_ERROR_H
#define CALLORV_CLIENT_CALLORV_ERROR_H

#include "callorv/base/str.h"
#include "callorv/export.h"

// A negative code is the library's own; a code from a rejection is the server's, normally positive.
class CALLORV_API CCallOrvError {
 public:
  int iCode;         // 0: clear, or a failure of initialisation
  CString sText;
  int iRefSvcNum;    // service number that the error refers to; 0 when none, -1 from CallServiceByMsg's -3

  CCallOrvError();
  void Clear();                              // 0, "", 0
  void SetError(const char* p_szText);       // 0, the text, 0
  int SetError(int p_iCode, const char* p_szText, int p_iRefSvcNum);    // returns p_iRefSvcNum
  // The members of the same name.
  int GetCode() const { return iCode; }
  CString GetText() const { return sText; }
  int GetRefSvcNum() const { return iRefSvcNum; }

  // "CCallOrvError: Code=%d, Text=%s, RefSvcNum=%d" for a positive code, else "CCallOrvError: %s".
  CString Repr() const;
};

#endif
