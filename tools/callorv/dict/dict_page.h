// The page of `callorv dict html`, without the dictionary.
#ifndef CALLORV_TOOLS_DICT_PAGE_H
#define CALLORV_TOOLS_DICT_PAGE_H

#include <string_view>

// dict_page.html; {{TITLE}} and {{DICTIONARY}} stand where the title and the data belong.
extern const std::string_view s_sDictPage;

#endif
