// A dictionary as one page for a browser.
#ifndef CALLORV_TOOLS_DICT_HTML_H
#define CALLORV_TOOLS_DICT_HTML_H

#include <callorv/dict/msg_dic.h>

#include <string>

// The page needs nothing but itself. p_sTitle is UTF-8.
std::string DictionaryPage(const CMsgDic& p_cDic, const std::string& p_sTitle);

#endif
