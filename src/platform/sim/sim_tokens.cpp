#include "platform/sim/sim_tokens.h"

#include "base/base64.h"
#include "base/json.h"

namespace mirlo::sim {

std::string accessTokenFor(const std::string& email) {
  return encodeBase64Url(R"({"alg":"HS256","typ":"JWT"})") + "." +
         encodeBase64Url(dumpJson(Json{{"email", email}, {"sub", "user-1"}, {"role", "authenticated"}})) +
         ".signature";
}

}  // namespace mirlo::sim
