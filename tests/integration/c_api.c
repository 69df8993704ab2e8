/* The whole C interface, from a C99 program. It is run by programs_test.cpp, which serves its calls.
 * Prints what is wrong; the exit status says whether anything was. */
#include <poll.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "callorv/callorv.h"

typedef char T_SizeIs1032[sizeof(CallOrv_Error) == 1032 ? 1 : -1];
typedef char T_CodeAt0[offsetof(CallOrv_Error, iCode) == 0 ? 1 : -1];
typedef char T_TextAt4[offsetof(CallOrv_Error, szText) == 4 ? 1 : -1];
typedef char T_TextOf1023[sizeof(((CallOrv_Error*)0)->szText) == 1023 ? 1 : -1];
typedef char T_RefAt1028[offsetof(CallOrv_Error, iRefSvcNum) == 1028 ? 1 : -1];

/* Services of programs_test.cpp. */
enum { SVC_ECHO = 7, SVC_REJECT = 8, SVC_REJECT_LONG = 9, SVC_CLOSE = 11 };

static int s_iFailed = 0;

static void Check(int p_bTrue, int p_iLine, const char* p_szWhat) {
  if (p_bTrue) return;
  ++s_iFailed;
  fprintf(stderr, "c_api.c:%d: %s\n", p_iLine, p_szWhat);
}

static void CheckText(const char* p_szGot, const char* p_szWanted, int p_iLine) {
  if (p_szGot != NULL && strcmp(p_szGot, p_szWanted) == 0) return;
  ++s_iFailed;
  fprintf(stderr, "c_api.c:%d: got \"%s\", wanted \"%s\"\n", p_iLine, p_szGot != NULL ? p_szGot : "(null)", p_szWanted);
}

#define CHECK(condition) Check((condition) != 0, __LINE__, #condition)
#define CHECK_TEXT(got, wanted) CheckText((got), (wanted), __LINE__)

static const CallOrv_Error s_tOld = {99, "old", 77};

static void CheckOld(const CallOrv_Error* p_pErr, int p_iLine) {
  Check(p_pErr->iCode == 99 && strcmp(p_pErr->szText, "old") == 0 && p_pErr->iRefSvcNum == 77, p_iLine,
        "the record is untouched");
}

static CMsg* NewMsg(int p_iMsgNum) {
  CMsg* pMsg = MSG_GetNewMsg(p_iMsgNum, NULL);
  if (pMsg == NULL) {
    fprintf(stderr, "no message %d\n", p_iMsgNum);
    exit(EXIT_FAILURE);
  }
  return pMsg;
}

/* A row with a text: an empty sub-message would not be stored. */
static CMsg* NewRow(const char* p_szText) {
  CMsg* pRow = NewMsg(101);
  CHECK(MSG_SetStr(pRow, 1, p_szText) == 0);
  return pRow;
}

static void BeforeInitialisation(void) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pMsg;
  CHECK(MSG_GetNewMsg(100, &tErr) == NULL);
  CheckOld(&tErr, __LINE__);

  pMsg = MSG_GetNewMsg(0, &tErr);
  CHECK(pMsg != NULL);
  CheckOld(&tErr, __LINE__);
  CHECK(MSG_GetSelfNum(pMsg) == 0);
  CHECK_TEXT(MSG_GetLastError(pMsg), "");
  CHECK(MSG_NextMsg(0) == 0);
  CHECK(MSG_FindMsg("Row") == -19);
  CHECK(MSG_GetTagCount(100) == -19);
  CHECK(MSG_SetInt(pMsg, 2, 5) == -19);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=2}");

  CHECK(CallOrv_CallService(7, pMsg, pMsg, NULL) == -12);
  CHECK(CallOrv_CallService(7, NULL, NULL, NULL) == -12);
  CHECK(CallOrv_CallService(7, pMsg, pMsg, &tErr) == -1);
  CHECK(tErr.iCode == -35);
  CHECK_TEXT(tErr.szText, "call CCallOrv::Initialize() first");
  CHECK(tErr.iRefSvcNum == 7);
  MSG_Destroy(pMsg);
}

static void Initialisation(const char* p_szConfig) {
  CallOrv_Error tErr = s_tOld;
  CHECK(CallOrv_Initialize(p_szConfig, NULL) == -12);
  CHECK(CallOrv_InitializeEx("k", "d", "s", 1, 1, NULL) == -12);
  CHECK(CallOrv_Initialize("/nonexistent/callorv.cfg", &tErr) == -1);
  CHECK(tErr.iCode == 0);
  CHECK_TEXT(tErr.szText, "File open failed [/nonexistent/callorv.cfg](2,No such file or directory)");
  CHECK(tErr.iRefSvcNum == 0);
  CHECK(CallOrv_InitializeEx("/nonexistent/key", "d", "s", 1, 1, &tErr) == -1);
  CHECK_TEXT(tErr.szText, "File not found(/nonexistent/key)");

  tErr = s_tOld;
  if (CallOrv_Initialize(p_szConfig, &tErr) != 0) {
    fprintf(stderr, "initialisation: %s\n", tErr.szText);
    exit(EXIT_FAILURE);
  }
  CheckOld(&tErr, __LINE__);

  CHECK(CallOrv_Initialize(p_szConfig, &tErr) == -2);
  CHECK(tErr.iCode == 0);
  CHECK_TEXT(tErr.szText, "InitDictionary(Handler error : msgnum=1,msgname=Hello)");
  CHECK(tErr.iRefSvcNum == 0);
}

static void NewMessages(void) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pMsg = NewMsg(100);
  CHECK(MSG_GetSelfNum(pMsg) == 100);
  CHECK_TEXT(MSG_GetLastError(pMsg), "");
  MSG_Destroy(pMsg);
  MSG_Destroy(NULL);
  pMsg = NewMsg(-1);
  CHECK(MSG_GetSelfNum(pMsg) == 0);
  MSG_Destroy(pMsg);
  CHECK(MSG_GetNewMsg(4711, &tErr) == NULL);
  CHECK(MSG_GetNewMsg(10000, &tErr) == NULL);
  CheckOld(&tErr, __LINE__);
}

/* -12 everywhere, and no output is touched. */
static void NullHandle(void) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pSub = NewRow("x");
  int iOut = 42;
  double dOut = 42;
  char szOut[9] = "12345678";
  CHECK(MSG_GetSelfNum(NULL) == -12);
  CHECK_TEXT(MSG_GetLastError(NULL), "p_pMsg Parameter is NULL");
  CHECK(MSG_SetInt(NULL, 2, 5) == -12);
  CHECK(MSG_SetDbl(NULL, 3, 5) == -12);
  CHECK(MSG_SetBool(NULL, 4, 1) == -12);
  CHECK(MSG_SetStr(NULL, 1, "x") == -12);
  CHECK(MSG_SetStr(NULL, 1, NULL) == -12);
  CHECK(MSG_SetDate(NULL, 5, "20240628") == -12);
  CHECK(MSG_SetSub(NULL, 6, pSub) == -12);
  CHECK(MSG_GetInt(NULL, 2, &iOut) == -12);
  CHECK(MSG_GetDbl(NULL, 3, &dOut) == -12);
  CHECK(MSG_GetBool(NULL, 4, &iOut) == -12);
  CHECK(MSG_GetStr(NULL, 1, szOut) == -12);
  CHECK(MSG_GetStrLen(NULL, 1) == -12);
  CHECK(MSG_GetDate(NULL, 5, szOut) == -12);
  CHECK(MSG_GetArrSize(NULL, 11) == -12);
  CHECK(MSG_GetAtIntArr(NULL, 12, 0, &iOut) == -12);
  CHECK(MSG_GetAtDblArr(NULL, 13, 0, &dOut) == -12);
  CHECK(MSG_GetAtBoolArr(NULL, 14, 0, &iOut) == -12);
  CHECK(MSG_GetAtStrArr(NULL, 11, 0, szOut) == -12);
  CHECK(MSG_GetAtStrLen(NULL, 11, 0) == -12);
  CHECK(MSG_GetAtDateArr(NULL, 15, 0, szOut) == -12);
  CHECK(iOut == 42);
  CHECK(dOut == 42);
  CHECK_TEXT(szOut, "12345678");
  CHECK(MSG_GetStrEx(NULL, 1, &iOut) == NULL);
  CHECK(iOut == -12);
  iOut = 42;
  CHECK(MSG_GetAtStrArrEx(NULL, 11, 0, &iOut) == NULL);
  CHECK(iOut == -12);
  iOut = 42;
  CHECK(MSG_GetSub(NULL, 6, &iOut) == NULL);
  CHECK(iOut == -12);
  iOut = 42;
  CHECK(MSG_GetAtSubArr(NULL, 16, 0, &iOut) == NULL);
  CHECK(iOut == -12);
  CHECK(MSG_Dump(NULL, NULL, NULL) == -12);
  CHECK(MSG_Dump(NULL, "/nonexistent/dump", &tErr) == -12);
  CHECK(tErr.iCode == -12);
  CHECK_TEXT(tErr.szText, "p_pMsg Parameter is NULL");
  CHECK(tErr.iRefSvcNum == 0);
  MSG_Destroy(pSub);
}

static void Scalars(void) {
  CMsg* pMsg = NewMsg(100);
  int iOut = 42;
  double dOut = 42;

  CHECK(MSG_GetInt(pMsg, 2, &iOut) == -1);
  CHECK(iOut == 0);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-1) : No Data found {tagnum=2}");
  CHECK(MSG_SetInt(pMsg, 2, -2147483647 - 1) == 0);
  CHECK(MSG_GetInt(pMsg, 2, &iOut) == 0);
  CHECK(iOut == -2147483647 - 1);
  CHECK(MSG_SetInt(pMsg, 2, 2147483647) == 0);
  CHECK(MSG_GetInt(pMsg, 2, &iOut) == 0);
  CHECK(iOut == 2147483647);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-1) : No Data found {tagnum=2}"); /* of the latest failure */

  CHECK(MSG_GetDbl(pMsg, 3, &dOut) == -1);
  CHECK(dOut == 0);
  CHECK(MSG_SetDbl(pMsg, 3, -0.125) == 0);
  CHECK(MSG_GetDbl(pMsg, 3, &dOut) == 0);
  CHECK(dOut == -0.125);

  iOut = 42;
  CHECK(MSG_GetBool(pMsg, 4, &iOut) == -1);
  CHECK(iOut == 0);
  CHECK(MSG_SetBool(pMsg, 4, 2) == 0);
  CHECK(MSG_GetBool(pMsg, 4, &iOut) == 0);
  CHECK(iOut == 255);
  CHECK(MSG_SetBool(pMsg, 4, 0) == 0);
  CHECK(MSG_GetBool(pMsg, 4, &iOut) == 0);
  CHECK(iOut == 0);
  CHECK(MSG_SetBool(pMsg, 4, -1) == 0);
  CHECK(MSG_GetBool(pMsg, 4, &iOut) == 0);
  CHECK(iOut == 255);

  CHECK(MSG_SetInt(pMsg, 9, 5) == -18);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=100, tagnum=9}");
  CHECK(MSG_SetInt(pMsg, -1, 5) == -18);
  CHECK(MSG_SetDbl(pMsg, 2, 1.5) == -17);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-17) : Invalid tag type {Line:1280, tagnum=2,type=(integer/double)}");
  CHECK(MSG_SetBool(pMsg, 2, 1) == -17);
  CHECK(MSG_SetStr(pMsg, 2, "x") == -17);
  CHECK(MSG_SetDate(pMsg, 2, "20240628") == -17);
  CHECK(MSG_SetInt(pMsg, 1, 5) == -17);
  iOut = 42;
  CHECK(MSG_GetBool(pMsg, 2, &iOut) == -17);
  CHECK(iOut == 0);

  CHECK(MSG_GetInt(pMsg, 2, NULL) == -12);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-12) : Parameter is NULL {}");
  CHECK(MSG_GetDbl(pMsg, 3, NULL) == -12);
  CHECK(MSG_GetBool(pMsg, 4, NULL) == -12);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-12) : Parameter is NULL {}");
  MSG_Destroy(pMsg);
}

static void Strings(void) {
  CMsg* pMsg = NewMsg(100);
  char szBuf[8] = "#######";
  char szLong[5001];
  char* szCopy;
  int iRet = 42;

  CHECK(MSG_GetStrEx(pMsg, 1, &iRet) == NULL);
  CHECK(iRet == -1);
  CHECK(MSG_GetStrLen(pMsg, 1) == -1);
  CHECK(MSG_GetStr(pMsg, 1, szBuf) == -1);
  CHECK_TEXT(szBuf, "#######");
  CHECK(MSG_SetStr(pMsg, 1, "") == 0);
  CHECK(MSG_SetStr(pMsg, 1, NULL) == 0);
  CHECK(MSG_SetStr(pMsg, 9, "") == 0); /* nothing is checked */
  CHECK(MSG_GetStrLen(pMsg, 1) == -1);

  CHECK(MSG_SetStr(pMsg, 1, "abc") == 0);
  CHECK(MSG_GetStrLen(pMsg, 1) == 3);
  CHECK(MSG_GetStr(pMsg, 1, szBuf) == 0);
  CHECK(memcmp(szBuf, "abc\0###", 8) == 0); /* four characters are written, no more */
  szCopy = MSG_GetStrEx(pMsg, 1, &iRet);
  CHECK(iRet == 0);
  CHECK_TEXT(szCopy, "abc");
  CHECK(MSG_SetStr(pMsg, 1, "other") == 0);
  CHECK_TEXT(szCopy, "abc"); /* a copy */
  free(szCopy);
  szCopy = MSG_GetStrEx(pMsg, 1, NULL);
  CHECK_TEXT(szCopy, "other");
  free(szCopy);
  CHECK(MSG_GetStr(pMsg, 1, NULL) == -12);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-12) : Parameter is NULL {}");
  CHECK(MSG_GetStrEx(pMsg, 2, NULL) == NULL);

  memset(szLong, 'x', 5000);
  szLong[5000] = 0;
  CHECK(MSG_SetStr(pMsg, 1, szLong) == 0);
  CHECK(MSG_GetStrLen(pMsg, 1) == 5000);
  szCopy = MSG_GetStrEx(pMsg, 1, NULL);
  CHECK_TEXT(szCopy, szLong);
  free(szCopy);
  MSG_Destroy(pMsg);
}

static void Dates(void) {
  CMsg* pMsg = NewMsg(100);
  char szBuf[12];

  memset(szBuf, '#', sizeof(szBuf));
  CHECK(MSG_GetDate(pMsg, 5, szBuf) == -1);
  CHECK(memcmp(szBuf, "############", 12) == 0);
  CHECK(MSG_SetDate(pMsg, 5, "") == 0);
  CHECK(MSG_SetDate(pMsg, 5, NULL) == 0);
  CHECK(MSG_SetDate(pMsg, 9, "") == 0); /* whatever the tag */
  CHECK(MSG_SetDate(pMsg, 2, "") == 0);
  CHECK(MSG_GetArrSize(pMsg, 5) == -1);

  CHECK(MSG_SetDate(pMsg, 5, "20240628") == 0);
  CHECK(MSG_GetDate(pMsg, 5, szBuf) == 0);
  CHECK(memcmp(szBuf, "20240628\0###", 12) == 0); /* nine characters are written, no more */
  CHECK(MSG_SetDate(pMsg, 5, "20240628-120000") == 0);
  CHECK(MSG_GetDate(pMsg, 5, szBuf) == 0);
  CHECK(memcmp(szBuf, "20240628\0###", 12) == 0);
  memset(szBuf, '#', sizeof(szBuf));
  CHECK(MSG_SetDate(pMsg, 5, "2024") == 0);
  CHECK(MSG_GetDate(pMsg, 5, szBuf) == 0);
  CHECK_TEXT(szBuf, "2024");
  CHECK(szBuf[8] == 0);
  CHECK(memcmp(szBuf + 9, "###", 3) == 0);
  CHECK(MSG_GetDate(pMsg, 5, NULL) == -12);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-12) : Parameter is NULL {}");
  MSG_Destroy(pMsg);
}

static void SubMessages(void) {
  CMsg* pMsg = NewMsg(100);
  CMsg* pSub = NewRow("sub");
  CMsg* pRow;
  int iRet = 42;
  char szBuf[16];

  CHECK(MSG_GetSub(pMsg, 6, &iRet) == NULL);
  CHECK(iRet == -1);
  CHECK(MSG_GetSub(pMsg, 6, NULL) == NULL);
  CHECK(MSG_SetSub(pMsg, 6, NULL) == -12);
  CHECK(MSG_SetSub(pMsg, 6, NewMsg(101)) == 0); /* empty: freed, nothing is stored */
  CHECK(MSG_GetArrSize(pMsg, 6) == -1);
  CHECK(MSG_SetSub(pMsg, 2, pSub) == -17); /* it stays ours */
  CHECK(MSG_SetSub(pMsg, 9, pSub) == -18);
  CHECK(MSG_SetSub(pMsg, 6, pSub) == 0);
  CHECK(MSG_GetSub(pMsg, 6, &iRet) == pSub);
  CHECK(iRet == 0);
  CHECK(MSG_GetSub(pMsg, 6, NULL) == pSub);
  CHECK(MSG_GetSelfNum(pSub) == 101);
  CHECK(MSG_GetStr(pSub, 1, szBuf) == 0);
  CHECK_TEXT(szBuf, "sub");
  CHECK(MSG_SetSub(pMsg, 16, pSub) == -28); /* it has a parent */
  MSG_Destroy(pSub);                        /* it takes itself out */
  CHECK(MSG_GetSub(pMsg, 6, &iRet) == NULL);
  CHECK(iRet == -1);
  CHECK(MSG_SetSub(pMsg, 6, pRow = NewRow("replaced")) == 0);
  CHECK(MSG_SetSub(pMsg, 6, pSub = NewRow("sub")) == 0);
  CHECK(MSG_SetSub(pMsg, 16, pRow) == 0); /* a replaced one is ours again */
  MSG_Destroy(pRow);
  CHECK(MSG_GetAtSubArr(pMsg, 16, 0, &iRet) == NULL);
  CHECK(iRet == 0);
  CHECK(MSG_GetArrSize(pMsg, 16) == 1);
  MSG_Clear(pMsg);
  CHECK(MSG_GetArrSize(pMsg, 16) == -1);
  CHECK(MSG_GetSelfNum(pMsg) == 100);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-1) : No Data found {tagnum=16}");
  MSG_Clear(pMsg);
  CHECK_TEXT(MSG_GetLastError(pMsg), "");
  CHECK(MSG_SetSub(pMsg, 6, pSub = NewRow("sub")) == 0);

  pRow = MSG_NewSub(pMsg, 16, &iRet);
  CHECK(pRow != NULL);
  CHECK(iRet == 0);
  CHECK(MSG_GetAtSubArr(pMsg, 16, 0, NULL) == pRow);
  MSG_Destroy(pRow); /* ignored: it is the message's */
  CHECK(MSG_SetStr(pRow, 1, "row") == 0);
  CHECK(MSG_NewSub(pMsg, 6, NULL) == pSub);
  CHECK(MSG_NewSub(pMsg, 2, &iRet) == NULL);
  CHECK(iRet == -17);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-17) : Invalid tag type {Line:1441, tagnum=2,type=(integer/submsg)}");
  CHECK(MSG_NewSub(NULL, 6, &iRet) == NULL);
  CHECK(iRet == -12);
  MSG_Clear(NULL);
  MSG_Clear(pMsg);
  CHECK(MSG_SetSub(pMsg, 6, pSub = NewRow("sub")) == 0);

  CHECK(MSG_SetSub(pMsg, 16, NewRow("first")) == 0);
  CHECK(MSG_SetSub(pMsg, 16, NewRow("second")) == 0);
  CHECK(MSG_GetArrSize(pMsg, 16) == 2);
  pRow = MSG_GetAtSubArr(pMsg, 16, 1, &iRet);
  CHECK(iRet == 0);
  CHECK(MSG_GetStr(pRow, 1, szBuf) == 0);
  CHECK_TEXT(szBuf, "second");
  pRow = MSG_GetSub(pMsg, 16, &iRet); /* of an array, the first */
  CHECK(MSG_GetStr(pRow, 1, szBuf) == 0);
  CHECK_TEXT(szBuf, "first");
  CHECK(MSG_GetAtSubArr(pMsg, 16, 2, &iRet) == NULL);
  CHECK(iRet == -27);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-1) : No Data found {tagnum=16}");
  CHECK(MSG_GetAtSubArr(pMsg, 16, -1, NULL) == NULL);
  CHECK(MSG_GetAtSubArr(pMsg, 6, 5, &iRet) == pSub); /* a single tag has its value at any index */
  CHECK(iRet == 0);
  MSG_Destroy(pMsg);
}

static void Arrays(void) {
  CMsg* pMsg = NewMsg(100);
  int iOut = 42;
  double dOut = 42;
  char szBuf[12];
  char* szCopy;

  CHECK(MSG_GetArrSize(pMsg, 12) == -1);
  CHECK(MSG_GetAtIntArr(pMsg, 12, 0, &iOut) == -1);
  CHECK(iOut == 0);
  CHECK(MSG_SetInt(pMsg, 12, 10) == 0);
  CHECK(MSG_SetInt(pMsg, 12, 20) == 0);
  CHECK(MSG_SetInt(pMsg, 12, 30) == 0);
  CHECK(MSG_GetArrSize(pMsg, 12) == 3);
  CHECK(MSG_GetInt(pMsg, 12, &iOut) == 0);
  CHECK(iOut == 10);
  CHECK(MSG_GetAtIntArr(pMsg, 12, 2, &iOut) == 0);
  CHECK(iOut == 30);
  CHECK(MSG_GetAtIntArr(pMsg, 12, 3, &iOut) == -27);
  CHECK(iOut == 0);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-1) : No Data found {tagnum=12}");
  CHECK(MSG_GetAtIntArr(pMsg, 12, -1, &iOut) == -27);
  CHECK(MSG_GetAtIntArr(pMsg, 12, 0, NULL) == -12);

  CHECK(MSG_SetDbl(pMsg, 13, 0.5) == 0);
  CHECK(MSG_SetDbl(pMsg, 13, -2) == 0);
  CHECK(MSG_GetAtDblArr(pMsg, 13, 1, &dOut) == 0);
  CHECK(dOut == -2);
  CHECK(MSG_GetAtDblArr(pMsg, 13, 2, &dOut) == -27);
  CHECK(dOut == 0);
  CHECK(MSG_GetAtDblArr(pMsg, 13, 0, NULL) == -12);

  CHECK(MSG_SetBool(pMsg, 14, 0) == 0);
  CHECK(MSG_SetBool(pMsg, 14, 1) == 0);
  CHECK(MSG_GetAtBoolArr(pMsg, 14, 0, &iOut) == 0);
  CHECK(iOut == 0);
  CHECK(MSG_GetAtBoolArr(pMsg, 14, 1, &iOut) == 0);
  CHECK(iOut == 255);
  CHECK(MSG_GetAtBoolArr(pMsg, 14, 2, &iOut) == -27);
  CHECK(iOut == 0);
  CHECK(MSG_GetAtBoolArr(pMsg, 14, 0, NULL) == -12);

  CHECK(MSG_SetStr(pMsg, 11, "one") == 0);
  CHECK(MSG_SetStr(pMsg, 11, "three") == 0);
  CHECK(MSG_GetArrSize(pMsg, 11) == 2);
  memset(szBuf, '#', sizeof(szBuf));
  CHECK(MSG_GetAtStrLen(pMsg, 11, 1) == 5);
  CHECK(MSG_GetAtStrLen(pMsg, 11, 2) == -27);
  CHECK(MSG_GetAtStrArr(pMsg, 11, 2, szBuf) == -27);
  CHECK(memcmp(szBuf, "############", 12) == 0);
  CHECK(MSG_GetAtStrArr(pMsg, 11, 1, szBuf) == 0);
  CHECK(memcmp(szBuf, "three\0######", 12) == 0);
  CHECK(MSG_GetAtStrArr(pMsg, 11, 0, NULL) == -12);
  szCopy = MSG_GetAtStrArrEx(pMsg, 11, 0, &iOut);
  CHECK(iOut == 0);
  CHECK_TEXT(szCopy, "one");
  free(szCopy);
  CHECK(MSG_GetAtStrArrEx(pMsg, 11, 2, &iOut) == NULL);
  CHECK(iOut == -27);
  CHECK(MSG_GetAtStrArrEx(pMsg, 11, 2, NULL) == NULL);

  CHECK(MSG_SetDate(pMsg, 15, "20240101") == 0);
  CHECK(MSG_SetDate(pMsg, 15, "20240628") == 0);
  memset(szBuf, '#', sizeof(szBuf));
  CHECK(MSG_GetAtDateArr(pMsg, 15, 2, szBuf) == -27);
  CHECK(memcmp(szBuf, "############", 12) == 0);
  CHECK(MSG_GetAtDateArr(pMsg, 15, 1, szBuf) == 0);
  CHECK(memcmp(szBuf, "20240628\0###", 12) == 0);
  CHECK(MSG_GetAtDateArr(pMsg, 15, 0, NULL) == -12);

  /* A single tag has one value, at any index. */
  CHECK(MSG_SetInt(pMsg, 2, 5) == 0);
  CHECK(MSG_GetArrSize(pMsg, 2) == 1);
  CHECK(MSG_GetAtIntArr(pMsg, 2, 1000, &iOut) == 0);
  CHECK(iOut == 5);
  CHECK(MSG_GetArrSize(pMsg, 9) == -18);
  MSG_Destroy(pMsg);
}

static void Columns(void) {
  CMsg* pMsg = NewMsg(100);
  int aiOut[3] = {42, 42, 42};
  unsigned char abSet[3];
  char szTexts[16];
  size_t auOffset[4];
  CHECK(MSG_GetIntColumn(pMsg, 16, 2, aiOut, abSet, 3) == -1);
  CHECK(aiOut[0] == 0);
  CHECK(MSG_SetStr(MSG_NewSub(pMsg, 16, NULL), 1, "one") == 0);
  CHECK(MSG_SetInt(MSG_NewSub(pMsg, 16, NULL), 2, 20) == 0);
  CHECK(MSG_GetIntColumn(pMsg, 16, 2, aiOut, abSet, 3) == 2);
  CHECK(aiOut[0] == 0 && aiOut[1] == 20 && aiOut[2] == 0);
  CHECK(abSet[0] == 0 && abSet[1] == 1 && abSet[2] == 0);
  CHECK(MSG_GetStrColumn(pMsg, 16, 1, NULL, 0, auOffset, abSet, 2) == 2);
  CHECK(auOffset[2] == 5);
  CHECK(MSG_GetStrColumn(pMsg, 16, 1, szTexts, 4, auOffset, abSet, 2) == -27);
  CHECK(MSG_GetStrColumn(pMsg, 16, 1, szTexts, sizeof(szTexts), auOffset, abSet, 2) == 2);
  CHECK_TEXT(szTexts + auOffset[0], "one");
  CHECK_TEXT(szTexts + auOffset[1], "");
  CHECK(abSet[0] == 1 && abSet[1] == 0);
  CHECK(MSG_GetDblColumn(pMsg, 16, 2, NULL, abSet, 2) == -12);
  CHECK(MSG_GetBoolColumn(pMsg, 16, 2, aiOut, abSet, 2) == -17);
  CHECK(MSG_GetDateColumn(pMsg, 16, 9, szTexts, abSet, 1) == -18);
  CHECK_TEXT(MSG_GetLastError(pMsg), "MSG_Error(-18) : Not defined tag in dictionary {msgnum=101, tagnum=9}");
  MSG_Destroy(pMsg);
}

static void Dictionary(void) {
  CHECK(MSG_NextMsg(0) == 1 && MSG_NextMsg(1) == 10 && MSG_NextMsg(10) == 100 && MSG_NextMsg(101) == 0);
  CHECK(MSG_FindMsg("Row") == 101);
  CHECK(MSG_FindMsg("row") == -19);
  CHECK_TEXT(MSG_GetMsgName(100), "Everything");
  CHECK(MSG_GetTagCount(100) == 12);
  CHECK(MSG_GetTagNum(100, 11) == 16);
  CHECK(MSG_GetTagNum(100, 12) == -27);
  CHECK(MSG_FindTag(100, "rows") == 16);
  CHECK_TEXT(MSG_GetTagName(100, 16), "rows");
  CHECK(MSG_GetTagType(100, 16) == MSG_TYPE_SUBMSG);
  CHECK(MSG_GetTagType(100, 3) == MSG_TYPE_DOUBLE);
  CHECK(MSG_GetTagType(100, 9) == -18);
  CHECK(MSG_GetTagSubMsg(100, 16) == 101);
  CHECK(MSG_IsArrayTag(100, 16) == 1 && MSG_IsArrayTag(100, 6) == 0);
}

static char* ReadFile(const char* p_szPath) {
  static char s_szContent[10000];
  size_t iLen = 0;
  FILE* pFile = fopen(p_szPath, "rb");
  if (pFile != NULL) {
    iLen = fread(s_szContent, 1, sizeof(s_szContent) - 1, pFile);
    fclose(pFile);
  }
  s_szContent[iLen] = 0;
  return s_szContent;
}

#define LISTING                                             \
  "Msg Dump ======================================\n"      \
  "  MsgNum : 100\n"                                        \
  "    Type : index\n"                                      \
  "     Ver : \n"                                           \
  "    [1](text) abc\n"                                     \
  "    [3](price) 2.500000000000000e+00\n"                  \
  "    [6](row) SUBMSG(101)\n"                              \
  "      [1](text) sub\n"                                   \
  "    [12](numbers) 10 20\n"                               \
  "===============================================\n"

static void Dumps(const char* p_szDir) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pMsg = NewMsg(100);
  char szPath[500];
  char szOutPath[500];
  CHECK(MSG_SetStr(pMsg, 1, "abc") == 0);
  CHECK(MSG_SetDbl(pMsg, 3, 2.5) == 0);
  CHECK(MSG_SetSub(pMsg, 6, NewRow("sub")) == 0);
  CHECK(MSG_SetInt(pMsg, 12, 10) == 0);
  CHECK(MSG_SetInt(pMsg, 12, 20) == 0);

  snprintf(szPath, sizeof(szPath), "%s/dump", p_szDir);
  CHECK(MSG_Dump(pMsg, szPath, &tErr) == 0);
  CHECK_TEXT(ReadFile(szPath), LISTING);
  CHECK(MSG_Dump(pMsg, szPath, NULL) == 0);
  CHECK_TEXT(ReadFile(szPath), LISTING LISTING);
  CheckOld(&tErr, __LINE__);

  snprintf(szOutPath, sizeof(szOutPath), "%s/stdout", p_szDir);
  CHECK(freopen(szOutPath, "w", stdout) != NULL);
  CHECK(MSG_Dump(pMsg, NULL, &tErr) == 0);
  CHECK_TEXT(ReadFile(szOutPath), LISTING); /* flushed */
  CHECK(printf("more\n") > 0 && fflush(stdout) == 0);
  CHECK_TEXT(ReadFile(szOutPath), LISTING "more\n"); /* and not closed */
  CheckOld(&tErr, __LINE__);

  CHECK(MSG_Dump(pMsg, "/nonexistent/dump", NULL) == -1);
  CHECK(MSG_Dump(pMsg, "/nonexistent/dump", &tErr) == -1);
  CHECK(tErr.iCode == -32);
  CHECK_TEXT(tErr.szText, "cannot open file");
  CHECK(tErr.iRefSvcNum == 0);

  tErr = s_tOld;
  CHECK(MSG_Dump(pMsg, "/dev/full", &tErr) == -1);
  CHECK(tErr.iCode == -32);
  CHECK_TEXT(tErr.szText, "cannot write file");
  CHECK(tErr.iRefSvcNum == 0);
  CHECK(freopen("/dev/full", "w", stdout) != NULL);
  tErr = s_tOld;
  CHECK(MSG_Dump(pMsg, NULL, &tErr) == -1);
  CHECK_TEXT(tErr.szText, "cannot write file");
  MSG_Destroy(pMsg);
}

static void Calls(void) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pIn = NewMsg(100);
  CMsg* pOut = NewMsg(0);
  char szLong[1023];
  int iOut = 0;
  CHECK(MSG_SetInt(pIn, 2, 5) == 0);
  CHECK(CallOrv_CallService(SVC_ECHO, pIn, pOut, NULL) == -12);
  CHECK(CallOrv_CallService(SVC_ECHO, pIn, pOut, &tErr) == 0);
  CheckOld(&tErr, __LINE__);
  CHECK(MSG_GetSelfNum(pOut) == 100);
  CHECK(MSG_GetInt(pOut, 2, &iOut) == 0);
  CHECK(iOut == 5);

  CHECK(CallOrv_CallService(SVC_ECHO, NULL, pOut, &tErr) == -2);
  CHECK(tErr.iCode == -12);
  CHECK_TEXT(tErr.szText, "Parameter is NULL");
  CHECK(tErr.iRefSvcNum == SVC_ECHO);
  CHECK(CallOrv_CallService(SVC_ECHO, pIn, NULL, &tErr) == -2);

  CHECK(CallOrv_CallService(SVC_CLOSE, pIn, pOut, &tErr) == -3);
  CHECK(tErr.iCode == -5);
  CHECK_TEXT(tErr.szText, "Socket closed(-9)(OK)");
  CHECK(tErr.iRefSvcNum == -1);

  CHECK(CallOrv_CallService(SVC_REJECT, pIn, pOut, &tErr) == -4);
  CHECK(tErr.iCode == 4017);
  CHECK_TEXT(tErr.szText, "no funds");
  CHECK(tErr.iRefSvcNum == 1234);
  CHECK(CallOrv_CallService(SVC_ECHO, pIn, pOut, &tErr) == 0);
  CHECK(tErr.iCode == 4017); /* success does not clear the record */
  CHECK_TEXT(tErr.szText, "no funds");

  memset(szLong, 'r', 1022);
  szLong[1022] = 0;
  CHECK(CallOrv_CallService(SVC_REJECT_LONG, pIn, pOut, &tErr) == -4);
  CHECK_TEXT(tErr.szText, szLong); /* of 2,000 characters */
  CHECK(tErr.iRefSvcNum == 5678);
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
}

/* As an application's own loop does it. */
static void StepAll(CallOrv_Call* p_pCall) {
  while (CallOrv_Step(p_pCall) == 1) {
    struct pollfd tPoll;
    tPoll.fd = CallOrv_GetFd(p_pCall);
    tPoll.events = (short)CallOrv_GetEvents(p_pCall);
    poll(&tPoll, 1, CallOrv_GetTimeLeft(p_pCall));
  }
}

static void CallsInFlight(void) {
  CallOrv_Error tErr = s_tOld;
  CMsg* pIn = NewMsg(100);
  CMsg* pOut = NewMsg(0);
  CallOrv_Call* apCalls[2];
  int iOut = 0;
  CHECK(MSG_SetInt(pIn, 2, 5) == 0);
  CHECK(CallOrv_Start(SVC_ECHO, pIn, 20000, NULL) == NULL);
  CHECK(CallOrv_Resolve(&tErr) == 0);
  apCalls[0] = CallOrv_Start(SVC_ECHO, pIn, 20000, &tErr);
  CHECK(MSG_SetInt(pIn, 2, 6) == 0); /* the first call has gone */
  apCalls[1] = CallOrv_Start(SVC_REJECT, pIn, 20000, &tErr);
  CHECK(apCalls[0] != NULL && apCalls[1] != NULL);
  CHECK(CallOrv_GetFd(apCalls[0]) >= 0);
  CHECK(CallOrv_GetUser(apCalls[0]) == NULL);
  CallOrv_SetUser(apCalls[0], &tErr);
  CHECK(CallOrv_GetUser(apCalls[0]) == &tErr);
  StepAll(apCalls[0]);
  CHECK(CallOrv_GetEvents(apCalls[0]) == 0);
  CHECK(CallOrv_Finish(apCalls[0], pOut, &tErr) == 0);
  CheckOld(&tErr, __LINE__);
  CHECK(MSG_GetInt(pOut, 2, &iOut) == 0);
  CHECK(iOut == 5);

  apCalls[0] = NULL;
  CHECK(CallOrv_WaitAny(apCalls, 2, -1) == 1);
  CHECK(CallOrv_Finish(apCalls[1], pOut, &tErr) == -4);
  CHECK(tErr.iCode == 4017);
  CHECK_TEXT(tErr.szText, "no funds");
  CHECK(tErr.iRefSvcNum == 1234);
  CHECK(CallOrv_Finish(CallOrv_Start(SVC_CLOSE, pIn, 20000, &tErr), pOut, &tErr) == -3);
  CHECK(tErr.iCode == -5);
  CHECK_TEXT(tErr.szText, "Socket closed(-9)(OK)");
  CHECK(tErr.iRefSvcNum == -1);
  CHECK(CallOrv_Start(SVC_ECHO, NULL, 20000, &tErr) == NULL);
  CHECK(tErr.iCode == -12);
  CallOrv_Cancel(CallOrv_Start(SVC_ECHO, pIn, 20000, &tErr));
  CallOrv_Cancel(NULL);

  CHECK(CallOrv_CallServiceWithin(SVC_ECHO, pIn, pOut, 20000, NULL) == -12);
  CHECK(CallOrv_CallServiceWithin(SVC_ECHO, NULL, pOut, 20000, &tErr) == -2);
  tErr = s_tOld;
  CHECK(CallOrv_CallServiceWithin(SVC_ECHO, pIn, pOut, 20000, &tErr) == 0);
  CheckOld(&tErr, __LINE__);
  MSG_Destroy(pIn);
  MSG_Destroy(pOut);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s CONFIGURATION DIRECTORY\n", argv[0]);
    return EXIT_FAILURE;
  }
  BeforeInitialisation();
  Initialisation(argv[1]);
  NewMessages();
  NullHandle();
  Scalars();
  Strings();
  Dates();
  SubMessages();
  Arrays();
  Columns();
  Dictionary();
  Calls();
  CallsInFlight();
  Dumps(argv[2]); /* the last: it takes standard output away */
  return s_iFailed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
