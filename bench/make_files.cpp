// make_files FOLDER: writes the files that the benchmarks' client is set up from.
#include <cstdio>
#include <exception>
#include <fstream>

#include "payload.h"
#include "support/client_files.h"

namespace {

void Write(const std::string& p_sPath, const std::string& p_sContent) {
  std::ofstream cOut(p_sPath, std::ios::binary);
  cOut << p_sContent;
  if (!cOut.flush()) throw std::runtime_error("cannot write " + p_sPath);
}

}    // namespace

int main(int p_iArgs, char** p_aszArg) try {
  if (p_iArgs != 2) throw std::runtime_error("usage: make_files FOLDER");
  const std::string sFolder = p_aszArg[1];
  Write(sFolder + "/user.key", KeyFile("BENCH-USER"));
  Write(sFolder + "/dictionary.xml", PayloadDictionary());
  Write(sFolder + "/service.xml", ServiceDictionary());
  Write(sFolder + "/client.cfg", "msg_dic = " + sFolder + "/service.xml\nkey_file = " + sFolder +
                                     "/user.key\nserver = 127.0.0.1 1\n");
  return 0;
} catch (const std::exception& cError) {
  fprintf(stderr, "make_files: %s\n", cError.what());
  return 1;
}
