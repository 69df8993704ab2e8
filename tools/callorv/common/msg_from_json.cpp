// Messages in JSON that people and programs write.
#include "common/msg_from_json.h"

#include <callorv/base/exception.h>
#include <callorv/client/callorv_client.h>

#include <algorithm>
#include <vector>

#include "command.h"
#include "common/json_number.h"
#include "common/msg_names.h"
#include "common/msg_value.h"
#include "common/near.h"
#include "common/text.h"

namespace {

enum { MAX_DEPTH = 1023 };    // of messages; with the value in the innermost, as many elements as the library reads

const char* WhatBelongs(E_TagType p_eType) {
  switch (p_eType) {
    case TAG_STRING: return "a text";
    case TAG_INTEGER: return "an integer of 32 bits";
    case TAG_DOUBLE: return "a number";
    case TAG_BOOL: return "true or false";
    case TAG_DATE: return "a text with a date (YYYYMMDD)";
    default: return "an object with the values of a sub-message";
  }
}

void Require(const CJsonIn::CValue& p_cValue, bool p_bFits, const char* p_szWhat) {
  if (!p_bFits) p_cValue.Fail(p_cValue.Words() + " stands where " + p_szWhat + " belongs");
}

double DoubleOf(const CJsonIn::CValue& p_cValue) {
  double d = 0;
  switch (ToDouble(p_cValue.Text(), d)) {
    case FIT_WHOLE: return d;
    case FIT_SHORTER:
      p_cValue.WarnOf(p_cValue.Words() + " has more than the 16 digits that go over the wire");
      return d;
    default: p_cValue.Fail(p_cValue.Words() + " does not fit into a double to its last digit");
  }
}

// Whether the filter has dealt with a value: it is stored, or nothing is to be stored.
bool IsFiltered(CMsg& p_cMsg, const CTagInfo& p_tTag, const CJsonIn::CValue& p_cValue, const CTextFilter& p_fnFilter) {
  if (!p_fnFilter || p_cValue.Kind() != JSON_TEXT) return false;
  std::string sText(p_cValue.Text());
  return At(p_cValue, [&] {
    if (!p_fnFilter(sText)) return true;
    if (sText == p_cValue.Text()) return false;
    if (!sText.empty()) SetValue(p_cMsg, p_tTag, std::string(p_cValue.Name()), sText);
    return true;
  });
}

// One value of what is no array, or one element. Returns the library's code.
int StoreOne(CMsg& p_cMsg, const CTagInfo& p_tTag, const CJsonIn::CValue& p_cValue, const CTextFilter& p_fnFilter) {
  if (IsFiltered(p_cMsg, p_tTag, p_cValue, p_fnFilter)) return 0;
  const int iTag = p_tTag.m_iTagNum;
  const E_JsonKind eKind = p_cValue.Kind();
  const char* szWhat = WhatBelongs(p_tTag.m_eType);
  switch (p_tTag.m_eType) {
    case TAG_INTEGER: {
      int i = 0;
      Require(p_cValue, eKind == JSON_NUMBER && ToInt(p_cValue.Text(), i), szWhat);
      return p_cMsg.SetValue(iTag, i);
    }
    case TAG_DOUBLE:
      Require(p_cValue, eKind == JSON_NUMBER, szWhat);
      return p_cMsg.SetValue(iTag, DoubleOf(p_cValue));
    case TAG_BOOL:
      Require(p_cValue, eKind == JSON_BOOL, szWhat);
      return p_cMsg.SetValue(iTag, p_cValue.Text() == "true");
    case TAG_DATE:
      Require(p_cValue, eKind == JSON_TEXT && IsDate(p_cValue.Text()), szWhat);
      return p_cMsg.SetValue(iTag, CDate(std::string(p_cValue.Text()).c_str()));
    default:
      Require(p_cValue, eKind == JSON_TEXT, szWhat);
      return p_cMsg.SetValue(iTag, At(p_cValue, [&] { return WireText(std::string(p_cValue.Text()), ""); }).c_str());
  }
}

void ReadValues(CMsg& p_cMsg, const CJsonIn::CValue& p_cValues, int p_iDepth, const CTextFilter& p_fnFilter);

void Store(CMsg& p_cMsg, const CTagInfo& p_tTag, const CJsonIn::CValue& p_cValue, int p_iDepth,
           const CTextFilter& p_fnFilter) {
  if (p_tTag.m_eType == TAG_SUBMSG) {
    Require(p_cValue, p_cValue.Kind() == JSON_OBJECT, WhatBelongs(TAG_SUBMSG));
    CMsg* pSub = At(p_cValue, [&] { return p_cMsg.MakeSubMsgEntry(p_tTag.m_iTagNum); });
    return ReadValues(*pSub, p_cValue, p_iDepth + 1, p_fnFilter);
  }
  if (StoreOne(p_cMsg, p_tTag, p_cValue, p_fnFilter) < 0) p_cValue.Fail(p_cMsg.GetLastError());
}

// The elements behind one that goes over the wire as nothing would move up.
void StoreElement(CMsg& p_cMsg, const CTagInfo& p_tTag, const CJsonIn::CValue& p_cElement, int p_iDepth,
                  const CTextFilter& p_fnFilter) {
  if (p_cElement.Kind() == JSON_NULL) p_cElement.Fail("an array has no place for null: leave it out");
  const bool bText = p_tTag.m_eType == TAG_STRING || p_tTag.m_eType == TAG_DATE;
  if (bText && p_cElement.Kind() == JSON_TEXT && p_cElement.Text().empty()) {
    p_cElement.Fail("an empty text is not sent, and an array has no place without a value: leave it out");
  }
  Store(p_cMsg, p_tTag, p_cElement, p_iDepth, p_fnFilter);
}

void ReadValues(CMsg& p_cMsg, const CJsonIn::CValue& p_cValues, int p_iDepth, const CTextFilter& p_fnFilter) {
  if (p_iDepth > MAX_DEPTH) p_cValues.Fail("more than 1023 messages, one in the other");
  std::vector<const CTagInfo*> aSeen;
  for (CJsonIn::CValue c = p_cValues.First(); c; c = c.Next()) {
    const CTagInfo* pTag = At(c, [&] { return &FindTag(p_cMsg, std::string(c.Name())); });
    if (std::find(aSeen.begin(), aSeen.end(), pTag) != aSeen.end()) {
      c.Fail("tag " + std::to_string(pTag->m_iTagNum) + " stands here by its name and by its number");
    }
    aSeen.push_back(pTag);
    if (c.Kind() == JSON_NULL) continue;
    if (!pTag->m_bArray) {
      Store(p_cMsg, *pTag, c, p_iDepth, p_fnFilter);
      continue;
    }
    Require(c, c.Kind() == JSON_ARRAY, "an array");
    for (CJsonIn::CValue cElement = c.First(); cElement; cElement = cElement.Next()) {
      StoreElement(p_cMsg, *pTag, cElement, p_iDepth, p_fnFilter);
    }
  }
}

std::string NameOf(int p_iMessage) { return ToUtf8(MA_GetMsgDic()->GetMsgInfo(p_iMessage)->GetMsgName().ToStr()); }

// The number of a whole message, all of whose members but its values are checked.
int MessageOf(const CJsonIn::CValue& p_cWhole, int p_iMessage) {
  const CJsonIn::CValue cMessage = p_cWhole.Find("message"), cName = p_cWhole.Find("name");
  const int iMessage = MessageAt(cMessage);
  if (p_iMessage != 0 && p_iMessage != iMessage) {
    cMessage.Fail("message " + std::to_string(iMessage) + " contradicts MESSAGE, which is " +
                  std::to_string(p_iMessage));
  }
  if (cName && cName.Kind() != JSON_NULL) {
    Require(cName, cName.Kind() == JSON_TEXT, "a message's name");
    if (cName.Text() != NameOf(iMessage)) {
      cName.Fail("message " + std::to_string(iMessage) + " is '" + NameOf(iMessage) + "' in this dictionary, not " +
                 cName.Words());
    }
  }
  for (CJsonIn::CValue c = p_cWhole.First(); c; c = c.Next()) {
    static const std::vector<std::string> s_asKnown{"message", "name", "version", "values"};
    if (std::find(s_asKnown.begin(), s_asKnown.end(), c.Name()) != s_asKnown.end()) continue;
    c.Fail("beside message and values there may be name and version, nothing else" + DidYouMean(c.Name(), s_asKnown));
  }
  return iMessage;
}

}    // namespace

int MessageAt(const CJsonIn::CValue& p_cMessage) {
  int iMessage = 0;
  const bool bNumber = p_cMessage.Kind() == JSON_NUMBER && ToInt(p_cMessage.Text(), iMessage);
  Require(p_cMessage, bNumber || p_cMessage.Kind() == JSON_TEXT, "a message's number or name");
  const std::string sMessage = bNumber ? std::to_string(iMessage) : std::string(p_cMessage.Text());
  return At(p_cMessage, [&] { return FindMessage(sMessage); });
}

bool IsWholeMessage(const CJsonIn::CValue& p_cData) { return p_cData.Find("message") && p_cData.Find("values"); }

void MsgFromJson(CMsg& p_cMsg, const CJsonIn::CValue& p_cData, int p_iMessage, const CTextFilter& p_fnFilter) {
  Require(p_cData, p_cData.Kind() == JSON_OBJECT, "an object with values");
  if (!IsWholeMessage(p_cData)) {
    if (p_iMessage == 0) p_cData.Fail("says not which message it is: its members message and values would");
    p_cMsg.Init(p_iMessage, 0, 0);
    return ReadValues(p_cMsg, p_cData, 1, p_fnFilter);
  }
  p_cMsg.Init(MessageOf(p_cData, p_iMessage), 0, 0);
  const CJsonIn::CValue cVersion = p_cData.Find("version"), cValues = p_cData.Find("values");
  if (cVersion && cVersion.Kind() != JSON_NULL) {
    Require(cVersion, cVersion.Kind() == JSON_TEXT, "a text");
    p_cMsg.SetVer(At(cVersion, [&] { return WireVersion(std::string(cVersion.Text()), ""); }).c_str());
  }
  if (cValues.Kind() == JSON_NULL) return;
  Require(cValues, cValues.Kind() == JSON_OBJECT, "an object with values");
  ReadValues(p_cMsg, cValues, 1, p_fnFilter);
}
