// A measurement as a page on its own.
#ifndef CALLORV_TOOLS_REPORT_PAGE_H
#define CALLORV_TOOLS_REPORT_PAGE_H

#include <string>

#include "call/measure.h"

// HTML without scripts and without anything from elsewhere.
std::string ReportPage(const T_Measurement& p_t, const T_Load& p_tLoad, const std::string& p_sCommandLine);

#endif
