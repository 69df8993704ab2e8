// The three text forms of a message.
#include <cstddef>
#include <memory_resource>
#include <vector>

#include "callorv/base/stream.h"
#include "msg/msg_ops.h"
#include "msg/text_out.h"

using namespace callorv::detail;

namespace {

// A tag that is being written.
struct T_Elem {
  const CTagInfo& cTag;
  bool bMulti;
  int iDepth;    // 1: a tag of the whole message
};

// The values of a plain cell in order: p_fn(row, value).
template <class F>
void ForEachValue(const CMsgValue& p_cCell, F p_fn) {
  const auto fnAll = [&p_fn](const auto* p_pArray) {
    for (int i = 0; p_pArray != nullptr && i < p_pArray->GetSize(); ++i) p_fn(i, p_pArray->GetAt(i));
  };
  const bool bMulti = p_cCell.m_bMulti;
  switch (p_cCell.m_eType) {
    case TAG_STRING:
      if (bMulti) fnAll(p_cCell.m_pStrArr);
      else if (p_cCell.m_pStr != nullptr) p_fn(0, *p_cCell.m_pStr);
      break;
    case TAG_INTEGER: bMulti ? fnAll(p_cCell.m_pIntArr) : p_fn(0, p_cCell.m_iVal); break;
    case TAG_DOUBLE: bMulti ? fnAll(p_cCell.m_pDblArr) : p_fn(0, p_cCell.m_dVal); break;
    case TAG_BOOL: bMulti ? fnAll(p_cCell.m_pBoolArr) : p_fn(0, p_cCell.m_bVal); break;
    default:    // a date: sub-messages are walked, and other types skipped
      if (bMulti) fnAll(p_cCell.m_pDateArr);
      else if (p_cCell.m_pDate != nullptr) p_fn(0, *p_cCell.m_pDate);
  }
}

// A place in the walk: a tag of a message and, in a sub-message tag, the row that comes next.
struct T_Place {
  const CMsg* pMsg;
  int iOrder = 0;
  int iRow = 0;
  const CMsgValue* pCell = nullptr;    // of the tag at iOrder once it was begun
  const CTagInfo* pTag = nullptr;
};

}    // namespace

// Visits the values of a message and its sub-messages, each in the dictionary's order; every form prints through it.
// Not recursive: an application may nest messages deeper than a thread's stack reaches.
// A FORM has  Head(msg) and Tail() at depth 1,  BadTag(tag number),  Value(elem, row, value),  EndValues(elem) after a
// plain tag's values,  OpenSub(elem, row, msg) and CloseSub(elem) around each sub-message.
struct CMsgWalk {
  template <class FORM>
  static void Run(const CMsg& p_cTop, int p_iDepth, FORM&& p_cForm) {
    if (p_iDepth == 1) p_cForm.Head(p_cTop);
    std::byte abNear[16 * sizeof(T_Place)];    // messages nested up to eight deep need no memory but this
    std::pmr::monotonic_buffer_resource cMemory(abNear, sizeof(abNear));
    std::pmr::vector<T_Place> aPlace(&cMemory);
    aPlace.push_back({&p_cTop});
    for (;;) {
      T_Place& tPlace = aPlace.back();
      const int iDepth = p_iDepth + static_cast<int>(aPlace.size()) - 1;
      const CMsg* pSub = nullptr;
      while (pSub == nullptr && Begin(tPlace, p_cForm)) {
        const T_Elem tElem{*tPlace.pTag, tPlace.pCell->m_bMulti, iDepth};
        if (tPlace.pCell->m_eType != TAG_SUBMSG) {
          ForEachValue(*tPlace.pCell, [&](int p_iRow, const auto& p_Value) { p_cForm.Value(tElem, p_iRow, p_Value); });
          p_cForm.EndValues(tElem);
          Next(tPlace);
        } else if ((pSub = NextRow(tPlace)) != nullptr) {
          p_cForm.OpenSub(tElem, tPlace.iRow - 1, *pSub);
        } else {
          Next(tPlace);
        }
      }
      if (pSub != nullptr) {
        aPlace.push_back({pSub});
        continue;
      }
      aPlace.pop_back();
      if (aPlace.empty()) break;
      const T_Place& tOuter = aPlace.back();
      p_cForm.CloseSub({*tOuter.pTag, tOuter.pCell->m_bMulti, iDepth - 1});
    }
    if (p_iDepth == 1) p_cForm.Tail();
  }

 private:
  // Goes on to the next tag that has a value, unless one is under way; false at the end.
  template <class FORM>
  static bool Begin(T_Place& p_tPlace, FORM& p_cForm) {
    const CMsgInfo* pMsgInfo = p_tPlace.pMsg->GetMsgInfo();
    const int iTags = pMsgInfo != nullptr ? pMsgInfo->GetNoTags() : 0;
    for (; p_tPlace.pCell == nullptr && p_tPlace.iOrder < iTags; ++p_tPlace.iOrder) {
      const int iTag = pMsgInfo->GetTagNumAt(p_tPlace.iOrder);
      if (iTag < 0) p_cForm.BadTag(iTag);
      const CMsgValue* pCell = CMsgOps::GetHashBag(*p_tPlace.pMsg, iTag);
      if (pCell == nullptr || !pCell->m_bSet || pCell->m_eType < TAG_STRING || pCell->m_eType > TAG_SUBMSG) continue;
      p_tPlace.pCell = pCell;
      p_tPlace.pTag = pMsgInfo->GetTagInfo(iTag);
      break;
    }
    return p_tPlace.pCell != nullptr;
  }
  static void Next(T_Place& p_tPlace) {
    p_tPlace.pCell = nullptr;
    p_tPlace.iRow = 0;
    ++p_tPlace.iOrder;
  }
  // The next sub-message of the tag, null after the last.
  static const CMsg* NextRow(T_Place& p_tPlace) {
    const CMsgValue& cCell = *p_tPlace.pCell;
    if (!cCell.m_bMulti) return p_tPlace.iRow++ == 0 ? cCell.m_pMsg : nullptr;
    const CMsg* pSub = nullptr;
    while (cCell.m_pMsgArr != nullptr && p_tPlace.iRow < cCell.m_pMsgArr->GetSize() && pSub == nullptr) {
      pSub = cCell.m_pMsgArr->GetAt(p_tPlace.iRow++);
    }
    return pSub;
  }
};

namespace {

// Values as every form prints them. Texts end at their first NUL, as "%s" prints them.
void PutValue(CTextOut& p_cOut, const CString& p_s) { p_cOut.PutText(p_s.ToStr()); }
void PutValue(CTextOut& p_cOut, const CDate& p_c) { p_cOut.PutText(p_c.ToStr()); }
void PutValue(CTextOut& p_cOut, int p_i) { p_cOut.PutNumber(p_i); }
void PutValue(CTextOut& p_cOut, double p_d) { p_cOut.PutNumber(p_d); }
void PutValue(CTextOut& p_cOut, bool p_b) {
  if (p_b) {
    p_cOut.Put("true");
  } else {
    p_cOut.Put("false");
  }
}

// As "%*s" with a width of twice the depth prints two blanks.
int Indent(int p_iDepth) { return std::max(2, 2 * std::abs(p_iDepth)); }

// ToXml and DumpXml: elements, on one line or on a line each.
class CXmlForm {
 public:
  CXmlForm(CStream& p_stOut, bool p_bReadable, bool p_bArrayPrefix, bool p_bByName)
      : m_cOut(p_stOut), m_bReadable(p_bReadable), m_bArrayPrefix(p_bArrayPrefix), m_bByName(p_bByName) {}

  void Head(const CMsg& p_cMsg) {
    if (m_bReadable) {
      m_cOut.Put("<?xml version='1.0' encoding='ISO-8859-1' ?>\n<msg no='");
      m_cOut.PutNumber(p_cMsg.GetMsgNum());
      m_cOut.PutText(m_bByName ? "' type='name' ver='" : "' type='index' ver='");
      m_cOut.PutText(p_cMsg.GetVer());
      m_cOut.Put("'>\n");
    } else {
      m_cOut.Put("<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><msg no=\"");
      m_cOut.PutNumber(p_cMsg.GetMsgNum());
      m_cOut.PutText(m_bByName ? "\" type=\"name\" ver=\"" : "\" ver=\"");
      m_cOut.PutText(p_cMsg.GetVer());
      m_cOut.Put("\">");
    }
  }
  void Tail() {
    m_cOut.Put("</msg>");
    EndLine();
  }
  void BadTag(int p_iTag) {
    if (!m_bReadable) return;
    m_cOut.Put("Error: (m_pMsgInfo->GetTagNumAt) failed(");
    m_cOut.PutNumber(p_iTag);
    m_cOut.Put(")\n");
  }
  template <class T>
  void Value(const T_Elem& p_tElem, int, const T& p_Value) {
    Open(p_tElem);
    PutElement(p_Value);
    Close(p_tElem);
  }
  void EndValues(const T_Elem&) {}
  void OpenSub(const T_Elem& p_tElem, int, const CMsg&) {
    Open(p_tElem);
    EndLine();
  }
  void CloseSub(const T_Elem& p_tElem) {
    StartLine(p_tElem);
    Close(p_tElem);
  }

 private:
  // From here on the wire form writes a string by its size; below, as "%s" prints it, up to its first NUL.
  enum { LONG_STRING = 900 };

  CTextOut m_cOut;
  const bool m_bReadable, m_bArrayPrefix, m_bByName;

  void StartLine(const T_Elem& p_tElem) {
    if (m_bReadable) m_cOut.PutBlanks(Indent(p_tElem.iDepth));
  }
  void EndLine() {
    if (m_bReadable) m_cOut.Put('\n');
  }
  void Name(const T_Elem& p_tElem) {
    if (m_bByName) {
      m_cOut.PutText(p_tElem.cTag.m_sName.ToStr());
      return;
    }
    m_cOut.Put(m_bArrayPrefix && p_tElem.bMulti ? 'a' : 't');
    m_cOut.PutNumber(p_tElem.cTag.m_iTagNum);
  }
  void Open(const T_Elem& p_tElem) {
    StartLine(p_tElem);
    m_cOut.Put('<');
    Name(p_tElem);
    m_cOut.Put('>');
  }
  void Close(const T_Elem& p_tElem) {
    m_cOut.Put("</");
    Name(p_tElem);
    m_cOut.Put('>');
    EndLine();
  }
  template <class T>
  void PutElement(const T& p_Value) {
    PutValue(m_cOut, p_Value);
  }
  void PutElement(const CString& p_s) {
    m_cOut.Put("<![CDATA[");
    if (!m_bReadable && p_s.GetSize() >= LONG_STRING) {
      m_cOut.Put(p_s);
    } else {
      PutValue(m_cOut, p_s);
    }
    m_cOut.Put("]]>");
  }
};

// Dump: a line for each tag or sub-message.
class CListForm {
 public:
  CListForm(CStream& p_stOut, bool p_bByName) : m_cOut(p_stOut), m_bByName(p_bByName) {}

  void Head(const CMsg& p_cMsg) {
    m_cOut.Put("Msg Dump ======================================\n  MsgNum : ");
    m_cOut.PutNumber(p_cMsg.GetMsgNum());
    m_cOut.Put("\n    Type : ");
    m_cOut.PutText(m_bByName ? "name" : "index");
    m_cOut.Put("\n     Ver : ");
    m_cOut.PutText(p_cMsg.GetVer());
    m_cOut.Put('\n');
  }
  void Tail() { m_cOut.Put("===============================================\n"); }
  void BadTag(int p_iTag) {
    m_cOut.Put("Error: (m_pMsgInfo->GetTagNumAt) failed(");
    m_cOut.PutNumber(p_iTag);
    m_cOut.Put(')');    // no line end here; programs that read listings know it so
  }
  template <class T>
  void Value(const T_Elem& p_tElem, int p_iRow, const T& p_Value) {
    if (p_iRow == 0) Label(p_tElem);
    m_cOut.Put(' ');
    PutValue(m_cOut, p_Value);
  }
  void EndValues(const T_Elem&) { m_cOut.Put('\n'); }
  void OpenSub(const T_Elem& p_tElem, int p_iRow, const CMsg& p_cSub) {
    Label(p_tElem);
    m_cOut.Put(" SUBMSG(");
    m_cOut.PutNumber(p_cSub.GetMsgNum());
    m_cOut.Put(')');
    if (p_tElem.bMulti) {
      m_cOut.Put(" row ");
      m_cOut.PutNumber(p_iRow);
    }
    m_cOut.Put('\n');
  }
  void CloseSub(const T_Elem&) {}

 private:
  CTextOut m_cOut;
  const bool m_bByName;

  void Label(const T_Elem& p_tElem) {
    m_cOut.PutBlanks(2 + Indent(p_tElem.iDepth));
    m_cOut.Put('[');
    m_cOut.PutNumber(p_tElem.cTag.m_iTagNum);
    m_cOut.Put("](");
    m_cOut.PutText(p_tElem.cTag.m_sName.ToStr());
    m_cOut.Put(')');
  }
};

}    // namespace

int CMsg::ToXml(CStream* p_pOut, bool p_bArrayPrefix, bool p_bByName, int p_iDepth) const {
  if (p_iDepth == 1) p_pOut->Clear();
  CMsgWalk::Run(*this, p_iDepth, CXmlForm(*p_pOut, false, p_bArrayPrefix, p_bByName));
  return 0;
}

void CMsg::DumpXml(CStream* p_pOut, bool p_bByName, int p_iDepth) const {
  CMsgWalk::Run(*this, p_iDepth, CXmlForm(*p_pOut, true, false, p_bByName));
}

void CMsg::Dump(CStream* p_pOut, bool p_bByName, int p_iDepth) const {
  CMsgWalk::Run(*this, p_iDepth, CListForm(*p_pOut, p_bByName));
}
