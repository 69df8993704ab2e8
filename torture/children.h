// Cases that run in children, so that a crash or a hang costs one case and is named.
#ifndef TORTURE_CHILDREN_H
#define TORTURE_CHILDREN_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "support/child.h"
#include "tally.h"

// What one case of a group came to.
struct T_Outcome {
  bool bLast = false;    // no case comes after it
  std::string sWhy;      // why it did not survive; empty: it did
};

// Runs groups of numbered cases. The program's arguments choose: all of them, fewer (--quick), or one alone in this
// very process (--case GROUP NUMBER), for a debugger.
class CChildren {
 public:
  using Case = std::function<T_Outcome(int p_iCase)>;

  CChildren(const char* p_szSection, int p_iArgs, char** p_aszArg) : m_sSection(p_szSection), m_cTally(p_szSection) {
    if (p_iArgs == 2 && strcmp(p_aszArg[1], "--quick") == 0) {
      m_bQuick = true;
    } else if (p_iArgs == 4 && strcmp(p_aszArg[1], "--case") == 0) {
      m_sOnly = p_aszArg[2];
      m_iOnly = atoi(p_aszArg[3]);
    } else if (p_iArgs != 1) {
      fprintf(stderr, "usage: torture_%s [--quick | --case GROUP NUMBER]\n", p_szSection);
      exit(2);
    }
  }

  bool IsQuick() const { return m_bQuick; }
  // Whether the cases are to be run one alone, without children.
  bool IsAlone() const { return !m_sOnly.empty(); }

  // A case of the program itself, outside the groups.
  void Check(bool p_bSurvived, const std::string& p_sWhat) {
    if (!IsAlone()) m_cTally.Case(p_bSurvived, p_sWhat);
  }

  // Runs the cases 1, 1 + p_iStep, ... of a group up to the one that says that it is the last. Each child runs up to
  // p_iBatch of them, one after the other, with what p_fnMake() returns there, and no more after one that did not
  // survive.
  void Run(const std::string& p_sGroup, int p_iStep, int p_iBatch, const std::function<Case()>& p_fnMake) {
    if (IsAlone()) {
      if (p_sGroup == m_sOnly) Judge(p_sGroup, m_iOnly, p_fnMake()(m_iOnly));
      return;
    }
    int iNext = 1, iDeaths = 0;
    bool bEnd = false;
    while (!bEnd && iDeaths < MAX_DEATHS) {
      const bool bDied = RunBatch(p_sGroup, p_iStep, p_iBatch, p_fnMake, iNext, bEnd);
      iDeaths = bDied ? iDeaths + 1 : 0;
    }
    if (!bEnd) Judge(p_sGroup, iNext, {true, "given up: every case ends its process"});
    fprintf(stderr, "%s: %s: %d cases\n", m_sSection.c_str(), p_sGroup.c_str(), (iNext - 1) / p_iStep);
  }

  int End() const { return m_cTally.End(); }

 private:
  enum { CASE_SECONDS = 30, MAX_DEATHS = 10 };

  // A record that a child writes: its head, then uLen bytes of text.
  struct T_Record {
    enum E_Kind { BEGIN, DONE, LAST } eKind;
    int iCase;
    size_t uLen;
  };

  std::string m_sSection;
  CTally m_cTally;
  bool m_bQuick = false;
  std::string m_sOnly;
  int m_iOnly = 0;

  void Judge(const std::string& p_sGroup, int p_iCase, const T_Outcome& p_tOutcome) {
    const std::string sCase = "'" + p_sGroup + "' " + std::to_string(p_iCase);
    m_cTally.Case(p_tOutcome.sWhy.empty(),
                  p_tOutcome.sWhy + " (alone: torture_" + m_sSection + " --case " + sCase + ")");
  }

  static void Put(int p_iPipe, T_Record::E_Kind p_eKind, int p_iCase, const std::string& p_sText) {
    const T_Record tRecord = {p_eKind, p_iCase, p_sText.size()};
    std::string sBytes(reinterpret_cast<const char*>(&tRecord), sizeof(tRecord));
    sBytes += p_sText;
    if (write(p_iPipe, sBytes.data(), sBytes.size()) != static_cast<ssize_t>(sBytes.size())) _exit(9);
  }

  static bool Get(int p_iPipe, void* p_pOut, size_t p_uLen) {
    char* p = static_cast<char*>(p_pOut);
    while (p_uLen > 0) {
      const ssize_t iGot = read(p_iPipe, p, p_uLen);
      if (iGot <= 0) return false;
      p += iGot;
      p_uLen -= static_cast<size_t>(iGot);
    }
    return true;
  }

  [[noreturn]] static void Child(int p_iPipe, int p_iStep, int p_iBatch, const std::function<Case()>& p_fnMake,
                                 int p_iFirst) {
    if (freopen("/dev/null", "w", stdout) == nullptr) _exit(9);    // what an operation prints is in nobody's way
    const Case fnCase = p_fnMake();
    for (int i = 0; i < p_iBatch; ++i) {
      const int iCase = p_iFirst + i * p_iStep;
      Put(p_iPipe, T_Record::BEGIN, iCase, "");
      alarm(CASE_SECONDS);
      const T_Outcome tOutcome = fnCase(iCase);
      alarm(0);
      Put(p_iPipe, tOutcome.bLast ? T_Record::LAST : T_Record::DONE, iCase, tOutcome.sWhy);
      if (tOutcome.bLast || !tOutcome.sWhy.empty()) break;
    }
#ifdef TEST_COVERAGE
    exit(0);    // each library writes its own counts then
#else
    _exit(0);
#endif
  }

  // p_iNext: the next case to be run. p_bEnd: there is none. Returns whether the child died in a case.
  bool RunBatch(const std::string& p_sGroup, int p_iStep, int p_iBatch, const std::function<Case()>& p_fnMake,
                int& p_iNext, bool& p_bEnd) {
    int aiPipe[2];
    if (pipe2(aiPipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    fflush(nullptr);
    const pid_t iPid = fork();
    if (iPid == 0) {
      close(aiPipe[0]);
      Child(aiPipe[1], p_iStep, p_iBatch, p_fnMake, p_iNext);
    }
    close(aiPipe[1]);
    bool bInCase = false, bBegun = false;
    T_Record tRecord;
    while (Get(aiPipe[0], &tRecord, sizeof(tRecord))) {
      T_Outcome tOutcome;
      tOutcome.sWhy.resize(tRecord.uLen);
      if (!Get(aiPipe[0], &tOutcome.sWhy[0], tRecord.uLen)) break;
      bInCase = tRecord.eKind == T_Record::BEGIN;
      bBegun = true;
      if (tRecord.eKind == T_Record::LAST) p_bEnd = true;
      if (tRecord.eKind == T_Record::BEGIN) continue;
      Judge(p_sGroup, tRecord.iCase, tOutcome);
      p_iNext += p_iStep;
    }
    close(aiPipe[0]);
    int iStatus = 0;
    waitpid(iPid, &iStatus, 0);
    if (iStatus == 0 && !bInCase && bBegun) return false;
    Judge(p_sGroup, p_iNext, {true, "the process ended with " + Death(iStatus)});
    p_iNext += p_iStep;
    return true;
  }

  static std::string Death(int p_iStatus) {
    if (WIFSIGNALED(p_iStatus) && WTERMSIG(p_iStatus) == SIGALRM)
      return "nothing happening for " + std::to_string(+CASE_SECONDS) + " s";
    if (WIFSIGNALED(p_iStatus)) return std::string("signal ") + strsignal(WTERMSIG(p_iStatus));
    return "status " + std::to_string(WEXITSTATUS(p_iStatus));
  }
};

#endif
