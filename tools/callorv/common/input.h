// Files that the command reads.
#ifndef CALLORV_TOOLS_INPUT_H
#define CALLORV_TOOLS_INPUT_H

#include <string>

// What an error number says of a file: "Permission denied"; a folder is called one.
std::string FileErrorText(int p_iErrno);

// A file's name for people, "-" being standard input.
std::string InputName(const std::string& p_sPath);
// All bytes of a file, "-" being standard input. Throws CFailure.
std::string ReadWholeFile(const std::string& p_sPath);
// Why the file cannot be read: FileErrorText of it; "" when it can. It is not opened, as that could wait.
std::string WhyUnreadable(const std::string& p_sPath);
// A file that the library opens by its name, perhaps more than once: "-" is standard input, which is kept in memory and
// decrypted if it is encrypted.
class CInputFile {
 public:
  // Throws CFailure.
  explicit CInputFile(const std::string& p_sPath);
  CInputFile(const std::string& p_sName, const std::string& p_sBytes);    // of bytes that p_sName is the name of
  ~CInputFile();
  CInputFile(const CInputFile&) = delete;
  CInputFile& operator=(const CInputFile&) = delete;

  const std::string& Path() const { return m_sPath; }
  const std::string& Name() const { return m_sName; }    // for people
  std::string Named(std::string p_sText) const;          // with the name for the path

 private:
  std::string m_sName;
  std::string m_sPath;
  int m_iFd = -1;

  void Keep(const std::string& p_sBytes);
};

// Whether it is an ordinary file, which can be read from its beginning as often as one likes.
bool IsOrdinaryFile(const std::string& p_sPath);

#endif
