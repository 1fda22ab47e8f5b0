// The contract's checks against the hosted service: one stack for the whole test program, started
// by the first test that needs it, since a database and a Deno process take seconds to start.
// Every test makes its own accounts, so that they do not see each other's counts.
#include "supabase/supabase_backend.h"

namespace mirlo::supabase::testing {

namespace {

std::unique_ptr<SupabaseStack>& shared() {
  static std::unique_ptr<SupabaseStack> stack;
  return stack;
}

class StopTheStack : public ::testing::Environment {
 public:
  void TearDown() override { shared().reset(); }
};
[[maybe_unused]] const auto* const kStopTheStack = ::testing::AddGlobalTestEnvironment(new StopTheStack);

const char* const kToday = "(now() at time zone 'utc')::date";

class HostedBackend : public service::testing::Backend {
 public:
  explicit HostedBackend(SupabaseStack& stack) : stack_(stack) {}

  int port() override { return stack_.port(); }
  service::testing::ModelStandIn& model() override { return stack_.model(); }

  void setPlan(const service::testing::Account& account, const std::string& plan) override {
    expectOk(stack_.database().query(
        "insert into public.account_plans (user_id, plan) values ($1, $2) "
        "on conflict (user_id) do update set plan = excluded.plan, updated_at = now()",
        {account.id, plan}));
  }
  void nextDay(const service::testing::Account& account) override {
    expectOk(stack_.database().query(
        std::string("update public.daily_usage set day = day - 1 where user_id = $1 and day = ") + kToday,
        {account.id}));
  }
  int usageToday(const service::testing::Account& account) override { return usedToday(stack_, account.id); }
  void passTime(std::int64_t seconds) override { stack_.passTime(seconds); }

 private:
  static void expectOk(const QueryResult& r) { EXPECT_TRUE(r.ok) << r.error; }
  SupabaseStack& stack_;
};

}  // namespace

SupabaseStack* sharedStack() {
  auto& stack = shared();
  static std::string failure;
  if (!stack && failure.empty()) {
    stack = SupabaseStack::start(&failure);
    if (!stack && failure.empty()) failure = "the stack did not start";
  }
  if (!stack) ADD_FAILURE() << failure;
  return stack.get();
}

int usedToday(SupabaseStack& stack, const std::string& user) {
  const auto r = stack.database().query(
      std::string("select coalesce(sum(used), 0) from public.daily_usage where user_id = $1 and day = ") + kToday,
      {user});
  EXPECT_TRUE(r.ok) << r.error;
  return r.ok && !r.rows.empty() && r.rows[0][0] ? std::stoi(*r.rows[0][0]) : -1;
}

}  // namespace mirlo::supabase::testing

namespace mirlo::service::testing {

std::unique_ptr<Backend> makeBackend() {
  auto* stack = supabase::testing::sharedStack();
  if (!stack) return nullptr;
  return std::make_unique<supabase::testing::HostedBackend>(*stack);
}

}  // namespace mirlo::service::testing
