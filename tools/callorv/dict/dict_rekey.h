// callorv dict rekey.
#ifndef CALLORV_TOOLS_DICT_REKEY_H
#define CALLORV_TOOLS_DICT_REKEY_H

namespace CLI {
class App;
}

void AddDictRekey(CLI::App& p_cDict);

#endif
