/* Asks 100 services at once, in one thread with poll(), and prints the answers as they come. */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "callorv/callorv.h"

enum { FIRST_SERVICE = 1001, SERVICES = 100, DEADLINE_MS = 5000 };

/* What a call that is over brought; frees it. */
static void Print(int p_iSvcNum, CallOrv_Call* p_pCall) {
  CMsg* pOut = MSG_GetNewMsg(0, NULL);
  CallOrv_Error tErr;
  double dLast;
  if (CallOrv_Finish(p_pCall, pOut, &tErr) != 0) {
    printf("%d: %d %s\n", p_iSvcNum, tErr.iCode, tErr.szText);
  } else if (MSG_GetDbl(pOut, 2, &dLast) != 0) {
    printf("%d: %s\n", p_iSvcNum, MSG_GetLastError(pOut));
  } else {
    printf("%d: %.2f\n", p_iSvcNum, dLast);
  }
  MSG_Destroy(pOut);
}

int main(int argc, char** argv) {
  CallOrv_Error tErr;
  CallOrv_Call* apCall[SERVICES] = {NULL};
  struct pollfd atPoll[SERVICES];
  CMsg* pIn;
  int iLeft = 0;
  int i;
  if (argc != 2) return fprintf(stderr, "usage: %s CONFIGURATION\n", argv[0]), EXIT_FAILURE;
  if (CallOrv_Initialize(argv[1], &tErr) != 0)
    return fprintf(stderr, "initialisation: %s\n", tErr.szText), EXIT_FAILURE;

  pIn = MSG_GetNewMsg(1101, &tErr);
  if (pIn == NULL || MSG_SetStr(pIn, 1, "ACME") != 0) return fprintf(stderr, "no request\n"), EXIT_FAILURE;
  for (i = 0; i < SERVICES; ++i) {
    apCall[i] = CallOrv_Start(FIRST_SERVICE + i, pIn, DEADLINE_MS, &tErr);
    if (apCall[i] == NULL) return fprintf(stderr, "%d %s\n", tErr.iCode, tErr.szText), EXIT_FAILURE;
    ++iLeft;
  }
  MSG_Destroy(pIn); /* the calls have what they need of it */

  while (iLeft > 0) {
    int iWait = DEADLINE_MS;
    for (i = 0; i < SERVICES; ++i) { /* poll() skips a descriptor below 0, and so what is finished */
      const int iTime = apCall[i] != NULL ? CallOrv_GetTimeLeft(apCall[i]) : DEADLINE_MS;
      atPoll[i].fd = CallOrv_GetFd(apCall[i]);
      atPoll[i].events = (short)CallOrv_GetEvents(apCall[i]);
      if (iTime < iWait) iWait = iTime;
    }
    poll(atPoll, SERVICES, iWait);
    for (i = 0; i < SERVICES; ++i) {
      if (apCall[i] == NULL || CallOrv_Step(apCall[i])) continue;
      Print(FIRST_SERVICE + i, apCall[i]);
      apCall[i] = NULL;
      --iLeft;
    }
  }
  return EXIT_SUCCESS;
}
