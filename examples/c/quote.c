/* Calls three services of the example broker from C: a quote, a list of orders, and a cancellation that is rejected. */
#include <stdio.h>
#include <stdlib.h>

#include "callorv/callorv.h"

enum { SVC_QUOTE = 1001, SVC_ORDER_LIST = 1002, SVC_CANCEL = 1003 };
enum { ORDERS = 30 };

/* A new message, 0 for one that a reply will fill; null with the reason printed. */
static CMsg* NewMsg(int p_iMsgNum) {
  CMsg* pMsg = MSG_GetNewMsg(p_iMsgNum, NULL);
  if (pMsg == NULL) fprintf(stderr, "the dictionary lacks message %d, or there is no memory\n", p_iMsgNum);
  return pMsg;
}

/* Says what went wrong with a message and passes the result on. */
static int Check(CMsg* p_pMsg, int p_iRet) {
  if (p_iRet < 0) fprintf(stderr, "%s\n", MSG_GetLastError(p_pMsg));
  return p_iRet;
}

/* A text, to be freed; null with the reason printed. */
static char* GetText(CMsg* p_pMsg, int p_iTag) {
  int iRet;
  char* szText = MSG_GetStrEx(p_pMsg, p_iTag, &iRet);
  Check(p_pMsg, iRet);
  return szText;
}

/* A service whose failure nobody expects: 0, or -1 with the reason printed. */
static int Call(int p_iSvcNum, CMsg* p_pIn, CMsg* p_pOut) {
  CallOrv_Error tErr;
  if (CallOrv_CallService(p_iSvcNum, p_pIn, p_pOut, &tErr) == 0) return 0;
  fprintf(stderr, "service %d: %d %s\n", p_iSvcNum, tErr.iCode, tErr.szText);
  return -1;
}

static int PrintQuote(CMsg* p_pQuote) {
  double dLast;
  int iVolume;
  int bHalted;
  char szDate[9];
  char* szSymbol = GetText(p_pQuote, 1);
  int iRet = -1;
  if (szSymbol != NULL && Check(p_pQuote, MSG_GetDbl(p_pQuote, 2, &dLast)) == 0 &&
      Check(p_pQuote, MSG_GetInt(p_pQuote, 3, &iVolume)) == 0 &&
      Check(p_pQuote, MSG_GetBool(p_pQuote, 4, &bHalted)) == 0 &&
      Check(p_pQuote, MSG_GetDate(p_pQuote, 5, szDate)) == 0) {
    printf("quote: %s %.2f, %d traded on %s%s\n", szSymbol, dLast, iVolume, szDate, bHalted ? ", halted" : "");
    iRet = 0;
  }
  free(szSymbol);
  return iRet;
}

static int Quote(void) {
  CMsg* pIn = NewMsg(1101);
  CMsg* pOut = NewMsg(0); /* a reply brings its own message number */
  int iRet = -1;
  if (pIn != NULL && pOut != NULL && Check(pIn, MSG_SetStr(pIn, 1, "ACME")) == 0 &&
      Call(SVC_QUOTE, pIn, pOut) == 0) {
    iRet = PrintQuote(pOut);
  }
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
  return iRet;
}

/* Adds one row, which is the list's own. */
static int AddOrder(CMsg* p_pList, const char* p_szSymbol, int p_iQuantity, double p_dLimit) {
  int iRet;
  CMsg* pOrder = MSG_NewSub(p_pList, 3, &iRet);
  if (Check(p_pList, iRet) == 0 && Check(pOrder, MSG_SetStr(pOrder, 1, p_szSymbol)) == 0 &&
      Check(pOrder, MSG_SetBool(pOrder, 2, 1)) == 0 && Check(pOrder, MSG_SetInt(pOrder, 3, p_iQuantity)) == 0 &&
      Check(pOrder, MSG_SetDbl(pOrder, 4, p_dLimit)) == 0) {
    return 0;
  }
  return -1;
}

static int FillOrderList(CMsg* p_pList) {
  static const char* const s_aszSymbol[] = {"ACME", "BLUE", "CORN"};
  int i;
  if (Check(p_pList, MSG_SetStr(p_pList, 1, "77-1204")) != 0) return -1;
  if (Check(p_pList, MSG_SetDate(p_pList, 2, "20240731")) != 0) return -1;
  for (i = 0; i < ORDERS; ++i) {
    if (AddOrder(p_pList, s_aszSymbol[i % 3], 10 * (i + 1), 100.0 + i) != 0) return -1;
  }
  return 0;
}

/* One row of the reply, borrowed from it. */
static int PrintOrder(CMsg* p_pOrder) {
  int iOrderNum;
  int iFilled;
  int iPrices;
  int i;
  char* szSymbol = GetText(p_pOrder, 2);
  if (szSymbol == NULL || Check(p_pOrder, MSG_GetInt(p_pOrder, 1, &iOrderNum)) != 0 ||
      Check(p_pOrder, MSG_GetInt(p_pOrder, 3, &iFilled)) != 0) {
    free(szSymbol);
    return -1;
  }
  printf("  %d %s, %d filled", iOrderNum, szSymbol, iFilled);
  free(szSymbol);
  iPrices = MSG_GetArrSize(p_pOrder, 4); /* negative when there is none */
  for (i = 0; i < iPrices; ++i) {
    double dPrice;
    if (Check(p_pOrder, MSG_GetAtDblArr(p_pOrder, 4, i, &dPrice)) != 0) return -1;
    printf("%s%.2f", i == 0 ? " at " : ", ", dPrice);
  }
  printf("\n");
  return 0;
}

static int PrintOrderList(CMsg* p_pReply) {
  int iAccepted;
  int iRows;
  int i;
  if (Check(p_pReply, MSG_GetInt(p_pReply, 2, &iAccepted)) != 0) return -1;
  printf("orders: %d accepted\n", iAccepted);
  iRows = Check(p_pReply, MSG_GetArrSize(p_pReply, 3));
  for (i = 0; i < iRows; ++i) {
    int iRet;
    CMsg* pOrder = MSG_GetAtSubArr(p_pReply, 3, i, &iRet);
    if (Check(p_pReply, iRet) != 0 || PrintOrder(pOrder) != 0) return -1;
  }
  return iRows < 0 ? -1 : 0;
}

/* With this many rows the request is longer than 1,024 bytes, so the library compresses it. */
static int OrderList(void) {
  CMsg* pIn = NewMsg(1201);
  CMsg* pOut = NewMsg(0);
  int iRet = -1;
  if (pIn != NULL && pOut != NULL && FillOrderList(pIn) == 0 && Call(SVC_ORDER_LIST, pIn, pOut) == 0) {
    iRet = PrintOrderList(pOut);
  }
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
  return iRet;
}

/* The server rejects this one: -4, with its own code, text and service number in the record. */
static int Cancel(void) {
  CMsg* pIn = NewMsg(1301);
  CMsg* pOut = NewMsg(0);
  int iRet = -1;
  if (pIn != NULL && pOut != NULL && Check(pIn, MSG_SetStr(pIn, 1, "77-1204")) == 0 &&
      Check(pIn, MSG_SetInt(pIn, 2, 90001)) == 0) {
    CallOrv_Error tErr;
    const int iCall = CallOrv_CallService(SVC_CANCEL, pIn, pOut, &tErr);
    if (iCall == -4) {
      printf("cancel: rejected with %d, %s (service %d)\n", tErr.iCode, tErr.szText, tErr.iRefSvcNum);
      iRet = 0;
    } else {
      fprintf(stderr, "service %d: a rejection was expected, not %d\n", SVC_CANCEL, iCall);
    }
  }
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
  return iRet;
}

int main(int argc, char** argv) {
  CallOrv_Error tErr;
  if (argc != 2) {
    fprintf(stderr, "usage: %s CONFIGURATION\n", argv[0]);
    return EXIT_FAILURE;
  }
  if (CallOrv_Initialize(argv[1], &tErr) != 0) {
    fprintf(stderr, "initialisation: %s\n", tErr.szText);
    return EXIT_FAILURE;
  }
  return Quote() == 0 && OrderList() == 0 && Cancel() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
