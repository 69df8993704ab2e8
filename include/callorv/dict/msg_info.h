// One message definition: its tags by number, by name and in order.
#ifndef CALLORV_DICT_MSG_INFO_H
#define CALLORV_DICT_MSG_INFO_H

#include "callorv/base/array.h"
#include "callorv/base/hash.h"
#include "callorv/base/ptr_array.h"
#include "callorv/dict/tag_info.h"

class CStream;
namespace callorv {
namespace detail {
class CArena;
struct CAccess;
struct CCells;
template <class NODE>
class CChainIndex;
}
}    // namespace callorv

// Filled by CMsgDic, afterwards only read: any number of threads may look up at once.
class CALLORV_API CMsgInfo : public CPtrArrayItem {
 public:
  enum { BUCKETS = 128 };

  CMsgInfo() noexcept;
  // p_iHashKey  modulus of the tag hash, 1 to 128; below 1 counts as 128, and so does more than 128,
  //             for there are 128 buckets
  CMsgInfo(int p_iMsgNum, const char* p_szName, const char* p_szVer, int p_iHashKey);
  ~CMsgInfo() override;
  CMsgInfo(const CMsgInfo&) = delete;
  CMsgInfo& operator=(const CMsgInfo&) = delete;

  // What the dictionary says of the message; the hash key as it is used, 1 to 128.
  int GetMsgNum() const { return m_iMsgNum; }
  CString GetMsgName() const { return m_sName; }
  CString GetVersion() const { return m_sVer; }
  int GetHashKey() const { return m_iHashKey; }
  int GetNoTags() const { return m_aTagOrder.GetSize(); }    // a tag defined twice counts twice

  // The tag number at p_iIndex in definition order; outside 0 to GetNoTags() - 1 it is 0.
  int GetTagNumAt(int p_iIndex) const { return m_aTagOrder.GetAt(p_iIndex); }

  // The first definition of the tag, or null. Borrowed: lives as long as this object.
  const CTagInfo* GetTagInfo(int p_iTagNum) const;
  bool IsDefinedTag(int p_iTagNum) const { return GetTagInfo(p_iTagNum) != nullptr; }    // whether there is one
  bool IsMultiTag(int p_iTagNum) const;            // false when undefined
  E_TagType GetTagType(int p_iTagNum) const;       // TAG_UNKNOWN when undefined
  const char* GetTagName(int p_iTagNum) const;     // "" when undefined; borrowed as for GetTagInfo
  int GetTagNumByName(const char* p_szName) const; // the first tag of that name, or -1

  // Adds a tag behind the others. Nothing is checked: a number or name may come twice, and the first then
  // serves the lookups. Throws CException (-11, "(CTagInfo)") when memory is short.
  void SetTagInfo(int p_iTagNum, const char* p_szName, E_TagType p_eType, int p_iSubMsg, bool p_bArray);

  // Appends one line for each tag: "\t<tag no='1' name='code' type='string' array='N' />\n". Throws std::bad_alloc.
  void Dump(CStream* p_pOut) const;

 private:
  int m_iMsgNum;
  CString m_sName;
  CString m_sVer;
  int m_iHashKey;
  CIntArray m_aTagOrder;
  CTagInfo* m_apBucket[BUCKETS];
  CIntHash m_cNameMap;
  callorv::detail::CChainIndex<CTagInfo>* m_pIndex;    // made once a bucket's chain grows long
  unsigned m_iApart;    // tags whose one value stands apart from its cell: texts and dates
  callorv::detail::CArena* m_pArena;                   // the dictionary's, in which the tags stand; null without one

  friend class CMsgDic;
  friend struct callorv::detail::CCells;
  friend struct callorv::detail::CAccess;
};

#endif
