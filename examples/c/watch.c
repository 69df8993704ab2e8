/* Asks for a quote many times, with some calls in flight at any moment, on epoll. */
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "callorv/callorv.h"

enum { SVC_QUOTE = 1001, CALLS = 200, IN_FLIGHT = 16, DEADLINE_MS = 5000 };

static int s_iEpoll;
static int s_iAnswers = 0;

/* Tells epoll what the call waits for. It wakes us as long as that is there (level-triggered), since a step does not
 * always take all of it. */
static void Watch(int p_iOperation, CallOrv_Call** p_ppCall) {
  struct epoll_event tEvent;
  tEvent.events = (unsigned)CallOrv_GetEvents(*p_ppCall); /* EPOLLIN is POLLIN, and EPOLLOUT is POLLOUT */
  tEvent.data.ptr = p_ppCall;
  epoll_ctl(s_iEpoll, p_iOperation, CallOrv_GetFd(*p_ppCall), &tEvent);
}

/* Goes on with a call. One that is over is finished, which takes its descriptor out of epoll, and its place is free. */
static void Step(CallOrv_Call** p_ppCall, int p_iOperation) {
  CMsg* pOut;
  CallOrv_Error tErr;
  if (CallOrv_Step(*p_ppCall)) {
    Watch(p_iOperation, p_ppCall);
    return;
  }
  pOut = MSG_GetNewMsg(0, NULL);
  if (CallOrv_Finish(*p_ppCall, pOut, &tErr) == 0) {
    ++s_iAnswers;
  } else {
    printf("%d %s\n", tErr.iCode, tErr.szText);
  }
  MSG_Destroy(pOut);
  *p_ppCall = NULL;
}

int main(int argc, char** argv) {
  CallOrv_Error tErr;
  CallOrv_Call* apCall[IN_FLIGHT] = {NULL};
  CMsg* pIn;
  int iToStart = CALLS;
  if (argc != 2) return fprintf(stderr, "usage: %s CONFIGURATION\n", argv[0]), EXIT_FAILURE;
  if (CallOrv_Initialize(argv[1], &tErr) != 0)
    return fprintf(stderr, "initialisation: %s\n", tErr.szText), EXIT_FAILURE;
  pIn = MSG_GetNewMsg(1101, &tErr);
  if (pIn == NULL || MSG_SetStr(pIn, 1, "ACME") != 0) return fprintf(stderr, "no request\n"), EXIT_FAILURE;
  s_iEpoll = epoll_create1(EPOLL_CLOEXEC);

  for (;;) {
    struct epoll_event atReady[IN_FLIGHT];
    int iUnderWay = 0;
    int iWait = DEADLINE_MS;
    int iReady;
    int i;
    for (i = 0; i < IN_FLIGHT; ++i) {
      for (; apCall[i] == NULL && iToStart > 0; --iToStart) {
        apCall[i] = CallOrv_Start(SVC_QUOTE, pIn, DEADLINE_MS, &tErr);
        if (apCall[i] == NULL) return fprintf(stderr, "%d %s\n", tErr.iCode, tErr.szText), EXIT_FAILURE;
        Step(&apCall[i], EPOLL_CTL_ADD);
      }
      if (apCall[i] == NULL) continue;
      ++iUnderWay;
      if (CallOrv_GetTimeLeft(apCall[i]) < iWait) iWait = CallOrv_GetTimeLeft(apCall[i]);
    }
    if (iUnderWay == 0) break;
    iReady = epoll_wait(s_iEpoll, atReady, IN_FLIGHT, iWait);
    for (i = 0; i < iReady; ++i) Step(atReady[i].data.ptr, EPOLL_CTL_MOD);
    for (i = 0; iReady == 0 && i < IN_FLIGHT; ++i) { /* somebody's time is up */
      if (apCall[i] != NULL) Step(&apCall[i], EPOLL_CTL_MOD);
    }
  }
  printf("%d of %d answered\n", s_iAnswers, CALLS);
  MSG_Destroy(pIn);
  close(s_iEpoll);
  return EXIT_SUCCESS;
}
