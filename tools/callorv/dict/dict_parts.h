// The subcommands of callorv dict that have files of their own.
#ifndef CALLORV_TOOLS_DICT_PARTS_H
#define CALLORV_TOOLS_DICT_PARTS_H

namespace CLI {
class App;
}

void AddDictDiff(CLI::App& p_cDict);
void AddDictSchema(CLI::App& p_cDict);
void AddDictShow(CLI::App& p_cDict);

#endif
