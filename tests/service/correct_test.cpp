#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using CorrectTest = ServiceTest;

TEST_F(CorrectTest, FixReplacesOnlyMisspeltWords) {
  const std::string token = accountToken("lea@example.fr");
  auto r = correct(token,
                   "Merci  bocoup pour ta corection :\n\tl'ortographe, c'est « important » ; écris à "
                   "jean@exemple.fr le 12/03… Dupont",
                   "fix");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.body["result"],
            "Merci  beaucoup pour ta correction :\n\tl'orthographe, c'est « important » ; écris à "
            "jean@exemple.fr le 12/03… Dupont");
  // A sentence's first word keeps its capital; a correct text comes back untouched.
  EXPECT_EQ(correct(token, "Bocoup de conaissance.\r\n").body["result"], "Beaucoup de connaissance.\r\n");
}

TEST_F(CorrectTest, RephraseWithoutAModelSaysSo) {
  const std::string token = accountToken("lea@example.fr");
  auto r = correct(token, "merci bcp", "rephrase");
  EXPECT_EQ(r.body["code"], "unavailable");
  EXPECT_EQ(r.body["error"], "La reformulation n'est pas disponible sur ce service local");
  EXPECT_EQ(r.body["usage"]["used"], 0);
}

}  // namespace
}  // namespace mirlo::service::testing
