#include "support/sim_app.h"

#include "base/base64.h"
#include "base/json.h"

namespace mirlo::testing {

std::string accessTokenFor(const std::string& email) {
  auto b64url = [](const std::string& bytes) {
    std::string s = encodeBase64(bytes);
    for (char& c : s) {
      if (c == '+') c = '-';
      else if (c == '/') c = '_';
    }
    while (!s.empty() && s.back() == '=') s.pop_back();
    return s;
  };
  return b64url(R"({"alg":"HS256","typ":"JWT"})") + "." +
         b64url(dumpJson(Json{{"email", email}, {"sub", "user-1"}, {"role", "authenticated"}})) + ".signature";
}

}  // namespace mirlo::testing
