// One tag (field) of a message definition.
#include "callorv/dict/tag_info.h"

#include "dict/tag_types.h"

using namespace callorv::detail;

CTagInfo::CTagInfo() noexcept : CTagInfo(0, "", TAG_UNKNOWN, 0, false) {}

CTagInfo::CTagInfo(int p_iTagNum, const char* p_szName, E_TagType p_eType, int p_iSubMsg, bool p_bArray)
    : m_iTagNum(p_iTagNum), m_sName(p_szName), m_eType(p_eType), m_iSubMsg(p_iSubMsg), m_bArray(p_bArray),
      m_pNext(nullptr) {}

CString CTagInfo::ReprType(E_TagType p_eType) {
  if (p_eType < TAG_UNKNOWN || p_eType >= TAG_TYPES) return CFormat("Unknown(%d)", static_cast<int>(p_eType));
  return CString(TagType(p_eType).szWord);
}
