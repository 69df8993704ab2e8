// The configuration file.
#ifndef CALLORV_CLIENT_CFG_READER_H
#define CALLORV_CLIENT_CFG_READER_H

#include "callorv/base/hash.h"
#include "callorv/base/str.h"
#include "callorv/export.h"

// Lines of key=value. "#" begins a comment wherever it stands; blanks around key and value are dropped; a line without
// "=" is a key with an empty value; what follows a second "=" is dropped; a key may come several times. Lines are read
// in pieces of at most 2047 bytes, each taken as a line of its own; a NUL ends what counts of one. Keys are compared
// exactly. Throws only std::bad_alloc. Once loaded, the getters may not run in several threads at once (they keep their
// error).
class CALLORV_API CCfgReader {
 public:
  CCfgReader();
  ~CCfgReader();

  // Adds the lines of a file to what is there; those of a folder, or of a file that cannot be read to its end, as far
  // as they come. 0, or -1 "File open failed [%s](%d,%s)" with the path, errno and its text.
  int Load(const char* p_szPath);
  // The first value of a key; as a number as CString::ToInt reads it; all values in the order of the file.
  // 0, or -1 "cannot found '%s' key in config file" with the output (not null) untouched.
  int GetStrVal(const char* p_szKey, CString* p_psValue);
  int GetIntVal(const char* p_szKey, int* p_piValue);
  int GetStrArr(const char* p_szKey, CStrArray* p_pValues);
  CString GetLastError() const { return sLastError; }    // text of the latest failure, "" when there was none

 private:
  CStrHash m_cValues;
  CString sLastError;

  int NotFound(const char* p_szKey);
};

#endif
