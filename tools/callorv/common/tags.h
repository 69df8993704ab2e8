// The tags of a message's definition, as they count.
#ifndef CALLORV_TOOLS_TAGS_H
#define CALLORV_TOOLS_TAGS_H

#include <callorv/dict/msg_dic.h>

#include <string>
#include <vector>

// The definitions that count, in order: of a tag number that comes twice the first.
std::vector<const CTagInfo*> FirstTags(const CMsgInfo& p_cInfo);

// Whether the tag has a name, and is what the name finds: of several with one name the first is.
bool IsFoundByName(const CMsgInfo& p_cInfo, const CTagInfo& p_tTag);

// "string", ..., and of a sub-message its number: "m4".
std::string TypeWord(const CTagInfo& p_tTag);

#endif
