// Turns the elements of a message document into stored values.
#ifndef CALLORV_MSG_MSG_HANDLER_H
#define CALLORV_MSG_MSG_HANDLER_H

#include <memory>
#include <string_view>

#include "callorv/msg/msg.h"
#include "msg/xml_reader.h"

// Serves one document.
class MsgHandler : public callorv::detail::CXmlHandler {
 public:
  // Both borrowed. Throws CException (-12) when either is null.
  MsgHandler(CMsg* p_pMsg, CMsgDic* p_pDic);
  // Parses the text; see CMsg::LoadXml. Throws CException.
  void Action(const char* p_szXml);

  void characters(const XMLCh* const p_szText, const XMLSize_t p_iLen) override;
  void startElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName,
                    const xercesc::Attributes& p_cAttrs) override;
  void endElement(const XMLCh* const p_szUri, const XMLCh* const p_szLocalName, const XMLCh* const p_szQName) override;

 private:
  struct T_TagTexts;    // what an unknown tag is called at its start and at its end
  struct T_Open {       // an open element
    const XMLCh* szName;
    const CTagInfo* pTag;
    const CMsgInfo* pInside;    // definition for the elements inside it; null: none are known
  };
  // An element's name as the parser hands it out, one and the same for all elements of that name, and what it means.
  struct T_Known {
    const XMLCh* szName;
    const CMsgInfo* pMsgInfo;
    const CTagInfo* pTag;
  };
  enum { KNOWN = 32, NEAR = 16 };

  CMsgDic* m_pDic;
  int m_iMsgNum;              // the root's "no"
  bool m_bByName;             // elements are named by tag name
  int m_iCurrentTag;          // receives character data; an end tag does not reset it
  const CTagInfo* m_pCurrentTag;    // its definition in the current message, null where that is to be looked up
  CMsg* m_pRootMsg;
  CMsg* m_pCurrentMsg;        // the message that the open elements belong to
  T_Known m_atKnown[KNOWN] = {};     // by address of the name
  T_Open m_atNear[NEAR];
  std::unique_ptr<T_Open[]> m_pFar;    // MAX_DEPTH + 1; made for a document too deep for m_atNear, as threads have small stacks
  T_Open* m_pOpen = m_atNear;          // by depth: the one of the two that is in use

  void Read(std::string_view p_svXml, callorv::detail::E_Reader p_eReader);
  void StartRoot(const char* p_szName, const xercesc::Attributes& p_cAttrs);
  void MakeRoom();
  const CMsgInfo* InfoAt(int p_iDepth) const { return p_iDepth > 1 ? m_pOpen[p_iDepth - 1].pInside : nullptr; }
  const CTagInfo* Lookup(const XMLCh* p_szWide, int p_iDepth);
  const CTagInfo* Resolve(const XMLCh* p_szWide, int p_iDepth, const T_TagTexts& p_tTexts) const;

  static const T_TagTexts s_tStart, s_tEnd;
};

#endif
