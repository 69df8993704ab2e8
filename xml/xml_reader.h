// The parser as the rest of the library sees it: nothing of Xerces-C++ is known outside this room.
#ifndef CALLORV_XML_XML_READER_H
#define CALLORV_XML_XML_READER_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "callorv/base/str.h"

namespace callorv::detail {

// Initialise and terminate the parser library, which counts; each success is to be paired with one TerminateParser.
// InitializeParser throws CException (-26), and from a failure on always.
void InitializeParser();
void TerminateParser();
bool IsParserReady();    // whether anybody has initialised it

// Text of the parser (UTF-16) as the low byte of each unit, up to the first that is 0 or p_uLen. Short texts stay on
// the stack.
class CNarrow {
 public:
  explicit CNarrow(const char16_t* p_sz) : CNarrow(p_sz, std::char_traits<char16_t>::length(p_sz)) {}
  CNarrow(const char16_t* p_p, size_t p_uLen) : m_pFar(p_uLen <= SIZE ? nullptr : new char[p_uLen + 1]) {
    char* const pOut = m_pFar != nullptr ? m_pFar.get() : m_szNear;
    size_t i = 0;
    while (i < p_uLen && (pOut[i] = static_cast<char>(p_p[i])) != 0) ++i;
    pOut[i] = 0;
    m_svText = {pOut, i};
  }
  CNarrow(const CNarrow&) = delete;
  CNarrow& operator=(const CNarrow&) = delete;

  std::string_view View() const { return m_svText; }
  const char* Text() const { return m_svText.data(); }    // with a NUL behind

 private:
  enum { SIZE = 512 };
  char m_szNear[SIZE + 1];
  std::unique_ptr<char[]> m_pFar;
  std::string_view m_svText;
};

// The same in UTF-8.
class CTranscoded {
 public:
  explicit CTranscoded(const char16_t* p_sz);
  ~CTranscoded();
  CTranscoded(const CTranscoded&) = delete;
  CTranscoded& operator=(const CTranscoded&) = delete;

  const char* Text() const { return m_sz; }

 private:
  char* m_sz;
};

// The attributes of an element, while its start is told.
class CXmlAttributes {
 public:
  explicit CXmlAttributes(const void* p_pParsers) : m_pParsers(p_pParsers) {}

  size_t GetCount() const;
  const char16_t* GetName(size_t p_uAt) const;    // without a prefix
  const char16_t* GetValue(size_t p_uAt) const;

 private:
  const void* m_pParsers;
};

constexpr char s_szNoMemory[] = "XMLParser out of memory";

// What the two users of the parser do differently.
struct T_XmlUse {
  const char* szReportColon;     // between position and message of a parser report
  const char* szErrorColon;      // before the message of a parser exception
  const char* szErrorEnd;        // and behind it
  const char* szNoSource;        // what is said when there is no memory for what is to be parsed
  bool bDoctype;                 // a DOCTYPE is accepted (and can do no harm) instead of refused
};

class CSax;

// Is told what stands in a document. Turns every parser report into a CException (-21) and refuses documents made to
// hurt.
class CXmlHandler {
  friend class CSax;

 public:
  enum { MAX_DEPTH = 1024, MAX_ENTITY_SIZE = 1024, MAX_EXPANSIONS = 10000, MAX_DEFAULTS = 1024, MAX_DECLARED = 1024 };

  CXmlHandler(const CXmlHandler&) = delete;
  CXmlHandler& operator=(const CXmlHandler&) = delete;

 protected:
  explicit CXmlHandler(const T_XmlUse& p_tUse) : m_tUse(p_tUse) {}
  virtual ~CXmlHandler() = default;

  // Names are without a prefix, and the same at both ends of an element, down to the pointer. The root's depth is 1.
  virtual void OnStart(const char16_t* p_szName, CXmlAttributes p_cAttrs, int p_iDepth) = 0;
  virtual void OnText(const char16_t* /*p_p*/, size_t /*p_uLen*/) {}    // a piece of one
  virtual void OnEnd(const char16_t* /*p_szName*/, int /*p_iDepth*/) {}
  // Where the parser found what it is about to report; columns and lines from 1 on.
  virtual void OnReport(int /*p_iLine*/, int /*p_iColumn*/) {}
  // Where it is now; only inside a callback.
  void GetPlace(int& p_iLine, int& p_iColumn) const;

  // Runs p_fnParse, which returns what one of the functions below it returns. Throws CException: what p_fnParse and the
  // callbacks throw becomes "Handler error : %s" with its code, what the parser throws -21, and no memory -11. Pass a
  // std::ref, which needs no memory itself.
  void Parse(const std::function<size_t()>& p_fnParse) const;
  // Both parse, and return how many errors the parser counted; only inside Parse. p_szName: what a report calls the
  // text. p_bKept: by a reader that may have served other documents and may serve later ones, not by one made for this
  // document.
  size_t ParseText(const char* p_pText, size_t p_uLen, const char16_t* p_szName, bool p_bKept);
  size_t ParseFile(const char* p_szPath);

 private:
  const T_XmlUse& m_tUse;
  bool m_bMakesSource = false;     // memory that is lacking now is lacking for what is to be parsed
  const CSax* m_pSax = nullptr;    // while it parses

  template <class SOURCE, class... ARGS>
  size_t ParseNew(bool p_bKept, const ARGS&... p_args);
  [[noreturn]] void ThrowInternal(const char16_t* p_szMessage) const;
};

}    // namespace callorv::detail

#endif
