// mirlo-sim: runs scenario scripts against the real core on the simulated desktop.
#include <fstream>
#include <iostream>
#include <string>

#include "scenario/scenario.h"

int main(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h") {
    std::cerr << "usage: mirlo-sim SCRIPT...   (\"-\" reads the script from standard input)\n"
                 "Runs each scenario on a fresh simulated desktop; see docs/scenarios.md.\n";
    return argc < 2 ? 1 : 0;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string path = argv[i];
    int result = 0;
    if (path == "-") {
      result = mirlo::scenario::runScript(std::cin, "<stdin>", std::cout, std::cerr);
    } else {
      std::ifstream file(path);
      if (!file) {
        std::cerr << path << ": cannot be read\n";
        return 1;
      }
      result = mirlo::scenario::runScript(file, path, std::cout, std::cerr);
    }
    std::cout.flush();
    if (result != 0) status = result;
    if (result != 0) break;
  }
  return status;
}
