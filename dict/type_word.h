// The words for value types.
#ifndef CALLORV_DICT_TYPE_WORD_H
#define CALLORV_DICT_TYPE_WORD_H

#include "callorv/dict/tag_info.h"

namespace callorv::detail {

// By E_TagType. The dictionary file has the words of 1 to 5.
inline constexpr const char* s_aszTypeWord[] = {"Unknown", "string", "integer", "double", "bool", "date", "submsg"};
static_assert(sizeof(s_aszTypeWord) / sizeof(*s_aszTypeWord) == TAG_SUBMSG + 1);

}    // namespace callorv::detail

#endif
