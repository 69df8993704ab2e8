// The cell that holds the value or values of one tag.
#ifndef CALLORV_MSG_MSG_VALUE_H
#define CALLORV_MSG_MSG_VALUE_H

#include "callorv/msg/msg.h"

// Owned by its message, in whose arena it lives with its text or date. A new cell is all zero. Unset: no value was
// stored yet (an earlier setter found no memory).
struct CMsgValue {
  int m_iTagNum = 0;
  E_TagType m_eType = TAG_UNKNOWN;
  bool m_bSet = false;
  bool m_bMulti = false;    // the value is an array
  union {
    int m_iVal;
    double m_dVal = 0;
    bool m_bVal;
    CString* m_pStr;     // in the arena
    CDate* m_pDate;      // in the arena
    CMsg* m_pMsg;
    CStrArray* m_pStrArr;
    CIntArray* m_pIntArr;
    CDblArray* m_pDblArr;
    CBoolArray* m_pBoolArr;
    CDateArray* m_pDateArr;
    CMsgArray* m_pMsgArr;
  };
  CMsgValue* m_pNext = nullptr;    // next cell in the same slot

  CMsgValue() = default;
  // Gives back texts and arrays, but not sub-messages: their message does, one after the other instead of one inside
  // the other.
  ~CMsgValue();
  CMsgValue(const CMsgValue&) = delete;
  CMsgValue& operator=(const CMsgValue&) = delete;
};

#endif
