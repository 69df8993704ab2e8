// One typed message: the request or reply of a service, or a sub-message inside another.
#ifndef CALLORV_MSG_MSG_H
#define CALLORV_MSG_MSG_H

#include <climits>
#include <type_traits>

#include "callorv/base/array.h"
#include "callorv/base/date.h"
#include "callorv/base/str.h"
#include "callorv/dict/msg_dic.h"
#include "callorv/error/error.h"
#include "callorv/msg/msg_array.h"
#include "callorv/msg/nullable.h"

class CStream;
struct CMsgValue;    // the cell that holds one tag's value; private
namespace callorv {
namespace detail {
class CArena;
struct CAccess;
struct CCells;
struct COwner;
struct CPrefetch;
struct T_MsgExtra;
}
}    // namespace callorv

namespace callorv {
namespace detail {

// What getters put their values into.
template <class T, class... OTHERS>
struct T_IsOneOf : std::false_type {};
template <class T, class FIRST, class... OTHERS>
struct T_IsOneOf<T, FIRST, OTHERS...>
    : std::integral_constant<bool, std::is_same<T, FIRST>::value || T_IsOneOf<T, OTHERS...>::value> {};
template <class T>
using T_IsOutput = T_IsOneOf<T, CString, int, double, bool, CDate, CInt, CDbl, CBool, CMsg*, CStrArray, CIntArray,
                             CDblArray, CBoolArray, CDateArray, CMsgArray>;

// What a setter does not take for another type without a word: every pointer is a bool to the compiler.
template <class T>
struct T_IsOddPointer
    : std::integral_constant<bool, !std::is_same<typename std::remove_const<T>::type, char>::value &&
                                       !std::is_convertible<T*, CMsg*>::value> {};

}    // namespace detail
}    // namespace callorv

// A message has a number; the dictionary says which tags a message of that number has, with each tag's number, name,
// type, and whether it is a multi tag (an array). Values are set and read by tag number or by tag name.
//
// Results: 0, or a negative code whose text is then in GetLastError(). A failure changes no stored value. Types are
// never converted. Every operation with a tag number checks in this order, the detail in the text following the code:
//   setters   -19 "msgnum=%d, tagnum=%d"   the message has no definition yet
//             -18 the same                 the tag is negative, or not defined in this message
//             -17 "Line:%d, tagnum=%d,type=(%s/%s)"   the tag has another type: the tag's type / the one passed
//             -11 "new %s failed"          no memory; the tag may stay without a value
//   getters   -12 ""                       null output
//             -19, -18                     as above
//             -1  "tagnum=%d"              the tag has no value
//             -17 as above                 the value has another type: the value's type / the one asked for
//             -1  "tagnum=%d,Unset"        an earlier setter found no memory
//             -1  "tagnum=%d,NULL"         the same, for what is held by pointer
// Each has a twin whose first argument is the tag's name: -19 "msgnum=%d" when the message has no definition, then as
// by number; an unknown name counts as tag -1 and so ends as -18.
// When there is not even memory for the error text, CException (-11) is thrown, or std::bad_alloc when there is none
// for that either; getters of texts and arrays throw std::bad_alloc when their output cannot grow.
//
// Use a message, with its sub-messages, from one thread at a time, reading through a const CMsg& included, as a failure
// leaves its text; distinct messages are independent.
class CALLORV_API CMsg : public CLastError {
  template <bool CONDITION>
  using IntIf = typename std::enable_if<CONDITION, int>::type;
  template <class CHAR>    // int for const char, nothing for char
  using IntIfConst = IntIf<std::is_same<CHAR, const char>::value>;
  template <class CHAR, class T>    // int for a name and an output
  using IntIfRead = IntIf<std::is_same<typename std::remove_const<CHAR>::type, char>::value &&
                          callorv::detail::T_IsOutput<T>::value>;

 public:
  enum { SLOTS = 128, VER_SIZE = 17 };

  // p_iMsgNum     1 to 9999; below 1: a message without a definition, to be filled by LoadXml or Init
  // p_iRootNum    number of the outermost message that this one belongs to; below 1: p_iMsgNum
  // p_iParentTag  the tag under which it will sit in its parent; 0 for a top-level message
  // p_pDic        borrowed, must outlive the message
  // Throws CException: -12 "CMsg: Parameter is NULL" for a null dictionary; then as Init.
  CMsg(int p_iMsgNum, int p_iRootNum, int p_iParentTag, CMsgDic* p_pDic);
  // Frees the values with every sub-message, however deep. A message that the application made takes itself out of the
  // one in which it stands, in constant time: its single tag is then without a value, its row null, and the other rows
  // keep their indexes.
  ~CMsg();

  // Gives the message its number and definition; it then has no values. Values that it had before cannot be reached
  // any more, but pointers to their sub-messages stay valid until the message is destroyed: so their memory is kept as
  // long, and a message that is filled again and again grows each time. Throws CException: -15 "1.msgnum=%d" (p_iMsgNum
  // outside 1 to 9999), -15 "2.msgnum=%d" (the root outside it), -19 "3.msgnum=%d" (not in the dictionary);
  // std::bad_alloc. The message is then unchanged.
  void Init(int p_iMsgNum, int p_iRootNum, int p_iParentTag);
  // Frees every value and sub-message: the message is as new, with its number, root number and parent tag. Version and
  // last error are empty, and every pointer that was borrowed from it ends. One that stands in another message keeps
  // its place there and is counted as before, but the text forms leave it out until something is stored in it. Up to
  // 256 KB of its memory stay with the message, so that it can receive any number of replies without growing.
  void Clear();

  int GetMsgNum() const { return m_iMsgNum; }          // 0: no definition yet
  int GetRootNum() const { return m_iRootNum; }        // as Init took it, or of the message that took this one
  int GetParentTag() const { return m_iParentTag; }    // as Init took it
  bool IsEmpty() const { return m_bEmpty; }            // no value was ever stored
  // Borrowed; null for one that stands in no other, and after an Init (or LoadXml) of its own, which leaves it in its
  // place.
  CMsg* GetParent() const { return m_pParent; }
  const CMsgInfo* GetMsgInfo() const { return m_pMsgInfo; }    // borrowed; null: no definition yet
  // Text of the root element's "ver" attribute.
  const char* GetVer() const { return m_szVer; }
  // Keeps the first 16 characters and returns the field.
  char* SetVer(const CString& p_sVer);

  // ---- scalars. On a multi tag a setter appends one element, and a getter gives the first.
  int SetValue(int p_iTag, int p_iValue);
  int SetValue(int p_iTag, double p_dValue);
  int SetValue(int p_iTag, bool p_bValue);
  // Null and "" are ignored: 0 at once, nothing is checked.
  int SetValue(int p_iTag, const char* p_szValue);
  // An unset value is ignored: 0 at once, nothing is checked.
  int SetValue(int p_iTag, CDate p_cValue);
  int SetValue(int p_iTag, CInt p_cValue);
  int SetValue(int p_iTag, CDbl p_cValue);
  int SetValue(int p_iTag, CBool p_cValue);
  // As the C text, up to its first NUL.
  int SetValue(int p_iTag, const CString& p_sValue) { return SetValue(p_iTag, p_sValue.ToStr()); }
  // As an int, checked last: -28 "tagnum=%d" for a value that has no place in one. Other integers that are wider than
  // an int come here, too.
  int SetValue(int p_iTag, long long p_iValue);
  int SetValue(int p_iTag, unsigned p_Value) { return SetValue(p_iTag, Widened(p_Value)); }
  int SetValue(int p_iTag, long p_Value) { return SetValue(p_iTag, Widened(p_Value)); }
  int SetValue(int p_iTag, unsigned long p_Value) { return SetValue(p_iTag, Widened(p_Value)); }
  int SetValue(int p_iTag, unsigned long long p_Value) { return SetValue(p_iTag, Widened(p_Value)); }
  // Would be a bool. A const CMsg cannot be taken.
  template <class T>
  IntIf<callorv::detail::T_IsOddPointer<T>::value> SetValue(int p_iTag, T* p_p) = delete;

  // The output is set to 0, false or unset before the checks, except a CString and a CDate, which a failure
  // leaves as they were.
  int GetValue(int p_iTag, CString* p_psOut);
  int GetValue(int p_iTag, int* p_piOut);
  int GetValue(int p_iTag, double* p_pdOut);
  int GetValue(int p_iTag, bool* p_pbOut);
  int GetValue(int p_iTag, CDate* p_pcOut);
  int GetValue(int p_iTag, CInt* p_pcOut);
  int GetValue(int p_iTag, CDbl* p_pcOut);
  int GetValue(int p_iTag, CBool* p_pcOut);

  // ---- whole arrays. The output is emptied, then receives every element (the one value of a single tag).
  int GetValue(int p_iTag, CStrArray* p_pOut);
  int GetValue(int p_iTag, CIntArray* p_pOut);
  int GetValue(int p_iTag, CDblArray* p_pOut);
  int GetValue(int p_iTag, CBoolArray* p_pOut);
  int GetValue(int p_iTag, CDateArray* p_pOut);
  // The rows are borrowed until this message is cleared or destroyed, a row that the application freed is null; p_pOut
  // no longer adopts.
  int GetValue(int p_iTag, CMsgArray* p_pOut);

  // ---- one element. A single tag gives its value for any index. An index outside the array returns -27, while
  // the text says code -1 with "tagnum=%d". The output is cleared first (a CString and a CDate are not).
  int GetValueAt(int p_iTag, int p_iIndex, CString* p_psOut);
  int GetValueAt(int p_iTag, int p_iIndex, int* p_piOut);
  int GetValueAt(int p_iTag, int p_iIndex, double* p_pdOut);
  int GetValueAt(int p_iTag, int p_iIndex, bool* p_pbOut);
  int GetValueAt(int p_iTag, int p_iIndex, CDate* p_pcOut);
  int GetValueAt(int p_iTag, int p_iIndex, CMsg** p_ppOut);    // borrowed, null for a freed row, as in whole arrays

  // Number of values of a tag (1 for a set single tag), or -19, -18, -1, -17.
  int GetArrSize(int p_iTag);

  // ---- sub-messages
  // The message's own new sub-message under a TAG_SUBMSG: the next row of a multi tag, or the one of a single tag,
  // which is made when there is none (whoever stored it). It stands in this message's memory, is borrowed until this
  // message is cleared or destroyed, and there is nothing to hand over or to free. It has its place from now on:
  // GetArrSize counts it, and row i stays row i. While nothing is stored in it or below, the text forms leave it out
  // and this message stays empty.
  //   returns  0; -12 for a null output; -19, -18, -17 and -11 as setters; -15 "1.msgnum=%d" or -19 "3.msgnum=%d" when
  //            the dictionary does not have the sub-message. A failure leaves no row and no value behind.
  int NewSub(int p_iTag, CMsg** p_ppOut);
  CMsg* NewSub(int p_iTag);    // null on any failure
  CMsg* NewSub(const char* p_szName);

  // Stores a message that the application made under a TAG_SUBMSG, appending when it is a multi tag; NewSub is simpler
  // and faster. -12 for null. An empty p_pSub is freed, 0 is returned and nothing stored. On 0 p_pSub is taken: this
  // message frees it, unless the application does so before (see ~CMsg). On a negative code or an exception it is the
  // caller's to free, before or after this message, and untouched; but after -11 with the detail "tagnum=%d,msgnum=%d"
  // (no memory for the list of AddChild) it stands here all the same, and leaves when it or this message is freed. A
  // p_pSub that stands in another place already, or contains this message, is refused with -28 (detail
  // "tagnum=%d,msgnum=%d"), as it would be freed twice; one that stands in this single tag stays there, with 0. Another
  // one that stood in this single tag is replaced: it has no parent any more, and the application frees it or stores it
  // elsewhere. (One that this message made stays in its memory and goes with it.) Takes constant time; when p_pSub has
  // sub-messages, about as long as the shorter of two ways: up from this message, or through all that stands in p_pSub.
  int SetValue(int p_iTag, CMsg* p_pSub);
  // The (first) sub-message, borrowed until this message is cleared or destroyed; null with 0 when an array has no
  // rows, or when its first was freed.
  int GetValue(int p_iTag, CMsg** p_ppOut);
  CMsg* GetValue(int p_iTag);    // null on any failure
  // Adds p_pSub to the list of sub-messages that this message was given, which owns none of them and has all of them
  // until Init or Clear, replaced and freed ones, too. 0, -11 or -12, without a text.
  int AddChild(CMsg* p_pSub);

  // ---- the same by tag name
  int SetValue(char* p_szName, int p_iValue);
  int SetValue(char* p_szName, double p_dValue);
  int SetValue(char* p_szName, bool p_bValue);
  int SetValue(char* p_szName, const char* p_szValue);
  int SetValue(char* p_szName, CDate p_cValue);
  int SetValue(char* p_szName, CInt p_cValue);
  int SetValue(char* p_szName, CDbl p_cValue);
  int SetValue(char* p_szName, CBool p_cValue);
  int SetValue(char* p_szName, const CString& p_sValue) { return SetValue(p_szName, p_sValue.ToStr()); }
  int SetValue(char* p_szName, long long p_iValue);
  int SetValue(char* p_szName, unsigned p_Value) { return SetValue(p_szName, Widened(p_Value)); }
  int SetValue(char* p_szName, long p_Value) { return SetValue(p_szName, Widened(p_Value)); }
  int SetValue(char* p_szName, unsigned long p_Value) { return SetValue(p_szName, Widened(p_Value)); }
  int SetValue(char* p_szName, unsigned long long p_Value) { return SetValue(p_szName, Widened(p_Value)); }
  template <class T>
  IntIf<callorv::detail::T_IsOddPointer<T>::value> SetValue(char* p_szName, T* p_p) = delete;
  int SetValue(char* p_szName, CMsg* p_pSub);
  int GetValue(char* p_szName, CString* p_psOut);
  int GetValue(char* p_szName, int* p_piOut);
  int GetValue(char* p_szName, double* p_pdOut);
  int GetValue(char* p_szName, bool* p_pbOut);
  int GetValue(char* p_szName, CDate* p_pcOut);
  int GetValue(char* p_szName, CInt* p_pcOut);
  int GetValue(char* p_szName, CDbl* p_pcOut);
  int GetValue(char* p_szName, CBool* p_pcOut);
  int GetValue(char* p_szName, CStrArray* p_pOut);
  int GetValue(char* p_szName, CIntArray* p_pOut);
  int GetValue(char* p_szName, CDblArray* p_pOut);
  int GetValue(char* p_szName, CBoolArray* p_pOut);
  int GetValue(char* p_szName, CDateArray* p_pOut);
  int GetValue(char* p_szName, CMsgArray* p_pOut);
  int GetValue(char* p_szName, CMsg** p_ppOut);
  CMsg* GetValue(char* p_szName);
  int GetValueAt(char* p_szName, int p_iIndex, CString* p_psOut);
  int GetValueAt(char* p_szName, int p_iIndex, int* p_piOut);
  int GetValueAt(char* p_szName, int p_iIndex, double* p_pdOut);
  int GetValueAt(char* p_szName, int p_iIndex, bool* p_pbOut);
  int GetValueAt(char* p_szName, int p_iIndex, CDate* p_pcOut);
  int GetValueAt(char* p_szName, int p_iIndex, CMsg** p_ppOut);
  int GetArrSize(char* p_szName);

  // String literals are names too; none of these writes into its name. They take a const char* as it stands: nothing is
  // converted to one, or calls with a char* or with tag 0 would be ambiguous.
  template <class CHAR, class T>
  IntIfConst<CHAR> SetValue(CHAR* p_szName, T p_Value) {
    return SetValue(const_cast<char*>(p_szName), p_Value);
  }
  template <class CHAR, class T>
  IntIfConst<CHAR> GetValue(CHAR* p_szName, T* p_pOut) {
    return GetValue(const_cast<char*>(p_szName), p_pOut);
  }
  template <class CHAR, class T>
  IntIfConst<CHAR> GetValueAt(CHAR* p_szName, int p_iIndex, T* p_pOut) {
    return GetValueAt(const_cast<char*>(p_szName), p_iIndex, p_pOut);
  }
  CMsg* GetValue(const char* p_szName) { return GetValue(const_cast<char*>(p_szName)); }
  int GetArrSize(const char* p_szName) { return GetArrSize(const_cast<char*>(p_szName)); }

  // ---- the same getters for a message that may only be read. A sub-message that comes out as CMsg* is not const.
  template <class T>
  IntIf<callorv::detail::T_IsOutput<T>::value> GetValue(int p_iTag, T* p_pOut) const {
    return Readable().GetValue(p_iTag, p_pOut);
  }
  template <class CHAR, class T>
  IntIfRead<CHAR, T> GetValue(CHAR* p_szName, T* p_pOut) const {
    return Readable().GetValue(p_szName, p_pOut);
  }
  template <class T>
  IntIf<callorv::detail::T_IsOutput<T>::value> GetValueAt(int p_iTag, int p_iIndex, T* p_pOut) const {
    return Readable().GetValueAt(p_iTag, p_iIndex, p_pOut);
  }
  template <class CHAR, class T>
  IntIfRead<CHAR, T> GetValueAt(CHAR* p_szName, int p_iIndex, T* p_pOut) const {
    return Readable().GetValueAt(p_szName, p_iIndex, p_pOut);
  }
  const CMsg* GetValue(int p_iTag) const { return Readable().GetValue(p_iTag); }
  const CMsg* GetValue(const char* p_szName) const { return Readable().GetValue(p_szName); }
  int GetArrSize(int p_iTag) const { return Readable().GetArrSize(p_iTag); }
  int GetArrSize(const char* p_szName) const { return Readable().GetArrSize(p_szName); }

  // ---- text forms. Tags come in the dictionary's order, unset ones not at all. Numbers are written as in the "C"
  // locale, whatever locale the application has set. Callers pass p_iDepth 1, which writes a whole message; a greater
  // one writes the tags alone, as inside a parent. Throw std::bad_alloc when p_pOut cannot grow.

  // The compact XML that goes on the wire. At depth 1 p_pOut is emptied first, otherwise it is appended to.
  //   p_bArrayPrefix  in number mode, elements of arrays are named a<tag> instead of t<tag>
  //   p_bByName       elements are named by tag name instead of t<tag>
  // Returns 0. Nothing is escaped: strings stand in CDATA, and one that holds "]]>" makes the document ill-formed.
  int ToXml(CStream* p_pOut, bool p_bArrayPrefix, bool p_bByName, int p_iDepth) const;
  // Indented XML, one line for each element, appended.
  void DumpXml(CStream* p_pOut, bool p_bByName, int p_iDepth) const;
  // A plain listing, appended; p_bByName only chooses the word on the "Type" line.
  void Dump(CStream* p_pOut, bool p_bByName, int p_iDepth) const;

  // Fills the message from XML as ToXml writes it (and, in any encoding the parser reads, whatever has that shape):
  // it is initialised again for the document's message number, then every text is stored. Of a scalar that comes twice
  // the first value stays; so does the first piece of a text that a reference, a comment or the end of a CDATA section
  // divides, or its own length (outside CDATA, after about a million characters), while an array gets each piece.
  // Blanks, tabs and line feeds at both ends of a piece are dropped.
  //   returns  0; -12 for a null text
  // Throws CException; the message keeps what was stored before the failure:
  //   -21 "Handler error : [F]MemData (L:%d, C:%d) %s"  malformed ([E] error, [W] warning)
  //   -21 "Handler error : %s" around  "Unknown root element(%s)", "Unknown msgno(%d)", "Unknown start tagname(%s)",
  //       "Unknown start tagnum(%s)", "Unknown start tag element(%s, %d)", "(MakeSubMsgEntry) failed(%d)",
  //       "Unknown submsg(%d)", the same with "end" for an end tag,
  //       "DOCTYPE is not allowed", "More than 1024 open elements"
  //   -17, -18, -19, -11, -15 "Handler error : %s" around the text of SetParsedData or MakeSubMsgEntry
  //   -11 "XMLParser out of memory", "Out of memory 0"
  //   -21 "XMLParser internal error: %s\n", "XMLParser internal error : %d"
  //   -26 "XMLPlatformUtils::Initialize() was not called"   no dictionary was loaded from a file before
  int LoadXml(char* p_szXml);

  // ---- for readers of other formats
  // Stores one piece of text, converted by the tag's type. A scalar that is set already keeps its value; an array
  // grows by one element. Throws CException: -19 "msgnum=%d", -18 "tagnum=%d", -17 "tagnum=%d,type=%d" (a
  // sub-message), -11 "new %s failed".
  void SetParsedData(int p_iTag, CString p_sText);
  // The sub-message that is to be filled next: a new row of a multi tag, else the tag's only one. Borrowed.
  // Throws CException: -19 "tagnum=%d,submsgnum=%d", -18 "tagnum=%d", -11 "new %s failed"; -17 "tagnum=%d,type=%d"
  // when the tag holds no sub-messages; what Init throws when its number is not in the dictionary.
  CMsg* MakeSubMsgEntry(int p_iTag);

 private:
  int m_iRootNum;
  int m_iMsgNum;
  int m_iParentTag;
  bool m_bEmpty;
  char m_szVer[VER_SIZE];
  CMsgValue* m_apSlot[SLOTS];    // cells by tag number modulo the definition's hash key
  CMsg* m_pParent;
  CMsgArray* m_pChildren;        // every sub-message given to this message; owns none
  CMsgDic* m_pMsgDic;
  CMsgInfo* m_pMsgInfo;
  // Where it stands: m_pOwner frees it and holds it in m_pCell, at m_iRow when that is an array. Both are null for a
  // message that stands nowhere. Init of the owner clears neither, though its cell cannot be reached any more, nor does
  // Init of this message, which clears m_pParent.
  CMsg* m_pOwner;
  CMsgValue* m_pCell;
  int m_iRow;
  bool m_bMade;            // its owner made it, in its own memory, and alone may free it
  bool m_bLent;            // it stands there, but the application frees it
  bool m_bVacant;    // it has its place, but nothing was stored in it yet: m_bEmpty, and left out of the text forms
  // What it holds: its cells and texts stand in m_pArena.
  bool m_bSharesArena;     // which is the owner's, who frees it
  bool m_bHolds;           // the cells may hold what does not stand there
  bool m_bHasSubs;         // there is or was a cell for sub-messages; implies m_bHolds
  int m_iCells;            // in the slots
  callorv::detail::CArena* m_pArena;        // made for the first cell
  callorv::detail::T_MsgExtra* m_pExtra;    // what few messages need

  // Reading changes nothing but the last error, which is mutable.
  CMsg& Readable() const { return const_cast<CMsg&>(*this); }
  // What does not fit into an int does not fit into the result either.
  template <class T>
  static long long Widened(T p_Value) {
    return p_Value > static_cast<T>(INT_MAX) ? INT_MAX + 1LL : static_cast<long long>(p_Value);
  }

  friend struct callorv::detail::CAccess;
  friend struct callorv::detail::CCells;
  friend struct callorv::detail::COwner;
  friend struct callorv::detail::CPrefetch;
};

// A new message with the process-wide dictionary; without a definition when p_iMsgNum is below 1. The caller's, until
// it is given to a parent. Null when the number is unknown or memory is short. Never throws.
CALLORV_API CMsg* MA_NewMsg(int p_iMsgNum);
// Destroys and frees a message that the application made, wherever it stands. Null is ignored, and so is one that the
// library made in another one.
CALLORV_API void MA_FreeMsg(CMsg* p_pMsg);

#endif
