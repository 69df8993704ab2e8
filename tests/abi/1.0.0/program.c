/* The same for the C interface: program DICTIONARY FOLDER PORT, where FOLDER has the key file user.key. */
#include <callorv/callorv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(c) \
  if (!(c)) return fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #c), 1

/* A library whose record has grown writes over the fence. */
typedef struct {
  CallOrv_Error tErr;
  char acFence[256];
} FencedError;

int main(int argc, char** argv) {
  char szKey[4096];
  char szText[64];
  FencedError t;
  CMsg* pIn;
  CMsg* pOut;
  CMsg* pOrders;
  CMsg* pRow;
  CallOrv_Call* pCall;
  int i, iValue, rc;
  int aiColumn[4];
  unsigned char abSet[4];
  size_t auOffset[4];
  double dValue;
  CHECK(argc == 4);
  memset(&t, 0x5A, sizeof(t));
  CHECK(CallOrv_Initialize("no such file", &t.tErr) == -1 && t.tErr.iCode == 0);
  CHECK(strcmp(t.tErr.szText, "File open failed [no such file](2,No such file or directory)") == 0);
  snprintf(szKey, sizeof(szKey), "%s/user.key", argv[2]);
  CHECK(CallOrv_InitializeEx(szKey, argv[1], "127.0.0.1", atoi(argv[3]), 60, &t.tErr) == 0);
  pIn = MSG_GetNewMsg(1101, &t.tErr);
  pOut = MSG_GetNewMsg(0, NULL);
  CHECK(pIn != NULL && pOut != NULL && MSG_SetStr(pIn, 1, "ACME") == 0);
  CHECK(CallOrv_CallService(1001, pIn, pOut, &t.tErr) == 0);
  CHECK(MSG_GetSelfNum(pOut) == 1101 && MSG_GetStr(pOut, 1, szText) >= 0 && strcmp(szText, "ACME") == 0);
  MSG_Clear(pOut);
  pCall = CallOrv_Start(1001, pIn, 60000, &t.tErr);
  CHECK(pCall != NULL && CallOrv_WaitAny(&pCall, 1, 60000) == 0 && CallOrv_Finish(pCall, pOut, &t.tErr) == 0);
  CHECK(MSG_GetStrLen(pOut, 1) == 4);
  CHECK(CallOrv_CallService(1001, NULL, pOut, &t.tErr) == -2 && t.tErr.iCode == -12 && t.tErr.iRefSvcNum == 1001);

  pOrders = MSG_GetNewMsg(1201, NULL);
  CHECK(pOrders != NULL && MSG_SetDate(pOrders, 2, "20260131") == 0);
  for (i = 0; i < 3; ++i) {
    pRow = MSG_NewSub(pOrders, 3, &rc);
    CHECK(pRow != NULL && rc == 0 && MSG_SetBool(pRow, 2, 1) == 0);
    CHECK(MSG_SetInt(pRow, 3, i) == 0 && MSG_SetDbl(pRow, 4, i + 0.5) == 0);
  }
  CHECK(MSG_GetArrSize(pOrders, 3) == 3);
  pRow = MSG_GetAtSubArr(pOrders, 3, 2, &rc);
  CHECK(MSG_GetInt(pRow, 3, &iValue) == 0 && iValue == 2 && MSG_GetDbl(pRow, 4, &dValue) == 0 && dValue == 2.5);
  CHECK(MSG_GetInt(pRow, 9, &iValue) == -18);
  CHECK(strcmp(MSG_GetLastError(pRow), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=1202, tagnum=9}") == 0);
  CHECK(MSG_GetIntColumn(pOrders, 3, 3, aiColumn, abSet, 4) == 3 && aiColumn[2] == 2 && abSet[2] == 1 && abSet[3] == 0);
  CHECK(MSG_GetBoolColumn(pOrders, 3, 2, aiColumn, abSet, 4) == 3 && aiColumn[0] == 255 && aiColumn[3] == 0);
  CHECK(MSG_GetStrColumn(pOrders, 3, 1, szText, 3, auOffset, abSet, 3) == 3 && auOffset[3] == 3 && abSet[0] == 0);
  CHECK(MSG_GetStrColumn(pOrders, 3, 1, szText, 2, auOffset, abSet, 3) == -27);
  CHECK(MSG_GetDblColumn(pOrders, 3, 4, &dValue, NULL, 1) == 3 && dValue == 0.5);
  CHECK(MSG_GetDateColumn(pOrders, 3, 4, szText, abSet, 1) == -17 && MSG_GetDateColumn(NULL, 3, 4, szText, abSet, 1) == -12);
  MSG_Destroy(pOrders);
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
  CHECK(MSG_NextMsg(10) == 1101 && MSG_FindMsg("OrderListRequest") == 1201 && strcmp(MSG_GetMsgName(1202), "Order") == 0);
  CHECK(MSG_GetTagCount(1201) == 3 && MSG_GetTagNum(1201, 2) == 3 && MSG_FindTag(1201, "Orders") == 3);
  CHECK(strcmp(MSG_GetTagName(1201, 2), "ValidUntil") == 0 && MSG_GetTagType(1201, 2) == MSG_TYPE_DATE);
  CHECK(MSG_GetTagSubMsg(1201, 3) == 1202 && MSG_IsArrayTag(1201, 3) == 1 && MSG_TYPE_STRING == 1 && MSG_TYPE_SUBMSG == 6);
  for (i = 0; i < (int)sizeof(t.acFence); ++i) CHECK(t.acFence[i] == 0x5A);
  return printf("headers of %s: all as it was\n", CALLORV_VERSION) < 0;
}
