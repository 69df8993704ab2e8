// The types of values: the one table of them.
#ifndef CALLORV_DICT_TAG_TYPES_H
#define CALLORV_DICT_TAG_TYPES_H

#include "callorv/dict/tag_info.h"

namespace callorv::detail {

struct T_TagType {
  const char* szWord;
  bool bPlain;    // no sub-message: the dictionary file has its word
  bool bApart;    // a single value stands apart from its cell
};
// By E_TagType.
inline constexpr T_TagType s_atTagType[] = {
    {"Unknown", false, false}, {"string", true, true}, {"integer", true, false}, {"double", true, false},
    {"bool", true, false},     {"date", true, true},   {"submsg", false, false},
};
inline constexpr int TAG_TYPES = sizeof(s_atTagType) / sizeof(*s_atTagType);

// Its row: the first one for what is no type.
constexpr const T_TagType& TagType(E_TagType p_eType) {
  return s_atTagType[p_eType > TAG_UNKNOWN && p_eType < TAG_TYPES ? p_eType : TAG_UNKNOWN];
}

}    // namespace callorv::detail

#endif
