// Reads messages of the form that CMsg::ToXml writes: in one pass, without the parser, which takes ten times as long.
#include "form/own_form_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

#include "base/number.h"
#include "callorv/base/exception.h"
#include "msg/access.h"
#include "msg/cells.h"
#include "msg/owner.h"

namespace callorv::detail {

namespace {

// Limits of the form. What is beyond them is the parser's.
enum {
  MAX_NESTING = 64,          // sub-messages inside each other
  MAX_DIGITS = 9,            // of a number that names a message or a tag
  MAX_NAME = 63,             // of a tag
  MAX_PLAIN_TEXT = 1000000   // outside CDATA; the parser divides texts from 1,048,576 characters on
};

// What a byte may be part of.
enum : uint8_t { IN_SECTION = 1, IN_TEXT = 2, IN_VERSION = 4, IN_NAME = 8 };
struct T_Bytes {
  uint8_t abUse[256] = {};
  constexpr T_Bytes() {
    for (int c = 0; c < 256; ++c) {
      const bool bLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
      const bool bMarkup = c == '<' || c == '&', bInside = (c >= ' ' && c != ']') || c == '\t' || c == '\n';
      if (bInside) abUse[c] |= IN_SECTION;
      if (bInside && !bMarkup) abUse[c] |= IN_TEXT;
      if (c >= ' ' && c != '"' && !bMarkup) abUse[c] |= IN_VERSION;
      if (bLetter || (c >= '0' && c <= '9') || c == '-' || c == '.') abUse[c] |= IN_NAME;
    }
  }
};
constexpr T_Bytes s_tBytes;

// Every function that gives a bool or a pointer gives false or null where the text is not of the form.
class CScanner {
 public:
  CScanner(CMsg& p_cMsg, const char* p_szXml) : m_cMsg(p_cMsg), m_p(p_szXml), m_pEnd(p_szXml + strlen(p_szXml)) {}

  bool Read() {
    if (!ReadRoot()) return false;
    const COwner::T_Trial tTrial = COwner::BeginRead(m_cMsg);
    const bool bGood = ReadAll();
    COwner::EndRead(m_cMsg, tTrial, bGood);
    return bGood;
  }

 private:
  CMsg& m_cMsg;
  const char* m_p;    // what comes next
  const char* m_pEnd;    // the text's NUL, which is no part of any form
  bool m_bByName = false;

  // Goes behind a text if that comes next.
  bool Take(std::string_view p_sv) {
    if (static_cast<size_t>(m_pEnd - m_p) < p_sv.size() || memcmp(m_p, p_sv.data(), p_sv.size()) != 0) return false;
    m_p += p_sv.size();
    return true;
  }
  // The bytes that come next and are in that.
  std::string_view TakeAll(uint8_t p_uIn) {
    const char* pFirst = m_p;
    while ((s_tBytes.abUse[static_cast<unsigned char>(*m_p)] & p_uIn) != 0) ++m_p;
    return {pFirst, static_cast<size_t>(m_p - pFirst)};
  }
  bool TakeNumber(int& p_iOut) {
    const char* pFirst = m_p;
    for (p_iOut = 0; IsDigit(*m_p) && m_p < pFirst + MAX_DIGITS; ++m_p) p_iOut = p_iOut * 10 + (*m_p - '0');
    return m_p > pFirst;
  }

  bool ReadRoot() {
    int iMsg = 0;
    if (!Take(XML_DECLARATION) || !Take("<msg no=\"") || !TakeNumber(iMsg) || !Take("\"")) return false;
    m_bByName = Take(" type=\"name\"");
    if (!Take(" ver=\"")) return false;
    const std::string_view svVer = TakeAll(IN_VERSION);
    if (!Take("\">") || !CAccess::IsDefined(m_cMsg, iMsg)) return false;
    CString sVer;
    sVer.Set(svVer.data(), TextLen(svVer.size()));
    m_cMsg.Init(iMsg, 0, 0);
    m_cMsg.SetVer(sVer);
    return true;
  }

  // What stands inside the root element and behind it. Memory that is short is the parser's to report.
  bool ReadAll() try {
    struct T_Open {
      CMsg* pMsg;
      const char* pName;
      size_t uName;
    };
    T_Open atOpen[MAX_NESTING + 1];    // left as it is but for those that are used: as a rule two
    atOpen[0] = {&m_cMsg, "msg", 3};
    for (T_Open* pOpen = atOpen;;) {
      if (!Take("<")) return false;
      if (Take("/")) {
        if (!Take({pOpen->pName, pOpen->uName}) || !Take(">")) return false;
        if (pOpen == atOpen) return m_p == m_pEnd;
        --pOpen;
        continue;
      }
      const char* pName = m_p;
      const CTagInfo* pTag = TakeTag(*pOpen->pMsg);
      const std::string_view svName(pName, static_cast<size_t>(m_p - pName));
      if (pTag == nullptr || !Take(">")) return false;
      if (pTag->m_eType != TAG_SUBMSG) {
        if (!ReadValue(*pOpen->pMsg, *pTag) || !Take("</") || !Take(svName) || !Take(">")) return false;
      } else {
        if (pOpen == atOpen + MAX_NESTING || !CAccess::IsDefined(m_cMsg, pTag->m_iSubMsg)) return false;
        CMsg* pSub = COwner::MakeSub(*pOpen->pMsg, pTag->m_iTagNum);
        *++pOpen = {pSub, svName.data(), svName.size()};
      }
    }
  } catch (const CException&) {
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }

  // The tag that the next name stands for. A name that the dictionary has need not be one that XML allows.
  const CTagInfo* TakeTag(const CMsg& p_cMsg) {
    int iTag = 0;
    if (m_bByName) {
      char szName[MAX_NAME + 1];
      const bool bDigit = IsDigit(*m_p) || *m_p == '-' || *m_p == '.';
      const std::string_view svName = TakeAll(IN_NAME);
      if (bDigit || svName.empty() || svName.size() > MAX_NAME) return nullptr;
      *std::copy(svName.begin(), svName.end(), szName) = 0;
      iTag = p_cMsg.GetMsgInfo()->GetTagNumByName(szName);
    } else {
      if (*m_p != 't' && *m_p != 'a') return nullptr;
      ++m_p;
      if (!TakeNumber(iTag)) return nullptr;
    }
    return CCells::FindTag(p_cMsg, iTag);
  }

  bool ReadValue(CMsg& p_cMsg, const CTagInfo& p_cTag) {
    std::string_view svText;
    if (Take("<![CDATA[")) {
      if (!TakeSection(svText)) return false;
    } else {
      svText = TakeAll(IN_TEXT);
      if (svText.size() > MAX_PLAIN_TEXT) return false;
    }
    svText = Trimmed(svText);
    if (!svText.empty()) CAccess::StoreText(p_cMsg, p_cTag, svText.data(), TextLen(svText.size()));
    return true;
  }

  bool TakeSection(std::string_view& p_svOut) {
    const char* pFirst = m_p;
    for (;; ++m_p) {    // behind a bracket that does not end it
      TakeAll(IN_SECTION);
      p_svOut = {pFirst, static_cast<size_t>(m_p - pFirst)};
      if (Take("]]>")) return true;
      if (*m_p != ']') return false;
    }
  }
};

}    // namespace

bool ReadOwnForm(CMsg& p_cMsg, const char* p_szXml) try {
  return CScanner(p_cMsg, p_szXml).Read();
} catch (const std::bad_alloc&) {    // by the message's new beginning, which has then not changed it
  return false;
}

}    // namespace callorv::detail
