// The contract's checks against mirlo-service: a fresh service for each test, in this process, its
// clock moved by the test, rephrasing through the model stand-in.
#include <filesystem>

#include "contract.h"

namespace mirlo::service::testing {
namespace {

class LocalBackend : public Backend {
 public:
  LocalBackend() {
    char tmpl[] = "/tmp/mirlo-contract-XXXXXX";
    if (!::mkdtemp(tmpl)) return;
    root_ = tmpl;
    ServiceConfig c;
    c.dataDir = root_ + "/data";
    c.port = 0;
    c.anonKey = config::kAnonKey;
    c.passwordCost = PasswordCost::minimum();
    c.accessLog = false;
    c.clock = [this] { return clock_.load(); };
    c.rephrase = {model_.url(), ModelStandIn::kKey, ModelStandIn::kModel, 10};
    std::string error;
    service_ = Service::create(c, &error);
    if (!service_) {
      ADD_FAILURE() << error;
      return;
    }
    port_ = service_->bind();
    server_ = std::thread([this] { service_->run(); });
    if (!service_->waitUntilReady(5000)) ADD_FAILURE() << "mirlo-service did not start";
  }
  ~LocalBackend() override {
    if (service_) service_->stop();
    if (server_.joinable()) server_.join();
    service_.reset();
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }

  int port() override { return port_; }
  ModelStandIn& model() override { return model_; }

  void setPlan(const Account& account, const std::string& plan) override {
    httplib::Client c("127.0.0.1", port_);
    const Reply r = replyOf(c.Post("/functions/v1/account/plan",
                                   {{"apikey", config::kAnonKey}, {"Authorization", "Bearer " + account.accessToken}},
                                   dumpJson({{"plan", plan}}), "application/json"));
    ASSERT_EQ(r.status, 200) << r.raw;
  }
  void nextDay(const Account&) override { clock_ += 24 * 3600; }
  int usageToday(const Account& account) override {
    return service_->store().usage(account.id, service_->today()).value_or(-1);
  }
  void passTime(std::int64_t seconds) override { clock_ += seconds; }

 private:
  ModelStandIn model_;
  std::string root_;
  std::atomic<std::int64_t> clock_{1'800'000'000};  // 2027-01-15, mid-morning UTC
  std::unique_ptr<Service> service_;
  std::thread server_;
  int port_ = -1;
};

}  // namespace

std::unique_ptr<Backend> makeBackend() { return std::make_unique<LocalBackend>(); }

}  // namespace mirlo::service::testing
