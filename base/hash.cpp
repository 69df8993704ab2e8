// Maps from a text to a number or to several texts.
#include "callorv/base/hash.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "base/grow.h"

namespace {

unsigned Four(const char* p_p) {
  unsigned u;
  memcpy(&u, p_p, sizeof u);
  return u;
}

unsigned Mix(unsigned p_uHash, unsigned p_uFour) {
  p_uHash = (p_uHash ^ p_uFour) * 0x9E3779B1u;    // odd, without a pattern in its bits
  return p_uHash ^ (p_uHash >> 15);
}

// Four bytes a step, as names are short and looked up often; the last step overlaps the one before it.
unsigned Hash(const char* p_szKey, size_t p_iLen) {
  unsigned uHash = static_cast<unsigned>(p_iLen) * 0x85EBCA6Bu;
  if (p_iLen < 4) {
    for (size_t i = 0; i < p_iLen; ++i) uHash = Mix(uHash, static_cast<unsigned char>(p_szKey[i]));
  } else {
    for (size_t i = 0; i + 4 < p_iLen; i += 4) uHash = Mix(uHash, Four(p_szKey + i));
    uHash = Mix(uHash, Four(p_szKey + p_iLen - 4));
  }
  return Mix(uHash, 0);
}

// An entry is the value, a byte of the hash that is not in the slot's number, and the key with its NUL; it is not aligned.
constexpr int CHECK_AT = sizeof(int), KEY_AT = CHECK_AT + 1;

char Check(unsigned p_uHash) { return static_cast<char>(p_uHash >> 24); }

// An open-addressing table: a key is in the first free-or-equal slot from its hash on, wrapping around. Slots are at most
// three quarters full.
void Put(unsigned* p_pSlot, unsigned p_uSlots, unsigned p_uHash, unsigned p_uEntry) {
  unsigned i = p_uHash & (p_uSlots - 1);
  while (p_pSlot[i] != 0) i = (i + 1) & (p_uSlots - 1);
  p_pSlot[i] = p_uEntry + 1;
}

}    // namespace

CIntHash::CIntHash(int) noexcept : m_pSlot(nullptr), m_uSlots(0), m_uKeys(0), m_stEntries(0, 128) {}

CIntHash::~CIntHash() { delete[] m_pSlot; }

int CIntHash::Set(const char* p_szKey, int p_iValue, bool p_bReplace) {
  if (p_szKey == nullptr) return -1;
  const size_t iLen = strlen(p_szKey);
  const unsigned uHash = Hash(p_szKey, iLen);
  if (char* pEntry = Find(p_szKey, uHash)) {
    if (p_bReplace) memcpy(pEntry, &p_iValue, sizeof p_iValue);
    return 0;
  }
  const int iBegin = m_stEntries.GetSize();
  const unsigned long long uEnd = 1ULL + static_cast<unsigned>(iBegin) + KEY_AT + iLen;
  if (uEnd > INT_MAX) throw std::bad_alloc();
  const int iEnd = static_cast<int>(uEnd);
  char* pEntry = m_stEntries.GetBuffer(iEnd) + iBegin;
  if (m_uKeys >= m_uSlots / 4 * 3) Rehash(m_uSlots > 0 ? m_uSlots * 2 : 32);

  memcpy(pEntry, &p_iValue, sizeof p_iValue);
  pEntry[CHECK_AT] = Check(uHash);
  memcpy(pEntry + KEY_AT, p_szKey, iLen + 1);
  m_stEntries.ReleaseBuffer(iEnd);
  ++m_uKeys;
  Put(m_pSlot, m_uSlots, uHash, static_cast<unsigned>(iBegin));
  return 0;
}

int CIntHash::Get(const char* p_szKey, int* p_piOut) const {
  if (p_szKey == nullptr) return -1;
  const char* pEntry = Find(p_szKey, Hash(p_szKey, strlen(p_szKey)));
  if (pEntry == nullptr) return -1;
  memcpy(p_piOut, pEntry, sizeof *p_piOut);
  return 0;
}

// The key's entry, null when absent.
char* CIntHash::Find(const char* p_szKey, unsigned p_uHash) const {
  if (m_uSlots == 0) return nullptr;
  for (unsigned i = p_uHash & (m_uSlots - 1); m_pSlot[i] != 0; i = (i + 1) & (m_uSlots - 1)) {
    char* pEntry = m_stEntries.GetData() + (m_pSlot[i] - 1);
    if (pEntry[CHECK_AT] == Check(p_uHash) && strcmp(pEntry + KEY_AT, p_szKey) == 0) return pEntry;
  }
  return nullptr;
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
