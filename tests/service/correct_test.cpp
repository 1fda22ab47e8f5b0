#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using CorrectTest = ServiceTest;

TEST_F(CorrectTest, RephraseWithoutAModelSaysSo) {
  const std::string token = accountToken("lea@example.fr");
  auto r = correct(token, "merci bcp", "rephrase");
  EXPECT_EQ(r.body["code"], "unavailable");
  EXPECT_EQ(r.body["error"], "La reformulation n'est pas disponible sur ce service local");
  EXPECT_EQ(r.body["usage"]["used"], 0);
}

}  // namespace
}  // namespace mirlo::service::testing
