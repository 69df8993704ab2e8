// Says everything that is wrong or suspicious in a dictionary file.
#include "dict/dict_check.h"

#include <callorv/base/exception.h>
#include <callorv/dict/dic_reader.h>
#include <callorv/dict/msg_dic.h>

#include <algorithm>
#include <climits>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

#include "common/near.h"
#include "common/text.h"

namespace {

enum {
  MSG_REJECT = 10,         // the reply that tells of a rejection
  HASH_MAX = 128,
  CHAIN_LONG = 8,          // tags in one place of the hash from which on another modulus is suggested ...
  CHAIN_SHORT = 4          // ... if it brings them down to this
};

struct T_Tag {
  int iLine = 0;
  int iNum = 0;
  std::string sName;
  std::string sType;
  int iSubMsg = 0;    // 0: none
};

struct T_Msg {
  int iLine = 0;
  int iNum = 0;
  std::string sName;
  bool bHash = false;    // the dictionary gives a modulus
  int iHash = 0;
  std::vector<T_Tag> atTag;
  std::map<int, int> cLineOf;              // of the first tag with a number
  std::map<std::string, int> cTagOf;       // the first tag with a name
};

std::string Str(int p_i) { return std::to_string(p_i); }
std::string Quoted(std::string_view p_sLatin1) { return "'" + Printable(p_sLatin1, false) + "'"; }

bool IsNumber(std::string_view p_sText) {
  int iValue = 0;
  return ParseNumber(p_sText, INT_MIN, INT_MAX, iValue);
}

// A name that can stand as an element's name in message XML: letters of ISO-8859-1 and "_", inside also digits, "-" and
// ".". (The parser takes some more, which nobody should use.)
bool IsXmlName(std::string_view p_sName) {
  for (size_t i = 0; i < p_sName.size(); ++i) {
    const auto c = static_cast<unsigned char>(p_sName[i]);
    const bool bLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
                         (c >= 0xc0 && c != 0xd7 && c != 0xf7);
    const bool bInside = (c >= '0' && c <= '9') || c == '-' || c == '.';
    if (!bLetter && !(bInside && i > 0)) return false;
  }
  return !p_sName.empty();
}

// The most tags that share one place of a hash.
int LongestChain(const std::set<int>& p_cNums, int p_iModulus) {
  int aiCount[HASH_MAX] = {};
  int iMost = 0;
  for (int iNum : p_cNums) iMost = std::max(iMost, ++aiCount[iNum % p_iModulus]);
  return iMost;
}

// The least modulus with the shortest longest chain.
int BestHash(const std::set<int>& p_cNums) {
  int iBest = HASH_MAX;
  for (int i = HASH_MAX; i >= 1; --i) {
    if (LongestChain(p_cNums, i) <= LongestChain(p_cNums, iBest)) iBest = i;
  }
  return iBest;
}

// One message on the way from another down into the messages that it holds.
struct T_Step {
  const T_Msg* pMsg;
  size_t iNextTag;
};

// 1 > 2 > 3 > 1 for the last steps from p_iFrom on; of a long circle its beginning and its end.
std::string Circle(const std::vector<T_Step>& p_atPath, size_t p_iFrom) {
  enum { SHOWN = 8, HEAD = 4, TAIL = 2 };
  const size_t iSize = p_atPath.size() - p_iFrom;
  std::string sText;
  for (size_t i = 0; i < iSize; ++i) {
    const bool bSkip = iSize >= SHOWN && i >= HEAD && i < iSize - TAIL;
    if (bSkip && i > HEAD) continue;
    sText += (bSkip ? "..." : Str(p_atPath[p_iFrom + i].pMsg->iNum)) + " > ";
  }
  return sText + Str(p_atPath[p_iFrom].pMsg->iNum);
}

class CDicChecker : public CDicReader {
 public:
  T_DictReport Check(const std::string& p_sPath);

 private:
  T_DictReport m_tReport;
  std::vector<T_Msg> m_atMsg;              // in the order of the document
  std::map<int, size_t> m_cByNum;          // the first definition of each number
  bool m_bInMsg = false;                   // the children of the open element at depth 2 count

  void Add(int p_iLine, bool p_bError, std::string p_sText) {
    m_tReport.atFinding.push_back({p_iLine, p_bError, std::move(p_sText)});
  }
  void Error(std::string p_sText) { Add(GetLine(), true, std::move(p_sText)); }
  void Warn(std::string p_sText) { Add(GetLine(), false, std::move(p_sText)); }

  void OnElement(int p_iDepth, const char* p_szName, const T_Attribute* p_atAttr, int p_iAttrs) override;
  void OnMsg(const T_Attribute* p_atAttr, int p_iAttrs);
  void OnTag(const T_Attribute* p_atAttr, int p_iAttrs);
  const CString* Find(const T_Attribute* p_atAttr, int p_iAttrs, std::string_view p_sName) const;
  void CheckAttributes(const std::string& p_sWhat, const T_Attribute* p_atAttr, int p_iAttrs,
                       const std::vector<std::string>& p_asKnown);
  int Number(const std::string& p_sWhat, const CString& p_sText);
  void CheckType(T_Tag& p_tTag);

  // What only the whole dictionary tells.
  void CheckMsg(const T_Msg& p_tMsg);
  void CheckHash(const T_Msg& p_tMsg);
  void CheckNames();
  void CheckReject();
  void CheckRecursion();
  void CheckBelow(const T_Msg& p_tMsg, std::set<int>& p_cDone);
};

void CDicChecker::OnElement(int p_iDepth, const char* p_szName, const T_Attribute* p_atAttr, int p_iAttrs) {
  const std::string_view sName = p_szName;
  if (p_iDepth == 1) {
    if (sName != "msg_dictionary") Error("the root element is '" + std::string(sName) + "', not 'msg_dictionary'");
  } else if (p_iDepth == 2) {
    m_bInMsg = sName == "msg";
    if (m_bInMsg) return OnMsg(p_atAttr, p_iAttrs);
    Error("element '" + std::string(sName) + "' stands where only 'msg' may" + DidYouMean(sName, {"msg"}));
  } else if (p_iDepth == 3 && m_bInMsg && sName != "constraint") {
    if (sName == "tag") return OnTag(p_atAttr, p_iAttrs);
    Error("element '" + std::string(sName) + "' stands where only 'tag' and 'constraint' may" +
          DidYouMean(sName, {"tag", "constraint"}));
  }
}

const CString* CDicChecker::Find(const T_Attribute* p_atAttr, int p_iAttrs, std::string_view p_sName) const {
  const T_Attribute* pFound = nullptr;    // of two with one local name the dictionary takes the last
  for (int i = 0; i < p_iAttrs; ++i) {
    if (p_atAttr[i].sName.ToStr() == p_sName) pFound = &p_atAttr[i];
  }
  return pFound == nullptr ? nullptr : &pFound->sValue;
}

void CDicChecker::CheckAttributes(const std::string& p_sWhat, const T_Attribute* p_atAttr, int p_iAttrs,
                                  const std::vector<std::string>& p_asKnown) {
  for (int i = 0; i < p_iAttrs; ++i) {
    const std::string sName = p_atAttr[i].sName.ToStr();
    if (std::find(p_asKnown.begin(), p_asKnown.end(), sName) == p_asKnown.end()) {
      Warn(p_sWhat + ": attribute " + Quoted(sName) + " is not known and is ignored" + DidYouMean(sName, p_asKnown));
    } else if (p_atAttr[i].bCut) {
      Warn(p_sWhat + ": attribute " + Quoted(sName) +
           " has characters beyond ISO-8859-1, of which only the low byte is kept");
    }
  }
}

// A number as the dictionary reads it: as far as it goes.
int CDicChecker::Number(const std::string& p_sWhat, const CString& p_sText) {
  const int iValue = p_sText.ToInt();
  if (!IsNumber(p_sText.ToStr())) Warn(p_sWhat + " " + Quoted(p_sText.ToStr()) + " is read as " + Str(iValue));
  return iValue;
}

void CDicChecker::OnMsg(const T_Attribute* p_atAttr, int p_iAttrs) {
  const CString* pNo = Find(p_atAttr, p_iAttrs, "no");
  const CString* pName = Find(p_atAttr, p_iAttrs, "name");
  const CString* pHash = Find(p_atAttr, p_iAttrs, "hash");
  ++m_tReport.iMessages;
  T_Msg tMsg;
  tMsg.iLine = GetLine();
  tMsg.sName = pName == nullptr ? "" : pName->ToStr();
  tMsg.bHash = pHash != nullptr && !pHash->IsEmpty();
  if (pNo == nullptr) {
    Error("the message has no number");
  } else {
    tMsg.iNum = Number("message number", *pNo);
    const std::string sMsg = "message " + Str(tMsg.iNum);
    const auto cFirst = m_cByNum.find(tMsg.iNum);
    if (tMsg.iNum < 1 || tMsg.iNum >= CMsgDic::SLOTS) {
      Error(sMsg + ": the number is outside 1 to 9999");
    } else if (cFirst != m_cByNum.end()) {
      Error(sMsg + " is defined again; first in line " + Str(m_atMsg[cFirst->second].iLine));
    } else {
      m_cByNum[tMsg.iNum] = m_atMsg.size();
    }
  }
  const std::string sMsg = "message " + Str(tMsg.iNum);
  CheckAttributes(sMsg, p_atAttr, p_iAttrs, {"no", "name", "ver", "hash"});
  if (tMsg.sName.empty()) Warn(sMsg + " has no name");
  if (tMsg.bHash) tMsg.iHash = Number(sMsg + ": hash", *pHash);
  m_atMsg.push_back(std::move(tMsg));
}

void CDicChecker::OnTag(const T_Attribute* p_atAttr, int p_iAttrs) {
  const CString* pNo = Find(p_atAttr, p_iAttrs, "no");
  const CString* pName = Find(p_atAttr, p_iAttrs, "name");
  const CString* pType = Find(p_atAttr, p_iAttrs, "type");
  const CString* pArray = Find(p_atAttr, p_iAttrs, "array");
  T_Msg& tMsg = m_atMsg.back();
  ++m_tReport.iTags;
  const std::string sMsg = "message " + Str(tMsg.iNum) + ", tag ";
  T_Tag tTag;
  tTag.iLine = GetLine();
  tTag.sName = pName == nullptr ? "" : pName->ToStr();
  tTag.sType = pType == nullptr ? "" : pType->ToStr();
  if (pNo == nullptr) {
    Warn(sMsg + Quoted(tTag.sName) + " has no number, which counts as 0");
  } else {
    tTag.iNum = Number(sMsg + Quoted(tTag.sName) + ": number", *pNo);
  }
  const std::string sTag = sMsg + Str(tTag.iNum);
  if (tTag.iNum < 0) Error(sTag + ": the number is negative");
  CheckAttributes(sTag, p_atAttr, p_iAttrs, {"no", "name", "type", "array"});
  if (tTag.sName.empty()) {
    Warn(sTag + " has no name");
  } else if (!IsXmlName(tTag.sName)) {
    Warn(sTag + ": " + Quoted(tTag.sName) + " is no name for an XML element, as messages written by name need");
  }
  if (pArray != nullptr && *pArray != "Y" && *pArray != "N") {
    Warn(sTag + ": array " + Quoted(pArray->ToStr()) + " is neither 'Y' nor 'N' and counts as 'N'");
  }
  CheckType(tTag);
  const auto [cFirst, bNew] = tMsg.cLineOf.emplace(tTag.iNum, tTag.iLine);
  if (!bNew) Warn(sTag + " is defined again; the definition in line " + Str(cFirst->second) + " counts");
  const int iFirst = tMsg.cTagOf.emplace(tTag.sName, tTag.iNum).first->second;
  if (iFirst != tTag.iNum && !tTag.sName.empty()) {
    Warn(sTag + ": the name " + Quoted(tTag.sName) + " is taken by tag " + Str(iFirst) + " in line " +
         Str(tMsg.cLineOf[iFirst]));
  }
  tMsg.atTag.push_back(std::move(tTag));
}

// The library's words for the types but sub-messages.
std::vector<std::string> TypeWords() {
  std::vector<std::string> asWord;
  for (int i = TAG_STRING;; ++i) {
    const CString sWord = CTagInfo::ReprType(static_cast<E_TagType>(i));
    if (sWord.StartsWith("Unknown")) return asWord;
    if (i != TAG_SUBMSG) asWord.push_back(sWord.ToStr());
  }
}

void CDicChecker::CheckType(T_Tag& p_tTag) {
  static const std::vector<std::string> s_asWord = TypeWords();
  if (std::find(s_asWord.begin(), s_asWord.end(), p_tTag.sType) != s_asWord.end()) return;
  const std::string sTag = "message " + Str(m_atMsg.back().iNum) + ", tag " + Str(p_tTag.iNum);
  if (p_tTag.sType.empty() || p_tTag.sType[0] != 'm') {
    std::string sKnown;
    for (const std::string& sWord : s_asWord) sKnown += sWord + ", ";
    std::vector<std::string> asKnown = s_asWord;
    if (p_tTag.sType.substr(0, 1) == "M") asKnown.push_back('m' + p_tTag.sType.substr(1));
    Error(sTag + ": type " + Quoted(p_tTag.sType) +
          " is none of " + sKnown + "and m with a number" + DidYouMean(p_tTag.sType, asKnown));
    return;
  }
  const CString sNum(p_tTag.sType.c_str() + 1);
  p_tTag.iSubMsg = sNum.ToInt();
  if (p_tTag.iSubMsg < 1 || p_tTag.iSubMsg >= CMsgDic::SLOTS) {
    Error(sTag + ": type " + Quoted(p_tTag.sType) + " names a message outside 1 to 9999");
    p_tTag.iSubMsg = 0;
  } else if (!IsNumber(sNum.ToStr())) {
    Warn(sTag + ": type " + Quoted(p_tTag.sType) + " is read as m" + Str(p_tTag.iSubMsg));
  }
}

void CDicChecker::CheckMsg(const T_Msg& p_tMsg) {
  for (const T_Tag& tTag : p_tMsg.atTag) {
    if (tTag.iSubMsg == 0 || m_cByNum.count(tTag.iSubMsg) != 0) continue;
    Add(tTag.iLine, false, "message " + Str(p_tMsg.iNum) + ", tag " + Str(tTag.iNum) + ": message " +
                               Str(tTag.iSubMsg) + " is not defined");
  }
  CheckHash(p_tMsg);
}

void CDicChecker::CheckHash(const T_Msg& p_tMsg) {
  if (!p_tMsg.bHash) return;
  std::set<int> cNums;
  for (const T_Tag& tTag : p_tMsg.atTag) {
    if (tTag.iNum >= 0) cNums.insert(tTag.iNum);
  }
  const bool bOutside = p_tMsg.iHash < 1 || p_tMsg.iHash > HASH_MAX;
  const int iChain = LongestChain(cNums, bOutside ? HASH_MAX : p_tMsg.iHash);
  const int iBest = BestHash(cNums);
  const std::string sHash = "message " + Str(p_tMsg.iNum) + ": hash " + Str(p_tMsg.iHash);
  if (bOutside) {
    Add(p_tMsg.iLine, false, sHash + " is outside 1 to 128 and counts as 128; " + Str(iBest) + " would do");
  } else if (iChain > CHAIN_LONG && LongestChain(cNums, iBest) <= CHAIN_SHORT) {
    Add(p_tMsg.iLine, false, sHash + " puts " + Str(iChain) + " tags in one place; with " + Str(iBest) +
                                 " it would be at most " + Str(LongestChain(cNums, iBest)));
  }
}

void CDicChecker::CheckNames() {
  std::map<std::string, const T_Msg*> cFirst;
  for (const T_Msg& tMsg : m_atMsg) {
    if (tMsg.sName.empty()) continue;
    const auto [cPlace, bNew] = cFirst.emplace(tMsg.sName, &tMsg);
    if (bNew || cPlace->second->iNum == tMsg.iNum) continue;
    Add(tMsg.iLine, false, "message " + Str(tMsg.iNum) + ": the name " + Quoted(tMsg.sName) + " is taken by message " +
                               Str(cPlace->second->iNum) + " in line " + Str(cPlace->second->iLine));
  }
}

void CDicChecker::CheckReject() {
  static const struct {
    int iTag;
    const char* szName;
    const char* szType;
  } s_atTag[] = {{6, "SysCode", "integer"}, {7, "SysReasonText", "string"}, {8, "RefSvcNum", "integer"}};
  const auto cReject = m_cByNum.find(MSG_REJECT);
  if (cReject == m_cByNum.end()) {
    Add(1, false, "message 10 (REJECT), by which a server rejects a call, is not defined");
    return;
  }
  const T_Msg& tMsg = m_atMsg[cReject->second];
  for (const auto& tWanted : s_atTag) {
    const bool bThere = std::any_of(tMsg.atTag.begin(), tMsg.atTag.end(), [&](const T_Tag& p_tTag) {
      return p_tTag.iNum == tWanted.iTag && p_tTag.sType == tWanted.szType;
    });
    if (bThere) continue;
    Add(tMsg.iLine, false, "message 10 has no tag " + Str(tWanted.iTag) + " (" + tWanted.szName + ") of type " +
                               tWanted.szType + ", which a rejection needs");
  }
}

// Each message that holds itself, by the tag that closes the circle.
void CDicChecker::CheckRecursion() {
  std::set<int> cDone;    // messages below which all is known
  for (const auto& [iNum, iPlace] : m_cByNum) {
    if (cDone.count(iNum) == 0) CheckBelow(m_atMsg[iPlace], cDone);
  }
}

void CDicChecker::CheckBelow(const T_Msg& p_tMsg, std::set<int>& p_cDone) {
  std::vector<T_Step> atPath;
  std::map<int, size_t> cPlace;    // of a message in the path
  const auto fnEnter = [&](const T_Msg& p_tNext) {
    cPlace[p_tNext.iNum] = atPath.size();
    atPath.push_back({&p_tNext, 0});
  };
  fnEnter(p_tMsg);
  while (!atPath.empty()) {
    T_Step& tStep = atPath.back();
    const T_Msg& tMsg = *tStep.pMsg;
    if (tStep.iNextTag == tMsg.atTag.size()) {
      p_cDone.insert(tMsg.iNum);
      cPlace.erase(tMsg.iNum);
      atPath.pop_back();
      continue;
    }
    const T_Tag& tTag = tMsg.atTag[tStep.iNextTag++];
    const auto cSub = m_cByNum.find(tTag.iSubMsg);
    if (cSub == m_cByNum.end() || p_cDone.count(tTag.iSubMsg) != 0) continue;
    const auto cOpen = cPlace.find(tTag.iSubMsg);
    if (cOpen == cPlace.end()) {
      fnEnter(m_atMsg[cSub->second]);
    } else {
      Add(tTag.iLine, false, "message " + Str(tMsg.iNum) + ", tag " + Str(tTag.iNum) + ": message " +
                                 Str(tTag.iSubMsg) + " holds itself (" + Circle(atPath, cOpen->second) + ")");
    }
  }
}

T_DictReport CDicChecker::Check(const std::string& p_sPath) {
  try {
    Read(p_sPath.c_str());
    for (const T_Msg& tMsg : m_atMsg) CheckMsg(tMsg);
    CheckNames();
    CheckReject();
    CheckRecursion();
  } catch (const CException& cError) {
    if (GetLine() == 0) throw;
    Error(ToUtf8(cError.GetText()));
  }
  std::stable_sort(m_tReport.atFinding.begin(), m_tReport.atFinding.end(),
                   [](const T_Finding& p_tA, const T_Finding& p_tB) { return p_tA.iLine < p_tB.iLine; });
  try {
    std::make_unique<CMsgDic>()->InitDictionary(p_sPath.c_str());
  } catch (const CException& cError) {
    m_tReport.sLoader = cError.GetText();
  }
  return std::move(m_tReport);
}

}    // namespace

int T_DictReport::Count(bool p_bErrors) const {
  return static_cast<int>(std::count_if(atFinding.begin(), atFinding.end(), [&](const T_Finding& p_tFinding) {
    return p_tFinding.bError == p_bErrors;
  }));
}

T_DictReport CheckDictionary(const std::string& p_sPath) { return CDicChecker().Check(p_sPath); }
