// One tag (field) of a message definition.
#ifndef CALLORV_DICT_TAG_INFO_H
#define CALLORV_DICT_TAG_INFO_H

#include "callorv/base/str.h"
#include "callorv/export.h"

// The type of a tag's values.
enum E_TagType : int {
  TAG_UNKNOWN = 0,
  TAG_STRING = 1,
  TAG_INTEGER = 2,    // 32-bit signed
  TAG_DOUBLE = 3,
  TAG_BOOL = 4,
  TAG_DATE = 5,
  TAG_SUBMSG = 6      // another message, or rows of it
};
static_assert(sizeof(E_TagType) == 4, "a tag type is stored in 32 bits");

// A tag definition; made and owned by its CMsgInfo, read-only for everybody else.
struct CALLORV_API CTagInfo {
  int m_iTagNum;
  CString m_sName;
  E_TagType m_eType;
  int m_iSubMsg;        // message number of the rows of a TAG_SUBMSG; 0 for other types
  bool m_bArray;        // the tag may hold several values
  CTagInfo* m_pNext;    // next definition in the same bucket

  // A tag as it is described, in no bucket yet.
  CTagInfo() noexcept;
  CTagInfo(int p_iTagNum, const char* p_szName, E_TagType p_eType, int p_iSubMsg, bool p_bArray);
  CTagInfo(const CTagInfo&) = delete;
  CTagInfo& operator=(const CTagInfo&) = delete;

  // "Unknown", "string", "integer", "double", "bool", "date", "submsg" for 0 to 6, else "Unknown(<value>)".
  static CString ReprType(E_TagType p_eType);
};

#endif
