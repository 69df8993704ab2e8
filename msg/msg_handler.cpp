// Turns the elements of a message document into stored values.
#include "msg/msg_handler.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "base/number.h"
#include "callorv/base/exception.h"
#include "msg/msg_ops.h"

using namespace xercesc;
using namespace callorv::detail;

namespace {

constexpr T_XmlUse s_tUse{" ", ": ", "\n", false};

bool IsBlank(char p_c) { return p_c == ' ' || p_c == '\t' || p_c == '\n'; }    // a CR stays

}    // namespace

struct MsgHandler::T_TagTexts {
  const char* szWhere;       // at which end of the element
  const char* szNoNumber;    // what its name should have been
};
const MsgHandler::T_TagTexts MsgHandler::s_tStart{"start", "tagnum"};
const MsgHandler::T_TagTexts MsgHandler::s_tEnd{"end", "tag element"};

MsgHandler::MsgHandler(CMsg* p_pMsg, CMsgDic* p_pDic)
    : CXmlHandler(s_tUse), m_pDic(p_pDic), m_iMsgNum(0), m_bByName(false), m_iCurrentTag(0),
      m_pCurrentTag(nullptr), m_pRootMsg(p_pMsg), m_pCurrentMsg(p_pMsg) {
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
  const std::string_view svXml(p_szXml);
  if (!BeginsPlainly(svXml)) return Read(svXml, READER_KEPT);
  try {
    return Read(svXml, READER_PLAIN);
  } catch (const CException& cError) {
    if (cError.GetCode() == MSG_MEMORY) throw;
  }
  // What is wrong, and whether anything is, the other reader says, from the beginning.
  MsgHandler(m_pRootMsg, m_pDic).Read(svXml, READER_KEPT);
}

void MsgHandler::Read(std::string_view p_svXml, E_Reader p_eReader) {
  const bool bDeclared = p_eReader == READER_PLAIN && TakeDeclaration(p_svXml);
  std::optional<MemBufInputSource> cSource;
  try {
    cSource.emplace(reinterpret_cast<const XMLByte*>(p_svXml.data()), p_svXml.size(), u"MemData", false);
    cSource->setCopyBufToStream(false);
    if (bDeclared) cSource->setEncoding(XMLUni::fgISO88591EncodingString);
  } catch (const OutOfMemoryException&) {
    throw CException("Out of memory 0", MSG_MEMORY);
  } catch (const std::bad_alloc&) {
    throw CException("Out of memory 0", MSG_MEMORY);
  }
  const auto fnParse = [&] { return ParseSource(*cSource, p_eReader); };
  Parse(std::ref(fnParse));
}

void MsgHandler::StartRoot(const char* p_szName, const Attributes& p_cAttrs) {
  if (strcmp(p_szName, "msg") != 0) throw CException(MSG_XML, "Unknown root element(%s)", p_szName);
  CString sVer;
  for (XMLSize_t i = 0; i < p_cAttrs.getLength(); ++i) {
    const CNarrow cName(p_cAttrs.getLocalName(i)), cValue(p_cAttrs.getValue(i));
    if (strcmp(cName.Text(), "no") == 0) m_iMsgNum = ParseInt32(cValue.Text());
    if (strcmp(cName.Text(), "type") == 0) m_bByName = strcmp(cValue.Text(), "name") == 0;
    if (strcmp(cName.Text(), "ver") == 0) sVer = cValue.Text();
  }
  CMsgInfo* pMsgInfo = m_pDic->GetMsgInfo(m_iMsgNum);
  if (pMsgInfo == nullptr) throw CException(MSG_XML, "Unknown msgno(%d)", m_iMsgNum);
  m_pRootMsg->Init(m_iMsgNum, 0, 0);
  m_pRootMsg->SetVer(sVer);
  m_pOpen[1] = {nullptr, nullptr, pMsgInfo};
}

void MsgHandler::MakeRoom() {
  m_pFar.reset(new T_Open[MAX_DEPTH + 1]);
  std::copy(m_atNear + 1, m_atNear + NEAR, m_pFar.get() + 1);    // depths begin with 1
  m_pOpen = m_pFar.get();
}

// The tag that the element names. Inside an element that holds no sub-message there is no definition, so no tag is known.
const CTagInfo* MsgHandler::Resolve(const XMLCh* p_szWide, int p_iDepth, const T_TagTexts& p_tTexts) const {
  const CNarrow cName(p_szWide);
  const char* szName = cName.Text();
  const CMsgInfo* pMsgInfo = InfoAt(p_iDepth);
  int iTag = -1;
  if (m_bByName) {
    if (pMsgInfo != nullptr) iTag = pMsgInfo->GetTagNumByName(szName);
    if (iTag < 0) throw CException(MSG_XML, "Unknown %s tagname(%s)", p_tTexts.szWhere, szName);
  } else {
    if (*szName != 't' && *szName != 'a') {
      throw CException(MSG_XML, "Unknown %s %s(%s)", p_tTexts.szWhere, p_tTexts.szNoNumber, szName);
    }
    iTag = ParseInt32(szName + 1);
  }
  const CTagInfo* pTag = pMsgInfo != nullptr ? pMsgInfo->GetTagInfo(iTag) : nullptr;
  if (pTag == nullptr) throw CException(MSG_XML, "Unknown %s tag element(%s, %d)", p_tTexts.szWhere, szName, iTag);
  return pTag;
}

// Resolve at the start of an element, but once for all elements of a name.
const CTagInfo* MsgHandler::Lookup(const XMLCh* p_szWide, int p_iDepth) {
  const CMsgInfo* pMsgInfo = InfoAt(p_iDepth);
  const auto uAddress = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p_szWide));
  unsigned uAt = uAddress * 0x9E3779B1u >> 27;    // odd, without a pattern in its bits
  for (int i = 0; i < 4 && m_atKnown[uAt].szName != nullptr; ++i, uAt = (uAt + 1) % KNOWN) {
    const T_Known& tKnown = m_atKnown[uAt];
    if (tKnown.szName == p_szWide && tKnown.pMsgInfo == pMsgInfo) return tKnown.pTag;
  }
  const CTagInfo* pTag = Resolve(p_szWide, p_iDepth, s_tStart);
  m_atKnown[uAt] = {p_szWide, pMsgInfo, pTag};
  return pTag;
}

void MsgHandler::startElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const,
                              const Attributes& p_cAttrs) {
  const int iDepth = Enter();
  if (iDepth == 1) {
    StartRoot(CNarrow(p_szLocalName).Text(), p_cAttrs);
    return;
  }
  if (iDepth == NEAR && m_pFar == nullptr) MakeRoom();
  const CTagInfo* pTag = Lookup(p_szLocalName, iDepth);
  m_pOpen[iDepth] = {p_szLocalName, pTag, nullptr};
  m_iCurrentTag = pTag->m_iTagNum;
  m_pCurrentTag = pTag;
  if (pTag->m_eType != TAG_SUBMSG) return;
  m_pCurrentTag = nullptr;
  m_pCurrentMsg = m_pCurrentMsg->MakeSubMsgEntry(pTag->m_iTagNum);
  if (m_pCurrentMsg == nullptr) throw CException(MSG_XML, "(MakeSubMsgEntry) failed(%d)", pTag->m_iTagNum);
  const int iSubMsg = m_pCurrentMsg->GetMsgNum();
  const CMsgInfo* pSubInfo = m_pDic->GetMsgInfo(iSubMsg);
  if (pSubInfo == nullptr) throw CException(MSG_XML, "Unknown submsg(%d)", iSubMsg);
  m_pOpen[iDepth].pInside = pSubInfo;
}

void MsgHandler::characters(const XMLCh* const p_szText, const XMLSize_t p_uLen) {
  CNarrow cText(p_szText, p_uLen);
  char* pFirst = cText.Text();
  while (IsBlank(*pFirst)) ++pFirst;
  char* pEnd = pFirst + strlen(pFirst);
  while (pEnd > pFirst && IsBlank(pEnd[-1])) --pEnd;
  if (pEnd == pFirst || m_iCurrentTag < 0) return;
  *pEnd = 0;
  if (m_pCurrentTag == nullptr) m_pCurrentTag = &CMsgOps::ParsedTag(*m_pCurrentMsg, m_iCurrentTag);
  CMsgOps::StoreText(*m_pCurrentMsg, *m_pCurrentTag, pFirst, TextLen(static_cast<size_t>(pEnd - pFirst)));
}

void MsgHandler::endElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const) {
  const int iDepth = Leave();
  if (iDepth == 1) return;
  // The parser hands out one and the same name at both ends of an element.
  const T_Open& tOpen = m_pOpen[iDepth];
  const CTagInfo* pTag =
      tOpen.szName == p_szLocalName ? tOpen.pTag : Resolve(p_szLocalName, iDepth, s_tEnd);
  if (pTag->m_eType != TAG_SUBMSG) return;
  m_pCurrentMsg = m_pCurrentMsg->GetParent();
  m_pCurrentTag = nullptr;
}
