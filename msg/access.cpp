// The values of a message: set, read, and stored as they come out of XML.
#include "callorv/msg/msg.h"

#include <cstring>
#include <type_traits>

#include "msg/access.h"
#include "msg/cells.h"
#include "msg/owner.h"

using namespace callorv::detail;

// ---- checks

int CAccess::FailTag(CMsg& p_cMsg, const CMsg& p_cRow, int p_iTag) {
  return p_cMsg.Fail(p_cRow.m_pMsgInfo == nullptr ? MSG_UNDEF_MSG : MSG_UNDEF_TAG, "msgnum=%d, tagnum=%d",
                     p_cRow.m_iMsgNum, p_iTag);
}

int CAccess::FailType(CMsg& p_cMsg, int p_iTag, E_TagType p_eHas, E_TagType p_eWanted, int p_iLine) {
  return p_cMsg.Fail(MSG_TAG_TYPE, "Line:%d, tagnum=%d,type=(%s/%s)", p_iLine, p_iTag,
                     CTagInfo::ReprType(p_eHas).ToStr(), CTagInfo::ReprType(p_eWanted).ToStr());
}

int CAccess::CheckSet(CMsg& p_cMsg, int p_iTag, const CTagInfo* p_pTag, E_TagType p_eWanted, int p_iLine) {
  if (p_pTag == nullptr) return FailTag(p_cMsg, p_iTag);
  return p_pTag->m_eType == p_eWanted ? 0 : FailType(p_cMsg, p_iTag, p_pTag->m_eType, p_eWanted, p_iLine);
}

int CAccess::FailGet(CMsg& p_cMsg, int p_iTag, E_TagType p_eType, int p_iLine) {
  if (CCells::FindTag(p_cMsg, p_iTag) == nullptr) return FailTag(p_cMsg, p_iTag);
  const CMsgValue* pCell = CCells::GetHashBag(p_cMsg, p_iTag);
  if (pCell == nullptr) return p_cMsg.Fail(MSG_NO_DATA, "tagnum=%d", p_iTag);
  if (pCell->m_eType != p_eType) return FailType(p_cMsg, p_iTag, pCell->m_eType, p_eType, p_iLine);
  return p_cMsg.Fail(MSG_NO_DATA, "tagnum=%d,Unset", p_iTag);
}

int CAccess::FailUndefined(CMsg& p_cMsg) { return p_cMsg.Fail(MSG_UNDEF_MSG, "msgnum=%d", p_cMsg.m_iMsgNum); }

int CAccess::FailNull(CMsg& p_cMsg, int p_iTag) { return p_cMsg.Fail(MSG_NO_DATA, "tagnum=%d,NULL", p_iTag); }

int CAccess::FailOutput(CMsg& p_cMsg) { return p_cMsg.Fail(MSG_NULL, "%s", ""); }

int CAccess::FailMemory(CMsg& p_cMsg, const char* p_szWhy) { return p_cMsg.Fail(MSG_MEMORY, "%s", p_szWhy); }

// ---- access

template <class T, class VALUE>
const char* CAccess::Append(CMsgValue& p_cCell, VALUE p_Value) {
  using V = ValueTraits<T>;
  auto*& pArray = p_cCell.*V::pArrayOf;
  try {
    if (pArray == nullptr) pArray = NewArray<typename V::Array>();
    AddTo(*pArray, ToElement(p_Value));
    p_cCell.m_bSet = true;
    return nullptr;
  } catch (const std::bad_alloc&) {
    return V::szNewArray;
  }
}

template const char* CAccess::Append<CMsg*>(CMsgValue&, CMsg*);    // for rows

template <class T, class VALUE>
const char* CAccess::StoreSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value) {
  if constexpr (std::is_same_v<VALUE, T_Text>) {
    if (p_Value.iLen > MAX_NEAR_TEXT) p_cMsg.m_bHolds = true;
  }
  return ValueTraits<T>::Store(*p_cMsg.m_pArena, p_cCell, p_Value);
}

template <class T, class VALUE>
int CAccess::Set(CMsg& p_cMsg, int p_iTag, VALUE p_Value) {
  CMsgValue* pCell = CCells::FirstCell(p_cMsg, p_iTag, ValueTraits<T>::eType);
  if (Seldom(pCell == nullptr)) return SetAny<T>(p_cMsg, p_iTag, p_Value);
  return Seldom(pCell->m_bMulti) ? SetElement<T>(p_cMsg, *pCell, p_Value) : SetSingle<T>(p_cMsg, *pCell, p_Value);
}

template <class T, class VALUE>
int CAccess::SetAny(CMsg& p_cMsg, int p_iTag, VALUE p_Value) {
  const CTagInfo* pTag = CCells::FindTag(p_cMsg, p_iTag);
  if (const int iRet = CheckSet(p_cMsg, p_iTag, pTag, ValueTraits<T>::eType, s_tLines<T>.iSet)) return iRet;
  CMsgValue* pCell = CCells::SetHashBag(p_cMsg, *pTag);
  if (pCell == nullptr) return FailMemory(p_cMsg, "new CMsgValue failed");
  return pCell->m_bMulti ? SetElement<T>(p_cMsg, *pCell, p_Value) : SetSingle<T>(p_cMsg, *pCell, p_Value);
}

template <class T, class VALUE>
int CAccess::SetSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value) {
  const char* szWhy = StoreSingle<T>(p_cMsg, p_cCell, p_Value);
  if (Seldom(szWhy != nullptr)) return FailMemory(p_cMsg, szWhy);
  p_cCell.m_bSet = true;
  CCells::Fill(p_cMsg);
  return 0;
}

template <class T, class VALUE>
int CAccess::SetElement(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value) {
  const char* szWhy = Append<T>(p_cCell, p_Value);
  if (szWhy != nullptr) return FailMemory(p_cMsg, szWhy);
  CCells::Fill(p_cMsg);
  return 0;
}

template <class T>
int CAccess::GetElement(CMsg& p_cMsg, CMsgValue& p_cCell, int p_iIndex, bool p_bChecked, T* p_pOut) {
  auto* pArray = p_cCell.*ValueTraits<T>::pArrayOf;
  if (pArray == nullptr) return FailNull(p_cMsg, p_cCell.m_iTagNum);
  if (p_bChecked && (p_iIndex < 0 || p_iIndex >= pArray->GetSize())) {
    p_cMsg.Fail(MSG_NO_DATA, "tagnum=%d", p_cCell.m_iTagNum);
    return MSG_INDEX;    // text -1, result -27: callers rely on the pair
  }
  Assign(*p_pOut, pArray->GetAt(p_iIndex));
  return 0;
}

template <class T>
int CAccess::Get(CMsg& p_cMsg, int p_iTag, T* p_pOut) {
  using V = ValueTraits<T>;
  if (Seldom(p_pOut == nullptr)) return FailOutput(p_cMsg);
  V::Clear(*p_pOut);
  CMsgValue* pCell = CCells::FirstCell(p_cMsg, p_iTag, V::eType);
  const bool bUsual = pCell != nullptr && pCell->m_bSet && !pCell->m_bMulti;
  return Seldom(!bUsual) ? GetAny(p_cMsg, p_iTag, p_pOut) : GetSingle(p_cMsg, *pCell, p_pOut);
}

template <class T>
int CAccess::GetAny(CMsg& p_cMsg, int p_iTag, T* p_pOut) {
  using V = ValueTraits<T>;
  CMsgValue* pCell = CCells::FindSet(p_cMsg, p_iTag, V::eType);
  if (pCell == nullptr) return FailGet(p_cMsg, p_iTag, V::eType, s_tLines<T>.iGet);
  return pCell->m_bMulti ? GetElement(p_cMsg, *pCell, 0, false, p_pOut) : GetSingle(p_cMsg, *pCell, p_pOut);
}

template <class T>
int CAccess::GetAt(CMsg& p_cMsg, int p_iTag, int p_iIndex, T* p_pOut) {
  using V = ValueTraits<T>;
  if (p_pOut == nullptr) return FailOutput(p_cMsg);
  V::Clear(*p_pOut);
  CMsgValue* pCell = CCells::FindSet(p_cMsg, p_iTag, V::eType);
  if (pCell == nullptr) return FailGet(p_cMsg, p_iTag, V::eType, s_tLines<T>.iGetAt);
  return pCell->m_bMulti ? GetElement(p_cMsg, *pCell, p_iIndex, true, p_pOut) : GetSingle(p_cMsg, *pCell, p_pOut);
}

template int CAccess::Get(CMsg&, int, std::string_view*);    // for the C functions
template int CAccess::GetAt(CMsg&, int, int, std::string_view*);

template <class T>
int CAccess::GetArray(CMsg& p_cMsg, int p_iTag, typename ValueTraits<T>::Array* p_pOut) {
  using V = ValueTraits<T>;
  if (p_pOut == nullptr) return FailOutput(p_cMsg);
  p_pOut->RemoveAll();
  if constexpr (V::eType == TAG_SUBMSG) p_pOut->SetAdoptFlag(false);
  CMsgValue* pCell = CCells::FindSet(p_cMsg, p_iTag, V::eType);
  if (pCell == nullptr) return FailGet(p_cMsg, p_iTag, V::eType, s_tLines<T>.iGetArr);
  if (!pCell->m_bMulti) {
    T Value{};
    if (!Load(*pCell, Value)) return FailNull(p_cMsg, p_iTag);
    AddTo(*p_pOut, Value);
    return 0;
  }
  auto* pArray = pCell->*V::pArrayOf;
  if (pArray == nullptr) return FailNull(p_cMsg, p_iTag);
  for (int i = 0; i < pArray->GetSize(); ++i) AddTo(*p_pOut, pArray->GetAt(i));
  return 0;
}

// ---- reading

template <class T, class VALUE>
void CAccess::StoreParsed(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value) {
  if (!p_cCell.m_bMulti && p_cCell.m_bSet) return;    // of a scalar the first text stays
  const char* szWhy = p_cCell.m_bMulti ? Append<T>(p_cCell, p_Value) : StoreSingle<T>(p_cMsg, p_cCell, p_Value);
  if (szWhy != nullptr) throw CException(szWhy, MSG_MEMORY);
  p_cCell.m_bSet = true;
}

const CTagInfo& CAccess::ParsedTag(CMsg& p_cMsg, int p_iTag) {
  if (p_cMsg.m_pMsgInfo == nullptr) throw CException(MSG_UNDEF_MSG, "msgnum=%d", p_cMsg.m_iMsgNum);
  const CTagInfo* pTag = p_cMsg.m_pMsgInfo->GetTagInfo(p_iTag);
  if (pTag == nullptr) throw CException(MSG_UNDEF_TAG, "tagnum=%d", p_iTag);
  return *pTag;
}

void CAccess::StoreText(CMsg& p_cMsg, const CTagInfo& p_cTag, const char* p_sz, int p_iLen) {
  CMsgValue& cCell = ParsedCell(p_cMsg, p_cTag);
  const bool bPlain = WithPlainType(cCell.m_eType, [&](auto p_tType) {
    StoreParsed<typename decltype(p_tType)::Type>(p_cMsg, cCell, p_tType.Parse(p_sz, p_iLen));
  });
  if (!bPlain) {
    throw CException(MSG_TAG_TYPE, "tagnum=%d,type=%d", p_cTag.m_iTagNum, static_cast<int>(cCell.m_eType));
  }
  CCells::Fill(p_cMsg);
}

void CMsg::SetParsedData(int p_iTag, CString p_sText) {
  CAccess::StoreText(*this, CAccess::ParsedTag(*this, p_iTag), p_sText.ToStr(), p_sText.GetSize());
}

// ---- the operations, by number

int CMsg::SetValue(int p_iTag, int p_iValue) { return CAccess::Set<int>(*this, p_iTag, p_iValue); }
int CMsg::SetValue(int p_iTag, double p_dValue) { return CAccess::Set<double>(*this, p_iTag, p_dValue); }
int CMsg::SetValue(int p_iTag, bool p_bValue) { return CAccess::Set<bool>(*this, p_iTag, p_bValue); }
int CMsg::SetValue(int p_iTag, const char* p_szValue) {
  if (p_szValue == nullptr || *p_szValue == 0) return 0;
  return CAccess::Set<CString>(*this, p_iTag, T_Text{p_szValue, TextLen(strlen(p_szValue))});
}
int CMsg::SetValue(int p_iTag, CDate p_cValue) {
  return p_cValue.m_bSet ? CAccess::Set<CDate>(*this, p_iTag, p_cValue) : 0;
}
int CMsg::SetValue(int p_iTag, CInt p_cValue) {
  return p_cValue.m_bSet ? CAccess::Set<CInt>(*this, p_iTag, p_cValue.m_Value) : 0;
}
int CMsg::SetValue(int p_iTag, CDbl p_cValue) {
  return p_cValue.m_bSet ? CAccess::Set<CDbl>(*this, p_iTag, p_cValue.m_Value) : 0;
}
int CMsg::SetValue(int p_iTag, CBool p_cValue) {
  return p_cValue.m_bSet ? CAccess::Set<CBool>(*this, p_iTag, p_cValue.m_Value) : 0;
}
int CMsg::SetValue(int p_iTag, long long p_iValue) {
  const int iValue = static_cast<int>(p_iValue);
  if (iValue == p_iValue) return SetValue(p_iTag, iValue);
  const int iRet = CAccess::CheckSet(*this, p_iTag, CCells::FindTag(*this, p_iTag), TAG_INTEGER, s_tLines<int>.iSet);
  return iRet != 0 ? iRet : Fail(MSG_INPUT, "tagnum=%d", p_iTag);
}
int CMsg::SetValue(int p_iTag, CMsg* p_pSub) { return COwner::SetSub(*this, p_iTag, p_pSub); }

int CMsg::GetValue(int p_iTag, CString* p_psOut) { return CAccess::Get(*this, p_iTag, p_psOut); }
int CMsg::GetValue(int p_iTag, int* p_piOut) { return CAccess::Get(*this, p_iTag, p_piOut); }
int CMsg::GetValue(int p_iTag, double* p_pdOut) { return CAccess::Get(*this, p_iTag, p_pdOut); }
int CMsg::GetValue(int p_iTag, bool* p_pbOut) { return CAccess::Get(*this, p_iTag, p_pbOut); }
int CMsg::GetValue(int p_iTag, CDate* p_pcOut) { return CAccess::Get(*this, p_iTag, p_pcOut); }
int CMsg::GetValue(int p_iTag, CInt* p_pcOut) { return CAccess::Get(*this, p_iTag, p_pcOut); }
int CMsg::GetValue(int p_iTag, CDbl* p_pcOut) { return CAccess::Get(*this, p_iTag, p_pcOut); }
int CMsg::GetValue(int p_iTag, CBool* p_pcOut) { return CAccess::Get(*this, p_iTag, p_pcOut); }
int CMsg::GetValue(int p_iTag, CMsg** p_ppOut) { return CAccess::Get(*this, p_iTag, p_ppOut); }
CMsg* CMsg::GetValue(int p_iTag) {
  CMsg* pSub = nullptr;
  return GetValue(p_iTag, &pSub) == 0 ? pSub : nullptr;
}

int CMsg::GetValue(int p_iTag, CStrArray* p_pOut) { return CAccess::GetArray<CString>(*this, p_iTag, p_pOut); }
int CMsg::GetValue(int p_iTag, CIntArray* p_pOut) { return CAccess::GetArray<int>(*this, p_iTag, p_pOut); }
int CMsg::GetValue(int p_iTag, CDblArray* p_pOut) { return CAccess::GetArray<double>(*this, p_iTag, p_pOut); }
int CMsg::GetValue(int p_iTag, CBoolArray* p_pOut) { return CAccess::GetArray<bool>(*this, p_iTag, p_pOut); }
int CMsg::GetValue(int p_iTag, CDateArray* p_pOut) { return CAccess::GetArray<CDate>(*this, p_iTag, p_pOut); }
int CMsg::GetValue(int p_iTag, CMsgArray* p_pOut) { return CAccess::GetArray<CMsg*>(*this, p_iTag, p_pOut); }

int CMsg::GetValueAt(int p_iTag, int p_i, CString* p_psOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_psOut); }
int CMsg::GetValueAt(int p_iTag, int p_i, int* p_piOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_piOut); }
int CMsg::GetValueAt(int p_iTag, int p_i, double* p_pdOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_pdOut); }
int CMsg::GetValueAt(int p_iTag, int p_i, bool* p_pbOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_pbOut); }
int CMsg::GetValueAt(int p_iTag, int p_i, CDate* p_pcOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_pcOut); }
int CMsg::GetValueAt(int p_iTag, int p_i, CMsg** p_ppOut) { return CAccess::GetAt(*this, p_iTag, p_i, p_ppOut); }

int CMsg::GetArrSize(int p_iTag) {
  if (CCells::FindTag(*this, p_iTag) == nullptr) return CAccess::FailTag(*this, p_iTag);
  const CMsgValue* pCell = CCells::GetHashBag(*this, p_iTag);
  if (pCell == nullptr) return Fail(MSG_NO_DATA, "tagnum=%d", p_iTag);
  if (!pCell->m_bSet) return Fail(MSG_NO_DATA, "tagnum=%d,Unset", p_iTag);
  int iSize = 1;
  const bool bKnown = WithType(pCell->m_eType, [&](auto p_tType) {
    if (!pCell->m_bMulti) return;
    const auto* pArray = pCell->*p_tType.pArrayOf;
    iSize = pArray != nullptr ? pArray->GetSize() : CAccess::FailNull(*this, p_iTag);
  });
  // sic: the detail is about the type here
  return bKnown ? iSize : Fail(MSG_TAG_TYPE, "tagnum=%d,NULL", p_iTag);
}
