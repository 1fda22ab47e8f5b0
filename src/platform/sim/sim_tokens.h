// Access tokens as a simulated service issues them: a JSON Web Token whose payload carries the
// e-mail claim the program reads, with a signature nobody checks on the simulated desktop.
#pragma once

#include <string>

namespace mirlo::sim {

std::string accessTokenFor(const std::string& email);

}  // namespace mirlo::sim
