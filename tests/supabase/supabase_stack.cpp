#include "supabase/supabase_stack.h"

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "service/crypto.h"
#include "support/loopback_ports.h"

namespace mirlo::supabase::testing {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// PostgreSQL refuses to run as root: when the tests are root (as on CI), the server runs as the
// system's postgres account, which Debian's package creates.
const passwd* serverAccount() { return ::geteuid() == 0 ? ::getpwnam("postgres") : nullptr; }

struct Spawn {
  std::vector<std::string> argv;
  std::vector<std::string> env;  // empty: this process's environment
  std::string cwd;
  std::string log;  // standard output and error
  const passwd* user = nullptr;
  int deathSignal = SIGKILL;  // sent to the child if this process dies first
};

pid_t spawn(const Spawn& s) {
  // Everything the child needs is made before the fork: other threads run in this process, and
  // the child must not allocate.
  std::vector<char*> argv, env;
  for (const auto& a : s.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  for (const auto& e : s.env) env.push_back(const_cast<char*>(e.c_str()));
  env.push_back(nullptr);
  const char* log = s.log.empty() ? "/dev/null" : s.log.c_str();
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  if (s.user) {
    if (::setgroups(0, nullptr) != 0 || ::setgid(s.user->pw_gid) != 0 || ::setuid(s.user->pw_uid) != 0) ::_exit(126);
  }
  ::prctl(PR_SET_PDEATHSIG, s.deathSignal);
  if (!s.cwd.empty() && ::chdir(s.cwd.c_str()) != 0) ::_exit(126);
  const int out = ::open(log, O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (out >= 0) {
    ::dup2(out, 1);
    ::dup2(out, 2);
  }
  const int in = ::open("/dev/null", O_RDONLY);
  if (in >= 0) ::dup2(in, 0);
  if (s.env.empty()) ::execv(argv[0], argv.data());
  else ::execve(argv[0], argv.data(), env.data());
  ::_exit(127);
}

bool exitedWith(pid_t pid, int code) {
  int status = 0;
  return ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == code;
}

void stopChild(pid_t pid, int signal) {
  if (pid <= 0) return;
  ::kill(pid, signal);
  ::waitpid(pid, nullptr, 0);
}

std::string connInfo(int port) {
  return "host=127.0.0.1 port=" + std::to_string(port) + " user=postgres dbname=postgres connect_timeout=10";
}

QueryResult collect(PGconn* conn, PGresult* res) {
  QueryResult out;
  const auto status = PQresultStatus(res);
  out.ok = status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK;
  if (!out.ok) out.error = PQerrorMessage(conn);
  for (int r = 0; out.ok && r < PQntuples(res); ++r) {
    Row row;
    for (int c = 0; c < PQnfields(res); ++c)
      row.push_back(PQgetisnull(res, r, c) ? std::nullopt : std::optional<std::string>(PQgetvalue(res, r, c)));
    out.rows.push_back(std::move(row));
  }
  PQclear(res);
  return out;
}

}  // namespace

std::vector<std::string> migrationFiles(const std::string& migrations) {
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(migrations))
    if (entry.path().extension() == ".sql") files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

std::unique_ptr<Database> Database::start(const std::string& dir, std::string* error) {
  std::unique_ptr<Database> db(new Database);
  db->dir_ = dir;
  const passwd* user = serverAccount();
  if (::geteuid() == 0 && !user) return *error = "no postgres account to run PostgreSQL as", nullptr;
  fs::create_directories(dir);
  if (user && ::chown(dir.c_str(), user->pw_uid, user->pw_gid) != 0)
    return *error = "cannot hand " + dir + " to the postgres account", nullptr;

  const std::string bin = MIRLO_POSTGRES_BIN;
  const std::string log = dir + "/server.log";
  const pid_t init = spawn({{bin + "/initdb", "-D", dir + "/data", "-U", "postgres", "--auth=trust", "--no-sync",
                             "-E", "UTF8", "--locale=C.UTF-8", "--no-instructions"},
                            {}, dir, log, user});
  if (!exitedWith(init, 0)) return *error = "initdb failed:\n" + slurp(log), nullptr;

  db->port_ = mirlo::testing::freeLoopbackPort();
  // Durability is not what these tests are about: no fsync, so that the server costs little.
  db->pid_ = spawn({{bin + "/postgres", "-D", dir + "/data", "-p", std::to_string(db->port_), "-k", dir, "-c",
                     "listen_addresses=127.0.0.1", "-c", "fsync=off", "-c", "synchronous_commit=off", "-c",
                     "full_page_writes=off", "-c", "max_connections=100"},
                    {}, dir, log, user, SIGINT});
  const auto limit = Clock::now() + std::chrono::seconds(60);
  while (PQping(connInfo(db->port_).c_str()) != PQPING_OK) {
    if (Clock::now() > limit || ::waitpid(db->pid_, nullptr, WNOHANG) != 0)
      return *error = "PostgreSQL did not start:\n" + slurp(log), nullptr;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return db;
}

Database::~Database() { stopChild(pid_, SIGINT); }

std::string Database::url() const { return "postgres://postgres@127.0.0.1:" + std::to_string(port_) + "/postgres"; }

QueryResult Database::query(const std::string& sql, const std::vector<std::string>& params) const {
  PGconn* conn = PQconnectdb(connInfo(port_).c_str());
  if (PQstatus(conn) != CONNECTION_OK) {
    QueryResult out{false, PQerrorMessage(conn), {}};
    PQfinish(conn);
    return out;
  }
  std::vector<const char*> values;
  for (const auto& p : params) values.push_back(p.c_str());
  auto out = collect(conn, PQexecParams(conn, sql.c_str(), static_cast<int>(values.size()), nullptr, values.data(),
                                        nullptr, nullptr, 0));
  PQfinish(conn);
  return out;
}

QueryResult Database::run(const std::string& script) const {
  PGconn* conn = PQconnectdb(connInfo(port_).c_str());
  if (PQstatus(conn) != CONNECTION_OK) {
    QueryResult out{false, PQerrorMessage(conn), {}};
    PQfinish(conn);
    return out;
  }
  // Several statements in one simple query run as one transaction.
  auto out = collect(conn, PQexec(conn, script.c_str()));
  PQfinish(conn);
  return out;
}

// ---------------------------------------------------------------------------------------------

std::unique_ptr<SupabaseStack> SupabaseStack::start(std::string* error) {
  std::unique_ptr<SupabaseStack> stack(new SupabaseStack);
  char tmpl[] = "/tmp/mirlo-supabase-XXXXXX";
  if (!::mkdtemp(tmpl)) return *error = "no temporary directory", nullptr;
  stack->root_ = tmpl;
  ::chmod(tmpl, 0755);  // the database's own directory inside belongs to its account

  stack->database_ = Database::start(stack->root_ + "/db", error);
  if (!stack->database_) return nullptr;
  const std::string source = MIRLO_SOURCE_DIR;
  for (const auto& file : std::vector<std::string>{source + "/tests/supabase/auth_stand_in.sql"}) {
    const auto r = stack->database_->run(slurp(file));
    if (!r.ok) return *error = file + ": " + r.error, nullptr;
  }
  for (const auto& file : migrationFiles(source + "/supabase/migrations")) {
    const auto r = stack->database_->run(slurp(file));
    if (!r.ok) return *error = file + ": " + r.error, nullptr;
  }
  if (!stack->startAuth(error) || !stack->startFunction(error) || !stack->startGateway(error)) return nullptr;
  return stack;
}

SupabaseStack::~SupabaseStack() {
  if (gateway_) gateway_->stop();
  if (gatewayThread_.joinable()) gatewayThread_.join();
  stopChild(function_, SIGTERM);
  if (auth_) auth_->stop();
  if (authThread_.joinable()) authThread_.join();
  auth_.reset();
  database_.reset();
  std::error_code ec;
  if (!root_.empty()) fs::remove_all(root_, ec);
}

std::string SupabaseStack::functionLog() const { return slurp(root_ + "/function.log"); }

bool SupabaseStack::startAuth(std::string* error) {
  service::ServiceConfig c;
  c.dataDir = root_ + "/auth";
  c.port = 0;
  c.anonKey = config::kAnonKey;
  c.passwordCost = service::PasswordCost::minimum();
  c.accessLog = false;
  clock_ = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  c.clock = [this] { return clock_.load(); };
  auth_ = service::Service::create(c, error);
  if (!auth_) return false;
  authPort_ = auth_->bind();
  authThread_ = std::thread([this] { auth_->run(); });
  if (authPort_ <= 0 || !auth_->waitUntilReady(5000)) return *error = "the auth server did not start", false;
  return true;
}

bool SupabaseStack::startFunction(std::string* error) {
  functionPort_ = mirlo::testing::freeLoopbackPort();
  const std::string source = MIRLO_SOURCE_DIR;
  const std::string serviceKey =
      service::signJwt({{"iss", "supabase-demo"}, {"role", "service_role"}, {"exp", 1983812996}},
                       service::kDemoApiKeySecret);
  Spawn s;
  s.argv = {MIRLO_DENO, "run", "-A", "--cached-only", "--frozen", "functions/correct/index.ts"};
  s.env = {"PATH=/usr/bin:/bin",
           "HOME=" + root_,
           "DENO_DIR=" + source + "/.cache/deno/dir",
           "DENO_NO_UPDATE_CHECK=1",
           "NO_COLOR=1",
           "PORT=" + std::to_string(functionPort_),
           "SUPABASE_URL=http://127.0.0.1:" + std::to_string(authPort_),
           std::string("SUPABASE_ANON_KEY=") + config::kAnonKey,
           "SUPABASE_SERVICE_ROLE_KEY=" + serviceKey,
           "SUPABASE_DB_URL=" + database_->url(),
           "MIRLO_MODEL_URL=" + model_.url(),
           std::string("MIRLO_MODEL=") + service::testing::ModelStandIn::kModel,
           std::string("MIRLO_MODEL_KEY=") + service::testing::ModelStandIn::kKey};
  s.cwd = source + "/supabase";
  s.log = root_ + "/function.log";
  function_ = spawn(s);
  const auto limit = Clock::now() + std::chrono::seconds(60);
  while (!mirlo::testing::loopbackPortAnswers(functionPort_)) {
    if (Clock::now() > limit || ::waitpid(function_, nullptr, WNOHANG) != 0) {
      function_ = -1;
      return *error = "the correct function did not start:\n" + functionLog(), false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

// One base address, as a Supabase project has: the functions under /functions/v1/, everything
// else to Auth. Supabase Auth writes each new account into auth.users; the gateway does it here
// for the auth server that plays it.
bool SupabaseStack::startGateway(std::string* error) {
  gateway_ = std::make_unique<httplib::Server>();
  gateway_->set_tcp_nodelay(true);
  // A thread per connection the tests open at once (thirty in the concurrency check): with the
  // library's default of eight, connections waited in its queue and some were dropped, which is
  // the stand-in's fault, not the function's.
  gateway_->new_task_queue = [] { return new httplib::ThreadPool(64); };
  auto forward = [this](const httplib::Request& req, httplib::Response& res) {
    const bool function = req.path.rfind("/functions/v1/", 0) == 0;
    httplib::Client upstream("127.0.0.1", function ? functionPort_ : authPort_);
    upstream.set_read_timeout(60, 0);
    upstream.set_tcp_nodelay(true);
    httplib::Request out;
    out.method = req.method;
    out.path = req.target;
    out.body = req.body;
    for (const char* name : {"apikey", "Authorization", "Content-Type"})
      if (req.has_header(name)) out.headers.emplace(name, req.get_header_value(name));
    const auto r = upstream.send(out);
    if (!r) {
      res.status = 502;
      return;
    }
    res.status = r->status;
    for (const char* name : {"Content-Type", "Location"})
      if (r->has_header(name)) res.set_header(name, r->get_header_value(name));
    res.body = r->body;
    if (!function && req.path == "/auth/v1/signup" && r->status == 200) {
      const Json answer = parseJson(r->body).value_or(Json());
      const Json user = answer.is_object() ? answer.value("user", Json()) : Json();
      if (user.is_object())
        database_->query("insert into auth.users (id, email) values ($1, $2) on conflict do nothing",
                         {user.value("id", ""), user.value("email", "")});
    }
  };
  gateway_->Get(".*", forward);
  gateway_->Post(".*", forward);
  gateway_->Put(".*", forward);
  gateway_->Delete(".*", forward);
  gatewayPort_ = gateway_->bind_to_any_port("127.0.0.1");
  gatewayThread_ = std::thread([this] { gateway_->listen_after_bind(); });
  const auto limit = Clock::now() + std::chrono::seconds(10);
  while (!gateway_->is_running())
    if (Clock::now() > limit) return *error = "the gateway did not start", false;
    else std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return true;
}

}  // namespace mirlo::supabase::testing
