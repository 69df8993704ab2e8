// The elements of a dictionary file, for programs that check or convert dictionaries.
#ifndef CALLORV_DICT_DIC_READER_H
#define CALLORV_DICT_DIC_READER_H

#include "callorv/base/str.h"
#include "callorv/export.h"

namespace callorv {
namespace detail {
class CDicReaderHandler;
}
}

// Shows what stands in a dictionary file, where CMsgDic::InitDictionary says what it means and stops at the first thing
// that is wrong. Derive from it and override OnElement. Use from one thread at a time.
class CALLORV_API CDicReader {
 public:
  // An attribute by its local name, as the dictionary takes it: of each character the low byte is kept.
  struct CALLORV_API T_Attribute {
    CString sName;
    CString sValue;
    bool bCut;    // name or value has characters beyond ISO-8859-1, which were changed by that
  };

  CDicReader();
  CDicReader(const CDicReader&) = delete;
  CDicReader& operator=(const CDicReader&) = delete;
  virtual ~CDicReader();

  // Reads the file, plain or .exml, exactly as InitDictionary does, and calls OnElement for every start tag. Throws
  // CException as it does (without the "InitDictionary(%s)" around the text) when the file cannot be read or decrypted
  // or is malformed, but never for what the elements mean. A CException out of OnElement ends the reading with
  // "Handler error : %s" around its text; any other exception passes through.
  void Read(const char* p_szPath);

  // Where OnElement's start tag ends, or where reading stopped when Read has thrown: line and column from 1 on, 0 when
  // it is no place in the document.
  int GetLine() const { return m_iLine; }
  int GetColumn() const { return m_iColumn; }

 protected:
  // One start tag.
  //   p_iDepth  number of open elements, this one included: 1 for the root
  //   p_szName  local name in UTF-8
  //   p_atAttr  p_iAttrs attributes in the order of the document
  // The texts are borrowed for the call.
  virtual void OnElement(int p_iDepth, const char* p_szName, const T_Attribute* p_atAttr, int p_iAttrs) = 0;

 private:
  int m_iLine;
  int m_iColumn;

  friend class callorv::detail::CDicReaderHandler;
};

#endif
