// Runs the command line as a separate program, the way a person at a terminal does: a fresh
// process each time, its home and stores in a given directory, its standard input not a terminal.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace mirlo::testing {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

inline std::string shellQuoted(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

inline std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// `mirlo ARGS…` (the test twin, whose service address comes from the environment) with `input`
// on its standard input, its stores under `home`, the file secret store. `wrapper` runs it under
// another program (a tracer, say).
inline Outcome runMirlo(const std::filesystem::path& home, const std::string& serviceUrl, const std::string& anonKey,
                        const std::vector<std::string>& args, const std::string& input = {},
                        const std::vector<std::string>& wrapper = {}) {
  std::ofstream(home / "stdin", std::ios::binary) << input;
  std::string command = "env -i PATH=/usr/bin:/bin HOME=" + shellQuoted(home.string()) +
                        " XDG_CONFIG_HOME=" + shellQuoted((home / "config").string()) +
                        " XDG_DATA_HOME=" + shellQuoted((home / "data").string()) +
                        " MIRLO_SECRET_STORE=file MIRLO_TEST_SUPABASE_URL=" + shellQuoted(serviceUrl) +
                        " MIRLO_TEST_ANON_KEY=" + shellQuoted(anonKey);
  for (const auto& w : wrapper) command += " " + shellQuoted(w);
  command += " " + shellQuoted(MIRLO_TWIN_PATH);
  for (const auto& a : args) command += " " + shellQuoted(a);
  command += " <" + shellQuoted((home / "stdin").string()) + " >" + shellQuoted((home / "stdout").string()) +
             " 2>" + shellQuoted((home / "stderr").string());
  int raw = std::system(command.c_str());
  Outcome run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = slurp(home / "stdout");
  run.err = slurp(home / "stderr");
  return run;
}

}  // namespace mirlo::testing
