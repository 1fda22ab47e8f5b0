// What only the hosted service has: its database's own guarantees, the function's care with what
// the model answers, and the program itself run against it.
#include <regex>

#include "host/cli_process.h"
#include "supabase/supabase_backend.h"

namespace mirlo::supabase::testing {
namespace {

namespace fs = std::filesystem;
using service::testing::ContractTest;

class HostedDatabase : public ::testing::Test {
 protected:
  void SetUp() override {
    stack = sharedStack();
    ASSERT_TRUE(stack);
  }
  // An account as Supabase Auth would have made it.
  std::string newUser() {
    const auto r = db().query("insert into auth.users (id, email) values (gen_random_uuid(), "
                              "gen_random_uuid() || '@example.fr') returning id");
    EXPECT_TRUE(r.ok) << r.error;
    return r.ok ? *r.rows[0][0] : "";
  }
  // `sql` run the way the API runs a signed-in person's request (and rolled back).
  QueryResult as(const std::string& role, const std::string& user, const std::string& sql) {
    return db().run("begin; set local role " + role + "; set local request.jwt.claims = '{\"sub\":\"" + user +
                    "\"}'; " + sql);
  }
  Database& db() { return stack->database(); }
  SupabaseStack* stack = nullptr;
};

TEST_F(HostedDatabase, MigrationsAreNamedSoThatTheCommandLineAppliesThemInOrder) {
  const std::regex name(R"(\d{14}_[a-z0-9_]+\.sql)");
  const auto files = migrationFiles(std::string(MIRLO_SOURCE_DIR) + "/supabase/migrations");
  ASSERT_FALSE(files.empty());
  for (const auto& file : files)
    EXPECT_TRUE(std::regex_match(fs::path(file).filename().string(), name)) << file;
}

// How many are taken at once, and given back after a failure, is in the contract checks; here
// the one case a person cannot reach.
TEST_F(HostedDatabase, GivingBackNeverGoesBelowNothing) {
  const std::string nobody = newUser();
  const auto back = db().query("select public.give_back_correction($1, (now() at time zone 'utc')::date)", {nobody});
  ASSERT_TRUE(back.ok) << back.error;
  EXPECT_EQ(back.rows.at(0).at(0), std::nullopt);
  EXPECT_EQ(usedToday(*stack, nobody), 0);
}

TEST_F(HostedDatabase, APersonReadsTheirOwnPlanAndUsageAndWritesNothing) {
  const std::string lea = newUser(), paul = newUser();
  for (const auto& user : {lea, paul, paul})
    ASSERT_TRUE(db().query("select public.take_correction($1)", {user}).ok);

  auto mine = as("authenticated", lea, "select plan, used, daily_limit from public.my_account");
  ASSERT_TRUE(mine.ok) << mine.error;
  ASSERT_EQ(mine.rows.size(), 1u);
  EXPECT_EQ(mine.rows[0], (Row{"gratuit", "1", "3"}));
  auto usage = as("authenticated", lea, "select user_id, used from public.daily_usage");
  ASSERT_TRUE(usage.ok) << usage.error;
  EXPECT_EQ(usage.rows, (std::vector<Row>{{lea, "1"}}));
  EXPECT_EQ(as("authenticated", lea, "select count(*) from public.account_plans").rows, (std::vector<Row>{{"1"}}));

  for (const std::string& write : std::vector<std::string>{
           "update public.daily_usage set used = 0", "update public.account_plans set plan = 'lifetime'",
        "insert into public.account_plans (user_id, plan) values ('" + lea + "', 'lifetime')",
        "delete from public.daily_usage", "select public.give_back_correction('" + lea + "', current_date)",
        "select public.take_correction('" + paul + "')", "update public.plan_limits set daily_limit = null"}) {
    const auto r = as("authenticated", lea, write);
    EXPECT_FALSE(r.ok) << write;
    EXPECT_NE(r.error.find("permission denied"), std::string::npos) << write << ": " << r.error;
  }
  EXPECT_FALSE(as("anon", lea, "select * from public.daily_usage").ok);
  EXPECT_EQ(as("anon", "", "select daily_limit from public.plan_limits where plan = 'gratuit'").rows,
            (std::vector<Row>{{"3"}}));
  EXPECT_EQ(usedToday(*stack, paul), 2);
}

// The program itself through the whole stack. What the function takes away from the model's
// answer is in its own unit tests (supabase/functions/_shared/correction_test.ts).
using HostedFunction = ContractTest;

TEST_F(HostedFunction, TheProgramSignsUpAndCorrectsThroughIt) {
  const fs::path home = fs::temp_directory_path() / ("mirlo-hosted-" + std::to_string(::getpid()));
  fs::create_directories(home);
  const std::string base = "http://127.0.0.1:" + std::to_string(backend->port());
  auto mirlo = [&](const std::vector<std::string>& args, const std::string& input = {}) {
    return mirlo::testing::runMirlo(home, base, config::kAnonKey, args, input);
  };
  auto r = mirlo({"signup", "zoe." + std::to_string(::getpid()) + "@exemple.fr"}, "motdepasse1\n");
  ASSERT_EQ(r.status, 0) << r.err;

  backend->model().answer("Bonjour, je suis très content de vous voir.");
  r = mirlo({"fix", "Bonjour, je suis tres content de vous voir."});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Bonjour, je suis très content de vous voir.");
  EXPECT_NE(backend->model().lastRequest()["messages"][0]["content"].get<std::string>().find("orrige"),
            std::string::npos);
  // The instructions differ by mode, and the text goes alone as the user's message.
  backend->model().echo();
  EXPECT_EQ(mirlo({"rephrase", "merci bcp"}).status, 0);
  const Json asked = backend->model().lastRequest();
  EXPECT_NE(asked["messages"][0]["content"].get<std::string>().find("reformule"), std::string::npos);
  EXPECT_EQ(asked["messages"].back(), (Json{{"role", "user"}, {"content", "merci bcp"}}));

  backend->model().respond(503, "{}");
  r = mirlo({"fix", "Encore une phrase."});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "La correction a échoué, réessaie dans un instant\n");
  std::error_code ec;
  fs::remove_all(home, ec);
}

}  // namespace
}  // namespace mirlo::supabase::testing
