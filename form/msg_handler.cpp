// Turns the elements of a message document into stored values.
#include "form/msg_handler.h"

#include <cstring>
#include <string_view>

#include "base/number.h"
#include "callorv/base/exception.h"
#include "msg/access.h"

using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tUse{" ", ": ", "\n", "Out of memory 0", false};

}    // namespace

MsgHandler::MsgHandler(CMsg* p_pMsg, CMsgDic* p_pDic)
    : CXmlHandler(s_tUse), m_pDic(p_pDic), m_iMsgNum(0), m_bByName(false), m_iCurrentTag(0), m_pRootMsg(p_pMsg),
      m_pCurrentMsg(p_pMsg) {
  if (p_pMsg == nullptr || p_pDic == nullptr) {
    throw CException(MSG_NULL, "MsgHandler::MsgHandler - Parameter is NULL(%p,%p)", static_cast<void*>(p_pMsg),
                     static_cast<void*>(p_pDic));
  }
}

void MsgHandler::Action(const char* p_szXml) {
  if (p_szXml == nullptr) throw CException("Parameter is NULL", MSG_NULL);
  if (!IsParserReady()) {
    throw CException("XMLPlatformUtils::Initialize() was not called", MSG_XML_INIT);
  }
  s_uParsed.fetch_add(1, std::memory_order_relaxed);
  const auto fnParse = [&] { return ParseText(p_szXml, strlen(p_szXml), u"MemData", true); };
  Parse(std::ref(fnParse));
}

void MsgHandler::StartRoot(const char16_t* p_szName, CXmlAttributes p_cAttrs) {
  const CNarrow cRoot(p_szName);
  if (strcmp(cRoot.Text(), "msg") != 0) throw CException(MSG_XML, "Unknown root element(%s)", cRoot.Text());
  CString sVer;
  for (size_t i = 0; i < p_cAttrs.GetCount(); ++i) {
    const CNarrow cName(p_cAttrs.GetName(i)), cValue(p_cAttrs.GetValue(i));
    if (strcmp(cName.Text(), "no") == 0) m_iMsgNum = ParseInt32(cValue.Text());
    if (strcmp(cName.Text(), "type") == 0) m_bByName = strcmp(cValue.Text(), "name") == 0;
    if (strcmp(cName.Text(), "ver") == 0) sVer = cValue.Text();
  }
  CMsgInfo* pMsgInfo = m_pDic->GetMsgInfo(m_iMsgNum);
  if (pMsgInfo == nullptr) throw CException(MSG_XML, "Unknown msgno(%d)", m_iMsgNum);
  m_pRootMsg->Init(m_iMsgNum, 0, 0);
  m_pRootMsg->SetVer(sVer);
  m_atOpen.push_back({nullptr, nullptr, pMsgInfo});
}

// The tag that the element names. Inside an element that holds no sub-message there is no definition, so no tag is
// known.
const CTagInfo& MsgHandler::Resolve(const char16_t* p_szName, bool p_bStart) const {
  const auto fnWhere = [&] { return p_bStart ? "start" : "end"; };
  const CMsgInfo* pMsgInfo = m_atOpen.back().pInside;
  int iTag = -1;
  if (m_bByName) {
    if (pMsgInfo != nullptr) iTag = pMsgInfo->GetTagNumByName(CNarrow(p_szName).Text());
    if (iTag < 0) throw CException(MSG_XML, "Unknown %s tagname(%s)", fnWhere(), CNarrow(p_szName).Text());
  } else {
    if (const char cFirst = static_cast<char>(*p_szName); cFirst != 't' && cFirst != 'a') {
      throw CException(MSG_XML, "Unknown %s %s(%s)", fnWhere(), p_bStart ? "tagnum" : "tag element",
                       CNarrow(p_szName).Text());
    }
    iTag = ParseInt32(p_szName + 1);
  }
  const CTagInfo* pTag = pMsgInfo != nullptr ? pMsgInfo->GetTagInfo(iTag) : nullptr;
  if (pTag != nullptr) return *pTag;
  throw CException(MSG_XML, "Unknown %s tag element(%s, %d)", fnWhere(), CNarrow(p_szName).Text(), iTag);
}

void MsgHandler::OnStart(const char16_t* p_szName, CXmlAttributes p_cAttrs, int p_iDepth) {
  if (p_iDepth == 1) {
    StartRoot(p_szName, p_cAttrs);
    return;
  }
  const CTagInfo& cTag = Resolve(p_szName, true);
  const CMsgInfo* pInside = nullptr;
  if (cTag.m_eType == TAG_SUBMSG) {
    m_pCurrentMsg = m_pCurrentMsg->MakeSubMsgEntry(cTag.m_iTagNum);
    if (m_pCurrentMsg == nullptr) throw CException(MSG_XML, "(MakeSubMsgEntry) failed(%d)", cTag.m_iTagNum);
    const int iSubMsg = m_pCurrentMsg->GetMsgNum();
    pInside = m_pDic->GetMsgInfo(iSubMsg);
    if (pInside == nullptr) throw CException(MSG_XML, "Unknown submsg(%d)", iSubMsg);
  }
  m_iCurrentTag = cTag.m_iTagNum;
  m_atOpen.emplace_back() = {p_szName, &cTag, pInside};
}

void MsgHandler::OnText(const char16_t* p_p, size_t p_uLen) {
  const CNarrow cText(p_p, p_uLen);
  const std::string_view svText = Trimmed(cText.View());
  if (svText.empty() || m_iCurrentTag < 0) return;
  const T_Open& tIn = m_atOpen.back();
  const CTagInfo& cTag = tIn.pInside == nullptr ? *tIn.pTag : CAccess::ParsedTag(*m_pCurrentMsg, m_iCurrentTag);
  CAccess::StoreText(*m_pCurrentMsg, cTag, svText.data(), TextLen(svText.size()));
}

void MsgHandler::OnEnd(const char16_t* p_szName, int p_iDepth) {
  const T_Open tOpen = m_atOpen.back();
  m_atOpen.pop_back();
  if (p_iDepth == 1) return;
  const CTagInfo& cTag = tOpen.szName == p_szName ? *tOpen.pTag : Resolve(p_szName, false);
  if (cTag.m_eType == TAG_SUBMSG) m_pCurrentMsg = m_pCurrentMsg->GetParent();
}
