// The floor of everything that reads XML: the same parser, set up the same way, with a handler that does nothing.
#ifndef BENCH_FLOORS_BARE_PARSE_H
#define BENCH_FLOORS_BARE_PARSE_H

#include <memory>
#include <string>
#include <xercesc/sax2/SAX2XMLReader.hpp>

// Counts as the parser does: initialised for as long as this object lives.
class CBareParser {
 public:
  CBareParser();
  ~CBareParser();
  CBareParser(const CBareParser&) = delete;
  CBareParser& operator=(const CBareParser&) = delete;

  static std::unique_ptr<xercesc::SAX2XMLReader> NewReader();
  static void Parse(xercesc::SAX2XMLReader& p_cReader, const std::string& p_sXml);
  // With a reader of its own, as a program would that keeps none.
  static void Parse(const std::string& p_sXml) { Parse(*NewReader(), p_sXml); }
  static void ParseFile(const std::string& p_sPath);
};

#endif
