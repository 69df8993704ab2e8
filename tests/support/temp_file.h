// A folder for the files of one test.
#ifndef TESTS_SUPPORT_TEMP_FILE_H
#define TESTS_SUPPORT_TEMP_FILE_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

// Goes away with its content.
class CTempDir {
 public:
  CTempDir() {
    std::string sPath = (std::filesystem::temp_directory_path() / "callorv-XXXXXX").string();
    if (mkdtemp(&sPath[0]) == nullptr) throw std::runtime_error("no temporary folder");
    m_sPath = sPath;
  }
  ~CTempDir() {
    std::error_code cIgnored;
    std::filesystem::remove_all(m_sPath, cIgnored);
  }
  CTempDir(const CTempDir&) = delete;
  CTempDir& operator=(const CTempDir&) = delete;

  const std::string& Path() const { return m_sPath; }
  std::string Path(const std::string& p_sName) const { return m_sPath + "/" + p_sName; }

  // Writes a file and returns its path.
  std::string Write(const std::string& p_sName, const std::string& p_sContent) const {
    std::ofstream cOut(Path(p_sName), std::ios::binary);
    cOut << p_sContent;
    if (!cOut.flush()) throw std::runtime_error("cannot write " + Path(p_sName));
    return Path(p_sName);
  }

 private:
  std::string m_sPath;
};

inline std::string ReadWholeFile(const std::string& p_sPath) {
  std::ifstream cIn(p_sPath, std::ios::binary);
  std::ostringstream cOut;
  cOut << cIn.rdbuf();
  return cOut.str();
}

#endif
