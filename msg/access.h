// Setting and getting values: each check, text and step stands once and not once for every type.
#ifndef CALLORV_MSG_ACCESS_H
#define CALLORV_MSG_ACCESS_H

#include "callorv/base/exception.h"
#include "msg/cells.h"
#include "msg/value_traits.h"

namespace callorv::detail {

struct CAccess {
  // ---- failures
  // What went wrong, as code; its text is kept. Apart from the checks, which are on every value's way.
  [[gnu::cold]] static int FailTag(CMsg& p_cMsg, int p_iTag) { return FailTag(p_cMsg, p_cMsg, p_iTag); }
  // Of a row, but told by the message.
  [[gnu::cold]] static int FailTag(CMsg& p_cMsg, const CMsg& p_cRow, int p_iTag);
  [[gnu::cold]] static int FailType(CMsg& p_cMsg, int p_iTag, E_TagType p_eHas, E_TagType p_eWanted, int p_iLine);
  // 0, or of those two what the tag is not fit for a setter for.
  static int CheckSet(CMsg& p_cMsg, int p_iTag, const CTagInfo* p_pTag, E_TagType p_eWanted, int p_iLine);
  [[gnu::cold]] static int FailGet(CMsg& p_cMsg, int p_iTag, E_TagType p_eType, int p_iLine);
  [[gnu::cold]] static int FailUndefined(CMsg& p_cMsg);    // the message itself
  [[gnu::cold]] static int FailNull(CMsg& p_cMsg, int p_iTag);
  [[gnu::cold]] static int FailOutput(CMsg& p_cMsg);    // there is nowhere to put the value
  [[gnu::cold]] static int FailMemory(CMsg& p_cMsg, const char* p_szWhy);

  // ---- values
  // T: the type whose line number the texts print; VALUE: what is passed for it.
  template <class T, class VALUE>
  static int Set(CMsg& p_cMsg, int p_iTag, VALUE p_Value);
  template <class T>
  static int Get(CMsg& p_cMsg, int p_iTag, T* p_pOut);
  template <class T>
  static int GetAt(CMsg& p_cMsg, int p_iTag, int p_iIndex, T* p_pOut);
  template <class T>
  static int GetArray(CMsg& p_cMsg, int p_iTag, typename ValueTraits<T>::Array* p_pOut);
  // Appends to the cell's array, which is made on first use; null, or the text why not. The cell is set once the
  // array has an element.
  template <class T, class VALUE>
  [[gnu::noinline]] static const char* Append(CMsgValue& p_cCell, VALUE p_Value);
  // p_fnByTag(tag) for the tag of that name.
  template <class F>
  static int ByName(CMsg& p_cMsg, const char* p_szName, F p_fnByTag) {
    if (p_cMsg.m_pMsgInfo == nullptr) return FailUndefined(p_cMsg);
    return p_fnByTag(p_cMsg.m_pMsgInfo->m_cNameMap.GetOr(p_szName, -1));    // GetTagNumByName, one call less
  }

  static const char* NameOf(const CMsgInfo& p_cInfo) { return p_cInfo.m_sName.ToStr(); }    // the dictionary's

  // ---- reading: failures are thrown
  static bool IsDefined(const CMsg& p_cMsg, int p_iMsgNum) {
    return p_cMsg.m_pMsgDic->GetMsgInfo(p_iMsgNum) != nullptr;
  }
  // The two steps of CMsg::SetParsedData. Behind the text there must stand a byte that ends numbers and words: a NUL,
  // markup or a blank.
  static const CTagInfo& ParsedTag(CMsg& p_cMsg, int p_iTag);
  static void StoreText(CMsg& p_cMsg, const CTagInfo& p_cTag, const char* p_sz, int p_iLen);
  static CMsgValue& ParsedCell(CMsg& p_cMsg, const CTagInfo& p_cTag) {
    if (CMsgValue* pCell = CCells::SetHashBag(p_cMsg, p_cTag)) return *pCell;
    throw CException("new CMsgValue failed", MSG_MEMORY);
  }

 private:
  // Set and Get where FirstCell gives nothing; Get also for arrays. They go all the way, so that the usual way stays
  // short.
  template <class T, class VALUE>
  [[gnu::noinline]] static int SetAny(CMsg& p_cMsg, int p_iTag, VALUE p_Value);
  template <class T>
  [[gnu::noinline]] static int GetAny(CMsg& p_cMsg, int p_iTag, T* p_pOut);
  template <class T, class VALUE>
  static int SetSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T, class VALUE>
  [[gnu::noinline]] static int SetElement(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T>
  static int GetSingle(CMsg& p_cMsg, const CMsgValue& p_cCell, T* p_pOut) {
    return Load(p_cCell, *p_pOut) ? 0 : FailNull(p_cMsg, p_cCell.m_iTagNum);
  }
  // The element of the cell's array at p_iIndex, where a missing one is a failure if p_bChecked, else the type's zero.
  template <class T>
  [[gnu::noinline]] static int GetElement(CMsg& p_cMsg, CMsgValue& p_cCell, int p_iIndex, bool p_bChecked, T* p_pOut);
  // Stores into a cell that is no array; as ValueTraits<T>::Store.
  template <class T, class VALUE>
  static const char* StoreSingle(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
  template <class T, class VALUE>
  static void StoreParsed(CMsg& p_cMsg, CMsgValue& p_cCell, VALUE p_Value);
};

}    // namespace callorv::detail

#endif
