// The mirlo program as the end-to-end tests run it: the same command line, built against a
// service address taken from MIRLO_TEST_SUPABASE_URL (the shipped program's address is fixed
// when it is built, and nothing at run time changes it).
#include <cstdlib>

#include "app/app.h"
#include "cli/cli.h"

int main(int argc, char** argv) {
  mirlo::AppConfig config = mirlo::AppConfig::fromBuild();
  if (const char* url = std::getenv("MIRLO_TEST_SUPABASE_URL")) config.supabaseUrl = url;
  if (const char* key = std::getenv("MIRLO_TEST_ANON_KEY")) config.anonKey = key;
  return mirlo::cli::run(argc, argv, config);
}
