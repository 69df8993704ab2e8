// One tag of all rows at once, for C: programs in other languages pay for every call.
#include <string.h>

#include <string_view>

#include "callorv/base/date.h"
#include "callorv/callorv.h"
#include "callorv/msg/msg.h"
#include "capi/guard.h"
#include "msg/access.h"

using namespace callorv::detail;

namespace {

// The value in a row, of an array the first. 1; 0: there is none; or why there can be none, with the text on the
// message.
template <class T>
int GetFromRow(CMsg& p_cMsg, const CMsg& p_cRow, int p_iTag, T* p_pOut) {
  using V = ValueTraits<T>;
  CMsgValue* pCell = CCells::FindSet(p_cRow, p_iTag, V::eType);
  if (pCell != nullptr) {
    if (!pCell->m_bMulti) return static_cast<int>(Load(*pCell, *p_pOut));
    Assign(*p_pOut, (pCell->*V::pArrayOf)->GetAt(0));
    return 1;
  }
  const CTagInfo* pTag = CCells::FindTag(p_cRow, p_iTag);
  if (pTag == nullptr) return CAccess::FailTag(p_cMsg, p_cRow, p_iTag);
  if (pTag->m_eType == V::eType) return 0;
  return CAccess::FailType(p_cMsg, p_iTag, pTag->m_eType, V::eType, s_tLines<T>.iGetArr);
}

// p_fnStore(i, value) for each i below p_iN, with null where there is none. The number of rows, or a negative code.
template <class T, class STORE>
int ReadColumn(CMsg& p_cMsg, int p_iRowsTag, int p_iTag, int p_iN, STORE p_fnStore) {
  const CMsgValue* pRows = CCells::FindSet(p_cMsg, p_iRowsTag, TAG_SUBMSG);
  if (pRows == nullptr) return CAccess::FailGet(p_cMsg, p_iRowsTag, TAG_SUBMSG, s_tLines<CMsg*>.iGetArr);
  const int iRows = p_cMsg.GetArrSize(p_iRowsTag);
  for (int i = 0; i < p_iN; ++i) {
    T Value{};
    const CMsg* pRow = nullptr;
    if (i < iRows) pRow = pRows->m_bMulti ? pRows->m_pMsgArr->GetAt(i) : pRows->m_pMsg;
    const int iGot = pRow != nullptr ? GetFromRow(p_cMsg, *pRow, p_iTag, &Value) : 0;
    if (iGot < 0) return iGot;
    p_fnStore(i, iGot > 0 ? &Value : nullptr);
  }
  return iRows;
}

// A column as callers get it: p_fnStore puts a value, or for null what stands for none, into their p_pOut.
template <class T, class STORE>
int GetColumn(CMsg* p_pMsg, int p_iRowsTag, int p_iTag, const void* p_pOut, unsigned char* p_abSet, int p_iN,
              STORE p_fnStore) {
  if (p_pMsg == nullptr) return MSG_NULL;
  const auto fnStore = [&](int p_i, const T* p_pValue) {
    if (p_pOut != nullptr) p_fnStore(p_i, p_pValue);
    if (p_abSet != nullptr) p_abSet[p_i] = p_pValue != nullptr;
  };
  const int iRet = Guard(p_pMsg, [&] {
    if (p_pOut == nullptr && p_iN > 0) return CAccess::FailOutput(*p_pMsg);
    return ReadColumn<T>(*p_pMsg, p_iRowsTag, p_iTag, p_iN, fnStore);
  });
  for (int i = 0; iRet < 0 && i < p_iN; ++i) fnStore(i, nullptr);
  return iRet;
}

}    // namespace

int MSG_GetIntColumn(CMsg* msg, int rowsTag, int tag, int* out, unsigned char* set, int n) {
  return GetColumn<int>(msg, rowsTag, tag, out, set, n,
                        [=](int p_i, const int* p_p) { out[p_i] = p_p != nullptr ? *p_p : 0; });
}

int MSG_GetDblColumn(CMsg* msg, int rowsTag, int tag, double* out, unsigned char* set, int n) {
  return GetColumn<double>(msg, rowsTag, tag, out, set, n,
                           [=](int p_i, const double* p_p) { out[p_i] = p_p != nullptr ? *p_p : 0; });
}

int MSG_GetBoolColumn(CMsg* msg, int rowsTag, int tag, int* out, unsigned char* set, int n) {
  return GetColumn<bool>(msg, rowsTag, tag, out, set, n,
                         [=](int p_i, const bool* p_p) { out[p_i] = p_p != nullptr && *p_p ? 255 : 0; });
}

int MSG_GetDateColumn(CMsg* msg, int rowsTag, int tag, char* out, unsigned char* set, int n) {
  return GetColumn<CDate>(msg, rowsTag, tag, out, set, n, [=](int p_i, const CDate* p_p) {
    constexpr size_t iLen = sizeof(CDate::m_szDate);
    char* const pDate = out + static_cast<size_t>(p_i) * iLen;
    if (p_p != nullptr) {
      memcpy(pDate, p_p->m_szDate, iLen);
    } else {
      memset(pDate, 0, iLen);
    }
  });
}

int MSG_GetStrColumn(CMsg* msg, int rowsTag, int tag, char* buf, size_t size, size_t* offsets, unsigned char* set,
                     int n) {
  const size_t iRoom = buf != nullptr ? size : 0;
  const int iRet = GetColumn<std::string_view>(
      msg, rowsTag, tag, offsets, set, n, [=](int p_i, const std::string_view* p_p) {
        const std::string_view svText = p_p != nullptr ? *p_p : std::string_view("");
        const size_t iAt = p_i > 0 ? offsets[p_i] : 0, iEnd = iAt + svText.size() + 1;
        if (iEnd <= iRoom) memcpy(buf + iAt, svText.data(), iEnd - iAt);
        offsets[p_i] = iAt;
        offsets[p_i + 1] = iEnd;
      });
  if (iRet < 0 || buf == nullptr || n < 1 || offsets[n] <= size) return iRet;
  return Guard(msg, [=] {
    msg->SetLastError(MSG_INDEX, "tagnum=%d", tag);
    return static_cast<int>(MSG_INDEX);
  });
}
