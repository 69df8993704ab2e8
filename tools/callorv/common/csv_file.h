// Tables of comma-separated values (RFC 4180).
#ifndef CALLORV_TOOLS_CSV_FILE_H
#define CALLORV_TOOLS_CSV_FILE_H

#include <cstddef>
#include <string>
#include <vector>

// A table whose first line names the columns. Lines end in CR LF or LF; a byte order mark at the beginning is left out.
class CCsvFile {
 public:
  // Throws CFailure "FILE:LINE: reason" for a row that has more or fewer fields than the first, for quotes that do not
  // match, and for a table without rows.
  explicit CCsvFile(const std::string& p_sPath);

  // Throws CFailure when there is no such column, or two.
  size_t ColumnOf(const std::string& p_sName) const;
  size_t Rows() const { return m_asCells.size() / m_asNames.size(); }
  const std::string& At(size_t p_iRow, size_t p_iColumn) const {
    return m_asCells[p_iRow * m_asNames.size() + p_iColumn];
  }

 private:
  const std::string m_sPath;
  std::vector<std::string> m_asNames;
  std::vector<std::string> m_asCells;    // row by row

  // Reads a line's fields from p_iAt on, which moves behind them. p_iLine goes along with the line feeds.
  void ReadRow(const std::string& p_sData, size_t& p_iAt, size_t& p_iLine, std::vector<std::string>& p_asFields) const;
  [[noreturn]] void Fail(size_t p_iLine, const std::string& p_sWhy) const;
};

#endif
