// Base of typed message classes.
#ifndef CALLORV_CLIENT_MSG_BASE_H
#define CALLORV_CLIENT_MSG_BASE_H

#include "callorv/base/str.h"
#include "callorv/export.h"

class CMsg;

// A class whose members are the tags of one message. `callorv generate` writes such classes from a dictionary.
class CALLORV_API CMsgBase {
 public:
  CString sLastError;    // reason of the latest failure of the two operations

  CMsgBase();
  CMsgBase(const CMsgBase& p_c);
  CMsgBase& operator=(const CMsgBase& p_c);
  virtual ~CMsgBase();
  // Fills this object from a message (borrowed for the call). Negative on failure.
  virtual int LoadFromMsg(CMsg* p_pMsg) = 0;
  // A new message built from this object, the caller's; null on failure.
  virtual CMsg* CreateMsg() = 0;
};

#endif
