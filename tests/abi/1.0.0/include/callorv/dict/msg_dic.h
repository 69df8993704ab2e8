// The message dictionary: every message definition of the process.
#ifndef CALLORV_DICT_MSG_DIC_H
#define CALLORV_DICT_MSG_DIC_H

#include "callorv/base/str.h"
#include "callorv/dict/msg_info.h"
#include "callorv/error/error.h"

// Definitions of messages 1 to 9999. Filled by one thread; afterwards any number of threads may look up.
class CALLORV_API CMsgDic : public CLastError {
 public:
  enum { SLOTS = 10000 };    // by message number; slot 0 stays empty

  // Set once any dictionary has been loaded without error. For callers; the library does not read it.
  static bool m_bLoaded;

  constexpr CMsgDic() noexcept : m_apMsg(), m_iParserInits(0), m_pArena(nullptr) {}
  // Frees every definition and gives back each initialisation of the XML parser that InitDictionary made.
  ~CMsgDic();

  // The definition, or null when p_iMsgNum is outside 1 to 9999 or not defined. Borrowed: lives as long as this
  // dictionary. Never throws.
  CMsgInfo* GetMsgInfo(int p_iMsgNum) const {
    return p_iMsgNum >= 1 && p_iMsgNum < SLOTS ? m_apMsg[p_iMsgNum] : nullptr;
  }

  // Defines a message. p_sHash is the modulus of its tag hash as text, 1 to 128; anything else counts as 128. Throws
  // CException, in this order, or std::bad_alloc when there is no memory for that:
  //   -15 "msgnum=%d"              p_iMsgNum is outside 1 to 9999
  //   -22 "msgnum=%d,msgname=%s"   the number is taken; the old definition stays
  //   -11 "(CMsgInfo)"             no memory
  void SetMsgInfo(int p_iMsgNum, const CString& p_sName, const CString& p_sVer, const CString& p_sHash);

  // Defines a tag of a defined message.
  //   p_sType   "string", "integer", "double", "bool", "date", or "m" and the number of the sub-message
  //   p_sArray  "Y" for a tag that may repeat, anything else for a single one
  // Throws CException, in this order, or std::bad_alloc when there is no memory for that:
  //   -15 "msgnum=%d"              p_iMsgNum is outside 1 to 9999
  //   -19 "msgnum=%d"              no such message
  //   -14 "msgnum=%d,tagnum=%d"    p_iTagNum is negative
  //   -16 "submsg=%s"              the sub-message's number is outside 1 to 9999 (it need not be defined)
  //   -17 "tagtype=%s"             no such type
  //   -11 "(CTagInfo)"             no memory
  void SetMsgDetail(int p_iMsgNum, int p_iTagNum, const CString& p_sName, const CString& p_sType,
                    const CString& p_sArray);

  // Appends every definition in ascending message number, each with its tag lines and an empty line behind, to p_pOut
  // (not null). Throws std::bad_alloc.
  void Dump(CStream* p_pOut) const;

  // Fills this dictionary from a file: XML, or, for a name that ends in ".exml", the same encrypted with SEED.
  // p_szPath always names a local file, whatever it looks like; a DOCTYPE is accepted, but nothing that it refers to
  // is ever opened, it may declare no parameter entity, no entity of more than 1,024 characters, no more than that of
  // attribute defaults and no more than 1,024 attributes, and at most 10,000 entity references are expanded. More than
  // 1,024 open elements are refused.
  // Throws CException, or std::bad_alloc when there is no memory for that; what was defined before the failure stays.
  // Code and text:
  //   -12 "MsgDic Path"            null path
  //   -26 the parser's message     the XML parser cannot be initialised
  //   otherwise "InitDictionary(%s)" around
  //     -36 "Handler error : %s"               the encrypted file cannot be decrypted
  //     -21 "Handler error : [F]%s (L:%d, C:%d) : %s"  file missing, unreadable or malformed ([E] error, [W] warning)
  //     -21 "Handler error : Unknown root element - %s", "... Unknown element - %s", "... Unknown child element - %s"
  //     "Handler error : %s" with the code and text of SetMsgInfo or SetMsgDetail
  //     -11 "XMLParser out of memory",  -21 "XMLParser internal error : %s" or "... : %d"
  void InitDictionary(const char* p_szPath);

 private:
  CMsgInfo* m_apMsg[SLOTS];
  int m_iParserInits;    // how often this dictionary initialised the parser
  callorv::detail::CArena* m_pArena;    // where the tags' definitions stand; null in an empty dictionary
};

// The one dictionary of the process. Never null. It is destroyed when the library is unloaded and must outlive
// every message.
CALLORV_API CMsgDic* MA_GetMsgDic();

#endif
