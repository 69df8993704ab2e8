// The configuration file.
#include "callorv/client/cfg_reader.h"

#include <cerrno>
#include <cstring>

#include "callorv/base/array.h"
#include "crypt/file.h"

namespace {

enum { BUCKETS = 1024, LINE_SIZE = 2048 };

}    // namespace

CCfgReader::CCfgReader() : m_cValues(BUCKETS) {}
CCfgReader::~CCfgReader() = default;

int CCfgReader::Load(const char* p_szPath) {
  errno = EINVAL;    // for a null path
  const callorv::detail::CFilePtr pFile(p_szPath != nullptr ? fopen(p_szPath, "r") : nullptr);
  if (pFile == nullptr) {
    const int iErrno = errno;
    char szBuf[128];
    sLastError.Format("File open failed [%s](%d,%s)", p_szPath != nullptr ? p_szPath : "(null)", iErrno,
                      strerror_r(iErrno, szBuf, sizeof(szBuf)));
    return -1;
  }
  char szLine[LINE_SIZE];
  while (fgets(szLine, LINE_SIZE, pFile.get()) != nullptr) {
    szLine[strcspn(szLine, "#")] = 0;
    CStrArray asPiece;
    if (CString(szLine).Split('=', &asPiece, true) < 1) continue;    // takes the line feed off, too
    // Without a second piece the value is "". It is copied, not written to.
    m_cValues.Set(asPiece[0].ToStr(), const_cast<char*>(asPiece[1].ToStr()), false);
  }
  return 0;
}

int CCfgReader::NotFound(const char* p_szKey) {
  sLastError.Format("cannot found '%s' key in config file", p_szKey != nullptr ? p_szKey : "(null)");    // sic
  return -1;
}

int CCfgReader::GetStrVal(const char* p_szKey, CString* p_psValue) {
  return m_cValues.Get(p_szKey, p_psValue) < 0 ? NotFound(p_szKey) : 0;
}

int CCfgReader::GetIntVal(const char* p_szKey, int* p_piValue) {
  CString sValue;
  if (m_cValues.Get(p_szKey, &sValue) < 0) return NotFound(p_szKey);
  *p_piValue = sValue.ToInt();
  return 0;
}

int CCfgReader::GetStrArr(const char* p_szKey, CStrArray* p_pValues) {
  return m_cValues.Get(p_szKey, p_pValues) < 0 ? NotFound(p_szKey) : 0;
}
