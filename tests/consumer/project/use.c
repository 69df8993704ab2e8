/* The C interface as an installed program sees it. */
#include <callorv/callorv.h>
#include <stdio.h>
#include <string.h>

#define CHECK(c) \
  if (!(c)) return fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #c), 1

int main(void) {
  CallOrv_Error tErr;
  CMsg* pMsg = MSG_GetNewMsg(0, &tErr);
  CHECK(pMsg != NULL);
  CHECK(MSG_GetSelfNum(pMsg) == 0);
  CHECK(MSG_SetInt(pMsg, 1, 5) == -19);
  CHECK(strcmp(MSG_GetLastError(pMsg), "MSG_Error(-19) : Not defined msg in dictionary {msgnum=0, tagnum=1}") == 0);
  CHECK(CallOrv_CallService(1001, pMsg, pMsg, &tErr) == -1);
  CHECK(tErr.iCode == -35 && tErr.iRefSvcNum == 1001);
  CHECK(strcmp(tErr.szText, "call CCallOrv::Initialize() first") == 0);
  MSG_Destroy(pMsg);
  return 0;
}
