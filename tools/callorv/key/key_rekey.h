// callorv key rekey.
#ifndef CALLORV_TOOLS_KEY_REKEY_H
#define CALLORV_TOOLS_KEY_REKEY_H

namespace CLI {
class App;
}

void AddKeyRekey(CLI::App& p_cKey);

#endif
