// Waiting for one of many calls.
#include <poll.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>

#include "callorv/client/pending_call.h"
#include "client/pending_state.h"

namespace {

using callorv::detail::MillisecondsUntil;
using callorv::detail::Now;

enum { NONE = -1, INTERRUPTED = -2 };
enum { FEW = 64 };    // so many are waited for without memory for that

// An array of calls, some of them null. AT: CallOrv_Call*(int) gives the one at an index.
template <class AT>
class CCalls {
 public:
  CCalls(int p_iCount, AT p_fnAt) : m_iCount(std::max(p_iCount, 0)), m_fnAt(p_fnAt) {}

  int WaitAny(int p_iTimeOutMs) {
    const long long iEnd = p_iTimeOutMs < 0 ? LLONG_MAX : Now() + p_iTimeOutMs * 1000000LL;
    const int iFirst = Next(0);
    if (iFirst == m_iCount) return NONE;
    int iOver = FindOver(iFirst);
    if (iOver >= 0) return iOver;

    int iCalls = 0;
    for (int i = iFirst; i < m_iCount; i = Next(i + 1)) ++iCalls;
    pollfd atFew[FEW];
    const std::unique_ptr<pollfd[]> pMany(iCalls > FEW ? new (std::nothrow) pollfd[static_cast<size_t>(iCalls)]
                                                       : nullptr);
    pollfd* ptPoll = iCalls > FEW ? pMany.get() : atFew;
    if (ptPoll == nullptr) return INTERRUPTED;
    while (iOver < 0) {
      if (!Poll(ptPoll, iEnd)) return INTERRUPTED;
      iOver = FindOver(iFirst);
      if (Now() >= iEnd) break;
    }
    return iOver;
  }

 private:
  const int m_iCount;
  const AT m_fnAt;

  // Where a call stands from p_iFrom on; m_iCount when there is none. Thousands of nulls may be in front of it, when
  // most calls are finished, and are passed for each of the others: so many at a time.
  int Next(int p_iFrom) const {
    enum { AT_ONCE = 8 };
    const auto fnAllNull = [&] {
      bool bNull = true;
      for (int i = 0; i < AT_ONCE; ++i) bNull &= m_fnAt(p_iFrom + i) == nullptr;
      return bNull;
    };
    while (m_iCount - p_iFrom >= AT_ONCE && fnAllNull()) p_iFrom += AT_ONCE;
    while (p_iFrom < m_iCount && m_fnAt(p_iFrom) == nullptr) ++p_iFrom;
    return p_iFrom;
  }

  // The next call that is over, behind the one that was found before, so that each has its turn and finding all takes
  // one round. Where that was is noted in the first call that stays; the caller is going to free, or replace, the one
  // found. p_iFirst: where the first one stands.
  int FindOver(int p_iFirst) const {
    const int iSecond = Next(p_iFirst + 1);
    int iStart = m_fnAt(p_iFirst)->iNext;
    if (iStart < 0 && iSecond < m_iCount) iStart = m_fnAt(iSecond)->iNext;
    if (iStart < 0 || iStart >= m_iCount) iStart = 0;
    for (int i = 0, iAt = iStart; i < m_iCount; ++i, ++iAt) {
      if (iAt == m_iCount) iAt = 0;
      const CallOrv_Call* pCall = m_fnAt(iAt);
      if (pCall == nullptr || !pCall->IsOver()) continue;
      const int iStays = iAt != p_iFirst ? p_iFirst : iSecond;
      if (iStays < m_iCount) m_fnAt(iStays)->iNext = iAt + 1;
      return iAt;
    }
    return NONE;
  }

  // Waits once for all of them, none of which is over, until p_iEnd at most, and steps every one that can go on: to
  // wait again for each that is returned would take a time that grows with the square of their number.
  bool Poll(pollfd* p_ptPoll, long long p_iEnd) const {
    nfds_t uCalls = 0;
    long long iDeadline = LLONG_MAX;    // the first of theirs
    for (int i = Next(0); i < m_iCount; i = Next(i + 1)) {
      const CallOrv_Call& cCall = *m_fnAt(i);
      p_ptPoll[uCalls++] = {cCall.GetFd(), static_cast<short>(cCall.GetEvents()), 0};
      iDeadline = std::min(iDeadline, cCall.GetEnd());
    }
    if (poll(p_ptPoll, uCalls, MillisecondsUntil(std::min(p_iEnd, iDeadline))) < 0) return false;
    const long long iNow = Now();
    const bool bLate = iDeadline <= iNow;    // else none of them is looked at for that
    for (int i = Next(0); i < m_iCount; i = Next(i + 1)) {
      CallOrv_Call& cCall = *m_fnAt(i);
      if (p_ptPoll++->revents != 0 || (bLate && cCall.GetEnd() <= iNow)) cCall.Step();
    }
    return true;
  }
};

}    // namespace

int CPendingCall::WaitAny(CallOrv_Call** p_apCalls, int p_iCount, int p_iTimeOutMs) {
  const auto fnAt = [=](int p_iAt) { return p_apCalls[p_iAt]; };
  return CCalls(p_apCalls != nullptr ? p_iCount : 0, fnAt).WaitAny(p_iTimeOutMs);
}

int CPendingCall::WaitAny(CPendingCall* p_pCalls, int p_iCount, int p_iTimeOutMs) {
  const auto fnAt = [=](int p_iAt) { return p_pCalls[p_iAt].m_pCall; };
  return CCalls(p_pCalls != nullptr ? p_iCount : 0, fnAt).WaitAny(p_iTimeOutMs);
}
