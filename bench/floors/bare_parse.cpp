// The floor of everything that reads XML: the same parser, set up the same way, with a handler that does nothing.
#include "floors/bare_parse.h"

#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>

using namespace xercesc;

namespace {

void ParseSource(SAX2XMLReader& p_cReader, const InputSource& p_cSource) {
  DefaultHandler cNothing;
  p_cReader.setContentHandler(&cNothing);
  p_cReader.setErrorHandler(&cNothing);
  p_cReader.parse(p_cSource);
}

}    // namespace

CBareParser::CBareParser() { XMLPlatformUtils::Initialize(); }
CBareParser::~CBareParser() { XMLPlatformUtils::Terminate(); }

std::unique_ptr<SAX2XMLReader> CBareParser::NewReader() {
  std::unique_ptr<SAX2XMLReader> pReader(XMLReaderFactory::createXMLReader());
  pReader->setFeature(XMLUni::fgSAX2CoreValidation, false);
  pReader->setFeature(XMLUni::fgXercesDynamic, false);
  pReader->setFeature(XMLUni::fgXercesSchema, false);
  pReader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
  return pReader;
}

void CBareParser::Parse(SAX2XMLReader& p_cReader, const std::string& p_sXml) {
  const MemBufInputSource cSource(reinterpret_cast<const XMLByte*>(p_sXml.data()), p_sXml.size(), u"MemData", false);
  ParseSource(p_cReader, cSource);
}

void CBareParser::ParseFile(const std::string& p_sPath) {
  const std::u16string sPath(p_sPath.begin(), p_sPath.end());    // the benchmark's own file: ASCII
  ParseSource(*NewReader(), LocalFileInputSource(sPath.c_str()));
}
