// The only place that sets up the XML parser.
#ifndef CALLORV_XML_XML_READER_H
#define CALLORV_XML_XML_READER_H

#include <functional>
#include <memory>
#include <string>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

#include "callorv/base/str.h"

namespace callorv::detail {

// Initialise and terminate the parser library, which counts; each success is to be paired with one TerminateParser.
// InitializeParser throws CException (-26), and from a failure on always.
void InitializeParser();
void TerminateParser();
bool IsParserReady();    // whether anybody has initialised it

// Text of the parser (UTF-16) as the low byte of each unit, up to the first zero unit or p_uLen. Short texts stay on the
// stack.
class CNarrow {
 public:
  explicit CNarrow(const XMLCh* p_sz) : CNarrow(p_sz, std::char_traits<XMLCh>::length(p_sz)) {}
  CNarrow(const XMLCh* p_p, XMLSize_t p_uLen) : m_p(p_uLen <= SIZE ? m_szNear : Far(p_uLen)) {
    for (XMLSize_t i = 0; i < p_uLen; ++i) m_p[i] = static_cast<char>(p_p[i]);
    m_p[p_uLen] = 0;
  }
  CNarrow(const CNarrow&) = delete;
  CNarrow& operator=(const CNarrow&) = delete;

  const char* Text() const { return m_p; }    // a NUL behind; a unit whose low byte is 0 gives one inside

 private:
  enum { SIZE = 512 };
  char m_szNear[SIZE + 1];
  std::unique_ptr<char[]> m_pFar;
  char* m_p;

  char* Far(XMLSize_t p_uLen) {
    m_pFar.reset(new char[p_uLen + 1]);
    return m_pFar.get();
  }
};

// What the two users of the parser do differently.
struct T_XmlUse {
  const char* szReportColon;     // between position and message of a parser report
  const char* szErrorColon;      // before the message of a parser exception
  const char* szErrorEnd;        // and behind it
  bool bDoctype;                 // a DOCTYPE is accepted (and can do no harm) instead of refused
};

// Handler base: turns every parser report into a CException (-21) and refuses documents made to hurt.
class CXmlHandler : public xercesc::DefaultHandler {
 public:
  enum { MAX_DEPTH = 1024, MAX_ENTITY_SIZE = 1024, MAX_EXPANSIONS = 10000, MAX_DEFAULTS = 1024, MAX_DECLARED = 1024 };

  void warning(const xercesc::SAXParseException& p_c) override { Report('W', p_c); }
  void error(const xercesc::SAXParseException& p_c) override { Report('E', p_c); }
  void fatalError(const xercesc::SAXParseException& p_c) override { Report('F', p_c); }
  void startDTD(const XMLCh* const p_szName, const XMLCh* const p_szPublicId, const XMLCh* const p_szSystemId) override;
  void internalEntityDecl(const XMLCh* const p_szName, const XMLCh* const p_szValue) override;
  void attributeDecl(const XMLCh* const p_szElement, const XMLCh* const p_szName, const XMLCh* const p_szType,
                     const XMLCh* const p_szMode, const XMLCh* const p_szDefault) override;
  void startPrefixMapping(const XMLCh* const, const XMLCh* const) override { m_bPrefixes = true; }

 protected:
  explicit CXmlHandler(const T_XmlUse& p_tUse) : m_tUse(p_tUse) {}

  // Runs p_fnParse, which makes a source and returns what ParseSource returns for it. Throws CException: what p_fnParse and
  // the callbacks throw becomes "Handler error : %s" with its code, what the parser throws -21, and no memory -11. Pass a
  // std::ref, which needs no memory itself.
  void Parse(const std::function<XMLSize_t()>& p_fnParse) const;
  // Parses with this handler; returns the parser's error count. Only inside Parse. p_bKept: by a reader that may have served
  // other documents and may serve later ones, instead of one made for this document.
  XMLSize_t ParseSource(const xercesc::InputSource& p_cSource, bool p_bKept);

  // Depth of the open elements, the root's being 1. Callbacks enter first and leave last: the parser's own time is
  // quadratic in depth, so a document of nothing but start tags must end early.
  int Enter();
  int Leave() { return m_iDepth--; }

 private:
  const T_XmlUse& m_tUse;
  int m_iDepth = 0;
  int m_iDeclared = 0;          // attributes, so far
  XMLSize_t m_iDefaults = 0;    // characters of their defaults
  bool m_bPrefixes = false;     // the document has declared namespaces

  [[noreturn]] void ThrowInternal(const XMLCh* p_szMessage) const;
  [[noreturn]] void Report(char p_cKind, const xercesc::SAXParseException& p_c) const;
};

}    // namespace callorv::detail

#endif
