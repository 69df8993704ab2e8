/* rows CONFIGURATION: what a small call, and reading 1,000 rows of four tags of a reply, cost in C. Answers each line
 * of standard input, "call N" or "read N", with the microseconds that one of N took. */
#include <callorv/callorv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* Reading waits for nothing: only the processor's time counts, whatever else the machine does. */
static double Now(int p_bCall) {
  struct timespec t;
  clock_gettime(p_bCall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &t);
  return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

static CMsg* Call(CMsg* p_pIn) {
  CallOrv_Error tErr;
  CMsg* pOut = MSG_GetNewMsg(0, NULL);
  if (CallOrv_CallService(7, p_pIn, pOut, &tErr) != 0) {
    fprintf(stderr, "%s\n", tErr.szText);
    exit(EXIT_FAILURE);
  }
  return pOut;
}

int main(int argc, char** argv) {
  CallOrv_Error tErr;
  CMsg* pIn;
  CMsg* pTable;
  char szWhat[5];
  char szText[64];
  int n, i, j, iValue, bCall;
  double dStart, dValue, dSum = 0;
  if (argc != 2 || CallOrv_Initialize(argv[1], &tErr) != 0) return fprintf(stderr, "no set-up\n"), EXIT_FAILURE;
  pIn = MSG_GetNewMsg(104, NULL);
  for (i = 0; i < 1000; ++i) {
    CMsg* pRow = MSG_NewSub(pIn, 1, NULL);
    snprintf(szText, sizeof(szText), "CODE-%04d", i);
    MSG_SetStr(pRow, 1, szText);
    MSG_SetInt(pRow, 2, i);
    MSG_SetDbl(pRow, 3, i + 0.25);
    MSG_SetBool(pRow, 4, i % 2);
  }
  pTable = Call(pIn);
  MSG_Destroy(pIn);
  while (scanf("%4s %d", szWhat, &n) == 2) {
    bCall = strcmp(szWhat, "call") == 0;
    dStart = Now(bCall);
    for (i = 0; i < n; ++i) {
      if (bCall) {
        CMsg* pOut;
        pIn = MSG_GetNewMsg(100, NULL);
        MSG_SetStr(pIn, 1, "ACME");
        MSG_SetInt(pIn, 2, i);
        pOut = Call(pIn);
        MSG_GetStr(pOut, 1, szText);
        MSG_GetInt(pOut, 2, &iValue);
        MSG_Destroy(pIn);
        MSG_Destroy(pOut);
        continue;
      }
      for (j = 0; j < MSG_GetArrSize(pTable, 1); ++j) {
        CMsg* pRow = MSG_GetAtSubArr(pTable, 1, j, NULL);
        int iHalted;
        if (pRow == NULL || MSG_GetStrLen(pRow, 1) >= (int)sizeof(szText) || MSG_GetStr(pRow, 1, szText) != 0 ||
            MSG_GetInt(pRow, 2, &iValue) != 0 || MSG_GetDbl(pRow, 3, &dValue) != 0 ||
            MSG_GetBool(pRow, 4, &iHalted) != 0) {
          return EXIT_FAILURE;
        }
        dSum += szText[0] + iValue + dValue + iHalted;
      }
    }
    printf("%.3f\n", (Now(bCall) - dStart) / n);
    fflush(stdout);
  }
  return dSum < 0;
}
