// JSON that people and programs write: nothing in it is left out, and what is wrong is refused with its place.
#ifndef CALLORV_TOOLS_JSON_IN_H
#define CALLORV_TOOLS_JSON_IN_H

#include <callorv/base/exception.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"

enum E_JsonKind { JSON_NULL, JSON_BOOL, JSON_NUMBER, JSON_TEXT, JSON_ARRAY, JSON_OBJECT };

// A document. Its memory serves the next one that is read into it.
class CJsonIn {
 public:
  // One value of the document, or none. Valid until that is read anew.
  class CValue {
   public:
    CValue() = default;
    explicit operator bool() const { return m_pDocument != nullptr; }

    E_JsonKind Kind() const;
    // A text's characters in UTF-8; a number as it was written; true, false or null; "" of arrays and objects.
    std::string_view Text() const;
    std::string_view Name() const;    // of a member of an object
    CValue First() const;             // element or member; none when there is none
    CValue Next() const;              // of the array or object in which it stands
    CValue Find(std::string_view p_sName) const;    // the member of that name

    std::string Pointer() const;    // RFC 6901: "" is the document, "/rows/0/price" a value in it
    std::string Words() const;      // what it is, for people: 'ABC', 1.5, an array
    [[noreturn]] void Fail(const std::string& p_sWhy) const;    // throws CFailure "NAME: POINTER: reason"
    void WarnOf(const std::string& p_sWhy) const;               // warns in the same form

   private:
    friend class CJsonIn;
    const CJsonIn* m_pDocument = nullptr;
    size_t m_iNode = 0;
    std::string Placed(const std::string& p_sWhy) const;
    CValue(const CJsonIn* p_pDocument, size_t p_iNode) : m_pDocument(p_pDocument), m_iNode(p_iNode) {}
  };

  // p_sName  of where it comes from, for the texts; p_sText  UTF-8
  // Throws CFailure: what is no JSON to the letter, a member that comes twice, more than 4096 levels.
  void Read(const std::string& p_sName, std::string_view p_sText);
  CValue Root() const { return {this, 0}; }

 private:
  struct T_Node {
    E_JsonKind eKind;
    size_t iName, iNameSize;    // in m_sTexts
    size_t iText, iTextSize;
    size_t iParent;
    size_t iEnd;    // the first node that does not stand in this one
  };
  class CBuilder;

  std::string m_sName;
  std::string m_sTexts;
  std::vector<T_Node> m_atNode;    // as they come in the text
};

// p_fn, whose failures get the place of p_cValue.
template <class F>
auto At(const CJsonIn::CValue& p_cValue, F p_fn) {
  try {
    return p_fn();
  } catch (const CFailure& cError) {
    p_cValue.Fail(cError.what());
  } catch (const CException& cError) {
    p_cValue.Fail(cError.GetText());
  }
}

#endif
