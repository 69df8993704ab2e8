// A measurement in a file that others read.
#include "call/report.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>

#include "call/measurement_out.h"
#include "call/report_page.h"
#include "command.h"
#include "common/files.h"
#include "common/input.h"

namespace {

constexpr char s_szDots[] = "\xE2\x80\xA6";

bool EndsIn(const std::string& p_sPath, const std::string& p_sEnd) {
  return p_sPath.size() > p_sEnd.size() && p_sPath.compare(p_sPath.size() - p_sEnd.size(), p_sEnd.size(), p_sEnd) == 0;
}

std::string ForShell(const std::string& p_sWord) {
  constexpr char PLAIN[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:=@%+,\x80\xA6\xE2";
  if (!p_sWord.empty() && p_sWord.find_first_not_of(PLAIN) == std::string::npos) return p_sWord;
  std::string sOut = "'";
  for (const char c : p_sWord) sOut += c == '\'' ? "'\\''" : std::string(1, c);
  return sOut + '\'';
}

// What may be seen of an argument: names of files and numbers may, what the server is asked may not.
std::string Seen(const std::string& p_sOption, const std::string& p_sValue) {
  if (p_sOption == "--data") return p_sValue == "-" || p_sValue[0] == '@' ? p_sValue : s_szDots;
  const size_t iEqual = p_sValue.find('=');
  const bool bValue = (p_sOption == "MESSAGE" || p_sOption == "VALUES") && iEqual != std::string::npos;
  return bValue ? p_sValue.substr(0, iEqual + 1) + s_szDots : p_sValue;
}

}    // namespace

void CheckReportName(const std::string& p_sPath) {
  if (!EndsIn(p_sPath, ".html") && !EndsIn(p_sPath, ".csv") && !EndsIn(p_sPath, ".json")) {
    throw CUsage("--report: '" + p_sPath + "' must end in .html, .csv or .json");
  }
}

void CheckReportFolder(const std::string& p_sPath) {
  std::error_code cIgnored;
  if (std::filesystem::is_directory(p_sPath, cIgnored)) throw CFailure(p_sPath + ": " + FileErrorText(EISDIR));
  const std::string sFolder = std::filesystem::path(p_sPath).parent_path().string();
  if (faccessat(AT_FDCWD, sFolder.empty() ? "." : (sFolder + '/').c_str(), W_OK | X_OK, AT_EACCESS) == 0) return;
  throw CFailure(p_sPath + ": " + FileErrorText(errno));
}

std::string CommandLine(const CLI::App& p_cCommand) {
  std::string sOptions = "callorv call", sArguments;
  for (const CLI::Option* pOption : p_cCommand.get_options()) {
    if (pOption->count() == 0) continue;
    const std::string sName = pOption->get_name();
    std::string& sOut = pOption->get_positional() ? sArguments : sOptions;
    if (!pOption->get_positional()) sOut += ' ' + sName;
    if (pOption->get_type_size() == 0) continue;    // a flag
    for (const std::string& sValue : pOption->results()) sOut += ' ' + ForShell(Seen(sName, sValue));
  }
  return sOptions + sArguments;
}

void WriteReport(const T_Report& p_tReport, const T_Measurement& p_t, const T_Load& p_tLoad) {
  if (EndsIn(p_tReport.sPath, ".csv")) return WriteFile(p_tReport.sPath, MeasurementToCsv(p_t));
  if (EndsIn(p_tReport.sPath, ".json")) {
    return WriteFile(p_tReport.sPath, MeasurementToJson(p_t, p_tLoad).dump(2) + '\n');
  }
  WriteFile(p_tReport.sPath, ReportPage(p_t, p_tLoad, p_tReport.sCommandLine));
}
