// Processes of the tests' own.
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;
#ifdef TEST_COVERAGE
extern "C" void __gcov_dump(void);
#endif

// Everything that can be read from a descriptor, which is then closed.
inline std::string ReadAndClose(int p_iFile) {
  std::string sAll;
  char szPart[4096];
  for (;;) {
    const ssize_t iGot = read(p_iFile, szPart, sizeof(szPart));
    if (iGot <= 0) break;
    sAll.append(szPart, static_cast<size_t>(iGot));
  }
  close(p_iFile);
  return sAll;
}

// Runs a function that returns a text in a forked process, which may ruin its limits, signals and system calls.
// Returns the text; "status N" after it when the process did not end well, N being what waitpid says.
template <class FN>
std::string InChild(FN p_fnRun) {
  int aiPipe[2];
  if (pipe2(aiPipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fflush(nullptr);    // nothing is to be printed twice
  const pid_t iPid = fork();
  if (iPid == 0) {
    alarm(60);
    const std::string sText = p_fnRun();
#ifdef TEST_COVERAGE
    __gcov_dump();    // what _exit leaves out
#endif
    const bool bDone = write(aiPipe[1], sText.data(), sText.size()) == static_cast<ssize_t>(sText.size());
    _exit(bDone ? 0 : 1);
  }
  close(aiPipe[1]);
  std::string sText = ReadAndClose(aiPipe[0]);
  int iStatus = -1;
  if (waitpid(iPid, &iStatus, 0) != iPid || iStatus != 0) sText += "status " + std::to_string(iStatus);
  return sText;
}

// A program that writes lines; ended by the destructor.
class CProgram {
 public:
  explicit CProgram(std::vector<std::string> p_asArgs) {
    int aiPipe[2];
    if (pipe2(aiPipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    std::vector<char*> apArgs;
    for (std::string& sArg : p_asArgs) apArgs.push_back(&sArg[0]);
    apArgs.push_back(nullptr);
    posix_spawn_file_actions_t tActions;
    posix_spawn_file_actions_init(&tActions);
    posix_spawn_file_actions_adddup2(&tActions, aiPipe[1], STDOUT_FILENO);
    const int iErr = posix_spawnp(&m_iPid, apArgs[0], &tActions, nullptr, apArgs.data(), environ);
    posix_spawn_file_actions_destroy(&tActions);
    close(aiPipe[1]);
    m_iOut = aiPipe[0];
    if (iErr != 0) {
      close(m_iOut);
      throw std::runtime_error("cannot start " + p_asArgs[0]);
    }
  }
  ~CProgram() {
    kill(m_iPid, SIGKILL);
    waitpid(m_iPid, nullptr, 0);
    close(m_iOut);
  }
  CProgram(const CProgram&) = delete;
  CProgram& operator=(const CProgram&) = delete;

  pid_t Pid() const { return m_iPid; }
  // The next line without its end; waits for it. What there was when the program ended before.
  std::string ReadLine() {
    std::string sLine;
    char c;
    while (read(m_iOut, &c, 1) == 1 && c != '\n') sLine += c;
    return sLine;
  }

 private:
  pid_t m_iPid = -1;
  int m_iOut = -1;
};

#endif
