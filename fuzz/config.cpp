// The configuration reader: every key has exactly the values that the rules give it.
#include "callorv/client/cfg_reader.h"

#include <climits>
#include <map>
#include <vector>

#include "callorv/base/array.h"
#include "support.h"

namespace {

using Values = std::map<std::string, std::vector<std::string>>;

const size_t s_uPiece = 2047;

std::string Trimmed(const std::string& p_s) {
  const size_t uFirst = p_s.find_first_not_of(" \t\r\n");
  return uFirst == std::string::npos ? "" : p_s.substr(uFirst, p_s.find_last_not_of(" \t\r\n") - uFirst + 1);
}

void AddLine(const std::string& p_sLine, Values& p_cValues) {
  const std::string sText = p_sLine.substr(0, p_sLine.find_first_of(std::string("#\0", 2)));
  std::vector<std::string> asPiece;
  for (size_t uAt = 0; uAt <= sText.size();) {
    const size_t uEnd = std::min(sText.find('=', uAt), sText.size());
    const std::string sPiece = Trimmed(sText.substr(uAt, uEnd - uAt));
    if (!sPiece.empty()) asPiece.push_back(sPiece);
    uAt = uEnd + 1;
  }
  if (!asPiece.empty()) p_cValues[asPiece[0]].push_back(asPiece.size() > 1 ? asPiece[1] : "");
}

Values ReadModel(const std::string& p_sText) {
  Values cValues;
  for (size_t uAt = 0; uAt < p_sText.size();) {
    const size_t uFeed = p_sText.find('\n', uAt);
    const size_t uLen = std::min(uFeed == std::string::npos ? s_uPiece : uFeed - uAt + 1, s_uPiece);
    AddLine(p_sText.substr(uAt, uLen), cValues);
    uAt += uLen;
  }
  return cValues;
}

int Number(const std::string& p_s) {
  return static_cast<int>(std::clamp<long long>(strtoll(p_s.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

}    // namespace

int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_uSize) {
  static CInputFile s_cFile(".cfg");
  const std::string sText(reinterpret_cast<const char*>(p_pData), p_uSize);
  s_cFile.Write(sText);

  CCfgReader cReader;
  ExpectSame(cReader.Load(s_cFile.Path()), 0, "Load");
  for (const auto& [sKey, asValue] : ReadModel(sText)) {
    CStrArray asIs;
    ExpectSame(cReader.GetStrArr(sKey.c_str(), &asIs), 0, sKey.c_str());
    ExpectSame(asIs.GetSize(), static_cast<long long>(asValue.size()), "number of values");
    for (size_t i = 0; i < asValue.size(); ++i) ExpectSame(asIs[static_cast<int>(i)].ToStr(), asValue[i], "value");
    CString sFirst;
    ExpectSame(cReader.GetStrVal(sKey.c_str(), &sFirst), 0, "GetStrVal");
    ExpectSame(sFirst.ToStr(), asValue[0], "first value");
    int iFirst = 0;
    ExpectSame(cReader.GetIntVal(sKey.c_str(), &iFirst), 0, "GetIntVal");
    ExpectSame(iFirst, Number(asValue[0]), "number");
  }
  // Keys hold no "=", so nothing has this one.
  CString sNone("untouched");
  ExpectSame(cReader.GetStrVal("no=key", &sNone), -1, "missing key");
  ExpectSame(sNone.ToStr(), "untouched", "output of a missing key");
  ExpectSame(cReader.GetLastError().ToStr(), "cannot found 'no=key' key in config file", "text of a missing key");
  return 0;
}
