// A locale whose decimal point is a comma, on machines that have none installed.
#ifndef TESTS_SUPPORT_LOCALE_H
#define TESTS_SUPPORT_LOCALE_H

#include <locale.h>
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/temp_file.h"

// While it lives, printf writes and strtod reads "1,5". The numeric category is written here in the C library's own file
// format, so that no test depends on which locales a machine has.
class CCommaLocale {
 public:
  CCommaLocale() {
    std::filesystem::create_directory(m_cDir.Path("comma"));
    m_cDir.Write("comma/LC_NUMERIC", NumericCategory());
    setenv("LOCPATH", m_cDir.Path().c_str(), 1);
    char szText[8];
    if (setlocale(LC_NUMERIC, "comma") == nullptr || snprintf(szText, sizeof szText, "%.1f", 1.5) != 3 ||
        szText[1] != ',') {
      throw std::runtime_error("no locale with a decimal comma");
    }
  }
  ~CCommaLocale() {
    setlocale(LC_NUMERIC, "C");
    unsetenv("LOCPATH");
  }
  CCommaLocale(const CCommaLocale&) = delete;
  CCommaLocale& operator=(const CCommaLocale&) = delete;

 private:
  CTempDir m_cDir;

  // The magic number of the category, the number of fields and where each begins, then the fields: decimal point, thousands
  // separator, grouping, the two again as wide characters, and the character set.
  static std::string NumericCategory() {
    const uint32_t auHead[] = {0x20031115u ^ static_cast<uint32_t>(LC_NUMERIC), 6, 32, 34, 36, 40, 44, 48};
    const uint32_t auWide[] = {',', '.'};
    std::string sFile(reinterpret_cast<const char*>(auHead), sizeof auHead);
    sFile.append(",\0.\0\3\3\0\0", 8).append(reinterpret_cast<const char*>(auWide), sizeof auWide);
    return sFile.append("ANSI_X3.4-1968", 15);
  }
};

#endif
