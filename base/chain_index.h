// Hash chains keyed by tag number, as definitions and messages keep them.
#ifndef CALLORV_BASE_CHAIN_INDEX_H
#define CALLORV_BASE_CHAIN_INDEX_H

#include <new>
#include <unordered_map>

namespace callorv::detail {

inline constexpr int CHAINS = 128, LONG_CHAIN = 16;

// What is seldom so: it is kept off the short way through the code.
inline bool Seldom(bool p_b) { return __builtin_expect(p_b, false); }

// Short cuts into 128 chains once one of them is long, so that neither finding nor appending a node walks it. A NODE
// has m_iTagNum and m_pNext. The chains stay what they are; the index only points into them.
template <class NODE>
class CChainIndex {
 public:
  CChainIndex(NODE* const (&p_apHead)[CHAINS], int p_iChains) {
    for (int i = 0; i < p_iChains; ++i) {
      for (NODE* p = p_apHead[i]; p != nullptr; p = p->m_pNext) Add(i, p);
    }
  }
  [[gnu::noinline]] NODE* Find(int p_iTag) const {
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

// Tag numbers are not negative as a rule, but a negative one must not leave the table either. Hash keys are powers of
// two as a rule, and then no division is needed.
inline unsigned ChainOf(int p_iTag, int p_iHashKey) {
  const unsigned uTag = static_cast<unsigned>(p_iTag), uKey = static_cast<unsigned>(p_iHashKey);
  return Seldom((uKey & (uKey - 1)) != 0) ? uTag % uKey : uTag & (uKey - 1);
}

template <class NODE>
NODE* FindInChain(NODE* p_pHead, const CChainIndex<NODE>* p_pIndex, int p_iTag) {
  if (Seldom(p_pIndex != nullptr)) return p_pIndex->Find(p_iTag);
  while (p_pHead != nullptr && Seldom(p_pHead->m_iTagNum != p_iTag)) p_pHead = p_pHead->m_pNext;
  return p_pHead;
}

// Puts what p_fnNew() gives at the end of its chain and returns it (null when that gives null). p_pIndex is made when
// the chain has become long, and given up when there is no memory for it: everything works without, only slower.
template <class NODE, class F>
NODE* AddToChain(NODE* (&p_apHead)[CHAINS], CChainIndex<NODE>*& p_pIndex, int p_iHashKey, int p_iTag, F p_fnNew) {
  const unsigned iChain = ChainOf(p_iTag, p_iHashKey);
  NODE** ppEnd = &p_apHead[iChain];
  int iSteps = 0;
  if (p_pIndex != nullptr) {
    if (p_pIndex->Last(iChain) != nullptr) ppEnd = &p_pIndex->Last(iChain)->m_pNext;
  } else {
    for (; *ppEnd != nullptr; ppEnd = &(*ppEnd)->m_pNext) ++iSteps;
  }
  NODE* pNode = p_fnNew();
  if (pNode == nullptr) return nullptr;
  *ppEnd = pNode;
  if (p_pIndex == nullptr && iSteps < LONG_CHAIN) return pNode;
  try {
    if (p_pIndex != nullptr) {
      p_pIndex->Add(iChain, pNode);
    } else {
      p_pIndex = new CChainIndex<NODE>(p_apHead, p_iHashKey);
    }
  } catch (const std::bad_alloc&) {
    delete p_pIndex;
    p_pIndex = nullptr;
  }
  return pNode;
}

}    // namespace callorv::detail

#endif
