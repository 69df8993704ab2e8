// The options of `callorv call` that make many calls.
#ifndef CALLORV_TOOLS_LOAD_OPTIONS_H
#define CALLORV_TOOLS_LOAD_OPTIONS_H

#include "call/measure.h"
#include "call/report.h"

namespace CLI {
class App;
class Option;
}    // namespace CLI

// All but --repeat. Both records are borrowed for as long as the command stands. Returns --duration.
CLI::Option* AddLoadOptions(CLI::App& p_cCommand, T_Load& p_t, T_Report& p_tReport);

// Throws CUsage for those of them that were given for a single call, and for the name of a report. Notes the arguments.
void CheckLoad(const CLI::App& p_cCommand, const T_Load& p_t, T_Report& p_tReport);

#endif
