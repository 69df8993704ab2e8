// One message definition: its tags by number, by name and in order.
#include "callorv/dict/msg_info.h"

#include <new>
#include <utility>

#include "base/chain_index.h"
#include "base/text_out.h"
#include "callorv/base/exception.h"
#include "callorv/base/stream.h"
#include "callorv/error/error.h"
#include "dict/arena.h"
#include "dict/tag_types.h"

using namespace callorv::detail;

static_assert(CMsgInfo::BUCKETS == CHAINS);

CMsgInfo::CMsgInfo() noexcept : CMsgInfo(0, "", "", 0) {}

CMsgInfo::CMsgInfo(int p_iMsgNum, const char* p_szName, const char* p_szVer, int p_iHashKey)
    : m_iMsgNum(p_iMsgNum), m_sName(p_szName), m_sVer(p_szVer),
      m_iHashKey(p_iHashKey >= 1 && p_iHashKey <= BUCKETS ? p_iHashKey : +BUCKETS), m_apBucket(),
      m_cNameMap(0), m_pIndex(nullptr), m_iApart(0), m_pArena(nullptr) {}

CMsgInfo::~CMsgInfo() {
  delete m_pIndex;
  for (CTagInfo* p : m_apBucket) {
    while (p != nullptr) {
      CTagInfo* pTag = std::exchange(p, p->m_pNext);
      if (m_pArena != nullptr) {
        pTag->~CTagInfo();
      } else {
        delete pTag;
      }
    }
  }
}

const CTagInfo* CMsgInfo::GetTagInfo(int p_iTagNum) const {
  return FindInChain(m_apBucket[ChainOf(p_iTagNum, m_iHashKey)], m_pIndex, p_iTagNum);
}

bool CMsgInfo::IsMultiTag(int p_iTagNum) const {
  const CTagInfo* pTag = GetTagInfo(p_iTagNum);
  return pTag != nullptr && pTag->m_bArray;
}

E_TagType CMsgInfo::GetTagType(int p_iTagNum) const {
  const CTagInfo* pTag = GetTagInfo(p_iTagNum);
  return pTag != nullptr ? pTag->m_eType : TAG_UNKNOWN;
}

const char* CMsgInfo::GetTagName(int p_iTagNum) const {
  const CTagInfo* pTag = GetTagInfo(p_iTagNum);
  return pTag != nullptr ? pTag->m_sName.ToStr() : "";
}

int CMsgInfo::GetTagNumByName(const char* p_szName) const { return m_cNameMap.GetOr(p_szName, -1); }

void CMsgInfo::SetTagInfo(int p_iTagNum, const char* p_szName, E_TagType p_eType, int p_iSubMsg, bool p_bArray) {
  try {
    m_aTagOrder.Add(p_iTagNum);
    m_cNameMap.Set(p_szName, p_iTagNum, false);
    AddToChain(m_apBucket, m_pIndex, m_iHashKey, p_iTagNum, [&] {
      if (m_pArena == nullptr) return new CTagInfo(p_iTagNum, p_szName, p_eType, p_iSubMsg, p_bArray);
      void* p = m_pArena->Allocate(sizeof(CTagInfo));
      if (p == nullptr) throw std::bad_alloc();
      return new (p) CTagInfo(p_iTagNum, p_szName, p_eType, p_iSubMsg, p_bArray);
    });
  } catch (const std::bad_alloc&) {
    throw CException("(CTagInfo)", MSG_MEMORY);
  }
  if (!p_bArray && TagType(p_eType).bApart) ++m_iApart;
}

void CMsgInfo::Dump(CStream* p_pOut) const {
  CTextOut cOut(*p_pOut);
  for (int i = 0; i < GetNoTags(); ++i) {
    const CTagInfo* pTag = GetTagInfo(GetTagNumAt(i));
    if (pTag == nullptr) continue;
    const T_TagType& tType = TagType(pTag->m_eType);
    const CString sType = tType.bPlain                  ? CString(tType.szWord)
                          : pTag->m_eType == TAG_SUBMSG ? CFormat("m%04d", pTag->m_iSubMsg)
                                                        : CString("unknown");
    cOut.Put(CFormat("\t<tag no='%d' name='%s' type='%s' array='%s' />\n", pTag->m_iTagNum, pTag->m_sName.ToStr(),
                     sType.ToStr(), pTag->m_bArray ? "Y" : "N"));
  }
}
