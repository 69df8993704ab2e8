// Requests that vary from call to call: {{n}}, {{uuid}}, {{rand:1:100}} and {{csv:FILE:COLUMN}} in texts.
#ifndef CALLORV_TOOLS_VARIABLES_H
#define CALLORV_TOOLS_VARIABLES_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/csv_file.h"

// What becomes of a field of a table where it is put in.
enum E_Quoting {
  QUOTE_NONE,
  QUOTE_JSON    // as in a string of JSON, whose quotes stand around the placeholder; a number stays as it is
};

// A text whose placeholders have been found. It may be copied, and used by any number of threads at once.
class CVaryingText {
 public:
  bool Varies() const;    // whether it has a placeholder
  // The text of the call with this number, which is 1 for the first: {{n}} is the number, a table's rows are taken in
  // turn, the same row for all columns, and each {{uuid}} and {{rand:MIN:MAX}} is another.
  std::string ForCall(uint64_t p_uCall) const;

 private:
  friend class CVariables;
  enum E_Kind { LITERAL, NUMBER, UUID, RANDOM, FIELD };
  struct T_Piece {
    E_Kind eKind = LITERAL;
    std::string sText;                        // LITERAL
    int64_t iMin = 0, iMax = 0;               // RANDOM
    std::shared_ptr<const CCsvFile> pTable;   // FIELD
    size_t iColumn = 0;
  };
  std::vector<T_Piece> m_atPieces;
  E_Quoting m_eQuoting = QUOTE_NONE;
};

// The first placeholder in a text that is sent as it stands, perhaps a wrong one; "" when there is none.
std::string FindPlaceholder(const std::string& p_sText);

// Finds placeholders, and keeps the tables that they name, each of which is read once. Used by one thread at a time.
class CVariables {
 public:
  // {{{{ stands for {{ itself. Throws CFailure for {{ without }}, for what is no placeholder, and for a table that
  // cannot be read.
  CVaryingText Compile(const std::string& p_sText, E_Quoting p_eQuoting = QUOTE_NONE);
  // So many calls take every row of every table that has been named; 1 when none has.
  size_t Rows() const;

 private:
  std::map<std::string, std::shared_ptr<const CCsvFile>> m_cTables;    // by path

  CVaryingText::T_Piece CompileOne(const std::string& p_sWords);
};

#endif
