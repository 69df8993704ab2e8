// The cell that holds the value or values of one tag.
#include "msg/msg_value.h"

CMsgValue::~CMsgValue() {
  switch (m_eType) {
    case TAG_STRING:
      if (m_bMulti) delete m_pStrArr;
      else if (m_pStr != nullptr) m_pStr->~CString();
      break;
    case TAG_INTEGER: if (m_bMulti) delete m_pIntArr; break;
    case TAG_DOUBLE: if (m_bMulti) delete m_pDblArr; break;
    case TAG_BOOL: if (m_bMulti) delete m_pBoolArr; break;
    case TAG_DATE: if (m_bMulti) delete m_pDateArr; break;
    case TAG_SUBMSG: if (m_bMulti) delete m_pMsgArr; break;
    case TAG_UNKNOWN: break;
  }
}
