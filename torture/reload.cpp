// Loads the library, uses it and unloads it again, many times, as a program with plug-ins does. For torture/limits.cpp.
//
// torture_reload LIBRARY TIMES KEY_FILE DICTIONARY PORT
// Prints why it stopped, or "ok" and by how many bytes resident memory grew between the second and the last quarter.
#include <callorv/callorv.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "memory.h"

namespace {

class CLibrary {
 public:
  explicit CLibrary(const char* p_szPath) : m_pLibrary(dlopen(p_szPath, RTLD_NOW | RTLD_LOCAL)) {
    if (m_pLibrary == nullptr) throw std::runtime_error(dlerror());
  }
  ~CLibrary() { dlclose(m_pLibrary); }
  CLibrary(const CLibrary&) = delete;
  CLibrary& operator=(const CLibrary&) = delete;

  template <class FN>
  FN* Get(const char* p_szName) const {
    void* pSymbol = dlsym(m_pLibrary, p_szName);
    if (pSymbol == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<FN*>(pSymbol);
  }
#define FUNCTION(NAME) Get<decltype(NAME)>(#NAME)

 private:
  void* m_pLibrary;
};

void Check(bool p_bRight, const char* p_szWhat, const CallOrv_Error& p_tErr) {
  if (!p_bRight) throw std::runtime_error(std::string(p_szWhat) + ": " + p_tErr.szText);
}

void Use(const char* p_szLibrary, char** p_pszArgs) {
  const CLibrary cLibrary(p_szLibrary);
  CallOrv_Error tErr = {};
  const auto fnSetUp = cLibrary.FUNCTION(CallOrv_InitializeEx);
  Check(fnSetUp(p_pszArgs[0], p_pszArgs[1], "127.0.0.1", atoi(p_pszArgs[2]), 60, &tErr) == 0, "not set up", tErr);
  const auto fnNew = cLibrary.FUNCTION(MSG_GetNewMsg);
  CMsg* pIn = fnNew(100, &tErr);
  CMsg* pOut = fnNew(0, &tErr);
  Check(pIn != nullptr && pOut != nullptr && cLibrary.FUNCTION(MSG_SetStr)(pIn, 1, "text") == 0 &&
            cLibrary.FUNCTION(MSG_SetDbl)(pIn, 3, 1.5) == 0, "no request", tErr);
  Check(cLibrary.FUNCTION(CallOrv_CallService)(1, pIn, pOut, &tErr) == 0, "no reply", tErr);
  int iRet = 0;
  char* szBack = cLibrary.FUNCTION(MSG_GetStrEx)(pOut, 1, &iRet);
  Check(szBack != nullptr && strcmp(szBack, "text") == 0, "another reply", tErr);
  free(szBack);
  const auto fnDestroy = cLibrary.FUNCTION(MSG_Destroy);
  fnDestroy(pIn);
  fnDestroy(pOut);
}

bool IsMapped(const std::string& p_sName) {
  std::ifstream cMaps("/proc/self/maps");
  const std::string sAll((std::istreambuf_iterator<char>(cMaps)), std::istreambuf_iterator<char>());
  return sAll.find(p_sName) != std::string::npos;
}

long long Median(std::vector<long long> p_alValues) {
  std::sort(p_alValues.begin(), p_alValues.end());
  return p_alValues[p_alValues.size() / 2];
}

}    // namespace

int main(int p_iArgs, char** p_pszArgs) try {
  if (p_iArgs != 6) throw std::runtime_error("usage: torture_reload LIBRARY TIMES KEY_FILE DICTIONARY PORT");
  const int iTimes = atoi(p_pszArgs[2]);
  std::vector<long long> alSecond, alLast;
  for (int i = 0; i < iTimes; ++i) {
    Use(p_pszArgs[1], p_pszArgs + 3);
    if (IsMapped("libcallorv")) throw std::runtime_error("it is still loaded");
    const int iQuarter = 4 * i / iTimes;
    if (iQuarter == 1) alSecond.push_back(ResidentBytes());
    if (iQuarter == 3) alLast.push_back(ResidentBytes());
  }
  printf("ok %lld\n", Median(alLast) - Median(alSecond));
  return 0;
} catch (const std::exception& cError) {
  printf("%s\n", cError.what());
  return 1;
}
