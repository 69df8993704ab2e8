// The C interface: programs of calls, of which each result, output and error text is what a model of the messages says.
#include <cmath>
#include <iterator>
#include <utility>

#include "callorv/callorv.h"
#include "model.h"
#include "support.h"

namespace {

// The numbers that the texts of a wrong type print, by type.
struct T_Lines {
  int iSet, iGet, iGetArr, iGetAt;
};
const T_Lines s_atLines[] = {{},
                             {1178, 699, 943, 2355},
                             {1233, 740, 983, 2393},
                             {1280, 777, 1023, 2431},
                             {1327, 814, 1063, 2469},
                             {1378, 850, 1103, 2506},
                             {1441, 891, 1144, 2544}};
const char* const s_aszType[] = {"Unknown", "string", "integer", "double", "bool", "date", "submsg"};

// Runs one program. The messages are in m_apTop, and those that the program has handles of in m_apKnown.
class CMachine {
 public:
  explicit CMachine(CInput& p_cInput) : m_cInput(p_cInput) {}
  ~CMachine() {
    for (const auto& pTop : m_apTop) MSG_Destroy(pTop->pMsg);
  }
  CMachine(const CMachine&) = delete;
  CMachine& operator=(const CMachine&) = delete;

  void Run() {
    MakeNew();
    while (!m_cInput.IsEmpty()) Step();
    for (const auto& pTop : m_apTop) ExpectSame(ToXml(*pTop->pMsg), WriteXml(*pTop, false, false), "ToXml");
  }

 private:
  enum { MAX_KNOWN = 12, MAX_TEXT = 4096 };

  CInput& m_cInput;
  std::vector<std::unique_ptr<T_ModelMsg>> m_apTop;
  std::vector<T_ModelMsg*> m_apKnown;

  void Step() {
    const int iOperation = m_cInput.Byte() % 16;
    if (iOperation == 0 || m_apKnown.empty()) {
      MakeNew();
      return;
    }
    T_ModelMsg& cMsg = *m_apKnown[m_cInput.Byte() % m_apKnown.size()];
    switch (iOperation) {
      case 1: Destroy(cMsg); return;    // cMsg may be gone
      case 2:
      case 3: SetSub(cMsg); break;
      case 4: Receive(cMsg); break;
      case 5: Write(cMsg); break;
      case 6: WithNulls(cMsg); break;
      case 7:
      case 8:
      case 9:
      case 10: Set(cMsg); break;
      case 11: Size(cMsg); break;
      case 12: m_cInput.Byte() % 4 == 0 ? Clear(cMsg) : NewSub(cMsg); break;
      case 13: Column(cMsg); break;
      default: Get(cMsg, iOperation % 2 == 0);
    }
    ExpectSame(MSG_GetLastError(cMsg.pMsg), cMsg.sError, "MSG_GetLastError");
    ExpectSame(MSG_GetSelfNum(cMsg.pMsg), cMsg.Num(), "MSG_GetSelfNum");
  }

  // ---- what should come out

  static int Fail(T_ModelMsg& p_cMsg, int p_iCode, const std::string& p_sDetail) {
    const char* szText = p_iCode == -1    ? "No Data found"
                         : p_iCode == -12 ? "Parameter is NULL"
                         : p_iCode == -17 ? "Invalid tag type"
                         : p_iCode == -18 ? "Not defined tag in dictionary"
                         : p_iCode == -19 ? "Not defined msg in dictionary"
                         : p_iCode == -27 ? "Out of index boundary in array"
                                          : "Invalid input msg of service";
    p_cMsg.sError = "MSG_Error(" + std::to_string(p_iCode) + ") : " + szText + " {" + p_sDetail + "}";
    return p_iCode;
  }
  static int CheckTag(T_ModelMsg& p_cMsg, int p_iTag, const T_TagDef*& p_pTag) {
    p_pTag = p_cMsg.pDef != nullptr ? p_cMsg.pDef->Find(p_iTag) : nullptr;
    if (p_pTag != nullptr) return 0;
    return Fail(p_cMsg, p_cMsg.pDef != nullptr ? -18 : -19,
                "msgnum=" + std::to_string(p_cMsg.Num()) + ", tagnum=" + std::to_string(p_iTag));
  }
  static int CheckType(T_ModelMsg& p_cMsg, const T_TagDef& p_tTag, E_TagType p_eWanted, int p_iLine) {
    if (p_tTag.eType == p_eWanted) return 0;
    return Fail(p_cMsg, -17, "Line:" + std::to_string(p_iLine) + ", tagnum=" + std::to_string(p_tTag.iTag) + ",type=(" +
                                 s_aszType[p_tTag.eType] + "/" + s_aszType[p_eWanted] + ")");
  }
  static int FindValues(T_ModelMsg& p_cMsg, int p_iTag, const T_TagDef*& p_pTag, std::vector<T_Value>*& p_patValue) {
    if (const int iRet = CheckTag(p_cMsg, p_iTag, p_pTag)) return iRet;
    const auto it = p_cMsg.cValues.find(p_iTag);
    if (it == p_cMsg.cValues.end()) {
      return Fail(p_cMsg, -1, "tagnum=" + std::to_string(p_iTag) + (p_cMsg.aiUnset.count(p_iTag) != 0 ? ",Unset" : ""));
    }
    p_patValue = &it->second;
    return 0;
  }
  // p_pIndex: null for the getters without one.
  static int FindValue(T_ModelMsg& p_cMsg, int p_iTag, E_TagType p_eType, const int* p_pIndex, T_Value*& p_pValue) {
    const T_TagDef* pTag = nullptr;
    std::vector<T_Value>* patValue = nullptr;
    const bool bUnset = p_cMsg.aiUnset.count(p_iTag) != 0 && p_eType != TAG_SUBMSG;    // the type is compared before
    if (const int iRet = bUnset ? CheckTag(p_cMsg, p_iTag, pTag) : FindValues(p_cMsg, p_iTag, pTag, patValue)) return iRet;
    const int iLine = p_pIndex != nullptr ? s_atLines[p_eType].iGetAt : s_atLines[p_eType].iGet;
    if (const int iRet = CheckType(p_cMsg, *pTag, p_eType, iLine)) return iRet;
    const int iIndex = pTag->bArray && p_pIndex != nullptr ? *p_pIndex : 0;
    if (iIndex < 0 || iIndex >= static_cast<int>(patValue->size())) {
      Fail(p_cMsg, -1, "tagnum=" + std::to_string(p_iTag));
      return -27;
    }
    p_pValue = &(*patValue)[static_cast<size_t>(iIndex)];
    return 0;
  }

  // ---- calls

  int TakeTag() { return static_cast<signed char>(m_cInput.Byte()) % 32; }
  E_TagType TakeType(const T_ModelMsg& p_cMsg, int p_iTag, E_TagType p_eLast) {    // mostly the tag's own
    const int iChoice = m_cInput.Byte();
    const T_TagDef* pTag = p_cMsg.pDef != nullptr ? p_cMsg.pDef->Find(p_iTag) : nullptr;
    if (pTag != nullptr && iChoice < 224 && pTag->eType <= p_eLast) return pTag->eType;
    return static_cast<E_TagType>(1 + iChoice % p_eLast);
  }

  void MakeNew() {
    static const int s_aiMsg[] = {100, 101, 102, 103, 104, 10, 0, -1, 999, 10000};
    if (m_apKnown.size() >= MAX_KNOWN) return;
    const int iMsg = s_aiMsg[m_cInput.Byte() % std::size(s_aiMsg)];
    CallOrv_Error tErr = {7, "before", 8};
    CMsg* pMsg = MSG_GetNewMsg(iMsg, &tErr);
    Expect(tErr.iCode == 7 && tErr.iRefSvcNum == 8 && strcmp(tErr.szText, "before") == 0, "error of MSG_GetNewMsg");
    const T_MsgDef* pDef = GetMsgDef(iMsg);
    Expect((pMsg != nullptr) == (iMsg < 1 || pDef != nullptr), "MSG_GetNewMsg");
    if (pMsg == nullptr) return;
    m_apTop.push_back(std::make_unique<T_ModelMsg>());
    m_apTop.back()->pDef = pDef;
    m_apTop.back()->pMsg = pMsg;
    m_apKnown.push_back(m_apTop.back().get());
  }

  // Takes a message out of the program, or out of the message in which it stands.
  std::unique_ptr<T_ModelMsg> Take(T_ModelMsg& p_cMsg) {
    T_ModelMsg* pOwner = std::exchange(p_cMsg.pOwner, nullptr);
    auto& apFrom = pOwner != nullptr ? pOwner->apOwned : m_apTop;
    const auto it = std::find_if(apFrom.begin(), apFrom.end(), [&](const auto& p_p) { return p_p.get() == &p_cMsg; });
    auto pTaken = std::move(*it);
    apFrom.erase(it);
    if (T_Value* pValue = pOwner != nullptr ? pOwner->Find(p_cMsg) : nullptr) Empty(*pOwner, *pValue);
    return pTaken;
  }
  static void Empty(T_ModelMsg& p_cMsg, T_Value& p_tValue) {
    p_tValue.pSub = nullptr;
    for (auto it = p_cMsg.cValues.begin(); it != p_cMsg.cValues.end(); ++it) {
      if (it->second.data() != &p_tValue || p_cMsg.pDef->Find(it->first)->bArray) continue;
      p_cMsg.aiUnset.insert(it->first);
      p_cMsg.cValues.erase(it);
      return;
    }
  }
  static bool IsWithin(const T_ModelMsg& p_cMsg, const T_ModelMsg& p_cTop) {
    const T_ModelMsg* p = &p_cMsg;
    while (p != nullptr && p != &p_cTop) p = p->pOwner;
    return p != nullptr;
  }
  // Forgets the handles of a message and all that it owns.
  void Forget(const T_ModelMsg& p_cMsg) {
    m_apKnown.erase(std::remove_if(m_apKnown.begin(), m_apKnown.end(),
                                   [&](const T_ModelMsg* p_p) { return IsWithin(*p_p, p_cMsg); }), m_apKnown.end());
  }

  void Destroy(T_ModelMsg& p_cMsg) {
    MSG_Destroy(p_cMsg.pMsg);
    if (p_cMsg.bMade) return;
    Forget(p_cMsg);
    Take(p_cMsg);
  }

  void Clear(T_ModelMsg& p_cMsg) {
    MSG_Clear(p_cMsg.pMsg);
    for (const auto& pSub : p_cMsg.apOwned) Forget(*pSub);
    p_cMsg.apOwned.clear();
    p_cMsg.cValues.clear();
    p_cMsg.aiUnset.clear();
    p_cMsg.sVer.clear();
    p_cMsg.sError.clear();
    p_cMsg.bEmpty = true;
    p_cMsg.bVacant = p_cMsg.pOwner != nullptr;
  }

  void NewSub(T_ModelMsg& p_cMsg) {
    const int iTag = TakeTag();
    const T_TagDef* pTag = nullptr;
    T_ModelMsg* pShould = nullptr;
    int iShould = CheckTag(p_cMsg, iTag, pTag);
    if (iShould == 0) iShould = CheckType(p_cMsg, *pTag, TAG_SUBMSG, s_atLines[TAG_SUBMSG].iSet);
    if (iShould == 0) {
      const auto it = p_cMsg.cValues.find(iTag);
      if (!pTag->bArray && it != p_cMsg.cValues.end()) {
        pShould = it->second.front().pSub;
      } else if (GetMsgDef(pTag->iSub) == nullptr) {
        iShould = Fail(p_cMsg, -19, "3.msgnum=" + std::to_string(pTag->iSub));
      } else {
        auto pSub = std::make_unique<T_ModelMsg>();
        pSub->pDef = GetMsgDef(pTag->iSub);
        pSub->bMade = pSub->bVacant = true;
        pShould = p_cMsg.Offer(iTag, std::move(pSub));
      }
    }
    int iRet = 1;
    CMsg* pSub = MSG_NewSub(p_cMsg.pMsg, iTag, &iRet);
    ExpectSame(iRet, iShould, "MSG_NewSub");
    Expect((pSub != nullptr) == (pShould != nullptr), "new sub-message");
    if (pSub != nullptr) Meet(*pShould, pSub);
  }

  void SetSub(T_ModelMsg& p_cMsg) {
    const int iTag = TakeTag();
    T_ModelMsg& cSub = *m_apKnown[m_cInput.Byte() % m_apKnown.size()];
    const bool bFreed = cSub.bEmpty && cSub.pOwner == nullptr && !IsWithin(p_cMsg, cSub);
    const int iShould = bFreed ? 0 : CheckSub(p_cMsg, iTag, cSub);
    ExpectSame(MSG_SetSub(p_cMsg.pMsg, iTag, cSub.pMsg), iShould, "MSG_SetSub");
    if (iShould != 0 || Has(p_cMsg, iTag, cSub)) return;
    if (bFreed) Forget(cSub);
    auto pSub = Take(cSub);
    if (bFreed) return;
    p_cMsg.AddSub(iTag, std::move(pSub));
    const auto fnReplaced = [](const auto& p_p) { return p_p->bReplaced && !p_p->bMade; };
    const auto it = std::find_if(p_cMsg.apOwned.begin(), p_cMsg.apOwned.end(), fnReplaced);
    if (it == p_cMsg.apOwned.end()) return;
    (*it)->bReplaced = (*it)->bVacant = false;    // it is the program's again
    (*it)->pOwner = nullptr;
    m_apTop.push_back(std::move(*it));
    p_cMsg.apOwned.erase(it);
  }
  static int CheckSub(T_ModelMsg& p_cMsg, int p_iTag, const T_ModelMsg& p_cSub) {
    const T_TagDef* pTag = nullptr;
    if (const int iRet = CheckTag(p_cMsg, p_iTag, pTag)) return iRet;
    if (const int iRet = CheckType(p_cMsg, *pTag, TAG_SUBMSG, s_atLines[TAG_SUBMSG].iSet)) return iRet;
    if (Has(p_cMsg, p_iTag, p_cSub)) return 0;
    if (p_cSub.pOwner == nullptr && !IsWithin(p_cMsg, p_cSub)) return 0;
    return Fail(p_cMsg, -28, "tagnum=" + std::to_string(p_iTag) + ",msgnum=" + std::to_string(p_cMsg.Num()));
  }

  // Whether the sub-message stands in this single tag.
  static bool Has(const T_ModelMsg& p_cMsg, int p_iTag, const T_ModelMsg& p_cSub) {
    const auto it = p_cMsg.cValues.find(p_iTag);
    return it != p_cMsg.cValues.end() && !p_cMsg.pDef->Find(p_iTag)->bArray && it->second.front().pSub == &p_cSub;
  }

  void Set(T_ModelMsg& p_cMsg) {
    const int iTag = TakeTag();
    const E_TagType eType = TakeType(p_cMsg, iTag, TAG_DATE);
    const T_Value tValue = TakeValue(m_cInput, eType);
    const T_TagDef* pTag = nullptr;
    int iShould = 0;
    const bool bIgnored = (eType == TAG_STRING || eType == TAG_DATE) && tValue.s.empty();
    if (!bIgnored) iShould = CheckTag(p_cMsg, iTag, pTag);
    if (pTag != nullptr) iShould = CheckType(p_cMsg, *pTag, eType, s_atLines[eType].iSet);
    ExpectSame(SetValue(p_cMsg.pMsg, iTag, eType, tValue), iShould, "setter");
    if (iShould == 0 && !bIgnored) p_cMsg.Add(iTag, tValue);
  }

  void Get(T_ModelMsg& p_cMsg, bool p_bAt) {
    const int iTag = TakeTag();
    const E_TagType eType = TakeType(p_cMsg, iTag, TAG_SUBMSG);
    const int iIndex = static_cast<signed char>(m_cInput.Byte()) % 8;
    T_Value* pValue = nullptr;
    const int iShould = FindValue(p_cMsg, iTag, eType, p_bAt ? &iIndex : nullptr, pValue);
    CMsg* pMsg = p_cMsg.pMsg;
    int iRet = 1, iOut = 99;
    switch (eType) {
      case TAG_STRING: GetText(pMsg, iTag, p_bAt ? &iIndex : nullptr, iShould, pValue); return;
      case TAG_INTEGER:
        iRet = p_bAt ? MSG_GetAtIntArr(pMsg, iTag, iIndex, &iOut) : MSG_GetInt(pMsg, iTag, &iOut);
        ExpectSame(iOut, pValue != nullptr ? pValue->i : 0, "integer");
        break;
      case TAG_DOUBLE: {
        double dOut = 99;
        iRet = p_bAt ? MSG_GetAtDblArr(pMsg, iTag, iIndex, &dOut) : MSG_GetDbl(pMsg, iTag, &dOut);
        const double dShould = pValue != nullptr ? pValue->d : 0;
        Expect(dOut == dShould || (std::isnan(dOut) && std::isnan(dShould)), "double");
        break;
      }
      case TAG_BOOL:
        iRet = p_bAt ? MSG_GetAtBoolArr(pMsg, iTag, iIndex, &iOut) : MSG_GetBool(pMsg, iTag, &iOut);
        ExpectSame(iOut, pValue != nullptr && pValue->b ? 255 : 0, "bool");
        break;
      case TAG_DATE: {
        const std::string sBefore = "ABCDEFGH", sDate = pValue != nullptr ? pValue->s : sBefore;
        char szOut[9];
        memcpy(szOut, sBefore.c_str(), sizeof(szOut));
        iRet = p_bAt ? MSG_GetAtDateArr(pMsg, iTag, iIndex, szOut) : MSG_GetDate(pMsg, iTag, szOut);
        ExpectSame({szOut, sizeof(szOut)}, sDate + std::string(sizeof(szOut) - sDate.size(), '\0'), "date");
        break;
      }
      default:
        CMsg* pSub = p_bAt ? MSG_GetAtSubArr(pMsg, iTag, iIndex, &iRet) : MSG_GetSub(pMsg, iTag, &iRet);
        Expect((pSub != nullptr) == (pValue != nullptr && pValue->pSub != nullptr), "sub-message");
        if (pSub != nullptr) Meet(*pValue->pSub, pSub);
    }
    ExpectSame(iRet, iShould, "getter");
  }
  static void GetText(CMsg* p_pMsg, int p_iTag, const int* p_pIndex, int p_iShould, const T_Value* p_pValue) {
    const int iLen = p_pIndex != nullptr ? MSG_GetAtStrLen(p_pMsg, p_iTag, *p_pIndex) : MSG_GetStrLen(p_pMsg, p_iTag);
    ExpectSame(iLen, p_pValue != nullptr ? static_cast<int>(p_pValue->s.size()) : p_iShould, "MSG_GetStrLen");
    // As much room as is asked for, and what nobody may write to.
    const std::unique_ptr<char[]> szOut(new char[iLen < 0 ? 1 : static_cast<size_t>(iLen) + 1]);
    szOut[0] = '?';
    int iRet = p_pIndex != nullptr ? MSG_GetAtStrArr(p_pMsg, p_iTag, *p_pIndex, szOut.get())
                                   : MSG_GetStr(p_pMsg, p_iTag, szOut.get());
    ExpectSame(iRet, p_iShould, "MSG_GetStr");
    Expect(p_pValue != nullptr ? p_pValue->s == szOut.get() : szOut[0] == '?', "text");
    char* szCopy = p_pIndex != nullptr ? MSG_GetAtStrArrEx(p_pMsg, p_iTag, *p_pIndex, &iRet)
                                       : MSG_GetStrEx(p_pMsg, p_iTag, &iRet);
    ExpectSame(iRet, p_iShould, "MSG_GetStrEx");
    Expect(p_pValue != nullptr ? szCopy != nullptr && p_pValue->s == szCopy : szCopy == nullptr, "copied text");
    free(szCopy);
  }
  // The first values of a column, null where there is none; how many rows there are.
  static int FindColumn(T_ModelMsg& p_cMsg, int p_iRowsTag, int p_iTag, E_TagType p_eType,
                        std::vector<const T_Value*>& p_apValue) {
    const T_TagDef* pTag = nullptr;
    std::vector<T_Value>* patRow = nullptr;
    if (const int iRet = FindValues(p_cMsg, p_iRowsTag, pTag, patRow)) return iRet;
    if (const int iRet = CheckType(p_cMsg, *pTag, TAG_SUBMSG, s_atLines[TAG_SUBMSG].iGetArr)) return iRet;
    for (size_t i = 0; i < std::min(p_apValue.size(), patRow->size()); ++i) {
      const T_ModelMsg* pRow = (*patRow)[i].pSub;
      if (pRow == nullptr) continue;
      pTag = pRow->pDef != nullptr ? pRow->pDef->Find(p_iTag) : nullptr;
      if (pTag == nullptr) {
        return Fail(p_cMsg, pRow->pDef != nullptr ? -18 : -19,
                    "msgnum=" + std::to_string(pRow->Num()) + ", tagnum=" + std::to_string(p_iTag));
      }
      if (const int iRet = CheckType(p_cMsg, *pTag, p_eType, s_atLines[p_eType].iGetArr)) return iRet;
      const auto it = pRow->cValues.find(p_iTag);
      if (it != pRow->cValues.end()) p_apValue[i] = &it->second.front();
    }
    return static_cast<int>(patRow->size());
  }
  void Column(T_ModelMsg& p_cMsg) {
    const int iRowsTag = TakeTag(), iTag = TakeTag();
    const auto eType = static_cast<E_TagType>(TAG_STRING + m_cInput.Byte() % TAG_DATE);
    const size_t iN = m_cInput.Byte() % 6, iRoom = m_cInput.Byte();
    std::vector<const T_Value*> apValue(iN);
    int iShould = FindColumn(p_cMsg, iRowsTag, iTag, eType, apValue);
    if (iShould < 0) apValue.assign(iN, nullptr);
    // As much room as is asked for, and nothing known in it.
    std::vector<unsigned char> abSet(iN, 99);
    std::vector<int> aiOut(iN, 99);
    std::vector<double> adOut(iN, 99);
    std::vector<size_t> auOffset(iN + 1, 99);
    std::string sOut(eType == TAG_STRING ? iRoom : iN * 9, '?');
    const auto fnCall = [&](auto p_fnGet, auto* p_pOut) {
      return p_fnGet(p_cMsg.pMsg, iRowsTag, iTag, p_pOut, abSet.data(), static_cast<int>(iN));
    };
    int iRet = 0;
    switch (eType) {
      case TAG_INTEGER: iRet = fnCall(MSG_GetIntColumn, aiOut.data()); break;
      case TAG_DOUBLE: iRet = fnCall(MSG_GetDblColumn, adOut.data()); break;
      case TAG_BOOL: iRet = fnCall(MSG_GetBoolColumn, aiOut.data()); break;
      case TAG_DATE: iRet = fnCall(MSG_GetDateColumn, &sOut[0]); break;
      default:
        iRet = MSG_GetStrColumn(p_cMsg.pMsg, iRowsTag, iTag, &sOut[0], iRoom, auOffset.data(), abSet.data(),
                                static_cast<int>(iN));
    }
    size_t iEnd = 0;
    for (size_t i = 0; i < iN; ++i) {
      const T_Value* pValue = apValue[i];
      const T_Value tValue = pValue != nullptr ? *pValue : T_Value();
      ExpectSame(abSet[i], pValue != nullptr ? 1 : 0, "mark");
      if (eType == TAG_INTEGER) ExpectSame(aiOut[i], tValue.i, "integer of a column");
      if (eType == TAG_BOOL) ExpectSame(aiOut[i], tValue.b ? 255 : 0, "bool of a column");
      if (eType == TAG_DOUBLE) {
        Expect(adOut[i] == tValue.d || (std::isnan(adOut[i]) && std::isnan(tValue.d)), "double of a column");
      }
      const std::string sText = tValue.s + std::string(eType == TAG_DATE ? 9 - tValue.s.size() : 1, '\0');
      if (eType == TAG_DATE) ExpectSame(sOut.substr(9 * i, 9), sText, "date of a column");
      if (eType != TAG_STRING) continue;
      Expect(auOffset[i] == iEnd, "offset");
      iEnd += sText.size();
      if (iEnd <= iRoom && iShould >= 0) ExpectSame(sOut.substr(auOffset[i], sText.size()), sText, "text of a column");
    }
    if (eType == TAG_STRING && iN > 0) {
      Expect(auOffset[iN] == iEnd, "size of a column");
      if (iShould >= 0 && iEnd > iRoom) iShould = Fail(p_cMsg, -27, "tagnum=" + std::to_string(iTag));
    }
    ExpectSame(iRet, iShould, "column");
  }
  // The program has got a handle.
  void Meet(T_ModelMsg& p_cSub, CMsg* p_pSub) {
    if (p_cSub.pMsg == nullptr) p_cSub.pMsg = p_pSub;
    Expect(p_cSub.pMsg == p_pSub, "which sub-message");
    const bool bKnown = std::find(m_apKnown.begin(), m_apKnown.end(), &p_cSub) != m_apKnown.end();
    if (!bKnown && m_apKnown.size() < MAX_KNOWN) m_apKnown.push_back(&p_cSub);
  }

  void Size(T_ModelMsg& p_cMsg) {
    const int iTag = TakeTag();
    const T_TagDef* pTag = nullptr;
    std::vector<T_Value>* patValue = nullptr;
    int iShould = FindValues(p_cMsg, iTag, pTag, patValue);
    if (iShould == 0) iShould = static_cast<int>(patValue->size());
    ExpectSame(MSG_GetArrSize(p_cMsg.pMsg, iTag), iShould, "MSG_GetArrSize");
  }

  // A message is filled from another one's XML, as a call fills it from a reply.
  void Receive(T_ModelMsg& p_cMsg) {
    const T_ModelMsg& cFrom = *m_apKnown[m_cInput.Byte() % m_apKnown.size()];
    const std::string sXml = ToXml(*cFrom.pMsg);
    if (!IsReadable(cFrom) || sXml.size() > MAX_TEXT) return;
    const auto pRead = AsRead(cFrom);
    ExpectSame(LoadXml(p_cMsg.pMsg, sXml), 0, "LoadXml");
    p_cMsg.pDef = pRead->pDef;
    p_cMsg.cValues = pRead->cValues;
    p_cMsg.aiUnset.clear();
    if (!pRead->bEmpty) p_cMsg.Fill();
    for (auto& pSub : pRead->apOwned) {
      pSub->pOwner = &p_cMsg;
      p_cMsg.apOwned.push_back(std::move(pSub));
    }
  }

  void Write(T_ModelMsg& p_cMsg) {
    ExpectSame(ToXml(*p_cMsg.pMsg), WriteXml(p_cMsg, false, false), "ToXml");
    if (m_cInput.Byte() % 8 != 0) return;    // files are slow
    static CInputFile s_cFile(".txt");
    s_cFile.Write("before\n");
    CallOrv_Error tErr = {7, "before", 8};
    ExpectSame(MSG_Dump(p_cMsg.pMsg, s_cFile.Path(), &tErr), 0, "MSG_Dump");
    ExpectSame(tErr.iCode, 7, "error of MSG_Dump");
    ExpectSame(s_cFile.Read(), "before\n" + WriteListing(p_cMsg), "listing");
    ExpectSame(MSG_Dump(p_cMsg.pMsg, "/nonexistent/listing", &tErr), -1, "MSG_Dump without a folder");
    ExpectSame(tErr.iCode, -32, "code of MSG_Dump");
    ExpectSame(tErr.szText, "cannot open file", "text of MSG_Dump");
  }

  // A null handle and null outputs.
  void WithNulls(T_ModelMsg& p_cMsg) {
    const int iTag = TakeTag();
    CMsg* pMsg = p_cMsg.pMsg;
    int iRet = 0, iOut = 5;
    switch (m_cInput.Byte() % 14) {
      case 0: iRet = MSG_GetInt(pMsg, iTag, nullptr); break;
      case 1: iRet = MSG_GetDbl(pMsg, iTag, nullptr); break;
      case 2: iRet = MSG_GetBool(pMsg, iTag, nullptr); break;
      case 3: iRet = MSG_GetStr(pMsg, iTag, nullptr); break;
      case 4: iRet = MSG_GetDate(pMsg, iTag, nullptr); break;
      case 5: iRet = MSG_GetAtIntArr(pMsg, iTag, 0, nullptr); break;
      case 6: iRet = MSG_GetAtDblArr(pMsg, iTag, 0, nullptr); break;
      case 7: iRet = MSG_GetAtBoolArr(pMsg, iTag, 0, nullptr); break;
      case 8: iRet = MSG_GetAtStrArr(pMsg, iTag, 0, nullptr); break;
      case 9: iRet = MSG_GetAtDateArr(pMsg, iTag, 0, nullptr); break;
      case 10: iRet = MSG_SetSub(pMsg, iTag, nullptr); break;
      case 11:
        ExpectSame(MSG_SetStr(pMsg, iTag, nullptr), 0, "MSG_SetStr(null)");
        ExpectSame(MSG_SetDate(pMsg, iTag, nullptr), 0, "MSG_SetDate(null)");
        return;
      case 12: ExpectNullHandle(iTag); return;
      default: {
        CallOrv_Error tErr = {7, "before", 8};
        ExpectSame(CallOrv_CallService(iTag, pMsg, pMsg, nullptr), -12, "CallOrv_CallService without an error");
        ExpectSame(CallOrv_CallService(iTag, pMsg, pMsg, &tErr), -1, "CallOrv_CallService before the set-up");
        ExpectSame(tErr.iCode, -35, "code before the set-up");
        return;
      }
    }
    ExpectSame(iRet, Fail(p_cMsg, -12, ""), "null output");
    ExpectSame(iOut, 5, "nothing is written");
  }
  static void ExpectNullHandle(int p_iTag) {
    int iOut = 5, iRet = 0;
    double dOut = 5;
    char szOut[9] = "?";
    MSG_Destroy(nullptr);
    MSG_Clear(nullptr);
    Expect(MSG_NewSub(nullptr, p_iTag, &iRet) == nullptr && iRet == -12, "MSG_NewSub of a null handle");
    for (const int i : {MSG_GetSelfNum(nullptr), MSG_SetInt(nullptr, p_iTag, 1), MSG_SetDbl(nullptr, p_iTag, 1),
                        MSG_SetBool(nullptr, p_iTag, 1), MSG_SetStr(nullptr, p_iTag, "a"),
                        MSG_SetDate(nullptr, p_iTag, "a"), MSG_SetSub(nullptr, p_iTag, nullptr),
                        MSG_GetInt(nullptr, p_iTag, &iOut), MSG_GetDbl(nullptr, p_iTag, &dOut),
                        MSG_GetBool(nullptr, p_iTag, &iOut), MSG_GetStr(nullptr, p_iTag, szOut),
                        MSG_GetStrLen(nullptr, p_iTag), MSG_GetDate(nullptr, p_iTag, szOut),
                        MSG_GetArrSize(nullptr, p_iTag), MSG_GetAtIntArr(nullptr, p_iTag, 0, &iOut),
                        MSG_GetAtDblArr(nullptr, p_iTag, 0, &dOut), MSG_GetAtBoolArr(nullptr, p_iTag, 0, &iOut),
                        MSG_GetAtStrArr(nullptr, p_iTag, 0, szOut), MSG_GetAtStrLen(nullptr, p_iTag, 0),
                        MSG_GetAtDateArr(nullptr, p_iTag, 0, szOut), MSG_Dump(nullptr, nullptr, nullptr)}) {
      ExpectSame(i, -12, "null handle");
    }
    Expect(MSG_GetStrEx(nullptr, p_iTag, &iRet) == nullptr && iRet == -12, "MSG_GetStrEx of a null handle");
    Expect(MSG_GetSub(nullptr, p_iTag, &iRet) == nullptr && iRet == -12, "MSG_GetSub of a null handle");
    Expect(MSG_GetAtStrArrEx(nullptr, p_iTag, 0, nullptr) == nullptr, "MSG_GetAtStrArrEx of a null handle");
    Expect(MSG_GetAtSubArr(nullptr, p_iTag, 0, nullptr) == nullptr, "MSG_GetAtSubArr of a null handle");
    Expect(iOut == 5 && dOut == 5 && strcmp(szOut, "?") == 0, "outputs of a null handle");
    ExpectSame(MSG_GetLastError(nullptr), "p_pMsg Parameter is NULL", "text of a null handle");
  }
};

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  GetMsgDef(0);
  CInput cInput(p_pData, p_uSize);
  CMachine(cInput).Run();
  return 0;
}
