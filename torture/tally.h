// What a torture program counts and how it ends.
#ifndef TORTURE_TALLY_H
#define TORTURE_TALLY_H

#include <cstdio>
#include <string>

class CTally {
 public:
  // p_szSection  name of the section, as scripts/torture knows it
  explicit CTally(const char* p_szSection) : m_szSection(p_szSection), m_lTried(0), m_lSurvived(0) {}

  // Counts one case. Of one that failed, p_sWhat says which and why, on standard error.
  void Case(bool p_bSurvived, const std::string& p_sWhat) {
    ++m_lTried;
    if (p_bSurvived) {
      ++m_lSurvived;
    } else {
      fprintf(stderr, "%s: FAILED: %s\n", m_szSection, p_sWhat.c_str());
    }
  }

  // Prints the last line. Returns the exit status of the program.
  int End() const {
    printf("%s: %lld cases, %lld survived\n", m_szSection, m_lTried, m_lSurvived);
    return m_lTried > 0 && m_lTried == m_lSurvived ? 0 : 1;
  }

 private:
  const char* m_szSection;
  long long m_lTried, m_lSurvived;
};

#endif
