// What a call under way consists of.
#ifndef CALLORV_CLIENT_PENDING_STATE_H
#define CALLORV_CLIENT_PENDING_STATE_H

#include "net/exchange.h"

struct CallOrv_Call final : callorv::detail::CExchange {
  const int iSvcNum;
  int iNext = -1;    // where WaitAny goes on in its array; below 0: unknown
  void* pUser = nullptr;

  CallOrv_Call(int p_iSvcNum, int p_iDeadlineMs) : CExchange(p_iDeadlineMs), iSvcNum(p_iSvcNum) {}
};
static_assert(sizeof(CallOrv_Call) <= 512);    // all that a call holds while it waits for its reply

#endif
