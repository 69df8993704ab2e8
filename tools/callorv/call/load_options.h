// The options of `callorv call` that make many calls.
#ifndef CALLORV_TOOLS_LOAD_OPTIONS_H
#define CALLORV_TOOLS_LOAD_OPTIONS_H

#include "call/measure.h"

namespace CLI {
class App;
class Option;
}    // namespace CLI

// All but --repeat. p_t is borrowed for as long as the command stands. Returns --duration.
CLI::Option* AddLoadOptions(CLI::App& p_cCommand, T_Load& p_t);

// Throws CUsage for those of them that were given for a single call.
void CheckLoad(const CLI::App& p_cCommand, const T_Load& p_t);

#endif
