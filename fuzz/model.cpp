// Messages as plain data: what a message must hold and how it must be written, worked out without the library.
#include "model.h"

#include <cstring>
#include <utility>

#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "callorv/callorv.h"
#include "support.h"

namespace {

enum { MAX_NESTING = 40 };

const char* const s_aszType[] = {"", "string", "integer", "double", "bool", "date"};

// 100 has every type, single and repeated; 102 holds itself; 103 keeps all tags in one hash chain; 104 holds a message
// that is not defined, and itself under a name that is not ASCII.
std::vector<T_MsgDef> MakeDefs() {
  std::vector<T_MsgDef> atDef = {
      {10, 8,
       {{6, "SysCode", TAG_INTEGER, 0, false},
        {7, "SysReasonText", TAG_STRING, 0, false},
        {8, "RefSvcNum", TAG_INTEGER, 0, false}}},
      {100, 16,
       {{1, "text", TAG_STRING, 0, false},
        {2, "number", TAG_INTEGER, 0, false},
        {3, "price", TAG_DOUBLE, 0, false},
        {4, "flag", TAG_BOOL, 0, false},
        {5, "day", TAG_DATE, 0, false},
        {6, "row", TAG_SUBMSG, 101, false},
        {11, "texts", TAG_STRING, 0, true},
        {12, "numbers", TAG_INTEGER, 0, true},
        {13, "prices", TAG_DOUBLE, 0, true},
        {14, "flags", TAG_BOOL, 0, true},
        {15, "days", TAG_DATE, 0, true},
        {16, "rows", TAG_SUBMSG, 101, true}}},
      {101, 128, {{1, "text", TAG_STRING, 0, false}, {2, "number", TAG_INTEGER, 0, false}}},
      {102, 4,
       {{3, "below", TAG_SUBMSG, 102, true},
        {1, "text", TAG_STRING, 0, true},
        {2, "next", TAG_SUBMSG, 102, false},
        {0, "zero", TAG_DATE, 0, false},
        {4, "all", TAG_SUBMSG, 100, false}}},
      {103, 1, {}},
      {104, 128, {{1, "nowhere", TAG_SUBMSG, 999, false}, {2, "\xe9t\xe9", TAG_SUBMSG, 104, false}}},
  };
  static const std::vector<std::string> s_asName = [] {
    std::vector<std::string> asName;
    for (int i = 1; i <= 24; ++i) asName.push_back("n" + std::to_string(i));
    return asName;
  }();
  for (int i = 1; i <= 24; ++i) {
    atDef[4].atTag.push_back({i, s_asName[static_cast<size_t>(i) - 1].c_str(), i % 2 != 0 ? TAG_INTEGER : TAG_STRING, 0,
                              i % 3 == 0});
  }
  return atDef;
}

const std::vector<T_MsgDef>& Defs() {
  static const std::vector<T_MsgDef> s_atDef = MakeDefs();
  return s_atDef;
}

std::string Number(double p_d) {
  char szText[32];
  snprintf(szText, sizeof(szText), "%.15e", p_d);
  return szText;
}

std::string TextOf(const T_TagDef& p_tTag, const T_Value& p_tValue) {
  switch (p_tTag.eType) {
    case TAG_INTEGER: return std::to_string(p_tValue.i);
    case TAG_DOUBLE: return Number(p_tValue.d);
    case TAG_BOOL: return p_tValue.b ? "true" : "false";
    default: return p_tValue.s;
  }
}

// p_fn(tag definition, row, value) for every value in the dictionary's order, but not for sub-messages that are left
// out.
template <class F>
void ForEachValue(const T_ModelMsg& p_cMsg, F p_fn) {
  if (p_cMsg.pDef == nullptr) return;
  for (const T_TagDef& tTag : p_cMsg.pDef->atTag) {
    const auto it = p_cMsg.cValues.find(tTag.iTag);
    if (it == p_cMsg.cValues.end()) continue;
    for (size_t i = 0; i < it->second.size(); ++i) {
      const T_Value& tValue = it->second[i];
      if (tTag.eType != TAG_SUBMSG || (tValue.pSub != nullptr && !tValue.pSub->bVacant)) p_fn(tTag, i, tValue);
    }
  }
}

void WriteValues(const T_ModelMsg& p_cMsg, bool p_bArrayPrefix, bool p_bByName, std::string& p_sOut) {
  ForEachValue(p_cMsg, [&](const T_TagDef& p_tTag, size_t, const T_Value& p_tValue) {
    const std::string sName =
        p_bByName ? p_tTag.szName : (p_bArrayPrefix && p_tTag.bArray ? "a" : "t") + std::to_string(p_tTag.iTag);
    p_sOut += "<" + sName + ">";
    if (p_tTag.eType == TAG_SUBMSG) {
      WriteValues(*p_tValue.pSub, p_bArrayPrefix, p_bByName, p_sOut);
    } else if (p_tTag.eType == TAG_STRING) {
      p_sOut += "<![CDATA[" + p_tValue.s + "]]>";
    } else {
      p_sOut += TextOf(p_tTag, p_tValue);
    }
    p_sOut += "</" + sName + ">";
  });
}

void ListValues(const T_ModelMsg& p_cMsg, size_t p_uDepth, std::string& p_sOut) {
  const T_TagDef* pLine = nullptr;    // whose line is not ended yet
  const auto fnEnd = [&] {
    if (pLine != nullptr) p_sOut += "\n";
    pLine = nullptr;
  };
  ForEachValue(p_cMsg, [&](const T_TagDef& p_tTag, size_t p_uRow, const T_Value& p_tValue) {
    if (pLine != &p_tTag) {
      fnEnd();
      p_sOut += std::string(2 + 2 * p_uDepth, ' ') + "[" + std::to_string(p_tTag.iTag) + "](" + p_tTag.szName + ")";
    }
    if (p_tTag.eType != TAG_SUBMSG) {
      p_sOut += " " + TextOf(p_tTag, p_tValue);
      pLine = &p_tTag;
      return;
    }
    p_sOut += " SUBMSG(" + std::to_string(p_tValue.pSub->Num()) + ")";
    if (p_tTag.bArray) p_sOut += " row " + std::to_string(p_uRow);
    p_sOut += "\n";
    ListValues(*p_tValue.pSub, p_uDepth + 1, p_sOut);
  });
  fnEnd();
}

// Characters that a document may hold anywhere.
bool AreXmlChars(const std::string& p_s) {
  return std::all_of(p_s.begin(), p_s.end(), [](char p_c) {
    return static_cast<unsigned char>(p_c) >= ' ' || p_c == '\t' || p_c == '\n' || p_c == '\r';
  });
}

std::string WithLineFeeds(const std::string& p_s) {
  std::string sOut;
  for (size_t i = 0; i < p_s.size(); ++i) {
    if (p_s[i] != '\r') sOut += p_s[i];
    else if (i + 1 == p_s.size() || p_s[i + 1] != '\n') sOut += '\n';
  }
  return sOut;
}

std::string TextAsRead(const std::string& p_s) {
  const std::string sText = WithLineFeeds(p_s);
  const size_t uFirst = sText.find_first_not_of(" \t\n");
  return uFirst == std::string::npos ? "" : sText.substr(uFirst, sText.find_last_not_of(" \t\n") - uFirst + 1);
}

// Whether two messages have the same values; what they are models of does not count.
bool Same(const T_ModelMsg& p_cOne, const T_ModelMsg& p_cOther) {
  if (p_cOne.pDef != p_cOther.pDef || p_cOne.sVer != p_cOther.sVer) return false;
  if (p_cOne.cValues.size() != p_cOther.cValues.size()) return false;
  bool bSame = true;
  ForEachValue(p_cOne, [&](const T_TagDef& p_tTag, size_t p_uRow, const T_Value& p_tValue) {
    const auto it = p_cOther.cValues.find(p_tTag.iTag);
    if (it == p_cOther.cValues.end() || it->second.size() != p_cOne.cValues.at(p_tTag.iTag).size()) {
      bSame = false;
    } else if (const T_Value& tOther = it->second[p_uRow]; p_tTag.eType == TAG_SUBMSG) {
      bSame = bSame && Same(*p_tValue.pSub, *tOther.pSub);
    } else {
      bSame = bSame && p_tValue.s == tOther.s && p_tValue.i == tOther.i && p_tValue.b == tOther.b &&
              (p_tValue.d == tOther.d || (p_tValue.d != p_tValue.d && tOther.d != tOther.d));
    }
  });
  return bSame;
}

std::string TextOf(const CStream& p_st) { return std::string(p_st.GetData(), static_cast<size_t>(p_st.GetSize())); }

std::string TakeText(char* p_sz) {
  Expect(p_sz != nullptr, "no text");
  const std::string sText = p_sz;
  free(p_sz);
  return sText;
}

}    // namespace

const T_TagDef* T_MsgDef::Find(int p_iTag) const {
  for (const T_TagDef& tTag : atTag) {
    if (tTag.iTag == p_iTag) return &tTag;
  }
  return nullptr;
}

const std::string& GetDictionary() {
  static const std::string s_sXml = [] {
    std::string sXml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<msg_dictionary>\n";
    for (const T_MsgDef& tDef : Defs()) {
      sXml += "<msg no='" + std::to_string(tDef.iMsg) + "' hash='" + std::to_string(tDef.iHash) + "'>\n";
      for (const T_TagDef& tTag : tDef.atTag) {
        const std::string sType = tTag.eType == TAG_SUBMSG ? "m" + std::to_string(tTag.iSub) : s_aszType[tTag.eType];
        sXml += "<tag no='" + std::to_string(tTag.iTag) + "' name='" + tTag.szName + "' type='" + sType + "' array='" +
                (tTag.bArray ? "Y" : "N") + "'/>\n";
      }
      sXml += "</msg>\n";
    }
    return sXml + "</msg_dictionary>\n";
  }();
  return s_sXml;
}

const T_MsgDef* GetMsgDef(int p_iMsg) {
  static const bool s_bLoaded = [] {
    CInputFile cFile(".xml");
    cFile.Write(GetDictionary());
    MA_GetMsgDic()->InitDictionary(cFile.Path());
    return true;
  }();
  Expect(s_bLoaded, "dictionary");
  for (const T_MsgDef& tDef : Defs()) {
    if (tDef.iMsg == p_iMsg) return &tDef;
  }
  return nullptr;
}

void T_ModelMsg::Add(int p_iTag, const T_Value& p_tValue) {
  std::vector<T_Value>& atValue = cValues[p_iTag];
  if (!pDef->Find(p_iTag)->bArray) atValue.clear();
  atValue.push_back(p_tValue);
  aiUnset.erase(p_iTag);
  Fill();
}

T_ModelMsg* T_ModelMsg::AddSub(int p_iTag, std::unique_ptr<T_ModelMsg> p_pSub) {
  T_ModelMsg* pSub = Offer(p_iTag, std::move(p_pSub));
  Fill();
  return pSub;
}

T_ModelMsg* T_ModelMsg::Offer(int p_iTag, std::unique_ptr<T_ModelMsg> p_pSub) {
  T_Value tValue;
  tValue.pSub = p_pSub.get();
  tValue.pSub->pOwner = this;
  apOwned.push_back(std::move(p_pSub));
  std::vector<T_Value>& atValue = cValues[p_iTag];
  if (!pDef->Find(p_iTag)->bArray) {
    for (const T_Value& tOld : atValue) tOld.pSub->bReplaced = true;
    atValue.clear();
  }
  atValue.push_back(tValue);
  aiUnset.erase(p_iTag);
  return tValue.pSub;
}

void T_ModelMsg::Fill() {
  bEmpty = false;
  if (bVacant && pOwner->Find(*this) != nullptr) pOwner->Fill();
  bVacant = false;
}

T_Value* T_ModelMsg::Find(const T_ModelMsg& p_cSub) {
  for (auto& [iTag, atValue] : cValues) {
    for (T_Value& tValue : atValue) {
      if (pDef->Find(iTag)->eType == TAG_SUBMSG && tValue.pSub == &p_cSub) return &tValue;
    }
  }
  return nullptr;
}

T_Value TakeValue(CInput& p_cInput, E_TagType p_eType) {
  T_Value tValue;
  size_t uLen = 0;
  switch (p_eType) {
    case TAG_INTEGER: tValue.i = p_cInput.Number<int>(); break;
    case TAG_DOUBLE: tValue.d = p_cInput.Number<double>(); break;
    case TAG_BOOL: tValue.b = p_cInput.Byte() % 2 != 0; break;
    default:
      uLen = p_cInput.Byte();
      tValue.s = p_cInput.Bytes(uLen % 32).c_str();
      // For a few, as long as texts that are written in another way, or longer.
      for (size_t u = 240; u < uLen && !tValue.s.empty() && tValue.s.size() < 1024; ++u) tValue.s += tValue.s;
      if (p_eType == TAG_DATE) tValue.s.resize(std::min<size_t>(tValue.s.size(), 8));
  }
  return tValue;
}

std::unique_ptr<T_ModelMsg> FillMsg(CInput& p_cInput, CMsg* p_pMsg, int p_iNesting) {
  auto pModel = std::make_unique<T_ModelMsg>();
  pModel->pDef = GetMsgDef(MSG_GetSelfNum(p_pMsg));
  for (int iLeft = p_cInput.Byte() % 16; iLeft > 0 && !p_cInput.IsEmpty(); --iLeft) {
    const T_TagDef& tTag = pModel->pDef->atTag[p_cInput.Byte() % pModel->pDef->atTag.size()];
    if (tTag.eType != TAG_SUBMSG) {
      const T_Value tValue = TakeValue(p_cInput, tTag.eType);
      ExpectSame(SetValue(p_pMsg, tTag.iTag, tTag.eType, tValue), 0, "setter");
      const bool bText = tTag.eType == TAG_STRING || tTag.eType == TAG_DATE;
      if (!bText || !tValue.s.empty()) pModel->Add(tTag.iTag, tValue);
    } else if (GetMsgDef(tTag.iSub) != nullptr && p_iNesting < MAX_NESTING) {
      CMsgPtr pSub(MA_NewMsg(tTag.iSub));
      auto pSubModel = FillMsg(p_cInput, pSub.get(), p_iNesting + 1);
      CMsg* pReplaced = tTag.bArray ? nullptr : MSG_GetSub(p_pMsg, tTag.iTag, nullptr);
      ExpectSame(MSG_SetSub(p_pMsg, tTag.iTag, pSub.release()), 0, "MSG_SetSub");
      if (pSubModel->bEmpty) continue;
      MSG_Destroy(pReplaced);
      pModel->AddSub(tTag.iTag, std::move(pSubModel));
    }
  }
  return pModel;
}

int SetValue(CMsg* p_pMsg, int p_iTag, E_TagType p_eType, const T_Value& p_tValue) {
  switch (p_eType) {
    case TAG_STRING: return MSG_SetStr(p_pMsg, p_iTag, p_tValue.s.c_str());
    case TAG_INTEGER: return MSG_SetInt(p_pMsg, p_iTag, p_tValue.i);
    case TAG_DOUBLE: return MSG_SetDbl(p_pMsg, p_iTag, p_tValue.d);
    case TAG_BOOL: return MSG_SetBool(p_pMsg, p_iTag, p_tValue.b ? 1 : 0);
    default: return MSG_SetDate(p_pMsg, p_iTag, p_tValue.s.c_str());
  }
}

std::unique_ptr<T_ModelMsg> ReadModel(CMsg* p_pMsg) {
  auto pModel = std::make_unique<T_ModelMsg>();
  pModel->pDef = GetMsgDef(MSG_GetSelfNum(p_pMsg));
  pModel->sVer = p_pMsg->GetVer();
  if (pModel->pDef == nullptr) return pModel;
  for (const T_TagDef& tTag : pModel->pDef->atTag) {
    const int iSize = MSG_GetArrSize(p_pMsg, tTag.iTag);
    if (iSize == -1) continue;
    Expect(iSize > 0 && (iSize == 1 || tTag.bArray), "number of values");
    for (int i = 0; i < iSize; ++i) {
      int iRet = 0, iBool = -1;
      T_Value tValue;
      char szDate[9];
      switch (tTag.eType) {
        case TAG_STRING: tValue.s = TakeText(MSG_GetAtStrArrEx(p_pMsg, tTag.iTag, i, &iRet)); break;
        case TAG_INTEGER: iRet = MSG_GetAtIntArr(p_pMsg, tTag.iTag, i, &tValue.i); break;
        case TAG_DOUBLE: iRet = MSG_GetAtDblArr(p_pMsg, tTag.iTag, i, &tValue.d); break;
        case TAG_BOOL:
          iRet = MSG_GetAtBoolArr(p_pMsg, tTag.iTag, i, &iBool);
          Expect(iBool == 0 || iBool == 255, "bool");
          tValue.b = iBool != 0;
          break;
        case TAG_DATE:
          iRet = MSG_GetAtDateArr(p_pMsg, tTag.iTag, i, szDate);
          tValue.s = szDate;
          break;
        default:
          pModel->AddSub(tTag.iTag, ReadModel(MSG_GetAtSubArr(p_pMsg, tTag.iTag, i, &iRet)));
          ExpectSame(iRet, 0, "MSG_GetAtSubArr");
          continue;
      }
      ExpectSame(iRet, 0, "getter of a value that is there");
      pModel->Add(tTag.iTag, tValue);
    }
  }
  return pModel;
}

std::string WriteXml(const T_ModelMsg& p_cMsg, bool p_bArrayPrefix, bool p_bByName) {
  std::string sXml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"" + std::to_string(p_cMsg.Num()) +
                     (p_bByName ? "\" type=\"name" : "") + "\" ver=\"" + p_cMsg.sVer + "\">";
  WriteValues(p_cMsg, p_bArrayPrefix, p_bByName, sXml);
  return sXml + "</msg>";
}

std::string WriteListing(const T_ModelMsg& p_cMsg) {
  std::string sText = "Msg Dump ======================================\n  MsgNum : " + std::to_string(p_cMsg.Num()) +
                      "\n    Type : index\n     Ver : " + p_cMsg.sVer + "\n";
  ListValues(p_cMsg, 1, sText);
  return sText + "===============================================\n";
}

bool IsReadable(const T_ModelMsg& p_cMsg) {
  if (p_cMsg.pDef == nullptr || !AreXmlChars(p_cMsg.sVer) || p_cMsg.sVer.find_first_of("<&\"") != std::string::npos) {
    return false;
  }
  bool bReadable = true;
  ForEachValue(p_cMsg, [&](const T_TagDef& p_tTag, size_t, const T_Value& p_tValue) {
    if (p_tTag.eType == TAG_SUBMSG) {
      bReadable = bReadable && p_tValue.pSub->Num() == p_tTag.iSub && IsReadable(*p_tValue.pSub);
    } else {
      bReadable = bReadable && AreXmlChars(p_tValue.s) && p_tValue.s.find("]]>") == std::string::npos &&
                  (p_tTag.eType == TAG_STRING || p_tValue.s.find_first_of("<&") == std::string::npos);
    }
  });
  return bReadable;
}

std::unique_ptr<T_ModelMsg> AsRead(const T_ModelMsg& p_cMsg) {
  auto pRead = std::make_unique<T_ModelMsg>();
  pRead->pDef = p_cMsg.pDef;
  pRead->sVer = WithLineFeeds(p_cMsg.sVer);
  for (char& c : pRead->sVer) {
    if (c == '\t' || c == '\n') c = ' ';
  }
  ForEachValue(p_cMsg, [&](const T_TagDef& p_tTag, size_t, T_Value p_tValue) {
    if (p_tTag.eType == TAG_SUBMSG) {
      T_ModelMsg* pSub = pRead->AddSub(p_tTag.iTag, AsRead(*p_tValue.pSub));
      pSub->sVer.clear();    // only the root's is written
      pSub->bMade = true;
      return;
    }
    if (p_tTag.eType == TAG_STRING || p_tTag.eType == TAG_DATE) {
      p_tValue.s = TextAsRead(p_tValue.s);
      if (p_tValue.s.empty()) return;
    }
    if (p_tTag.eType == TAG_DOUBLE) p_tValue.d = strtod(Number(p_tValue.d).c_str(), nullptr);
    pRead->Add(p_tTag.iTag, p_tValue);
  });
  return pRead;
}

void ExpectRoundTrip(CMsg* p_pMsg, const T_ModelMsg& p_cShould, unsigned p_uForm) {
  const bool bByName = p_uForm % 2 != 0, bArrayPrefix = p_uForm / 2 % 2 != 0, bIndented = p_uForm / 4 % 2 != 0;
  CStream stListing(0, 512), stIndented(0, 512);
  p_pMsg->Dump(&stListing, false, 1);
  ExpectSame(TextOf(stListing), WriteListing(p_cShould), "Dump");
  std::string sXml;
  if (bIndented) {
    p_pMsg->DumpXml(&stIndented, bByName, 1);
    sXml = TextOf(stIndented);
  } else {
    sXml = ToXml(*p_pMsg, bArrayPrefix, bByName);
    ExpectSame(sXml, WriteXml(p_cShould, bArrayPrefix, bByName), "ToXml");
  }

  const CMsgPtr pRead(MA_NewMsg(0));
  const int iCode = LoadXml(pRead.get(), sXml);
  if (!IsReadable(p_cShould) || (bIndented && p_cShould.sVer.find('\'') != std::string::npos)) return;
  ExpectSame(iCode, 0, "LoadXml of what was written");
  const auto pShould = AsRead(p_cShould);
  Expect(Same(*ReadModel(pRead.get()), *pShould), "LoadXml gives the same values");
  const std::string sAgain = ToXml(*pRead, bArrayPrefix, bByName);
  ExpectSame(sAgain, WriteXml(*pShould, bArrayPrefix, bByName), "ToXml of what was read");
  if (sAgain == sXml) return;
  const CMsgPtr pThird(MA_NewMsg(0));
  ExpectSame(LoadXml(pThird.get(), sAgain), 0, "LoadXml again");
  ExpectSame(ToXml(*pThird, bArrayPrefix, bByName), sAgain, "ToXml again");
}

int LoadXml(CMsg* p_pMsg, const std::string& p_sXml) {
  const std::unique_ptr<char[]> szXml(new char[p_sXml.size() + 1]);
  memcpy(szXml.get(), p_sXml.c_str(), p_sXml.size() + 1);
  try {
    ExpectSame(p_pMsg->LoadXml(szXml.get()), 0, "LoadXml");
    return 0;
  } catch (const CException& cError) {
    const std::string_view sText = cError.GetText();
    Expect(sText.rfind("Handler error : ", 0) == 0 || sText.rfind("XMLParser internal error", 0) == 0,
           "text of LoadXml");
    const int iCode = cError.GetCode();
    Expect(iCode == -21 || (iCode <= -15 && iCode >= -19), "code of LoadXml");
    return iCode;
  }
}

std::string ToXml(const CMsg& p_cMsg, bool p_bArrayPrefix, bool p_bByName) {
  CStream stXml(0, 512);
  ExpectSame(p_cMsg.ToXml(&stXml, p_bArrayPrefix, p_bByName, 1), 0, "ToXml");
  return TextOf(stXml);
}
