// Hash chains keyed by tag number, as definitions and messages keep them.
#ifndef CALLORV_MSG_CHAIN_INDEX_H
#define CALLORV_MSG_CHAIN_INDEX_H

#include <new>
#include <unordered_map>

namespace callorv::detail {

inline constexpr int CHAINS = 128, LONG_CHAIN = 16;

// Short cuts into 128 chains once one of them is long, so that neither finding nor appending a node walks it. A NODE has
// m_iTagNum and m_pNext. The chains stay what they are; the index only points into them.
template <class NODE>
class CChainIndex {
 public:
  explicit CChainIndex(NODE* const (&p_apHead)[CHAINS]) {
    for (int i = 0; i < CHAINS; ++i) {
      for (NODE* p = p_apHead[i]; p != nullptr; p = p->m_pNext) Add(i, p);
    }
  }
  NODE* Find(int p_iTag) const {
    const auto it = m_cByTag.find(p_iTag);
    return it != m_cByTag.end() ? it->second : nullptr;
  }
  NODE* Last(unsigned p_iChain) const { return m_apLast[p_iChain]; }
  void Add(unsigned p_iChain, NODE* p_pNode) {
    m_cByTag.emplace(p_pNode->m_iTagNum, p_pNode);    // of a tag that comes twice, the first stays
    m_apLast[p_iChain] = p_pNode;
  }

 private:
  std::unordered_map<int, NODE*> m_cByTag;
  NODE* m_apLast[CHAINS] = {};
};

// Tag numbers are not negative as a rule, but a negative one must not leave the table either.
inline unsigned ChainOf(int p_iTag, int p_iHashKey) {
  return static_cast<unsigned>(p_iTag) % static_cast<unsigned>(p_iHashKey);
}

template <class NODE>
NODE* FindInChain(NODE* p_pHead, const CChainIndex<NODE>* p_pIndex, int p_iTag) {
  if (p_pIndex != nullptr) return p_pIndex->Find(p_iTag);
  while (p_pHead != nullptr && p_pHead->m_iTagNum != p_iTag) p_pHead = p_pHead->m_pNext;
  return p_pHead;
}

// Puts p_pNode at the end of its chain. p_pIndex is made when that chain has become long, and given up when there is no
// memory for it: everything works without, only slower.
template <class NODE>
void AppendToChain(NODE* (&p_apHead)[CHAINS], CChainIndex<NODE>*& p_pIndex, unsigned p_iChain, NODE* p_pNode) noexcept {
  NODE** ppEnd = &p_apHead[p_iChain];
  if (p_pIndex != nullptr && p_pIndex->Last(p_iChain) != nullptr) ppEnd = &p_pIndex->Last(p_iChain)->m_pNext;
  int iSteps = 0;
  for (; *ppEnd != nullptr; ++iSteps) ppEnd = &(*ppEnd)->m_pNext;
  *ppEnd = p_pNode;
  try {
    if (p_pIndex != nullptr) {
      p_pIndex->Add(p_iChain, p_pNode);
    } else if (iSteps >= LONG_CHAIN) {
      p_pIndex = new CChainIndex<NODE>(p_apHead);
    }
  } catch (const std::bad_alloc&) {
    delete p_pIndex;
    p_pIndex = nullptr;
  }
}

}    // namespace callorv::detail

#endif
