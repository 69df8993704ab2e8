// main() of a target without a fuzzer: runs the files of the folders that it is given.
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "support.h"

int main(int p_iArgs, char** p_aszArg) {
  int iFiles = 0;
  try {
    for (int i = 1; i < p_iArgs; ++i) {
      for (const auto& cEntry : std::filesystem::directory_iterator(p_aszArg[i])) {
        std::ifstream cIn(cEntry.path(), std::ios::binary);
        const std::vector<char> acInput{std::istreambuf_iterator<char>(cIn), {}};
        if (cIn.bad()) throw std::runtime_error("cannot read " + cEntry.path().string());
        printf("%s\n", cEntry.path().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(acInput.data()), acInput.size());
        ++iFiles;
      }
    }
  } catch (const std::exception& cError) {
    fprintf(stderr, "%s\n", cError.what());
    return 1;
  }
  printf("%d files\n", iFiles);
  return iFiles > 0 ? 0 : 1;
}
