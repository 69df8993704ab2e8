// A reply that was read from a file, as far as it can be made without a request.
#include "serve/reply.h"

#include <callorv/base/exception.h>

#include <algorithm>
#include <cctype>

#include "command.h"
#include "common/msg_file.h"
#include "common/msg_path.h"
#include "common/text.h"
#include "common/xml_file.h"
#include "serve/placeholder.h"

namespace {

// Whether an XML document is written in ISO-8859-1; otherwise it counts as UTF-8, as XML itself has it.
bool IsLatin1(const std::string& p_sXml) {
  std::string sHead = p_sXml.substr(0, p_sXml.find("?>"));
  std::transform(sHead.begin(), sHead.end(), sHead.begin(), [](unsigned char c) { return std::toupper(c); });
  return sHead.rfind("<?XML", 0) == 0 && sHead.find("ISO-8859-1") != std::string::npos;
}

// Whether the end of p_sXml is inside a CDATA section.
bool EndsInCData(const std::string& p_sXml) {
  const size_t iOpen = p_sXml.rfind("<![CDATA[");
  const size_t iClose = p_sXml.rfind("]]>");
  return iOpen != std::string::npos && (iClose == std::string::npos || iClose < iOpen);
}

// The document filled in, for the library. A value that markup would break stands in a CDATA section of its own.
std::string FillXml(const std::string& p_sXml, const T_CallValues& p_t, bool p_bState) {
  const bool bLatin1 = IsLatin1(p_sXml);
  const auto fnWrapped = [](const std::string& p_sValue, const std::string& p_sBefore) {
    const bool bWrap = p_sValue.find_first_of("<&") != std::string::npos && !EndsInCData(p_sBefore);
    return bWrap ? "<![CDATA[" + p_sValue + "]]>" : p_sValue;
  };
  T_Placeholders t;
  t.fnTag = [&](const std::string& p_sPath, const std::string& p_sBefore) {
    const std::string sValue = GetByPath(p_t.cRequest, p_sPath);
    return fnWrapped(bLatin1 ? sValue : ToUtf8(sValue), p_sBefore);
  };
  if (p_bState) {
    t.fnState = [&](const std::string& p_sName, const std::string& p_sBefore) {
      const std::string sValue = StateValue(p_t.cState, p_sName);
      return fnWrapped(bLatin1 ? NearestLatin1(sValue) : sValue, p_sBefore);
    };
  }
  return ReplacePlaceholders(p_sXml, t);
}

// The library parses it, for every call anew when it has placeholders.
CReplyPtr LibraryReply(const std::string& p_sName, const std::string& p_sXml, const T_ReplyMode& p_tMode,
                       CMsgDic& p_cDic) {
  const bool bState = p_tMode.bState;
  const auto fnNamed = [p_sName](const auto& p_fn) {
    try {
      return p_fn();
    } catch (const CException& cError) {
      throw CFailure(p_sName + ": " + cError.GetText());
    } catch (const CFailure& cError) {
      throw CFailure(p_sName + ": " + cError.what());
    }
  };
  const auto fnFill = [=](CMsg& p_cReply, const T_CallValues& p_t) {
    fnNamed([&] { p_cReply.LoadXml(FillXml(p_sXml, p_t, bState).data()); });
  };
  if (fnNamed([&] { return HasPlaceholders(p_sXml, bState); })) return CallReply(fnFill);
  CMsg cMsg(0, 0, 0, &p_cDic);
  fnFill(cMsg, {cMsg, {}});
  return FixedReply(cMsg, p_tMode);
}

}    // namespace

std::string StateValue(const CStateValues& p_cState, const std::string& p_sName) {
  const auto it = p_cState.find(p_sName);
  return it == p_cState.end() ? "" : it->second;
}

std::string FillText(const std::string& p_sText, const T_CallValues& p_t, bool p_bState) {
  T_Placeholders t;
  t.fnTag = [&](const std::string& p_sPath, const std::string&) { return ToUtf8(GetByPath(p_t.cRequest, p_sPath)); };
  if (p_bState) {
    t.fnState = [&](const std::string& p_sName, const std::string&) { return StateValue(p_t.cState, p_sName); };
  }
  return ReplacePlaceholders(p_sText, t);
}

CReplyPtr CallReply(std::function<void(CMsg&, const T_CallValues&)> p_fnFill) {
  auto pReply = std::make_shared<T_Reply>();
  pReply->fnFill = std::move(p_fnFill);
  return pReply;
}

CReplyPtr FixedReply(const CMsg& p_cMsg, const T_ReplyMode& p_tMode) {
  auto pReply = std::make_shared<T_Reply>();
  pReply->cPrepared.emplace(p_cMsg, p_tMode.iCompressOver);
  return pReply;
}

CReplyPtr ReplyFromFile(const std::string& p_sName, const std::string& p_sBytes, const T_ReplyMode& p_tMode,
                        CMsgDic& p_cDic) {
  if (p_tMode.bAsLibrary) return LibraryReply(p_sName, p_sBytes, p_tMode, p_cDic);
  const auto pFile = std::make_shared<const CXmlFile>(p_sName, p_sBytes);
  const bool bState = p_tMode.bState;
  CMsg cMsg(0, 0, 0, &p_cDic);
  bool bCalls = false;
  ReadMsgFile(cMsg, *pFile, [&](std::string& p_sText) {
    const bool bNow = HasPlaceholders(p_sText, bState);    // then nothing can be stored yet
    bCalls |= bNow;
    return !bNow;
  });
  if (!bCalls) return FixedReply(cMsg, p_tMode);
  return CallReply([pFile, bState](CMsg& p_cReply, const T_CallValues& p_t) {
    ReadMsgFile(p_cReply, *pFile, [&](std::string& p_sText) {
      if (p_sText.find("{{") != std::string::npos) p_sText = FillText(p_sText, p_t, bState);
      return true;
    });
  });
}
