// Messages for C.
#include <cxxabi.h>
#include <stdio.h>
#include <string.h>

#include <string_view>

#include "base/cancel.h"
#include "callorv/base/date.h"
#include "callorv/base/stream.h"
#include "callorv/callorv.h"
#include "callorv/msg/msg.h"
#include "capi/guard.h"
#include "msg/access.h"

using namespace callorv::detail;

namespace {

constexpr char s_szNullMsg[] = "p_pMsg Parameter is NULL";

// What a getter does behind its CMsg operation. p_fnGet is that operation, plain or by index; given a null output
// it reports -12, so that a null of the caller's leaves code and text like any other failure.

template <class GET>
int GetBool(CMsg* p_pMsg, int* p_piOut, GET p_fnGet) {
  return Guard(p_pMsg, [&] {
    if (p_piOut != nullptr) *p_piOut = 0;    // also when the call throws
    bool bValue = false;
    const int iRet = p_fnGet(p_piOut != nullptr ? &bValue : nullptr);
    if (bValue) *p_piOut = 255;
    return iRet;
  });
}

template <class GET>
int GetStr(CMsg* p_pMsg, char* p_pBuf, GET p_fnGet) {
  return Guard(p_pMsg, [&] {
    std::string_view svValue;
    const int iRet = p_fnGet(p_pBuf != nullptr ? &svValue : nullptr);
    if (iRet >= 0) memcpy(p_pBuf, svValue.data(), svValue.size() + 1);
    return iRet;
  });
}

template <class GET>
int GetStrLen(CMsg* p_pMsg, GET p_fnGet) {
  return Guard(p_pMsg, [&] {
    std::string_view svValue;
    const int iRet = p_fnGet(&svValue);
    return iRet < 0 ? iRet : static_cast<int>(svValue.size());
  });
}

template <class GET>
char* GetStrEx(CMsg* p_pMsg, int* p_piRet, GET p_fnGet) {
  char* szCopy = nullptr;
  const int iRet = Guard(p_pMsg, [&] {
    std::string_view svValue;
    const int iGet = p_fnGet(&svValue);
    if (iGet < 0) return iGet;
    szCopy = strdup(svValue.data());
    return szCopy != nullptr ? 0 : static_cast<int>(MSG_MEMORY);
  });
  if (p_piRet != nullptr) *p_piRet = iRet;
  return szCopy;
}

template <class GET>
int GetDate(CMsg* p_pMsg, char* p_pBuf, GET p_fnGet) {
  return Guard(p_pMsg, [&] {
    CDate cValue;
    const int iRet = p_fnGet(p_pBuf != nullptr ? &cValue : nullptr);
    static_assert(sizeof(cValue.m_szDate) == 9, "callers' buffers hold 9 characters");
    if (iRet >= 0) memcpy(p_pBuf, cValue.m_szDate, sizeof(cValue.m_szDate));
    return iRet;
  });
}

template <class GET>
CMsg* GetSub(CMsg* p_pMsg, int* p_piRet, GET p_fnGet) {
  CMsg* pSub = nullptr;
  const int iRet = Guard(p_pMsg, [&] { return p_fnGet(&pSub); });
  if (p_piRet != nullptr) *p_piRet = iRet;
  return pSub;
}

}    // namespace

CMsg* MSG_GetNewMsg(int msgnum, CallOrv_Error*) { return MA_NewMsg(msgnum); }

void MSG_Destroy(CMsg* msg) { MA_FreeMsg(msg); }

void MSG_Clear(CMsg* msg) {
  if (msg != nullptr) msg->Clear();
}

int MSG_GetSelfNum(CMsg* msg) { return msg != nullptr ? msg->GetMsgNum() : MSG_NULL; }

const char* MSG_GetLastError(CMsg* msg) { return msg != nullptr ? msg->GetLastError() : s_szNullMsg; }

int MSG_Dump(CMsg* msg, const char* path, CallOrv_Error* err) {
  if (msg == nullptr) return SetError(err, MSG_NULL, s_szNullMsg, 0);
  return Guard(err, [&] {
    CFilePtr pFile;
    if (path != nullptr) {
      pFile.reset(fopen(path, "a"));
      if (pFile == nullptr) {
        SetError(err, MSG_FILE, "cannot open file", 0);
        return -1;
      }
    }
    CStream stText(0, 512);
    msg->Dump(&stText, false, 1);
    const size_t iLen = static_cast<size_t>(stText.GetSize());
    bool bWritten = fwrite(stText.GetData(), 1, iLen, pFile != nullptr ? pFile.get() : stdout) == iLen;
    if ((pFile != nullptr ? Close(pFile.release()) : fflush(stdout)) != 0) bWritten = false;
    if (bWritten) return 0;
    SetError(err, MSG_FILE, "cannot write file", 0);
    return -1;
  });
}

int MSG_SetInt(CMsg* msg, int tag, int v) {
  return Guard(msg, [&] { return msg->SetValue(tag, v); });
}

int MSG_SetDbl(CMsg* msg, int tag, double v) {
  return Guard(msg, [&] { return msg->SetValue(tag, v); });
}

int MSG_SetBool(CMsg* msg, int tag, int v) {
  return Guard(msg, [&] { return msg->SetValue(tag, v != 0); });
}

int MSG_SetStr(CMsg* msg, int tag, const char* v) {
  return Guard(msg, [&] {
    try {
      return msg->SetValue(tag, v);
    } catch (const abi::__forced_unwind&) {
      throw;    // the thread is being cancelled; swallowing that ends the process
    } catch (...) {
      return -1;
    }
  });
}

int MSG_SetDate(CMsg* msg, int tag, const char* text) {
  return Guard(msg, [&] { return msg->SetValue(tag, CDate(text)); });
}

CMsg* MSG_NewSub(CMsg* msg, int tag, int* rc) {
  return GetSub(msg, rc, [&](CMsg** p_ppSub) { return msg->NewSub(tag, p_ppSub); });
}

int MSG_SetSub(CMsg* msg, int tag, CMsg* sub) {
  return Guard(msg, [&] { return msg->SetValue(tag, sub); });
}

int MSG_GetInt(CMsg* msg, int tag, int* out) {
  return Guard(msg, [&] { return msg->GetValue(tag, out); });
}

int MSG_GetDbl(CMsg* msg, int tag, double* out) {
  return Guard(msg, [&] { return msg->GetValue(tag, out); });
}

int MSG_GetBool(CMsg* msg, int tag, int* out) {
  return GetBool(msg, out, [&](bool* p_p) { return msg->GetValue(tag, p_p); });
}

int MSG_GetStr(CMsg* msg, int tag, char* buf) {
  return GetStr(msg, buf, [&](std::string_view* p_p) { return CAccess::Get(*msg, tag, p_p); });
}

int MSG_GetStrLen(CMsg* msg, int tag) {
  return GetStrLen(msg, [&](std::string_view* p_p) { return CAccess::Get(*msg, tag, p_p); });
}

char* MSG_GetStrEx(CMsg* msg, int tag, int* rc) {
  return GetStrEx(msg, rc, [&](std::string_view* p_p) { return CAccess::Get(*msg, tag, p_p); });
}

int MSG_GetDate(CMsg* msg, int tag, char* buf) {
  return GetDate(msg, buf, [&](CDate* p_p) { return msg->GetValue(tag, p_p); });
}

CMsg* MSG_GetSub(CMsg* msg, int tag, int* rc) {
  return GetSub(msg, rc, [&](CMsg** p_pp) { return msg->GetValue(tag, p_pp); });
}

int MSG_GetArrSize(CMsg* msg, int tag) {
  return Guard(msg, [&] { return msg->GetArrSize(tag); });
}

int MSG_GetAtIntArr(CMsg* msg, int tag, int index, int* out) {
  return Guard(msg, [&] { return msg->GetValueAt(tag, index, out); });
}

int MSG_GetAtDblArr(CMsg* msg, int tag, int index, double* out) {
  return Guard(msg, [&] { return msg->GetValueAt(tag, index, out); });
}

int MSG_GetAtBoolArr(CMsg* msg, int tag, int index, int* out) {
  return GetBool(msg, out, [&](bool* p_p) { return msg->GetValueAt(tag, index, p_p); });
}

int MSG_GetAtStrArr(CMsg* msg, int tag, int index, char* buf) {
  return GetStr(msg, buf, [&](std::string_view* p_p) { return CAccess::GetAt(*msg, tag, index, p_p); });
}

int MSG_GetAtStrLen(CMsg* msg, int tag, int index) {
  return GetStrLen(msg, [&](std::string_view* p_p) { return CAccess::GetAt(*msg, tag, index, p_p); });
}

char* MSG_GetAtStrArrEx(CMsg* msg, int tag, int index, int* rc) {
  return GetStrEx(msg, rc, [&](std::string_view* p_p) { return CAccess::GetAt(*msg, tag, index, p_p); });
}

int MSG_GetAtDateArr(CMsg* msg, int tag, int index, char* buf) {
  return GetDate(msg, buf, [&](CDate* p_p) { return msg->GetValueAt(tag, index, p_p); });
}

CMsg* MSG_GetAtSubArr(CMsg* msg, int tag, int index, int* rc) {
  return GetSub(msg, rc, [&](CMsg** p_pp) { return msg->GetValueAt(tag, index, p_pp); });
}
