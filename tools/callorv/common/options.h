// What the subcommands' options share.
#ifndef CALLORV_TOOLS_OPTIONS_H
#define CALLORV_TOOLS_OPTIONS_H

#include <CLI/CLI.hpp>

// A number from p_iMin to p_iMax, without the range in the help: the words beside it say what matters.
inline CLI::Validator Between(int p_iMin, int p_iMax) { return CLI::Range(p_iMin, p_iMax).description(""); }

#endif
