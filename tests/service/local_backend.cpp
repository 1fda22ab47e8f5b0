// The contract's checks against mirlo-service: a fresh service for each test, in this process, its
// clock moved by the test, rephrasing through the model stand-in.
#include "contract.h"

namespace mirlo::service::testing {
namespace {

class LocalBackend : public Backend {
 public:
  LocalBackend() {
    const bool started = local_.start(
        [this](ServiceConfig& c) { c.rephrase = {model_.url(), ModelStandIn::kKey, ModelStandIn::kModel, 10}; });
    if (!started) ADD_FAILURE() << "mirlo-service did not start";
  }

  int port() override { return local_.port; }
  ModelStandIn& model() override { return model_; }

  void setPlan(const Account& account, const std::string& plan) override {
    httplib::Client c("127.0.0.1", local_.port);
    const Reply r = replyOf(c.Post("/functions/v1/account/plan",
                                   {{"apikey", config::kAnonKey}, {"Authorization", "Bearer " + account.accessToken}},
                                   dumpJson({{"plan", plan}}), "application/json"));
    ASSERT_EQ(r.status, 200) << r.raw;
  }
  void nextDay(const Account&) override { local_.clock += 24 * 3600; }
  int usageToday(const Account& account) override {
    return local_.service->store().usage(account.id, local_.service->today()).value_or(-1);
  }
  void passTime(std::int64_t seconds) override { local_.clock += seconds; }

 private:
  ModelStandIn model_;  // outlives the service that calls it
  LocalService local_;
};

}  // namespace

std::unique_ptr<Backend> makeBackend() { return std::make_unique<LocalBackend>(); }

}  // namespace mirlo::service::testing
