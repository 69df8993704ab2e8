// An owned 8-bit text.
#include "callorv/base/str.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/format.h"
#include "base/number.h"
#include "callorv/base/array.h"

namespace {

const char* OrEmpty(const char* p_sz) { return p_sz != nullptr ? p_sz : ""; }

}    // namespace

bool callorv::detail::VFormat(CString* p_pOut, const char* p_szFmt, va_list p_tArgs) noexcept {
  p_szFmt = OrEmpty(p_szFmt);
  va_list tAgain;
  va_copy(tAgain, p_tArgs);
  bool bDone = false;
  try {
    char szShort[512];
    std::unique_ptr<char[]> pLong;
    int iLen = vsnprintf(szShort, sizeof szShort, p_szFmt, p_tArgs);
    if (iLen >= static_cast<int>(sizeof szShort)) {
      const size_t iRoom = static_cast<size_t>(iLen) + 1;
      pLong.reset(new char[iRoom]);
      iLen = vsnprintf(pLong.get(), iRoom, p_szFmt, tAgain);
    }
    if (iLen < 0 && (errno == ENOMEM || errno == EOVERFLOW)) throw std::bad_alloc();
    p_pOut->Set(pLong != nullptr ? pLong.get() : szShort, iLen);
    bDone = true;
  } catch (const std::bad_alloc&) {
  }
  va_end(tAgain);
  return bDone;
}

// Before their users, which they become a part of.
inline char* CString::Reserve(int p_iSize) {
  const bool bHeap = IsHeap();
  if (bHeap ? static_cast<unsigned>(p_iSize) >= (m_u.tHeap.uCapacity & ~HEAP_FLAG) : p_iSize > INLINE_MAX) {
    return NewHeap(p_iSize);
  }
  return bHeap ? m_u.tHeap.pData : m_u.szInline;
}

inline void CString::SetSize(int p_iSize) {
  if (IsHeap()) {
    m_u.tHeap.iSize = p_iSize;
    m_u.tHeap.pData[p_iSize] = 0;
  } else {
    SetInline(p_iSize);
  }
}

char* CString::NewHeap(int p_iSize) {
  if (p_iSize == INT_MAX) throw std::bad_alloc();    // its capacity would be HEAP_FLAG itself
  const unsigned uCapacity = static_cast<unsigned>(p_iSize) + 1;
  char* pData = new char[uCapacity];
  if (IsHeap()) FreeHeap();
  m_u.tHeap.pData = pData;
  m_u.tHeap.uCapacity = uCapacity | HEAP_FLAG;
  return pData;
}

CString::CString(const char* p_sz) : CString() { Set(p_sz); }

CString::CString(const CString& p_s) : CString() { Set(p_s); }

CString::CString(CString&& p_s) noexcept : m_u(p_s.m_u) { p_s.SetInline(0); }

void CString::Set(const char* p_sz) {
  p_sz = OrEmpty(p_sz);
  const size_t iLen = strlen(p_sz);
  if (iLen >= INT_MAX) throw std::bad_alloc();    // the terminator must be countable, too
  Set(p_sz, static_cast<int>(iLen));
}

void CString::Set(const CString& p_s) {
  if (IsHeap() || p_s.IsHeap()) {
    Set(p_s.ToStr(), p_s.GetSize());
  } else {
    m_u = p_s.m_u;
  }
}

void CString::Set(const char* p_p, int p_iLen) {
  if (p_iLen < 1) {
    Empty();
    return;
  }
  // What lies inside this text fits where it is, so then Reserve does not move the text.
  memmove(Reserve(p_iLen), p_p, static_cast<size_t>(p_iLen));
  SetSize(p_iLen);
}

CString& CString::operator=(const CString& p_s) {
  Set(p_s);
  return *this;
}

CString& CString::operator=(CString&& p_s) noexcept {
  if (this != &p_s) {
    if (IsHeap()) FreeHeap();
    m_u = p_s.m_u;
    p_s.SetInline(0);
  }
  return *this;
}

CString& CString::operator=(const char* p_sz) {
  Set(p_sz);
  return *this;
}

void CString::Empty() { SetSize(0); }

void CString::Clear() { Empty(); }

void CString::Format(const char* p_szFmt, ...) {
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  const bool bDone = callorv::detail::VFormat(this, p_szFmt, tArgs);
  va_end(tArgs);
  if (!bDone) throw std::bad_alloc();
}

void CString::Trim() { Trim(" \t\r\n"); }

void CString::Trim(const char* p_szSet) {
  p_szSet = OrEmpty(p_szSet);
  const auto IsInSet = [p_szSet](char p_c) { return p_c != 0 && strchr(p_szSet, p_c) != nullptr; };
  const char* pBegin = ToStr();
  const char* pEnd = pBegin + GetSize();
  while (pBegin < pEnd && IsInSet(*pBegin)) ++pBegin;
  while (pBegin < pEnd && IsInSet(pEnd[-1])) --pEnd;
  Set(pBegin, static_cast<int>(pEnd - pBegin));
}

bool CString::StartsWith(const char* p_sz) const {
  p_sz = OrEmpty(p_sz);
  return strncmp(ToStr(), p_sz, strlen(p_sz)) == 0;
}

bool CString::EndsWith(const char* p_sz) const {
  p_sz = OrEmpty(p_sz);
  const size_t iLen = strlen(p_sz);
  const size_t iSize = static_cast<size_t>(GetSize());
  return iLen <= iSize && memcmp(ToStr() + (iSize - iLen), p_sz, iLen) == 0;
}

CString CString::Mid(int p_iStart, int p_iCount) const {
  CString sMid;
  if (p_iStart < 0 || p_iStart >= GetSize()) return sMid;
  const int iRest = GetSize() - p_iStart;
  sMid.Set(ToStr() + p_iStart, p_iCount < 0 || p_iCount > iRest ? iRest : p_iCount);
  return sMid;
}

int CString::ToInt() const { return callorv::detail::ParseInt32(ToStr()); }

double CString::ToDbl() const { return callorv::detail::ParseDouble(ToStr(), static_cast<size_t>(GetSize())); }

int CString::Split(char p_cSep, CStrArray* p_pOut, bool p_bTrim) const {
  if (p_pOut == nullptr) return 0;
  const CString sText(*this);    // this text may be an element of p_pOut
  p_pOut->RemoveAll();
  const char* pEnd = sText.ToStr() + sText.GetSize();
  for (const char* pPiece = sText.ToStr();;) {
    const void* pSep = memchr(pPiece, p_cSep, static_cast<size_t>(pEnd - pPiece));
    const char* pPieceEnd = pSep != nullptr ? static_cast<const char*>(pSep) : pEnd;
    CString sPiece;
    sPiece.Set(pPiece, static_cast<int>(pPieceEnd - pPiece));
    if (p_bTrim) sPiece.Trim();
    if (!p_bTrim || !sPiece.IsEmpty()) p_pOut->Add(std::move(sPiece));
    if (pSep == nullptr) return p_pOut->GetSize();
    pPiece = pPieceEnd + 1;
  }
}

void CString::FreeHeap() noexcept { delete[] m_u.tHeap.pData; }

bool operator==(const CString& p_s, const char* p_sz) { return strcmp(p_s.ToStr(), OrEmpty(p_sz)) == 0; }

bool operator!=(const CString& p_s, const char* p_sz) { return !(p_s == p_sz); }

CString CFormat(const char* p_szFmt, ...) {
  CString sText;
  va_list tArgs;
  va_start(tArgs, p_szFmt);
  const bool bDone = callorv::detail::VFormat(&sText, p_szFmt, tArgs);
  va_end(tArgs);
  if (!bDone) throw std::bad_alloc();
  return sText;
}
