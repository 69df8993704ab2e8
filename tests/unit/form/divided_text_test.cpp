// Texts that the parser hands over in pieces, because they are long: each piece is stored by itself.
#include <string>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>

#include "support/test_dic.h"

namespace {

// What the parser itself hands over, without blanks, tabs and line feeds at both ends; empty pieces are left out.
class CPieces : public xercesc::DefaultHandler {
 public:
  std::vector<std::string> m_asPiece;

  explicit CPieces(const std::string& p_sXml) {
    const std::unique_ptr<xercesc::SAX2XMLReader> pReader(xercesc::XMLReaderFactory::createXMLReader());
    pReader->setContentHandler(this);
    const auto* pBytes = reinterpret_cast<const XMLByte*>(p_sXml.data());
    pReader->parse(xercesc::MemBufInputSource(pBytes, p_sXml.size(), "own", false));
  }
  void characters(const XMLCh* const p_sz, const XMLSize_t p_uLen) override {
    std::string sPiece;
    for (XMLSize_t i = 0; i < p_uLen; ++i) sPiece += static_cast<char>(p_sz[i]);
    sPiece.erase(0, sPiece.find_first_not_of(" \t\n"));
    sPiece.erase(sPiece.find_last_not_of(" \t\n") + 1);
    if (!sPiece.empty()) m_asPiece.push_back(sPiece);
  }
};

// The strings of tag 11, which may repeat.
std::vector<std::string> Stored(CMsg& p_cMsg) {
  CStrArray asText;
  p_cMsg.GetValue(11, &asText);
  std::vector<std::string> asAll;
  for (int i = 0; i < asText.GetSize(); ++i) {
    asAll.emplace_back(asText[i].ToStr(), static_cast<size_t>(asText[i].GetSize()));
  }
  return asAll;
}

std::string Lengths(const std::vector<std::string>& p_as) {
  std::string s;
  for (const std::string& sPiece : p_as) s += std::to_string(sPiece.size()) + " ";
  return s;
}

constexpr size_t MOST = 1024 * 1024;    // characters that the parser keeps together

// As messages begin that are written.
const char s_szOwn[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>";

// Different characters wherever one looks.
std::string Letters(size_t p_uLen) {
  std::string s(p_uLen, ' ');
  for (size_t i = 0; i < p_uLen; ++i) s[i] = static_cast<char>('a' + (i * i / 7 + i) % 26);
  return s;
}

}    // namespace

TEST_CASE("a long text is divided where the parser divides it") {
  CLoadedDic cDic;
  std::string sBlanks = Letters(MOST + 100);    // around where it is divided
  for (size_t i = MOST - 50; i < MOST + 50; ++i) sBlanks[i] = " \t\n"[i % 3];
  struct T_Row {
    std::string sWhat, sText;
    std::string sLengths;    // behind s_szOwn; where the parser's blocks end depends on what stands before
  };
  const T_Row s_atRow[] = {
      {"a million", Letters(1000000), "1000000 "},
      {"one more", Letters(1000001), "1000001 "},
      {"the last that is whole", Letters(MOST), "1048576 "},
      {"the first that is not", Letters(MOST + 1), "1048507 70 "},
      {"thrice as long", Letters(3 * MOST + 5), "1048507 1048576 1048576 74 "},
      {"blanks where it is divided", sBlanks, "1048526 50 "},
      {"a reference", Letters(1200000) + "&amp;" + Letters(1200000), "1048507 151493 1044535 155466 "},
      {"a reference where it is divided", Letters(MOST - 1) + "&amp;" + Letters(10), "1048575 11 "},
      {"CR LF", Letters(MOST - 1) + "\r\n" + Letters(10), "1048575 10 "},
      {"a section", "<![CDATA[" + Letters(3 * MOST) + "]]>", "3145728 "},
  };
  for (const T_Row& tRow : s_atRow) {
    CAPTURE(tRow.sWhat);
    for (const char* szBegin : {"", +s_szOwn, "<!-- not plain -->"}) {
      CAPTURE(szBegin);
      const std::string sXml = szBegin + ("<msg no=\"120\" ver=\"\"><t11>" + tRow.sText + "</t11></msg>");
      CMsg cMsg(0, 0, 0, &cDic);
      CHECK(Load(cMsg, sXml) == 0);
      const std::vector<std::string> asStored = Stored(cMsg), asPiece = CPieces(sXml).m_asPiece;
      CHECK((asStored == asPiece));
      CHECK(Lengths(asStored) == Lengths(asPiece));
      if (szBegin == s_szOwn) CHECK(Lengths(asStored) == tRow.sLengths);
    }
  }
}
