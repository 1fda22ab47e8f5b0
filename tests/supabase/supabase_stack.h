// The hosted service on this machine, as the tests and the benchmark run it: PostgreSQL 15 in a
// temporary directory with a stand-in of Supabase's auth schema and the project's migrations,
// mirlo-service playing Supabase Auth at /auth/v1, the correct function served by Deno, a model
// stand-in, and a gateway that puts both behind one base address as a Supabase project does.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "service/contract.h"
#include "service/service.h"

namespace mirlo::supabase::testing {

using Row = std::vector<std::optional<std::string>>;

struct QueryResult {
  bool ok = false;
  std::string error;
  std::vector<Row> rows;
};

// A PostgreSQL server of its own, stopped with this object.
class Database {
 public:
  // Creates the cluster in `dir` and starts it on a free loopback port.
  static std::unique_ptr<Database> start(const std::string& dir, std::string* error);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // postgres://postgres@127.0.0.1:PORT/postgres (local connections need no password).
  std::string url() const;
  // One statement with text parameters ($1, $2, …), on a connection of its own.
  QueryResult query(const std::string& sql, const std::vector<std::string>& params = {}) const;
  // A script of several statements, run as one transaction; the result of the last.
  QueryResult run(const std::string& script) const;

 private:
  Database() = default;
  std::string dir_;
  int port_ = 0;
  pid_t pid_ = -1;
};

// Every file of `migrations`, in the order of their names.
std::vector<std::string> migrationFiles(const std::string& migrations);

class SupabaseStack {
 public:
  static std::unique_ptr<SupabaseStack> start(std::string* error);
  ~SupabaseStack();
  SupabaseStack(const SupabaseStack&) = delete;
  SupabaseStack& operator=(const SupabaseStack&) = delete;

  // The project's base address: /auth/v1/… and /functions/v1/… under it.
  int port() const { return gatewayPort_; }
  // The function itself, with nothing in front.
  int functionPort() const { return functionPort_; }
  Database& database() { return *database_; }
  service::testing::ModelStandIn& model() { return model_; }
  // Moves the auth server's clock.
  void passTime(std::int64_t seconds) { clock_ += seconds; }
  // What the function wrote on its standard error.
  std::string functionLog() const;

 private:
  SupabaseStack() = default;
  bool startAuth(std::string* error);
  bool startFunction(std::string* error);
  bool startGateway(std::string* error);

  std::string root_;
  std::unique_ptr<Database> database_;
  service::testing::ModelStandIn model_;
  std::atomic<std::int64_t> clock_{0};
  std::unique_ptr<service::Service> auth_;
  std::thread authThread_;
  int authPort_ = 0;
  pid_t function_ = -1;
  int functionPort_ = 0;
  std::unique_ptr<httplib::Server> gateway_;
  std::thread gatewayThread_;
  int gatewayPort_ = 0;
};

}  // namespace mirlo::supabase::testing
