// What the subcommands share: how each is added, and how one ends that did not succeed.
#ifndef CALLORV_TOOLS_COMMAND_H
#define CALLORV_TOOLS_COMMAND_H

#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// The command could not do what was asked: "callorv: <text>" on standard error, exit status 1, unless it says another.
// An empty text: the command has said everything itself.
class CFailure : public std::runtime_error {
 public:
  explicit CFailure(const std::string& p_sText, int p_iStatus = 1)
      : std::runtime_error(p_sText), m_iStatus(p_iStatus) {}
  int Status() const { return m_iStatus; }

 private:
  int m_iStatus;
};

// The arguments parse but make no sense together: the text on standard error, exit status 2.
class CUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "callorv: warning: <text>" on standard error; the command goes on.
void Warn(const std::string& p_sText);

// Each adds one subcommand with its options; its callback does the work while p_cApp parses.
void AddCall(CLI::App& p_cApp);
void AddDecode(CLI::App& p_cApp);
void AddDict(CLI::App& p_cApp);
void AddGenerate(CLI::App& p_cApp);
void AddKey(CLI::App& p_cApp);
void AddServe(CLI::App& p_cApp);

// What may stand in a place of a command line: shells ask for it, as "callorv complete", people do not.
// p_asWords: the words behind "callorv", up to the one that is to be completed, which may be empty. Prints a line with
// the kind of what follows, and a line for each word that fits: the word, a tab, what it means. The kinds:
//   words           the words are whole
//   parts           they are not: no blank behind them
//   files PREFIX    names of files behind PREFIX, or one of the words
//   folders PREFIX  names of folders
// All of it follows from the commands and options that p_cApp has, and from the dictionary that the words name.
void PrintCompletion(const CLI::App& p_cApp, const std::vector<std::string>& p_asWords);

#endif
