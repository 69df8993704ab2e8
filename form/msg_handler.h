// Turns the elements of a message document into stored values.
#ifndef CALLORV_FORM_MSG_HANDLER_H
#define CALLORV_FORM_MSG_HANDLER_H

#include <atomic>
#include <vector>

#include "callorv/msg/msg.h"
#include "xml/xml_reader.h"

// Serves one document.
class MsgHandler : public callorv::detail::CXmlHandler {
 public:
  // Both borrowed. Throws CException (-12) when either is null.
  MsgHandler(CMsg* p_pMsg, CMsgDic* p_pDic);
  // Parses the text; see CMsg::LoadXml. Throws CException.
  void Action(const char* p_szXml);
  // How many texts the parser was given so far, for tests: what ReadOwnForm reads is not among them.
  static unsigned Parsed() { return s_uParsed.load(std::memory_order_relaxed); }

 protected:
  void OnStart(const char16_t* p_szName, callorv::detail::CXmlAttributes p_cAttrs, int p_iDepth) override;
  void OnText(const char16_t* p_p, size_t p_uLen) override;
  void OnEnd(const char16_t* p_szName, int p_iDepth) override;

 private:
  struct T_Open {    // an open element
    const char16_t* szName;
    const CTagInfo* pTag;
    const CMsgInfo* pInside;    // definition for the elements inside it; null: none are known
  };

  CMsgDic* m_pDic;
  int m_iMsgNum;              // the root's "no"
  bool m_bByName;             // elements are named by tag name
  int m_iCurrentTag;          // receives character data; an end tag does not reset it
  CMsg* m_pRootMsg;
  CMsg* m_pCurrentMsg;        // the message that the open elements belong to
  std::vector<T_Open> m_atOpen;

  void StartRoot(const char16_t* p_szName, callorv::detail::CXmlAttributes p_cAttrs);
  const CTagInfo& Resolve(const char16_t* p_szName, bool p_bStart) const;

  static inline std::atomic<unsigned> s_uParsed{0};
};

#endif
