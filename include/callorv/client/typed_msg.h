// What the classes are made of that `callorv generate` writes from a dictionary.
#ifndef CALLORV_CLIENT_TYPED_MSG_H
#define CALLORV_CLIENT_TYPED_MSG_H

#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "callorv/base/exception.h"
#include "callorv/client/msg_base.h"
#include "callorv/msg/msg.h"

// A text that may be absent. On the wire an empty text counts as absent, too.
typedef T_Nullable<CString> CStr;

// A sub-message that may be absent. Owns it; copies are deep. T may be incomplete until a member is used.
template <class T>
class T_SubMsg {
 public:
  T_SubMsg() noexcept {}
  T_SubMsg(const T_SubMsg& p_c) : m_pValue(p_c.IsSet() ? new T(*p_c.m_pValue) : nullptr) {}
  T_SubMsg(T_SubMsg&& p_c) noexcept : m_pValue(std::move(p_c.m_pValue)) {}
  T_SubMsg& operator=(T_SubMsg p_c) noexcept {
    m_pValue.swap(p_c.m_pValue);
    return *this;
  }

  // The sub-message, which is made when there is none.
  T& Make() {
    if (!IsSet()) m_pValue.reset(new T);
    return *m_pValue;
  }
  void Clear() { m_pValue.reset(); }                    // frees it
  bool IsSet() const { return m_pValue != nullptr; }    // whether there is one
  // Borrowed until Clear, assignment or destruction; null when absent.
  T* Get() { return m_pValue.get(); }
  const T* Get() const { return m_pValue.get(); }
  // Only when it is there.
  T* operator->() { return m_pValue.get(); }
  const T* operator->() const { return m_pValue.get(); }

 private:
  std::unique_ptr<T> m_pValue;
};

// A generated class T derives from CMsgBase and has
//   T::MSG_NUM                         the number of its message
//   T::VisitTags(self, visitor)        which calls visitor(tag number, member) for every tag in the dictionary's order
// where a member is a CStr, CInt, CDbl, CBool or CDate, a T_SubMsg of a generated class, or a std::vector of CString,
// int, double, bool, CDate or a generated class.
namespace callorv {
namespace detail {

// What stopped a walk over the tags: the first failure.
class CTagWalk {
 public:
  int iCode;         // 0: none
  CString sText;

 protected:
  CTagWalk() : iCode(0) {}
  // Whether the walk goes on after an operation on p_cMsg returned p_iCode.
  bool Passed(int p_iCode, CMsg& p_cMsg) {
    if (p_iCode >= 0) return true;
    iCode = p_iCode;
    sText = p_cMsg.GetLastError();
    return false;
  }
  bool Passed(const CTagWalk& p_cSub) {
    iCode = p_cSub.iCode;
    sText = p_cSub.sText;
    return iCode == 0;
  }
};

// Fills the members from a message: those without a value there become absent or empty.
class CTagLoader : public CTagWalk {
 public:
  explicit CTagLoader(CMsg& p_cMsg) : m_cMsg(p_cMsg) {}

  template <class T>
  void operator()(int p_iTag, T_Nullable<T>& p_Member) {
    T Value = T();
    p_Member.Clear();
    if (Found(p_iTag, &Value)) p_Member.Set(Value);
  }
  void operator()(int p_iTag, CDate& p_cMember) {
    p_cMember = CDate();
    Found(p_iTag, &p_cMember);
  }
  template <class T>
  void operator()(int p_iTag, T_SubMsg<T>& p_cMember) {
    CMsg* pSub = nullptr;
    p_cMember.Clear();
    if (Found(p_iTag, &pSub) && pSub != nullptr) Load(*pSub, p_cMember.Make());
  }
  template <class T>
  void operator()(int p_iTag, std::vector<T>& p_aMember) {
    p_aMember.clear();
    LoadVector(p_iTag, p_aMember, std::is_base_of<CMsgBase, T>());
  }

 private:
  CMsg& m_cMsg;

  template <class T>
  bool Found(int p_iTag, T* p_pOut) {
    if (iCode != 0) return false;
    const int iRet = m_cMsg.GetValue(p_iTag, p_pOut);
    return iRet != MSG_NO_DATA && Passed(iRet, m_cMsg);
  }
  template <class T>
  bool Load(CMsg& p_cSub, T& p_Member) {
    CTagLoader cLoader(p_cSub);
    T::VisitTags(p_Member, cLoader);
    return Passed(cLoader);
  }
  template <class T>
  void LoadVector(int p_iTag, std::vector<T>& p_aMember, std::false_type) {
    CArray<T> aValue;
    if (!Found(p_iTag, &aValue)) return;
    p_aMember.reserve(static_cast<std::size_t>(aValue.GetSize()));
    for (int i = 0; i < aValue.GetSize(); ++i) p_aMember.push_back(aValue[i]);
  }
  template <class T>
  void LoadVector(int p_iTag, std::vector<T>& p_aMember, std::true_type) {
    CMsgArray aRow(false);
    if (!Found(p_iTag, &aRow)) return;
    p_aMember.resize(static_cast<std::size_t>(aRow.GetSize()));
    for (int i = 0; i < aRow.GetSize(); ++i) {
      CMsg* pRow = aRow.GetAt(i);
      if (pRow == nullptr) continue;    // it was freed
      if (!Load(*pRow, p_aMember[static_cast<std::size_t>(i)])) return;
    }
  }
};

// Stores the members that are there into a message without values.
class CTagStorer : public CTagWalk {
 public:
  explicit CTagStorer(CMsg& p_cMsg) : m_cMsg(p_cMsg) {}

  template <class T>
  void operator()(int p_iTag, const T_Nullable<T>& p_Member) {
    if (p_Member.IsSet()) Store(p_iTag, p_Member.m_Value);
  }
  void operator()(int p_iTag, const CDate& p_cMember) { Store(p_iTag, p_cMember); }
  template <class T>
  void operator()(int p_iTag, const T_SubMsg<T>& p_cMember) {
    if (p_cMember.IsSet()) StoreSub(p_iTag, *p_cMember.Get());
  }
  template <class T>
  void operator()(int p_iTag, const std::vector<T>& p_aMember) {
    StoreVector(p_iTag, p_aMember, std::is_base_of<CMsgBase, T>());
  }

 private:
  CMsg& m_cMsg;

  template <class T>
  bool Store(int p_iTag, const T& p_Value) {
    return iCode == 0 && Passed(m_cMsg.SetValue(p_iTag, p_Value), m_cMsg);
  }
  bool Store(int p_iTag, const CString& p_sValue) { return Store(p_iTag, p_sValue.ToStr()); }
  template <class T>
  bool StoreSub(int p_iTag, const T& p_Value) {
    if (iCode != 0) return false;
    CMsg* pSub = nullptr;
    if (!Passed(m_cMsg.NewSub(p_iTag, &pSub), m_cMsg)) return false;
    if (pSub->GetMsgNum() != T::MSG_NUM)
      pSub->Init(T::MSG_NUM, m_cMsg.GetRootNum(), p_iTag);    // the class is from elsewhere
    CTagStorer cStorer(*pSub);
    T::VisitTags(p_Value, cStorer);
    return Passed(cStorer);
  }
  template <class T>
  void StoreVector(int p_iTag, const std::vector<T>& p_aMember, std::false_type) {
    for (const auto& Value : p_aMember) {
      if (!Store(p_iTag, static_cast<const T&>(Value))) return;
    }
  }
  template <class T>
  void StoreVector(int p_iTag, const std::vector<T>& p_aMember, std::true_type) {
    for (const T& Value : p_aMember) {
      if (!StoreSub(p_iTag, Value)) return;
    }
  }
};

// "MSG_Error(%d) : %s {%s}", as a message keeps it.
inline CString TypedMsgError(int p_iCode, const char* p_szDetail) {
  CLastError cError;
  cError.SetLastError(p_iCode, "%s", p_szDetail);
  return cError.GetLastError();
}

// LoadFromMsg of a generated class. 0, or, with the reason in sLastError: -12 for null, -28 for a message of another
// number, or what the first getter returned that failed. Absent values are no failure.
template <class T>
int LoadTypedMsg(T& p_Self, CMsg* p_pMsg) {
  if (p_pMsg == nullptr || p_pMsg->GetMsgNum() != T::MSG_NUM) {
    const int iCode = p_pMsg == nullptr ? MSG_NULL : MSG_INPUT;
    const int iMsgNum = p_pMsg == nullptr ? 0 : p_pMsg->GetMsgNum();
    const CString sDetail = CFormat("msgnum=%d,class=%d", iMsgNum, static_cast<int>(T::MSG_NUM));
    p_Self.sLastError = TypedMsgError(iCode, sDetail.ToStr());
    return iCode;
  }
  CTagLoader cLoader(*p_pMsg);
  T::VisitTags(p_Self, cLoader);
  if (cLoader.iCode != 0) p_Self.sLastError = cLoader.sText;
  return cLoader.iCode;
}

// CreateMsg of a generated class: a message of the process-wide dictionary, the caller's. Null, with the reason in
// sLastError, when that dictionary does not have the message or one of its tags as the class has it.
template <class T>
CMsg* CreateTypedMsg(T& p_Self) {
  try {
    std::unique_ptr<CMsg> pMsg(new CMsg(T::MSG_NUM, 0, 0, MA_GetMsgDic()));
    CTagStorer cStorer(*pMsg);
    T::VisitTags(static_cast<const T&>(p_Self), cStorer);
    if (cStorer.iCode == 0) return pMsg.release();
    p_Self.sLastError = cStorer.sText;
  } catch (const CException& cError) {    // a message or sub-message that the dictionary lacks
    p_Self.sLastError = TypedMsgError(cError.GetCode(), cError.GetText());
  }
  return nullptr;
}

}    // namespace detail
}    // namespace callorv

#endif
