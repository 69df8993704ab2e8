// Names that somebody may have meant.
#include "common/near.h"

#include <algorithm>

namespace {

std::string Lower(std::string_view p_s) {
  std::string sOut(p_s);
  for (char& c : sOut) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
  }
  return sOut;
}

// The least number of letters to insert, leave out, replace or swap with their neighbour (optimal string alignment).
size_t Distance(const std::string& p_sA, const std::string& p_sB) {
  std::vector<size_t> aBefore, aLast, aNow(p_sB.size() + 1);
  for (size_t j = 0; j < aNow.size(); ++j) aNow[j] = j;
  for (size_t i = 1; i <= p_sA.size(); ++i) {
    aBefore.swap(aLast);
    aLast = aNow;
    aNow[0] = i;
    for (size_t j = 1; j <= p_sB.size(); ++j) {
      const bool bEqual = p_sA[i - 1] == p_sB[j - 1];
      aNow[j] = std::min({aLast[j] + 1, aNow[j - 1] + 1, aLast[j - 1] + (bEqual ? 0 : 1)});
      const bool bSwapped = i > 1 && j > 1 && p_sA[i - 1] == p_sB[j - 2] && p_sA[i - 2] == p_sB[j - 1];
      if (bSwapped) aNow[j] = std::min(aNow[j], aBefore[j - 2] + 1);
    }
  }
  return aNow.back();
}

}    // namespace

std::string Nearest(std::string_view p_sWord, const std::vector<std::string>& p_asKnown) {
  constexpr size_t WORD_MAX = 64;     // nobody misspells what is longer
  constexpr size_t PREFIX_MIN = 3;    // "int" for "integer", "version" for "ver"
  const std::string sWord = Lower(p_sWord.substr(0, WORD_MAX));
  const std::string* pBest = nullptr;
  size_t iBest = sWord.size() / 3 + 1;    // of three letters one may be wrong, of six two
  for (const std::string& sKnown : p_asKnown) {
    const size_t iDistance = Distance(sWord, Lower(sKnown));
    if (iDistance >= iBest) continue;
    iBest = iDistance;
    pBest = &sKnown;
  }
  for (size_t i = 0; pBest == nullptr && i < p_asKnown.size(); ++i) {
    const size_t iLength = std::min(sWord.size(), p_asKnown[i].size());
    const bool bBegins = sWord.compare(0, iLength, Lower(p_asKnown[i]), 0, iLength) == 0;
    if (iLength >= PREFIX_MIN && bBegins) pBest = &p_asKnown[i];
  }
  return pBest == nullptr ? "" : *pBest;
}

std::string DidYouMean(std::string_view p_sWord, const std::vector<std::string>& p_asKnown) {
  const std::string sNear = Nearest(p_sWord, p_asKnown);
  return sNear.empty() ? "" : "; did you mean '" + sNear + "'?";
}
