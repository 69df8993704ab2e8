// A measurement in a file that others read.
#ifndef CALLORV_TOOLS_REPORT_H
#define CALLORV_TOOLS_REPORT_H

#include <string>

#include "call/measure.h"

namespace CLI {
class App;
}

struct T_Report {
  std::string sPath;           // "" for none; the name's end says which it is
  std::string sCommandLine;    // that was measured, without what may be secret in it
};

// Before anything is measured: throws CUsage for a name that does not end in .html, .csv or .json, and CFailure when no
// file can be made in its folder.
void CheckReportName(const std::string& p_sPath);
void CheckReportFolder(const std::string& p_sPath);

// The arguments that p_cCommand was given, for a shell, with dots for values of the request.
std::string CommandLine(const CLI::App& p_cCommand);

// A page on its own, the seconds as CSV, or what --json prints. Texts of failures are ISO-8859-1. Throws CFailure.
void WriteReport(const T_Report& p_tReport, const T_Measurement& p_t, const T_Load& p_tLoad);

#endif
