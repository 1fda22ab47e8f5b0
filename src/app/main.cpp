// The mirlo program: the desktop program, or, given a command, the command line.
#include "app/app.h"
#include "cli/cli.h"

int main(int argc, char** argv) { return mirlo::cli::run(argc, argv, mirlo::AppConfig::fromBuild()); }
