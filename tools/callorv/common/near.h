// Names that somebody may have meant.
#ifndef CALLORV_TOOLS_NEAR_H
#define CALLORV_TOOLS_NEAR_H

#include <string>
#include <string_view>
#include <vector>

// Of p_asKnown the one that p_sWord misspells (other case, some letters too many, too few, other or swapped), or else
// one of which it is the beginning or that is its beginning. "" when none is near.
std::string Nearest(std::string_view p_sWord, const std::vector<std::string>& p_asKnown);

// "; did you mean 'name'?" for the nearest, else "".
std::string DidYouMean(std::string_view p_sWord, const std::vector<std::string>& p_asKnown);

#endif
