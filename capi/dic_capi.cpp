// What the dictionary says, for C.
#include <string.h>

#include <algorithm>

#include "callorv/callorv.h"
#include "callorv/dict/msg_dic.h"
#include "capi/guard.h"
#include "msg/access.h"

namespace {

static_assert(MSG_TYPE_STRING == +TAG_STRING && MSG_TYPE_INTEGER == +TAG_INTEGER && MSG_TYPE_DOUBLE == +TAG_DOUBLE &&
              MSG_TYPE_BOOL == +TAG_BOOL && MSG_TYPE_DATE == +TAG_DATE && MSG_TYPE_SUBMSG == +TAG_SUBMSG);

// p_fnOf(definition); -19 when there is none.
template <class F>
int OfMsg(int p_iMsgNum, F p_fnOf) {
  const CMsgInfo* pInfo = MA_GetMsgDic()->GetMsgInfo(p_iMsgNum);
  return pInfo != nullptr ? p_fnOf(*pInfo) : MSG_UNDEF_MSG;
}

// p_fnOf(definition of the tag); -18 when there is none.
template <class F>
int OfTag(int p_iMsgNum, int p_iTag, F p_fnOf) {
  return OfMsg(p_iMsgNum, [&](const CMsgInfo& p_cInfo) {
    const CTagInfo* pTag = p_iTag >= 0 ? p_cInfo.GetTagInfo(p_iTag) : nullptr;
    return pTag != nullptr ? p_fnOf(*pTag) : static_cast<int>(MSG_UNDEF_TAG);
  });
}

}    // namespace

int MSG_NextMsg(int msgnum) {
  for (int i = std::clamp<int>(msgnum, 0, CMsgDic::SLOTS) + 1; i < CMsgDic::SLOTS; ++i) {
    if (MA_GetMsgDic()->GetMsgInfo(i) != nullptr) return i;
  }
  return 0;
}

int MSG_FindMsg(const char* name) {
  if (name == nullptr) return MSG_NULL;
  for (int i = MSG_NextMsg(0); i > 0; i = MSG_NextMsg(i)) {
    if (strcmp(MSG_GetMsgName(i), name) == 0) return i;
  }
  return MSG_UNDEF_MSG;
}

const char* MSG_GetMsgName(int msgnum) {
  const CMsgInfo* pInfo = MA_GetMsgDic()->GetMsgInfo(msgnum);
  return pInfo != nullptr ? callorv::detail::CAccess::NameOf(*pInfo) : nullptr;
}

int MSG_GetTagCount(int msgnum) {
  return OfMsg(msgnum, [](const CMsgInfo& p_cInfo) { return p_cInfo.GetNoTags(); });
}

int MSG_GetTagNum(int msgnum, int index) {
  return OfMsg(msgnum, [=](const CMsgInfo& p_cInfo) {
    return index >= 0 && index < p_cInfo.GetNoTags() ? p_cInfo.GetTagNumAt(index) : static_cast<int>(MSG_INDEX);
  });
}

int MSG_FindTag(int msgnum, const char* name) {
  if (name == nullptr) return MSG_NULL;
  return OfMsg(msgnum, [=](const CMsgInfo& p_cInfo) {
    const int iTag = p_cInfo.GetTagNumByName(name);
    return iTag >= 0 ? iTag : static_cast<int>(MSG_UNDEF_TAG);
  });
}

const char* MSG_GetTagName(int msgnum, int tag) {
  const char* szName = nullptr;
  OfTag(msgnum, tag, [&](const CTagInfo& p_cTag) {
    szName = p_cTag.m_sName.ToStr();
    return 0;
  });
  return szName;
}

int MSG_GetTagType(int msgnum, int tag) {
  return OfTag(msgnum, tag, [](const CTagInfo& p_cTag) { return static_cast<int>(p_cTag.m_eType); });
}

int MSG_GetTagSubMsg(int msgnum, int tag) {
  return OfTag(msgnum, tag, [](const CTagInfo& p_cTag) { return p_cTag.m_iSubMsg; });
}

int MSG_IsArrayTag(int msgnum, int tag) {
  return OfTag(msgnum, tag, [](const CTagInfo& p_cTag) { return p_cTag.m_bArray ? 1 : 0; });
}
