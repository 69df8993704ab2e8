// What the parser calls while it parses.
#ifndef CALLORV_XML_SAX_H
#define CALLORV_XML_SAX_H

#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/util/XMLString.hpp>

#include "callorv/base/exception.h"
#include "callorv/error/error.h"
#include "xml/xml_reader.h"

namespace callorv::detail {

// What the parser calls: passes on what a handler is for, turns reports into exceptions, and refuses what is made to
// hurt. Serves one document.
class CSax final : public xercesc::DefaultHandler {
 public:
  explicit CSax(CXmlHandler& p_cHandler) : m_cHandler(p_cHandler) { m_cHandler.m_pSax = this; }
  ~CSax() override { m_cHandler.m_pSax = nullptr; }
  CSax(const CSax&) = delete;
  CSax& operator=(const CSax&) = delete;

  const xercesc::Locator& Place() const { return *m_pLocator; }
  bool HasPrefixes() const { return m_bPrefixes; }

  void setDocumentLocator(const xercesc::Locator* const p_pLocator) override { m_pLocator = p_pLocator; }
  void startPrefixMapping(const XMLCh* const, const XMLCh* const) override { m_bPrefixes = true; }

  // The parser's own time is quadratic in depth, so a document of nothing but start tags must end early.
  void startElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const,
                    const xercesc::Attributes& p_cAttrs) override {
    if (++m_iDepth > CXmlHandler::MAX_DEPTH) {
      throw CException(MSG_XML, "More than %d open elements", static_cast<int>(CXmlHandler::MAX_DEPTH));
    }
    m_cHandler.OnStart(p_szLocalName, CXmlAttributes(&p_cAttrs), m_iDepth);
  }
  void characters(const XMLCh* const p_p, const XMLSize_t p_uLen) override { m_cHandler.OnText(p_p, p_uLen); }
  void endElement(const XMLCh* const, const XMLCh* const p_szLocalName, const XMLCh* const) override {
    m_cHandler.OnEnd(p_szLocalName, m_iDepth--);
  }

  void warning(const xercesc::SAXParseException& p_c) override { Report('W', p_c); }
  void error(const xercesc::SAXParseException& p_c) override { Report('E', p_c); }
  void fatalError(const xercesc::SAXParseException& p_c) override { Report('F', p_c); }

  void startDTD(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
    if (!m_cHandler.m_tUse.bDoctype) throw CException("DOCTYPE is not allowed", MSG_XML);
  }

  // The parser bounds how many entity references are expanded, but neither how long each is nor parameter entities.
  void internalEntityDecl(const XMLCh* const p_szName, const XMLCh* const p_szValue) override {
    if (*p_szName == '%') throw CException(MSG_XML, "Parameter entity is not allowed(%s)", CNarrow(p_szName).Text());
    if (xercesc::XMLString::stringLen(p_szValue) > CXmlHandler::MAX_ENTITY_SIZE) {
      throw CException(MSG_XML, "Entity is too long(%s)", CNarrow(p_szName).Text());
    }
  }

  // Every element gets the defaults of all its attributes, so a few bytes each could ask for megabytes; those without a
  // default take only time.
  void attributeDecl(const XMLCh* const, const XMLCh* const p_szName, const XMLCh* const, const XMLCh* const,
                     const XMLCh* const p_szDefault) override {
    if (++m_iDeclared > CXmlHandler::MAX_DECLARED) {
      throw CException(MSG_XML, "Too many attributes are declared(%s)", CNarrow(p_szName).Text());
    }
    if (p_szDefault == nullptr) return;
    m_uDefaults += xercesc::XMLString::stringLen(p_szName) + xercesc::XMLString::stringLen(p_szDefault);
    if (m_uDefaults > CXmlHandler::MAX_DEFAULTS) {
      throw CException(MSG_XML, "Attribute defaults are too long(%s)", CNarrow(p_szName).Text());
    }
  }

 private:
  CXmlHandler& m_cHandler;
  const xercesc::Locator* m_pLocator = nullptr;
  int m_iDepth = 0;
  int m_iDeclared = 0;          // attributes, so far
  size_t m_uDefaults = 0;       // characters of their defaults
  bool m_bPrefixes = false;     // the document has declared namespaces

  [[noreturn]] void Report(char p_cKind, const xercesc::SAXParseException& p_c) {
    const int iLine = static_cast<int>(p_c.getLineNumber()), iColumn = static_cast<int>(p_c.getColumnNumber());
    m_cHandler.OnReport(iLine, iColumn);
    throw CException(MSG_XML, "[%c]%s (L:%d, C:%d)%s%s", p_cKind, CNarrow(p_c.getSystemId()).Text(), iLine, iColumn,
                     m_cHandler.m_tUse.szReportColon, CNarrow(p_c.getMessage()).Text());
  }
};

}    // namespace callorv::detail

#endif
