// Tables of comma-separated values (RFC 4180).
#include "common/csv_file.h"

#include <algorithm>
#include <iterator>

#include "command.h"
#include "common/input.h"
#include "common/near.h"
#include "common/text.h"

namespace {

size_t LineEndAt(const std::string& p_s, size_t p_iAt) {    // its length, 0 when there is none
  if (p_iAt < p_s.size() && p_s[p_iAt] == '\n') return 1;
  return p_s.compare(p_iAt, 2, "\r\n") == 0 ? 2 : 0;
}

}    // namespace

CCsvFile::CCsvFile(const std::string& p_sPath) : m_sPath(p_sPath) {
  const std::string sData = ReadWholeFile(p_sPath);
  size_t iAt = sData.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  size_t iLine = 1;
  if (iAt == sData.size()) Fail(iLine, "no line with the columns' names");
  ReadRow(sData, iAt, iLine, m_asNames);
  std::vector<std::string> asRow;
  while (iAt < sData.size()) {
    const size_t iFirst = iLine;
    asRow.clear();
    ReadRow(sData, iAt, iLine, asRow);
    if (asRow.size() != m_asNames.size()) {
      Fail(iFirst, Counted(asRow.size(), "field") + ", where line 1 names " + Counted(m_asNames.size(), "column"));
    }
    m_asCells.insert(m_asCells.end(), std::make_move_iterator(asRow.begin()), std::make_move_iterator(asRow.end()));
  }
  if (m_asCells.empty()) Fail(iLine, "no row below the columns' names");
}

size_t CCsvFile::ColumnOf(const std::string& p_sName) const {
  const auto pFound = std::find(m_asNames.begin(), m_asNames.end(), p_sName);
  if (pFound == m_asNames.end()) Fail(1, "no column '" + p_sName + "'" + DidYouMean(p_sName, m_asNames));
  if (std::find(pFound + 1, m_asNames.end(), p_sName) != m_asNames.end()) {
    Fail(1, "more than one column '" + p_sName + "'");
  }
  return static_cast<size_t>(pFound - m_asNames.begin());
}

void CCsvFile::ReadRow(const std::string& p_sData, size_t& p_iAt, size_t& p_iLine,
                       std::vector<std::string>& p_asFields) const {
  for (;;) {
    std::string sField;
    if (p_iAt < p_sData.size() && p_sData[p_iAt] == '"') {
      const size_t iOpened = p_iAt++;
      for (;; sField += p_sData[p_iAt++]) {
        const size_t iQuote = p_sData.find('"', p_iAt);
        if (iQuote == std::string::npos) Fail(p_iLine, "a quote is opened and not closed");
        sField.append(p_sData, p_iAt, iQuote - p_iAt);
        p_iAt = iQuote + 1;
        if (p_iAt == p_sData.size() || p_sData[p_iAt] != '"') break;    // two of them are one in the field
      }
      p_iLine += static_cast<size_t>(std::count(&p_sData[iOpened], &p_sData[p_iAt - 1], '\n'));
    } else {
      const size_t iEnd = std::min(p_sData.find_first_of(",\n", p_iAt), p_sData.size());
      sField = p_sData.substr(p_iAt, iEnd - p_iAt);
      if (iEnd < p_sData.size() && p_sData[iEnd] == '\n' && !sField.empty() && sField.back() == '\r') sField.pop_back();
      if (sField.find('"') != std::string::npos) Fail(p_iLine, "a quote in the middle of a field");
      p_iAt += sField.size();
      if (sField.empty() && p_asFields.empty() && LineEndAt(p_sData, p_iAt) > 0) {
        Fail(p_iLine, "an empty line; the field of one that is empty is written \"\"");
      }
    }
    p_asFields.push_back(std::move(sField));
    if (p_iAt < p_sData.size() && p_sData[p_iAt] == ',') {
      ++p_iAt;
      continue;
    }
    const size_t iLineEnd = LineEndAt(p_sData, p_iAt);
    if (iLineEnd == 0 && p_iAt < p_sData.size()) Fail(p_iLine, "text behind a closing quote");
    p_iAt += iLineEnd;
    p_iLine += iLineEnd > 0 ? 1 : 0;
    return;
  }
}

void CCsvFile::Fail(size_t p_iLine, const std::string& p_sWhy) const {
  throw CFailure(m_sPath + ":" + std::to_string(p_iLine) + ": " + p_sWhy);
}
