// The three text forms of a message.
#include "form/msg_writer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <vector>

#include "base/text_out.h"
#include "callorv/base/stream.h"
#include "form/own_form_reader.h"
#include "msg/cells.h"
#include "msg/prefetch.h"
#include "msg/value_traits.h"

using namespace callorv::detail;

namespace {

// A tag that is being written.
struct T_Elem {
  const CMsgInfo& cInfo;
  int iTag;
  bool bMulti;
  int iDepth;    // 1: a tag of the whole message

  const CTagInfo& Tag() const { return *cInfo.GetTagInfo(iTag); }
};

// The values of a plain cell in order: p_fn(row, value). False: its type is none.
template <class F>
bool ForEachValue(const CMsgValue& p_cCell, F p_fn) {
  return WithPlainType(p_cCell.m_eType, [&](auto p_tType) {
    if (!p_cCell.m_bMulti) {
      if (const auto* pValue = p_tType.Value(p_cCell)) p_fn(0, *pValue);
    } else if (const auto* pArray = p_cCell.*p_tType.pArrayOf) {
      for (int i = 0; i < pArray->GetSize(); ++i) p_fn(i, pArray->GetAt(i));
    }
  });
}

// Goes through a message and its sub-messages, each in the dictionary's order; every form is printed along it. Not
// recursive: an application may nest messages deeper than a thread's stack reaches.
class CMsgWalk {
 public:
  enum E_Step { BAD_TAG, VALUES, OPEN, CLOSE, END };

  // p_iDepth  of the message's own tags
  CMsgWalk(const CMsg& p_cTop, int p_iDepth) : m_iDepth(p_iDepth) {
    m_aPlace.reserve(NEAR);
    m_aPlace.push_back({&p_cTop});
  }

  // Goes on: to a tag number below 0, a plain tag that has values, a sub-message's beginning or end, or the end of all.
  [[gnu::always_inline]] E_Step Next() {
    if (m_eStep == OPEN) m_aPlace.push_back({m_pSub});
    return m_eStep = Seek(m_aPlace.back());
  }
  // Where it is now; of a sub-message, the tag that has it and its row there.
  int TagNum() const { return m_aPlace.back().pMsg->GetMsgInfo()->GetTagNumAt(m_aPlace.back().iOrder); }
  const CMsgValue& Cell() const { return *m_aPlace.back().pCell; }
  [[gnu::always_inline]] T_Elem Elem() const {
    const int iDepth = m_iDepth + static_cast<int>(m_aPlace.size()) - 1;
    return {*m_aPlace.back().pMsg->GetMsgInfo(), Cell().m_iTagNum, Cell().m_bMulti, iDepth};
  }
  int Row() const { return m_aPlace.back().iRow; }
  const CMsg& Sub() const { return *m_pSub; }    // after OPEN

 private:
  struct T_Place {
    const CMsg* pMsg;
    int iOrder = -1;                     // of the tag among the message's
    int iRow = -1;                       // of the sub-message in the tag
    const CMsgValue* pCell = nullptr;    // of the tag, if it has one that is printed
  };

  const int m_iDepth;
  E_Step m_eStep = CLOSE;
  const CMsg* m_pSub = nullptr;
  enum { NEAR = 8 };    // messages nested no deeper need no memory but this
  alignas(T_Place) std::byte m_abNear[NEAR * sizeof(T_Place)];
  std::pmr::monotonic_buffer_resource m_cMemory{m_abNear, sizeof(m_abNear)};
  std::pmr::vector<T_Place> m_aPlace{&m_cMemory};

  [[gnu::always_inline]] E_Step Seek(T_Place& p_tPlace) {
    if (m_eStep == CLOSE && p_tPlace.pCell != nullptr && NextRow(p_tPlace)) return OPEN;
    const CMsgInfo* pInfo = p_tPlace.pMsg->GetMsgInfo();
    const int iTags = pInfo != nullptr ? pInfo->GetNoTags() : 0;
    for (bool bTold = m_eStep == BAD_TAG; bTold || ++p_tPlace.iOrder < iTags; bTold = false) {
      const int iTag = pInfo->GetTagNumAt(p_tPlace.iOrder);
      if (iTag < 0 && !bTold) return BAD_TAG;
      const CMsgValue* pCell = CCells::GetHashBag(*p_tPlace.pMsg, iTag);
      if (pCell == nullptr || !pCell->m_bSet) continue;
      p_tPlace.pCell = pCell;
      p_tPlace.iRow = -1;
      if (pCell->m_eType != TAG_SUBMSG) return VALUES;
      if (NextRow(p_tPlace)) return OPEN;
    }
    m_aPlace.pop_back();
    return m_aPlace.empty() ? END : CLOSE;
  }
  // The next sub-message of the tag becomes m_pSub; false after the last.
  bool NextRow(T_Place& p_tPlace) {
    const CMsgValue& cCell = *p_tPlace.pCell;
    if (!cCell.m_bMulti) {
      m_pSub = cCell.m_pMsg;
      return ++p_tPlace.iRow == 0 && IsWritten();
    }
    if (cCell.m_pMsgArr == nullptr) return false;
    CPrefetch::Row(*cCell.m_pMsgArr, p_tPlace.iRow + 1 + 2 * CPrefetch::ROWS_AHEAD);
    CPrefetch::Cells(*cCell.m_pMsgArr, p_tPlace.iRow + 1 + CPrefetch::ROWS_AHEAD);
    while (++p_tPlace.iRow < cCell.m_pMsgArr->GetSize()) {
      m_pSub = cCell.m_pMsgArr->GetAt(p_tPlace.iRow);
      if (IsWritten()) return true;
    }
    return false;
  }
  bool IsWritten() const { return m_pSub != nullptr && !CCells::IsVacant(*m_pSub); }
};

// A FORM has  Head(msg) and Tail() around a message at depth 1,  BadTag(tag number),  Value(elem, row, value),
// EndValues(elem) after a plain tag's values,  OpenSub(elem, row, msg) and CloseSub(elem) around each sub-message.
template <class FORM>
void Write(const CMsg& p_cMsg, int p_iDepth, FORM&& p_cForm) {
  if (p_iDepth == 1) p_cForm.Head(p_cMsg);
  for (CMsgWalk cWalk(p_cMsg, p_iDepth);;) {
    switch (cWalk.Next()) {
      case CMsgWalk::BAD_TAG: p_cForm.BadTag(cWalk.TagNum()); break;
      case CMsgWalk::VALUES: {
        const T_Elem tElem = cWalk.Elem();
        const auto fnValue = [&](int p_iRow, const auto& p_Value) { p_cForm.Value(tElem, p_iRow, p_Value); };
        if (ForEachValue(cWalk.Cell(), fnValue)) p_cForm.EndValues(tElem);
        break;
      }
      case CMsgWalk::OPEN: p_cForm.OpenSub(cWalk.Elem(), cWalk.Row(), cWalk.Sub()); break;
      case CMsgWalk::CLOSE: p_cForm.CloseSub(cWalk.Elem()); break;
      case CMsgWalk::END:
        if (p_iDepth == 1) p_cForm.Tail();
        return;
    }
  }
}

// Values as every form prints them: at most MaxChars from p_p on; returns the end. Texts end at their first NUL, as
// "%s" prints them.
size_t MaxChars(const CString& p_s) { return static_cast<size_t>(p_s.GetSize()); }
size_t MaxChars(const CDate& p_c) { return sizeof(p_c.m_szDate); }
size_t MaxChars(int) { return INT_CHARS; }
size_t MaxChars(double) { return DOUBLE_CHARS; }
size_t MaxChars(bool) { return sizeof("false"); }
char* Print(char* p_p, const CString& p_s) { return CTextOut::Copy(p_p, p_s.ToStr(), strlen(p_s.ToStr())); }
char* Print(char* p_p, const CDate& p_c) { return CTextOut::Copy(p_p, p_c.ToStr(), strlen(p_c.ToStr())); }
char* Print(char* p_p, int p_i) { return FormatInt(p_p, p_i); }
char* Print(char* p_p, double p_d) { return FormatDouble(p_p, p_d); }
char* Print(char* p_p, bool p_b) { return p_b ? CTextOut::Copy(p_p, "true") : CTextOut::Copy(p_p, "false"); }

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
      m_cOut.Put(XML_DECLARATION);
      m_cOut.Put("<msg no=\"");
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
    const T_Name tName = Name(p_tElem);
    StartLine(p_tElem);
    char* p = m_cOut.Begin(2 * tName.Room() + MARKS + MaxChars(p_Value));
    p = PrintValue(Open(p, tName), p_Value);
    m_cOut.End(Close(p, tName));
    EndLine();
  }
  void EndValues(const T_Elem&) {}
  void OpenSub(const T_Elem& p_tElem, int, const CMsg&) { PutMark(p_tElem, Open); }
  void CloseSub(const T_Elem& p_tElem) { PutMark(p_tElem, Close); }

 private:
  // From here on the wire form writes a string by its size; below, as "%s" prints it, up to its first NUL.
  enum { LONG_STRING = 900 };
  // What stands around names and value at most.
  static constexpr size_t MARKS = sizeof("<></><![CDATA[]]>");

  // What stands between '<' and '>': a name of the dictionary, or a letter and the tag's number.
  struct T_Name {
    const char* p;    // null: the number
    size_t uLen;
    char cLetter;
    int iTag;

    size_t Room() const { return p != nullptr ? uLen : 1 + INT_CHARS; }
    char* Put(char* p_p) const {
      if (p != nullptr) return CTextOut::Copy(p_p, p, uLen);
      *p_p++ = cLetter;
      return FormatInt(p_p, iTag);
    }
  };

  CTextOut m_cOut;
  const bool m_bReadable, m_bArrayPrefix, m_bByName;

  void StartLine(const T_Elem& p_tElem) {
    if (m_bReadable) m_cOut.PutBlanks(Indent(p_tElem.iDepth));
  }
  void EndLine() {
    if (m_bReadable) m_cOut.Put('\n');
  }
  template <class F>
  void PutMark(const T_Elem& p_tElem, F p_fnMark) {
    const T_Name tName = Name(p_tElem);
    StartLine(p_tElem);
    m_cOut.End(p_fnMark(m_cOut.Begin(tName.Room() + MARKS), tName));
    EndLine();
  }
  T_Name Name(const T_Elem& p_tElem) const {
    if (!m_bByName) return {nullptr, 0, m_bArrayPrefix && p_tElem.bMulti ? 'a' : 't', p_tElem.iTag};
    const CString& sName = p_tElem.Tag().m_sName;
    return {sName.ToStr(), static_cast<size_t>(sName.GetSize()), 0, 0};
  }
  static char* Open(char* p_p, const T_Name& p_tName) {
    *p_p++ = '<';
    p_p = p_tName.Put(p_p);
    *p_p++ = '>';
    return p_p;
  }
  static char* Close(char* p_p, const T_Name& p_tName) {
    p_p = p_tName.Put(CTextOut::Copy(p_p, "</"));
    *p_p++ = '>';
    return p_p;
  }
  template <class T>
  char* PrintValue(char* p_p, const T& p_Value) const {
    return Print(p_p, p_Value);
  }
  char* PrintValue(char* p_p, const CString& p_s) const {
    p_p = CTextOut::Copy(p_p, "<![CDATA[");
    const bool bBySize = !m_bReadable && p_s.GetSize() >= LONG_STRING;
    p_p = bBySize ? CTextOut::Copy(p_p, p_s.ToStr(), MaxChars(p_s)) : Print(p_p, p_s);
    return CTextOut::Copy(p_p, "]]>");
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
    m_cOut.End(Print(m_cOut.Begin(MaxChars(p_Value)), p_Value));
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
    m_cOut.PutNumber(p_tElem.iTag);
    m_cOut.Put("](");
    m_cOut.PutText(p_tElem.Tag().m_sName.ToStr());
    m_cOut.Put(')');
  }
};

}    // namespace

void callorv::detail::AppendXml(const CMsg& p_cMsg, CStream& p_stOut) {
  Write(p_cMsg, 1, CXmlForm(p_stOut, false, false, false));
}

int CMsg::ToXml(CStream* p_pOut, bool p_bArrayPrefix, bool p_bByName, int p_iDepth) const {
  if (p_iDepth == 1) p_pOut->Clear();
  Write(*this, p_iDepth, CXmlForm(*p_pOut, false, p_bArrayPrefix, p_bByName));
  return 0;
}

void CMsg::DumpXml(CStream* p_pOut, bool p_bByName, int p_iDepth) const {
  Write(*this, p_iDepth, CXmlForm(*p_pOut, true, false, p_bByName));
}

void CMsg::Dump(CStream* p_pOut, bool p_bByName, int p_iDepth) const {
  Write(*this, p_iDepth, CListForm(*p_pOut, p_bByName));
}
