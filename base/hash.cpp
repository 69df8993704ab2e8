// Maps from a text to a number or to several texts.
#include "callorv/base/hash.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "base/grow.h"

namespace {

template <class T>
T Load(const char* p_p) {
  T uValue;
  memcpy(&uValue, p_p, sizeof uValue);
  return uValue;
}
unsigned Four(const char* p_p) { return Load<unsigned>(p_p); }

// A word and what holds the product of two.
#ifdef __SIZEOF_INT128__
using T_Word = unsigned long long;
__extension__ using T_Product = unsigned __int128;
#else
using T_Word = unsigned;
using T_Product = unsigned long long;
#endif
constexpr size_t WORD = sizeof(T_Word);

// Both halves of the product, one on the other: each bit of it depends on most bits of both words.
T_Word Fold(T_Word p_uA, T_Word p_uB) {
  const T_Product uProduct = static_cast<T_Product>(p_uA) * p_uB;
  return static_cast<T_Word>(uProduct) ^ static_cast<T_Word>(uProduct >> (8 * WORD));
}

// Two words a step, as names are short and looked up often; the last step overlaps the one before it, and its words
// each other when there are fewer than two. Built like wyhash (Wang Yi), without its defence against chosen keys.
inline unsigned Hash(const char* p_szKey, size_t p_iLen) {
  const T_Word uFirstKey = static_cast<T_Word>(0xE7037ED1A0B428DBu),
               uSecondKey = static_cast<T_Word>(0x9E3779B97F4A7C15u);
  T_Word uHash = uSecondKey + p_iLen, uFirst = 0, uSecond = 0;
  if (p_iLen >= WORD) {
    const char* pEnd = p_szKey + p_iLen;
    const char* pLast = p_iLen > 2 * WORD ? pEnd - 2 * WORD : p_szKey;
    for (const char* p = p_szKey; p < pLast; p += 2 * WORD) {
      uHash = Fold(Load<T_Word>(p) ^ uFirstKey, Load<T_Word>(p + WORD) ^ uHash);
    }
    uFirst = Load<T_Word>(pLast);
    uSecond = Load<T_Word>(pEnd - WORD);
  } else if (p_iLen >= 4) {
    uFirst = Four(p_szKey);
    uSecond = Four(p_szKey + p_iLen - 4);
  } else {
    for (size_t i = 0; i < p_iLen; ++i) uFirst = uFirst << 8 | static_cast<unsigned char>(p_szKey[i]);
  }
  uHash = Fold(uFirst ^ uFirstKey, uSecond ^ uHash);
  return static_cast<unsigned>(uHash ^ (uHash >> (4 * WORD)));
}

// An entry is a byte of the hash that is not in the slot's number, the key with its NUL, and the value; nothing is
// aligned.
constexpr size_t KEY_AT = 1, VALUE_BEHIND_KEY = 1;

char Check(unsigned p_uHash) { return static_cast<char>(p_uHash >> 24); }

// Whether an entry's key is p_szKey of p_iLen bytes. Four bytes a step do not leave the entry: where its key ends
// earlier, the value stands behind the NUL, and that step is the last.
inline bool SameKey(const char* p_szOfEntry, const char* p_szKey, size_t p_iLen) {
  static_assert(sizeof(int) == 4);
  if (p_iLen < 4) return strcmp(p_szOfEntry, p_szKey) == 0;
  for (size_t i = 0; i + 4 < p_iLen; i += 4) {
    if (Four(p_szOfEntry + i) != Four(p_szKey + i)) return false;
  }
  return Four(p_szOfEntry + p_iLen - 4) == Four(p_szKey + p_iLen - 4) && p_szOfEntry[p_iLen] == 0;
}

// An open-addressing table: a key is in the first free-or-equal slot from its hash on, wrapping around. Slots are at
// most three quarters full.
void Put(unsigned* p_pSlot, unsigned p_uSlots, unsigned p_uHash, unsigned p_uEntry) {
  unsigned i = p_uHash & (p_uSlots - 1);
  while (p_pSlot[i] != 0) i = (i + 1) & (p_uSlots - 1);
  p_pSlot[i] = p_uEntry + 1;
}

// Where the key's value stands, null when the key is absent.
inline char* Find(const unsigned* p_pSlot, unsigned p_uSlots, char* p_pEntries, const char* p_szKey, size_t p_iLen) {
  if (p_uSlots == 0) return nullptr;
  const unsigned uHash = Hash(p_szKey, p_iLen);
  for (unsigned i = uHash & (p_uSlots - 1); p_pSlot[i] != 0; i = (i + 1) & (p_uSlots - 1)) {
    char* pEntry = p_pEntries + (p_pSlot[i] - 1);
    if (pEntry[0] == Check(uHash) && SameKey(pEntry + KEY_AT, p_szKey, p_iLen)) {
      return pEntry + KEY_AT + p_iLen + VALUE_BEHIND_KEY;
    }
  }
  return nullptr;
}

}    // namespace

CIntHash::CIntHash(int) noexcept : m_pSlot(nullptr), m_uSlots(0), m_uKeys(0), m_stEntries(0, 128) {}

CIntHash::~CIntHash() { delete[] m_pSlot; }

int CIntHash::Set(const char* p_szKey, int p_iValue, bool p_bReplace) {
  if (p_szKey == nullptr) return -1;
  const size_t iLen = strlen(p_szKey);
  if (char* pValue = Find(m_pSlot, m_uSlots, m_stEntries.GetData(), p_szKey, iLen)) {
    if (p_bReplace) memcpy(pValue, &p_iValue, sizeof p_iValue);
    return 0;
  }
  const int iBegin = m_stEntries.GetSize();
  const unsigned long long uEnd =
      0ULL + static_cast<unsigned>(iBegin) + KEY_AT + iLen + VALUE_BEHIND_KEY + sizeof p_iValue;
  if (uEnd > INT_MAX) throw std::bad_alloc();
  const int iEnd = static_cast<int>(uEnd);
  char* pEntry = m_stEntries.GetBuffer(iEnd) + iBegin;
  if (m_uKeys >= m_uSlots / 4 * 3) Rehash(m_uSlots > 0 ? m_uSlots * 2 : 32);

  const unsigned uHash = Hash(p_szKey, iLen);
  pEntry[0] = Check(uHash);
  memcpy(pEntry + KEY_AT, p_szKey, iLen + 1);
  memcpy(pEntry + KEY_AT + iLen + VALUE_BEHIND_KEY, &p_iValue, sizeof p_iValue);
  m_stEntries.ReleaseBuffer(iEnd);
  ++m_uKeys;
  Put(m_pSlot, m_uSlots, uHash, static_cast<unsigned>(iBegin));
  return 0;
}

int CIntHash::Get(const char* p_szKey, int* p_piOut) const {
  if (p_szKey == nullptr) return -1;
  const char* pValue = Find(m_pSlot, m_uSlots, m_stEntries.GetData(), p_szKey, strlen(p_szKey));
  if (pValue == nullptr) return -1;
  *p_piOut = Load<int>(pValue);
  return 0;
}

int CIntHash::GetOr(const char* p_szKey, int p_iAbsent) const {
  if (p_szKey == nullptr) return p_iAbsent;
  const char* pValue = Find(m_pSlot, m_uSlots, m_stEntries.GetData(), p_szKey, strlen(p_szKey));
  return pValue != nullptr ? Load<int>(pValue) : p_iAbsent;
}

void CIntHash::Rehash(unsigned p_uSlots) {
  std::unique_ptr<unsigned[]> pSlot(new unsigned[p_uSlots]());
  for (unsigned i = 0; i < m_uSlots; ++i) {
    if (m_pSlot[i] == 0) continue;
    const char* szKey = m_stEntries.GetData() + (m_pSlot[i] - 1) + KEY_AT;
    Put(pSlot.get(), p_uSlots, Hash(szKey, strlen(szKey)), m_pSlot[i] - 1);
  }
  delete[] m_pSlot;
  m_pSlot = pSlot.release();
  m_uSlots = p_uSlots;
}

CStrHash::CStrHash(int p_iBuckets) noexcept : m_cIndex(p_iBuckets), m_apValues(nullptr), m_iSize(0), m_iCapacity(0) {}

CStrHash::~CStrHash() {
  for (int i = 0; i < m_iSize; ++i) delete m_apValues[i];
  delete[] m_apValues;
}

int CStrHash::Set(const char* p_szKey, char* p_szValue, bool p_bReplace) {
  if (p_szKey == nullptr) return -1;
  int iAt;
  const bool bKnown = m_cIndex.Get(p_szKey, &iAt) == 0;
  if (bKnown && !p_bReplace) {
    m_apValues[iAt]->Add(p_szValue);
    return 0;
  }
  auto pValues = std::make_unique<CStrArray>();
  pValues->Add(p_szValue);
  if (bKnown) {
    delete m_apValues[iAt];
    m_apValues[iAt] = pValues.release();
    return 0;
  }
  if (m_iSize == m_iCapacity) callorv::detail::Grow(m_apValues, m_iSize, m_iCapacity);
  m_cIndex.Set(p_szKey, m_iSize, false);    // the last step that may fail
  m_apValues[m_iSize++] = pValues.release();
  return 0;
}

int CStrHash::Get(const char* p_szKey, CString* p_pOut) const {
  const CStrArray* pValues = Find(p_szKey);
  if (pValues == nullptr) return -1;
  p_pOut->Set(pValues->GetAt(0));
  return 0;
}

int CStrHash::Get(const char* p_szKey, CStrArray* p_pOut) const {
  const CStrArray* pValues = Find(p_szKey);
  if (pValues == nullptr) return -1;
  p_pOut->RemoveAll();
  for (int i = 0; i < pValues->GetSize(); ++i) p_pOut->Add(pValues->GetAt(i));
  return 0;
}

// The key's values, null when it is absent.
const CStrArray* CStrHash::Find(const char* p_szKey) const {
  int iAt;
  return m_cIndex.Get(p_szKey, &iAt) == 0 ? m_apValues[iAt] : nullptr;
}
