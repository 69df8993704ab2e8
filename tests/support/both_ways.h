// One text read into two messages: by LoadXml, and by the parser alone, whose word counts.
#ifndef TESTS_SUPPORT_BOTH_WAYS_H
#define TESTS_SUPPORT_BOTH_WAYS_H

#include <callorv/base/exception.h>
#include <callorv/base/stream.h>
#include <callorv/msg/msg.h>

#include <new>
#include <string>
#include <vector>

#include "form/msg_handler.h"
#include "msg/cells.h"

// Everything that can be asked of a message and of those in it.
inline std::string Describe(CMsg& p_cMsg) {
  std::string sOut;
  const auto fnPut = [&sOut](const auto&... p_what) { ((sOut += std::to_string(p_what) + ' '), ...); };
  struct T_Next {
    CMsg* pMsg;
    CMsg* pParent;
  };
  std::vector<T_Next> atNext{{&p_cMsg, nullptr}};
  for (size_t i = 0; i < atNext.size(); ++i) {
    CMsg& cMsg = *atNext[i].pMsg;
    fnPut(cMsg.GetMsgNum(), cMsg.GetRootNum(), cMsg.GetParentTag(), cMsg.IsEmpty(), cMsg.GetParent() == atNext[i].pParent);
    sOut.append(cMsg.GetVer()).append("|").append(cMsg.GetLastError()).append("\n");
    const CMsgInfo* pInfo = cMsg.GetMsgInfo();
    for (int k = 0; pInfo != nullptr && k < pInfo->GetNoTags(); ++k) {
      const int iTag = pInfo->GetTagNumAt(k);
      // Asked of a tag without a value cell, GetArrSize words an error, which takes longer than all else here.
      const bool bCell = callorv::detail::CCells::GetHashBag(cMsg, iTag) != nullptr;
      const int iSize = bCell ? cMsg.GetArrSize(iTag) : 0;
      fnPut(iTag, bCell, iSize);
      for (int iRow = 0; pInfo->GetTagType(iTag) == TAG_SUBMSG && iRow < iSize; ++iRow) {
        CMsg* pSub = nullptr;
        if (cMsg.GetValueAt(iTag, iRow, &pSub) == 0 && pSub != nullptr) atNext.push_back({pSub, &cMsg});
      }
    }
  }
  CStream stXml(0, 512);
  p_cMsg.ToXml(&stXml, false, false, 1);
  return sOut.append(stXml.GetData(), static_cast<size_t>(stXml.GetSize()));
}

// Reads and says how that went and what the message is then.
template <class F>
std::string Outcome(CMsg& p_cMsg, F p_fnRead) {
  std::string sHow;
  try {
    sHow = std::to_string(p_fnRead());
  } catch (const CException& cError) {
    sHow = std::to_string(cError.GetCode()) + " " + cError.GetText();
  } catch (const std::bad_alloc&) {
    sHow = "bad_alloc";
  }
  return sHow + "\n" + Describe(p_cMsg);
}

struct T_BothWays {
  std::string sLoaded, sParsed;    // the outcomes
  bool bShort;                     // LoadXml did without the parser
};
// The messages are new, or of equal content.
inline T_BothWays ReadBothWays(CMsg& p_cLoaded, CMsg& p_cParsed, CMsgDic& p_cDic, const std::string& p_sXml) {
  T_BothWays t;
  std::vector<char> acXml(p_sXml.c_str(), p_sXml.c_str() + p_sXml.size() + 1);    // nothing behind its NUL
  const unsigned uBefore = MsgHandler::Parsed();
  t.sLoaded = Outcome(p_cLoaded, [&] { return p_cLoaded.LoadXml(acXml.data()); });
  t.bShort = MsgHandler::Parsed() == uBefore;
  t.sParsed = Outcome(p_cParsed, [&] {
    MsgHandler(&p_cParsed, &p_cDic).Action(acXml.data());
    return 0;
  });
  return t;
}

#endif
