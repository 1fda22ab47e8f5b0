// Scenarios: a person's day on the simulated desktop, written as a plain text script and run
// against the real core. The language is documented in docs/scenarios.md.
#pragma once

#include <iosfwd>
#include <string>

namespace mirlo::scenario {

// Runs one script read from `in`. What the script prints goes to `out`. A script that cannot be
// run as written (an unknown command, a malformed argument, an impossible state) stops at that
// line with "<name>:<line>: <what is wrong>" on `err`. Returns the process status: 0 when the
// whole script ran, 2 when it stopped on an error.
int runScript(std::istream& in, const std::string& name, std::ostream& out, std::ostream& err);

}  // namespace mirlo::scenario
