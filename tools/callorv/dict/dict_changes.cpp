// What differs between two dictionaries, and what of it programs notice that were built for the old one.
#include "dict/dict_changes.h"

#include <algorithm>
#include <map>

#include "common/tags.h"
#include "dict/dict_file.h"

namespace {

int NumberOf(const CMsgInfo& p_c) { return p_c.GetMsgNum(); }
int NumberOf(const CTagInfo& p_c) { return p_c.m_iTagNum; }
std::string NameOf(const CMsgInfo& p_c) { return p_c.GetMsgName().ToStr(); }
std::string NameOf(const CTagInfo& p_c) { return p_c.m_sName.ToStr(); }

// What an old definition has become (null: it is gone), in the old order, and then the new ones that were none.
template <class T>
struct T_Pair {
  const T* pOld;
  const T* pNew;
};

// What has number and name is the same; else what has the name, under another number; else what has the number, under
// another name.
template <class T>
std::vector<T_Pair<T>> Paired(const std::vector<const T*>& p_apOld, const std::vector<const T*>& p_apNew) {
  std::map<const T*, const T*> cNewOf, cOldOf;
  const auto fnPair = [&](auto p_fnKey) {
    std::map<decltype(p_fnKey(*p_apOld[0])), const T*> cFree;
    for (const T* pNew : p_apNew) {
      if (cOldOf.count(pNew) == 0) cFree.emplace(p_fnKey(*pNew), pNew);
    }
    for (const T* pOld : p_apOld) {
      const auto cFound = cFree.find(p_fnKey(*pOld));
      if (cNewOf.count(pOld) != 0 || cFound == cFree.end() || cOldOf.count(cFound->second) != 0) continue;
      cNewOf[pOld] = cFound->second;
      cOldOf[cFound->second] = pOld;
    }
  };
  fnPair([](const T& p_c) { return std::make_pair(NumberOf(p_c), NameOf(p_c)); });
  fnPair([](const T& p_c) {    // no name is nobody's name: it counts as the number
    const std::string sName = NameOf(p_c);
    return sName.empty() ? std::make_pair(NumberOf(p_c), sName) : std::make_pair(-1, sName);
  });
  fnPair([](const T& p_c) { return NumberOf(p_c); });
  std::vector<T_Pair<T>> atPair;
  atPair.reserve(p_apOld.size() + p_apNew.size());
  for (const T* pOld : p_apOld) atPair.push_back({pOld, cNewOf.count(pOld) != 0 ? cNewOf[pOld] : nullptr});
  for (const T* pNew : p_apNew) {
    if (cOldOf.count(pNew) == 0) atPair.push_back({nullptr, pNew});
  }
  return atPair;
}

class CComparer {
 public:
  CComparer(const CMsgDic& p_cOld, const CMsgDic& p_cNew)
      : m_cOld(p_cOld), m_cNew(p_cNew), m_cOldByName(NumbersByName(p_cOld)), m_cNewByName(NumbersByName(p_cNew)) {}

  std::vector<T_Change> Compare() {
    const auto atPair = Paired(Messages(m_cOld), Messages(m_cNew));
    for (const auto& t : atPair) {
      if (t.pOld != nullptr && t.pNew != nullptr) m_cNewNumber[t.pOld->GetMsgNum()] = t.pNew->GetMsgNum();
    }
    for (const auto& t : atPair) CompareMessage(t.pOld, t.pNew);
    std::stable_sort(m_atChange.begin(), m_atChange.end(),
                     [](const T_Change& p_tA, const T_Change& p_tB) { return p_tA.iMsg < p_tB.iMsg; });
    return std::move(m_atChange);
  }

 private:
  enum { COMPATIBLE = 0, BY_NUMBER = 1, BY_NAME = 2, BOTH = 3 };

  const CMsgDic& m_cOld;
  const CMsgDic& m_cNew;
  std::map<std::string, int> m_cOldByName, m_cNewByName;
  std::map<int, int> m_cNewNumber;    // of each old message that is still there
  std::vector<T_Change> m_atChange;
  T_Change m_tPlace;                  // message and tag of what is compared

  void Add(const char* p_szKind, int p_iBreaks, std::string p_sOld, std::string p_sNew, std::string p_sWhy) {
    T_Change t = m_tPlace;
    t.sKind = p_szKind;
    t.bByNumber = (p_iBreaks & BY_NUMBER) != 0;
    t.bByName = (p_iBreaks & BY_NAME) != 0;
    t.sOld = std::move(p_sOld);
    t.sNew = std::move(p_sNew);
    t.sWhy = std::move(p_sWhy);
    m_atChange.push_back(std::move(t));
  }

  void EnterMessage(const CMsgInfo& p_cInfo) {
    m_tPlace = T_Change();
    m_tPlace.iMsg = NumberOf(p_cInfo);
    m_tPlace.sMsg = NameOf(p_cInfo);
  }

  void EnterTag(const CTagInfo& p_tTag) {
    m_tPlace.iTag = p_tTag.m_iTagNum;
    m_tPlace.sTag = NameOf(p_tTag);
  }

  static std::string Kind(const CTagInfo& p_tTag) { return TypeWord(p_tTag) + (p_tTag.m_bArray ? " array" : ""); }

  void CompareMessage(const CMsgInfo* p_pOld, const CMsgInfo* p_pNew) {
    if (p_pOld == nullptr) {
      EnterMessage(*p_pNew);
      return Add("message added", COMPATIBLE, "", "", "no program that was built for the old dictionary asks for it");
    }
    EnterMessage(*p_pOld);
    if (p_pNew == nullptr) {
      return Add("message removed", BOTH, "", "",
                 NumberNow(m_cNew.GetMsgInfo(NumberOf(*p_pOld)), "message",
                           "it cannot be made (-19), and a reply that is one is refused (-21)"));
    }
    CompareNumber(*p_pOld, *p_pNew);
    const auto cFound = m_cNewByName.find(NameOf(*p_pOld));
    CompareName(*p_pOld, *p_pNew, m_cOldByName[NameOf(*p_pOld)], cFound == m_cNewByName.end() ? 0 : cFound->second,
                "message renamed", "message name");
    const std::string sOldVer = p_pOld->GetVersion().ToStr(), sNewVer = p_pNew->GetVersion().ToStr();
    if (sOldVer != sNewVer) {
      Add("version", COMPATIBLE, sOldVer, sNewVer, "the library keeps it and compares it with nothing");
    }
    if (p_pOld->GetHashKey() != p_pNew->GetHashKey()) {
      Add("hash", COMPATIBLE, std::to_string(p_pOld->GetHashKey()), std::to_string(p_pNew->GetHashKey()),
          "it spreads the tags in memory and means nothing else");
    }
    CompareTags(*p_pOld, *p_pNew);
  }

  void CompareNumber(const CMsgInfo& p_cOld, const CMsgInfo& p_cNew) {
    if (NumberOf(p_cOld) == NumberOf(p_cNew)) return;
    Add("message renumbered", BY_NUMBER, std::to_string(NumberOf(p_cOld)), std::to_string(NumberOf(p_cNew)),
        NumberNow(m_cNew.GetMsgInfo(NumberOf(p_cOld)), "message", "its number is unknown (-19; in a reply -21)"));
  }

  // What became of a number that was an old definition's: p_pNow has it now, and if that is null, p_szUnknown says it.
  template <class T>
  static std::string NumberNow(const T* p_pNow, const char* p_szWhat, const char* p_szUnknown) {
    if (p_pNow == nullptr) return p_szUnknown;
    return std::string("its number is ") + p_szWhat + " '" + NameOf(*p_pNow) + "' now";
  }

  // p_iFoundOld, p_iFoundNew: the numbers that the old name finds in the old dictionary and in the new one.
  template <class T>
  void CompareName(const T& p_cOld, const T& p_cNew, int p_iFoundOld, int p_iFoundNew, const char* p_szRenamed,
                   const char* p_szMoved) {
    const bool bUsed = !NameOf(p_cOld).empty() && p_iFoundOld == NumberOf(p_cOld);
    if (NameOf(p_cOld) != NameOf(p_cNew)) {
      Add(p_szRenamed, bUsed ? BY_NAME : COMPATIBLE, NameOf(p_cOld), NameOf(p_cNew),
          bUsed ? "its old name is unknown, or another's; by number it is what it was"
                : "its old name did not find it either");
    } else if (bUsed && p_iFoundNew != NumberOf(p_cNew)) {
      Add(p_szMoved, BY_NAME, std::to_string(NumberOf(p_cNew)), std::to_string(p_iFoundNew),
          "another one that has the name, too, stands before it and is what the name finds");
    }
  }

  void CompareTags(const CMsgInfo& p_cOld, const CMsgInfo& p_cNew) {
    std::vector<int> aiOld, aiNew;    // the tags that both have, in their orders
    for (const auto& t : Paired(FirstTags(p_cOld), FirstTags(p_cNew))) {
      if (t.pOld == nullptr) {
        EnterTag(*t.pNew);
        Add("tag added", COMPATIBLE, "", Kind(*t.pNew),
            "it is passed over where the new dictionary is loaded; where the old one still is, a message that has it "
            "is refused (-21)");
        continue;
      }
      EnterTag(*t.pOld);
      if (t.pNew == nullptr) {
        Add("tag removed", BOTH, Kind(*t.pOld), "",
            NumberNow(p_cNew.GetTagInfo(t.pOld->m_iTagNum), "tag",
                      "it is unknown (-18), also to generated classes; a message that has it is refused (-21)"));
      } else {
        aiOld.push_back(t.pNew->m_iTagNum);
        CompareTag(p_cOld, *t.pOld, p_cNew, *t.pNew);
      }
    }
    for (const CTagInfo* pTag : FirstTags(p_cNew)) {
      if (std::find(aiOld.begin(), aiOld.end(), pTag->m_iTagNum) != aiOld.end()) aiNew.push_back(pTag->m_iTagNum);
    }
    m_tPlace.iTag = -1;
    m_tPlace.sTag = "";
    if (aiOld == aiNew) return;
    Add("order", COMPATIBLE, "", "", "tags are written in another order; who reads them goes by number or name");
  }

  void CompareTag(const CMsgInfo& p_cOldMsg, const CTagInfo& p_tOld, const CMsgInfo& p_cNewMsg,
                  const CTagInfo& p_tNew) {
    if (p_tOld.m_iTagNum != p_tNew.m_iTagNum) {
      Add("tag renumbered", BY_NUMBER, std::to_string(p_tOld.m_iTagNum), std::to_string(p_tNew.m_iTagNum),
          NumberNow(p_cNewMsg.GetTagInfo(p_tOld.m_iTagNum), "tag",
                    "its number is unknown (-18; in a message that is read -21)"));
    }
    CompareName(p_tOld, p_tNew, p_cOldMsg.GetTagNumByName(p_tOld.m_sName.ToStr()),
                p_cNewMsg.GetTagNumByName(p_tOld.m_sName.ToStr()), "tag renamed", "tag name");
    if (TypeWord(p_tOld) != TypeWord(p_tNew)) CompareType(p_tOld, p_tNew);
    if (p_tOld.m_bArray != p_tNew.m_bArray) {
      Add("array", BOTH, p_tOld.m_bArray ? "Y" : "N", p_tNew.m_bArray ? "Y" : "N",
          p_tNew.m_bArray ? "a value that is set again is appended, where it was replaced; by name it is a list, where "
                            "it was a value"
                          : "of several values the last is sent, and asking for one after the other never ends; by "
                            "name it is a value, where it was a list");
    }
    const auto fnTimes = [&](const CMsgInfo& p_cInfo, int p_iTag) {
      int iTimes = 0;
      for (int i = 0; i < p_cInfo.GetNoTags(); ++i) iTimes += p_cInfo.GetTagNumAt(i) == p_iTag ? 1 : 0;
      return iTimes;
    };
    const int iOld = fnTimes(p_cOldMsg, p_tOld.m_iTagNum), iNew = fnTimes(p_cNewMsg, p_tNew.m_iTagNum);
    if (iOld == iNew) return;
    Add("times", p_tNew.m_bArray ? BOTH : COMPATIBLE, std::to_string(iOld), std::to_string(iNew),
        std::string("it is written as often as it is defined; ") +
            (p_tNew.m_bArray ? "an array arrives that many times as long"
                             : "of one value the first that arrives is kept"));
  }

  void CompareType(const CTagInfo& p_tOld, const CTagInfo& p_tNew) {
    const auto cNow = m_cNewNumber.find(p_tOld.m_iSubMsg);
    const bool bSame = p_tOld.m_eType == TAG_SUBMSG && p_tNew.m_eType == TAG_SUBMSG && cNow != m_cNewNumber.end() &&
                       cNow->second == p_tNew.m_iSubMsg;
    std::string sWhy = "what sets and gets the old type fails (-17)";
    if (p_tNew.m_eType == TAG_SUBMSG && p_tOld.m_eType == TAG_SUBMSG) {
      sWhy = bSame ? "the message that it holds has another number; by name it is what it was"
                   : "it holds another message";
    }
    Add("type", bSame ? BY_NUMBER : BOTH, TypeWord(p_tOld), TypeWord(p_tNew), sWhy);
  }
};

}    // namespace

std::vector<T_Change> Changes(const CMsgDic& p_cOld, const CMsgDic& p_cNew) {
  return CComparer(p_cOld, p_cNew).Compare();
}
