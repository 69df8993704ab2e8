// callorv complete: what may stand in a place of a command line. Shells ask it, people do not.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "command.h"
#include "complete/names.h"

namespace {

// Where in the command line the last word stands.
struct T_Place {
  const CLI::App* pApp = nullptr;
  const CLI::Option* pOption = nullptr;    // whose value it is
  T_Given tGiven;
};

bool TakesValue(const CLI::Option& p_cOption) { return p_cOption.get_items_expected_max() > 0; }

// Text before p_c, all of it when there is none.
std::string Before(const std::string& p_s, char p_c) { return p_s.substr(0, p_s.find(p_c)); }

std::vector<const CLI::Option*> Positionals(const CLI::App& p_cApp) {
  std::vector<const CLI::Option*> ap;
  for (const CLI::Option* p : p_cApp.get_options()) {
    if (!p->nonpositional()) ap.push_back(p);
  }
  return ap;
}

// The argument at a place; the last one may take all that follow.
const CLI::Option* PositionalAt(const CLI::App& p_cApp, size_t p_i) {
  const std::vector<const CLI::Option*> ap = Positionals(p_cApp);
  if (p_i < ap.size()) return ap[p_i];
  const bool bMany = !ap.empty() && ap.back()->get_items_expected_max() > 1;
  return bMany ? ap.back() : nullptr;
}

const CLI::App* SubcommandOf(const CLI::App& p_cApp, const std::string& p_sName) {
  for (const CLI::App* p : p_cApp.get_subcommands([](const CLI::App*) { return true; })) {
    if (p->get_name() == p_sName) return p;
  }
  return nullptr;
}

void Keep(T_Given& p_tGiven, const CLI::Option& p_cOption, const std::string& p_sValue) {
  const std::string sName = p_cOption.get_name();
  if (sName == "--config") p_tGiven.sConfig = p_sValue;
  if (sName == "--dictionary") p_tGiven.sDictionary = p_sValue;
}

void KeepArgument(T_Given& p_tGiven, const CLI::Option* p_pOption, const std::string& p_sValue) {
  const std::string sName = p_pOption == nullptr ? "" : p_pOption->get_name(true);
  if (sName == "FILE" || sName == "DICTIONARY") p_tGiven.sDictionary = p_sValue;
  if (sName == "MESSAGE") p_tGiven.sMessage = p_sValue;
}

T_Place FindPlace(const CLI::App& p_cApp, const std::vector<std::string>& p_asBefore) {
  T_Place t;
  t.pApp = &p_cApp;
  size_t iArgument = 0;
  for (const std::string& s : p_asBefore) {
    if (t.pOption != nullptr) {
      Keep(t.tGiven, *t.pOption, s);
      t.pOption = nullptr;
    } else if (s.size() > 1 && s[0] == '-') {
      const CLI::Option* pOption = t.pApp->get_option_no_throw(Before(s, '='));
      if (pOption == nullptr || !TakesValue(*pOption)) continue;
      if (s.find('=') == std::string::npos) t.pOption = pOption;
      if (s.find('=') != std::string::npos) Keep(t.tGiven, *pOption, s.substr(s.find('=') + 1));
    } else if (const CLI::App* pSub = SubcommandOf(*t.pApp, s); pSub != nullptr) {
      t.pApp = pSub;
    } else {
      KeepArgument(t.tGiven, PositionalAt(*t.pApp, iArgument++), s);
    }
  }
  t.tGiven.iArguments = iArgument;
  return t;
}

class CAnswer {
 public:
  explicit CAnswer(std::string p_sWord) : m_sWord(std::move(p_sWord)) {}

  // Up to and with the option's "=" everything stays as it is.
  void SetPrefix(const std::string& p_sPrefix) {
    m_sPrefix += p_sPrefix;
    m_sWord = m_sWord.substr(std::min(m_sWord.size(), p_sPrefix.size()));
  }
  const std::string& Word() const { return m_sWord; }
  void SetKind(const std::string& p_sKind) { m_sKind = p_sKind; }
  void Add(const std::string& p_sWord, const std::string& p_sWhat) {
    // What a shell could take for something else than a word is left to those who type it.
    const auto fnControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
    const bool bOdd = p_sWord.empty() || std::any_of(p_sWord.begin(), p_sWord.end(), fnControl);
    if (bOdd || p_sWord.compare(0, m_sWord.size(), m_sWord) != 0) return;
    m_sLines += m_sPrefix + p_sWord + '\t' + p_sWhat.substr(0, p_sWhat.find('\n')) + '\n';
  }
  void Add(const std::vector<T_Name>& p_atName) {
    for (const T_Name& t : p_atName) Add(t.sName, t.sWhat);
  }
  bool IsNothing() const { return m_sLines.empty() && m_sKind != "files" && m_sKind != "folders"; }
  void Print() const {
    const bool bNames = m_sKind == "files" || m_sKind == "folders";
    std::cout << m_sKind << (bNames ? ' ' + m_sPrefix : "") << '\n' << m_sLines;
  }

 private:
  std::string m_sWord, m_sPrefix, m_sKind = "words", m_sLines;
};

// "{dump,xml,json}" in an option's type.
std::vector<std::string> Choices(const std::string& p_sType) {
  const size_t iFrom = p_sType.find('{'), iTo = p_sType.find('}');
  if (iFrom == std::string::npos || iTo == std::string::npos) return {};
  return CLI::detail::split(p_sType.substr(iFrom + 1, iTo - iFrom - 1), ',');
}

void AddValues(CAnswer& p_cAnswer, const CLI::Option& p_cOption, const T_Given& p_tGiven) {
  constexpr const char* s_aszFile[] = {"FILE", "KEY", "OUT", "IN", "DICTIONARY", "OLD", "NEW"};
  const std::string sOption = p_cOption.get_name(), sType = p_cOption.get_type_name();
  const std::string sLabel = p_cOption.nonpositional() ? Before(sType, ':') : p_cOption.get_name(true);
  if (std::find(std::begin(s_aszFile), std::end(s_aszFile), sLabel) != std::end(s_aszFile)) {
    p_cAnswer.SetKind("files");
  } else if (sLabel == "DIR") {
    p_cAnswer.SetKind("folders");
  } else if (sLabel == "JSON") {
    p_cAnswer.SetPrefix("@");
    p_cAnswer.SetKind("files");
  } else if (sLabel == "MESSAGE") {
    p_cAnswer.Add(MessageNames(p_tGiven));
  } else if (sOption == "--message") {
    p_cAnswer.Add(MessageNumbers(p_tGiven));
  } else if (sLabel == "VALUES") {
    p_cAnswer.SetKind("parts");
    p_cAnswer.Add(TagPaths(p_tGiven, p_cAnswer.Word()));
  } else if (sOption == "--fault") {
    p_cAnswer.SetKind("parts");
    for (const char* sz : {"delay:", "stall", "truncate", "checksum", "zlib", "reset", "close", "reject"}) {
      p_cAnswer.Add(sz, "");
    }
  } else if (sOption == "--host") {
    for (const char* sz : {"127.0.0.1", "0.0.0.0", "localhost"}) p_cAnswer.Add(sz, "");
  } else if (sOption == "--language") {
    for (const char* sz : {"c++", "c", "python"}) p_cAnswer.Add(sz, "");
  }
  for (const std::string& s : Choices(sType)) p_cAnswer.Add(s, "");
}

void AddOptions(CAnswer& p_cAnswer, const CLI::App& p_cApp) {
  for (const CLI::Option* p : p_cApp.get_options()) {
    if (p->get_group().empty()) continue;
    for (const std::string& s : p->get_lnames()) p_cAnswer.Add("--" + s, p->get_description());
  }
}

void AddCommands(CAnswer& p_cAnswer, const CLI::App& p_cApp) {
  for (const CLI::App* p : p_cApp.get_subcommands([](const CLI::App*) { return true; })) {
    p_cAnswer.Add(p->get_name(), p->get_description());
  }
}

}    // namespace

void PrintCompletion(const CLI::App& p_cApp, const std::vector<std::string>& p_asWords) {
  const std::string sWord = p_asWords.empty() ? "" : p_asWords.back();
  const auto pLast = p_asWords.empty() ? p_asWords.end() : p_asWords.end() - 1;
  const T_Place t = FindPlace(p_cApp, {p_asWords.begin(), pLast});
  CAnswer cAnswer(sWord);
  const size_t iValue = sWord.find('=');
  const CLI::Option* pOption = t.pOption;
  if (pOption == nullptr && sWord.compare(0, 2, "--") == 0 && iValue != std::string::npos) {
    pOption = t.pApp->get_option_no_throw(sWord.substr(0, iValue));
    cAnswer.SetPrefix(sWord.substr(0, iValue + 1));
    if (pOption == nullptr || !TakesValue(*pOption)) return cAnswer.Print();
  }
  if (pOption != nullptr) {
    AddValues(cAnswer, *pOption, t.tGiven);
    return cAnswer.Print();
  }
  const bool bDash = !sWord.empty() && sWord[0] == '-';
  if (!bDash) AddCommands(cAnswer, *t.pApp);
  const CLI::Option* pArgument = bDash ? nullptr : PositionalAt(*t.pApp, t.tGiven.iArguments);
  if (pArgument != nullptr) AddValues(cAnswer, *pArgument, t.tGiven);
  if (bDash || pArgument == nullptr || cAnswer.IsNothing()) AddOptions(cAnswer, *t.pApp);
  cAnswer.Print();
}
