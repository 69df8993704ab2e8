// XML files as people write them: any encoding, whole texts, and the line of whatever is wrong.
#ifndef CALLORV_TOOLS_XML_FILE_H
#define CALLORV_TOOLS_XML_FILE_H

#include <cstddef>
#include <pugixml.hpp>
#include <string>
#include <string_view>

// One well-formed document with one root element. All texts are UTF-8.
class CXmlFile {
 public:
  // p_sName  of the file, for the texts
  // p_sData  its bytes, in the encoding that a byte order mark or the XML declaration names, else in UTF-8
  // Throws CFailure "NAME:LINE: reason".
  CXmlFile(const std::string& p_sName, const std::string& p_sData);

  static bool IsBlank(std::string_view p_sText);    // nothing but what XML takes for white space
  pugi::xml_node Root() const { return m_cRoot; }
  // The text of an element, whatever references, CDATA sections and comments it is made of. An element in it is left
  // out. Throws CFailure.
  std::string TextOf(const pugi::xml_node& p_cElement) const;
  // Throws CFailure. p_cElement is the one that has it.
  std::string ValueOf(const pugi::xml_node& p_cElement, const pugi::xml_attribute& p_cAttribute) const;
  // "NAME:LINE: reason" for a place at or in p_cNode.
  [[noreturn]] void Fail(const pugi::xml_node& p_cNode, const std::string& p_sWhy) const;

 private:
  const std::string m_sName;
  const std::string m_sText;    // UTF-8, for counting lines
  pugi::xml_document m_cDocument;
  pugi::xml_node m_cRoot;

  size_t LineAt(size_t p_iAt) const;    // the line of a byte of m_sText
  size_t LineOf(const pugi::xml_node& p_cNode) const;
  std::string Resolve(const pugi::xml_node& p_cNode, std::string_view p_sRaw) const;
};

#endif
