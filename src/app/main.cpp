// The mirlo program.
#include <cstdio>
#include <cstring>

#include "mirlo/config.h"

int main(int argc, char** argv) {
  if (argc > 1 && (std::strcmp(argv[1], "--version") == 0)) {
    std::printf("mirlo %s\n", mirlo::config::kVersion);
    return 0;
  }
  std::fprintf(stderr,
               "mirlo %s: the desktop backend for this platform is not written yet.\n"
               "The core runs on the simulated desktop (see the tests).\n",
               mirlo::config::kVersion);
  return 2;
}
