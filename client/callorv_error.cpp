// The error of a service call.
#include "callorv/client/callorv_error.h"

CCallOrvError::CCallOrvError() : iCode(0), iRefSvcNum(0) {}

void CCallOrvError::Clear() { SetError(""); }

void CCallOrvError::SetError(const char* p_szText) { SetError(0, p_szText, 0); }

int CCallOrvError::SetError(int p_iCode, const char* p_szText, int p_iRefSvcNum) {
  sText = p_szText;
  iCode = p_iCode;
  iRefSvcNum = p_iRefSvcNum;
  return p_iRefSvcNum;
}

CString CCallOrvError::Repr() const {
  return iCode > 0 ? CFormat("CCallOrvError: Code=%d, Text=%s, RefSvcNum=%d", iCode, sText.ToStr(), iRefSvcNum)
                   : CFormat("CCallOrvError: %s", sText.ToStr());
}
