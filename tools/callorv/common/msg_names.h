// Messages and tags of the dictionary by number or by name.
#ifndef CALLORV_TOOLS_MSG_NAMES_H
#define CALLORV_TOOLS_MSG_NAMES_H

#include <callorv/dict/msg_dic.h>
#include <callorv/msg/msg.h>

#include <string>

// The number of a message that is given by number or, of several with one name the first, by name (UTF-8). Looks at all
// of them. Throws CFailure.
int FindMessage(const std::string& p_sMessage, const CMsgDic& p_cDic = *MA_GetMsgDic());

// The definition of a tag of p_cMsg, which has a definition. Throws CFailure.
const CTagInfo& FindTag(const CMsg& p_cMsg, const std::string& p_sTag);

#endif
