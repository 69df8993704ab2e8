// The operations on a message by tag name: each is the one by number for the tag of that name.
#include "callorv/msg/msg.h"
#include "msg/access.h"

using callorv::detail::CAccess;

namespace {

template <class T>
int SetByName(CMsg& p_cMsg, const char* p_szName, T p_Value) {
  return CAccess::ByName(p_cMsg, p_szName, [&](int p_iTag) { return p_cMsg.SetValue(p_iTag, p_Value); });
}
template <class T>
int GetByName(CMsg& p_cMsg, const char* p_szName, T* p_pOut) {
  return CAccess::ByName(p_cMsg, p_szName, [&](int p_iTag) { return p_cMsg.GetValue(p_iTag, p_pOut); });
}
template <class T>
int GetAtByName(CMsg& p_cMsg, const char* p_szName, int p_iIndex, T* p_pOut) {
  return CAccess::ByName(p_cMsg, p_szName, [&](int p_iTag) { return p_cMsg.GetValueAt(p_iTag, p_iIndex, p_pOut); });
}

}    // namespace

int CMsg::SetValue(char* p_szName, int p_iValue) { return SetByName(*this, p_szName, p_iValue); }
int CMsg::SetValue(char* p_szName, long long p_iValue) { return SetByName(*this, p_szName, p_iValue); }
int CMsg::SetValue(char* p_szName, double p_dValue) { return SetByName(*this, p_szName, p_dValue); }
int CMsg::SetValue(char* p_szName, bool p_bValue) { return SetByName(*this, p_szName, p_bValue); }
int CMsg::SetValue(char* p_szName, const char* p_szValue) { return SetByName(*this, p_szName, p_szValue); }
int CMsg::SetValue(char* p_szName, CDate p_cValue) { return SetByName(*this, p_szName, p_cValue); }
int CMsg::SetValue(char* p_szName, CInt p_cValue) { return SetByName(*this, p_szName, p_cValue); }
int CMsg::SetValue(char* p_szName, CDbl p_cValue) { return SetByName(*this, p_szName, p_cValue); }
int CMsg::SetValue(char* p_szName, CBool p_cValue) { return SetByName(*this, p_szName, p_cValue); }
int CMsg::SetValue(char* p_szName, CMsg* p_pSub) { return SetByName(*this, p_szName, p_pSub); }
int CMsg::GetValue(char* p_szName, CString* p_psOut) { return GetByName(*this, p_szName, p_psOut); }
int CMsg::GetValue(char* p_szName, int* p_piOut) { return GetByName(*this, p_szName, p_piOut); }
int CMsg::GetValue(char* p_szName, double* p_pdOut) { return GetByName(*this, p_szName, p_pdOut); }
int CMsg::GetValue(char* p_szName, bool* p_pbOut) { return GetByName(*this, p_szName, p_pbOut); }
int CMsg::GetValue(char* p_szName, CDate* p_pcOut) { return GetByName(*this, p_szName, p_pcOut); }
int CMsg::GetValue(char* p_szName, CInt* p_pcOut) { return GetByName(*this, p_szName, p_pcOut); }
int CMsg::GetValue(char* p_szName, CDbl* p_pcOut) { return GetByName(*this, p_szName, p_pcOut); }
int CMsg::GetValue(char* p_szName, CBool* p_pcOut) { return GetByName(*this, p_szName, p_pcOut); }
int CMsg::GetValue(char* p_szName, CStrArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CIntArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CDblArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CBoolArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CDateArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CMsgArray* p_pOut) { return GetByName(*this, p_szName, p_pOut); }
int CMsg::GetValue(char* p_szName, CMsg** p_ppOut) { return GetByName(*this, p_szName, p_ppOut); }
CMsg* CMsg::GetValue(char* p_szName) {
  CMsg* pSub = nullptr;
  return GetByName(*this, p_szName, &pSub) == 0 ? pSub : nullptr;
}
int CMsg::GetValueAt(char* p_szName, int p_i, CString* p_psOut) { return GetAtByName(*this, p_szName, p_i, p_psOut); }
int CMsg::GetValueAt(char* p_szName, int p_i, int* p_piOut) { return GetAtByName(*this, p_szName, p_i, p_piOut); }
int CMsg::GetValueAt(char* p_szName, int p_i, double* p_pdOut) { return GetAtByName(*this, p_szName, p_i, p_pdOut); }
int CMsg::GetValueAt(char* p_szName, int p_i, bool* p_pbOut) { return GetAtByName(*this, p_szName, p_i, p_pbOut); }
int CMsg::GetValueAt(char* p_szName, int p_i, CDate* p_pcOut) { return GetAtByName(*this, p_szName, p_i, p_pcOut); }
int CMsg::GetValueAt(char* p_szName, int p_i, CMsg** p_ppOut) { return GetAtByName(*this, p_szName, p_i, p_ppOut); }
int CMsg::GetArrSize(char* p_szName) {
  return CAccess::ByName(*this, p_szName, [&](int p_iTag) { return GetArrSize(p_iTag); });
}
