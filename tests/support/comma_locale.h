// A process locale whose decimal point is a comma, on machines without any locale installed.
#ifndef TESTS_SUPPORT_COMMA_LOCALE_H
#define TESTS_SUPPORT_COMMA_LOCALE_H

#include <locale.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// LC_NUMERIC is the comma locale while the object lives, and "C" afterwards. The locale is made here, in the form in
// which glibc keeps compiled ones, in a directory of its own.
class CCommaLocale {
 public:
  CCommaLocale() {
    char szDir[] = "/tmp/comma-locale-XXXXXX";
    if (mkdtemp(szDir) == nullptr) throw std::runtime_error("mkdtemp");
    m_cDir = szDir;
    std::filesystem::create_directory(m_cDir / "comma");
    // The magic number of the category, the number of values, where each of them begins; then the values.
    static const struct {
      uint32_t aiHead[8] = {0x20031115 ^ LC_NUMERIC, 6, 40, 42, 43, 32, 36, 44};
      uint32_t iPoint = ',', iThousands = 0;
      char acText[12] = ",\0\0\0UTF-8";    // decimal point, thousands separator, grouping, code set
    } s_tNumeric;
    std::ofstream(m_cDir / "comma" / "LC_NUMERIC", std::ios::binary)
        .write(reinterpret_cast<const char*>(&s_tNumeric), sizeof s_tNumeric);
    setenv("LOCPATH", szDir, 1);
    if (setlocale(LC_NUMERIC, "comma") == nullptr) {
      Restore();
      throw std::runtime_error("setlocale");
    }
  }
  ~CCommaLocale() { Restore(); }
  CCommaLocale(const CCommaLocale&) = delete;
  CCommaLocale& operator=(const CCommaLocale&) = delete;

 private:
  std::filesystem::path m_cDir;

  void Restore() {
    setlocale(LC_NUMERIC, "C");
    unsetenv("LOCPATH");
    std::filesystem::remove_all(m_cDir);
  }
};

#endif
