#include "support/service_double.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "base/base64.h"
#include "base/json.h"

namespace mirlo::testing {

namespace {

constexpr std::size_t kMaxHeaderBytes = 64 * 1024;
constexpr std::int64_t kFreeDailyLimit = 3;

std::string trim(const std::string& s) {
  auto begin = s.find_first_not_of(" \t");
  if (begin == std::string::npos) return {};
  auto end = s.find_last_not_of(" \t");
  return s.substr(begin, end - begin + 1);
}

bool sendAll(int fd, const std::string& data) {
  std::size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

std::optional<std::string> stringMember(const Json& object, const char* key) {
  if (!object.is_object()) return std::nullopt;
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

}  // namespace

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
  for (const auto& [key, value] : headers)
    if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
  return std::nullopt;
}

std::vector<std::string> RecordedRequest::headerNames() const {
  std::vector<std::string> names;
  for (const auto& [key, value] : headers)
    if (strcasecmp(key.c_str(), "Host") != 0 && strcasecmp(key.c_str(), "Content-Length") != 0)
      names.push_back(key);
  return names;
}

std::string makeAccessToken(const std::string& email, const std::string& nonce) {
  return encodeBase64Url(R"({"alg":"HS256","typ":"JWT"})") + "." +
         encodeBase64Url(dumpJson(Json{{"email", email}, {"sub", "user-" + email}, {"role", "authenticated"},
                                 {"session_id", nonce}})) +
         ".unsigned";
}

std::string tokenResponse(const std::string& access, const std::string& refresh, const std::string& email) {
  return dumpJson(Json{{"access_token", access},
                       {"token_type", "bearer"},
                       {"expires_in", 3600},
                       {"expires_at", 1900000000},
                       {"refresh_token", refresh},
                       {"user",
                        {{"id", "user-" + email},
                         {"aud", "authenticated"},
                         {"role", "authenticated"},
                         {"email", email}}}});
}

std::string authError(int status, const std::string& errorCode, const std::string& msg) {
  return dumpJson(Json{{"code", status}, {"error_code", errorCode}, {"msg", msg}});
}

ServiceDouble::ServiceDouble(std::string anonKey) : anonKey_(std::move(anonKey)) {
  corrector_ = [](const std::string& text, const std::string&) {
    return !text.empty() && text.back() == '.' ? text : text + ".";
  };
}

ServiceDouble::~ServiceDouble() { stop(); }

std::string ServiceDouble::baseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }

void ServiceDouble::start() {
  listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listenFd_ < 0) throw std::runtime_error("service double: no socket");
  int yes = 1;
  ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listenFd_, 64) != 0)
    throw std::runtime_error("service double: cannot listen on loopback");
  socklen_t length = sizeof address;
  ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  acceptThread_ = std::thread([this] { acceptLoop(); });
}

void ServiceDouble::stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopping_ || listenFd_ < 0) return;
    stopping_ = true;
    for (int fd : connections_) ::shutdown(fd, SHUT_RDWR);
  }
  changed_.notify_all();
  ::shutdown(listenFd_, SHUT_RDWR);  // wakes accept()
  if (acceptThread_.joinable()) acceptThread_.join();
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(mutex_);
    threads.swap(connectionThreads_);
  }
  for (auto& thread : threads) thread.join();
  for (int fd : connections_) ::close(fd);
  connections_.clear();
  ::close(listenFd_);
  listenFd_ = -1;
}

void ServiceDouble::acceptLoop() {
  while (true) {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    std::lock_guard lock(mutex_);
    if (stopping_) {
      if (fd >= 0) ::close(fd);
      return;
    }
    if (fd < 0) continue;
    connections_.push_back(fd);
    connectionThreads_.emplace_back([this, fd] { serve(fd); });
  }
}

void ServiceDouble::serve(int fd) {
  std::string buffer;
  char chunk[16 * 1024];
  auto readMore = [&]() {
    ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return false;
    buffer.append(chunk, static_cast<std::size_t>(n));
    return true;
  };
  while (true) {
    std::size_t end;
    while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
      if (buffer.size() > kMaxHeaderBytes || !readMore()) {
        ::shutdown(fd, SHUT_RDWR);
        return;
      }
    }
    RecordedRequest request;
    std::size_t lineStart = 0;
    bool firstLine = true;
    std::size_t contentLength = 0;
    bool close = false;
    while (lineStart < end) {
      auto lineEnd = buffer.find("\r\n", lineStart);
      std::string line = buffer.substr(lineStart, lineEnd - lineStart);
      lineStart = lineEnd + 2;
      if (firstLine) {
        firstLine = false;
        auto sp1 = line.find(' ');
        auto sp2 = line.find(' ', sp1 + 1);
        request.method = line.substr(0, sp1);
        request.target = line.substr(sp1 + 1, sp2 - sp1 - 1);
        continue;
      }
      auto colon = line.find(':');
      if (colon == std::string::npos) continue;
      std::string name = line.substr(0, colon);
      std::string value = trim(line.substr(colon + 1));
      if (strcasecmp(name.c_str(), "Content-Length") == 0) contentLength = std::strtoul(value.c_str(), nullptr, 10);
      if (strcasecmp(name.c_str(), "Connection") == 0 && strcasecmp(value.c_str(), "close") == 0) close = true;
      request.headers.emplace_back(std::move(name), std::move(value));
    }
    buffer.erase(0, end + 4);
    while (buffer.size() < contentLength) {
      if (!readMore()) return;
    }
    request.body = buffer.substr(0, contentLength);
    buffer.erase(0, contentLength);

    std::optional<ScriptedAnswer> scripted;
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(request);
    }
    changed_.notify_all();
    scripted = takeScripted(request);

    Reply reply;
    if (scripted) {
      if (scripted->delaySeconds > 0) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::duration<double>(scripted->delaySeconds), [this] { return stopping_; });
        if (stopping_) return;
      }
      if (scripted->dropConnection) {
        ::shutdown(fd, SHUT_RDWR);
        return;
      }
      reply = Reply{scripted->status, scripted->body, scripted->headers};
    } else {
      reply = answer(request);
    }
    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " Status\r\n";  // clients read the number
    head += "Content-Type: application/json\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\n";
    for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
    if (close) head += "Connection: close\r\n";
    head += "\r\n";
    if (!sendAll(fd, head + reply.body) || close) {
      ::shutdown(fd, SHUT_RDWR);
      return;
    }
  }
}

void ServiceDouble::enqueue(const std::string& target, ScriptedAnswer answer) {
  std::lock_guard lock(mutex_);
  scripted_.emplace_back(target, std::move(answer));
}

std::optional<ScriptedAnswer> ServiceDouble::takeScripted(const RecordedRequest& request) {
  std::lock_guard lock(mutex_);
  for (bool exact : {true, false}) {
    for (auto it = scripted_.begin(); it != scripted_.end(); ++it) {
      if (it->first == (exact ? request.target : request.path())) {
        auto answer = std::move(it->second);
        scripted_.erase(it);
        return answer;
      }
    }
  }
  return std::nullopt;
}

void ServiceDouble::addUser(const std::string& email, const std::string& password) {
  std::lock_guard lock(mutex_);
  passwords_[email] = password;
}

std::pair<std::string, std::string> ServiceDouble::issue(const std::string& email) {
  std::string refresh = "refresh-" + std::to_string(++counter_);
  std::string access = makeAccessToken(email, refresh);
  refreshTokens_[refresh] = email;
  accessTokens_[access] = email;
  return {access, refresh};
}

std::pair<std::string, std::string> ServiceDouble::issueSession(const std::string& email) {
  std::lock_guard lock(mutex_);
  return issue(email);
}

void ServiceDouble::expireAccessTokens() {
  std::lock_guard lock(mutex_);
  accessTokens_.clear();
}

void ServiceDouble::setCorrector(std::function<std::string(const std::string&, const std::string&)> corrector) {
  std::lock_guard lock(mutex_);
  corrector_ = std::move(corrector);
}

std::vector<RecordedRequest> ServiceDouble::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t ServiceDouble::requestCount(const std::string& path) const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count_if(requests_.begin(), requests_.end(), [&](const RecordedRequest& r) {
    return path.empty() || r.path() == path || r.target == path;
  }));
}

bool ServiceDouble::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [&] { return requests_.size() >= count; });
}

ServiceDouble::Reply ServiceDouble::answer(const RecordedRequest& request) {
  // The API gateway in front of every function refuses requests without the project's key.
  if (request.header("apikey") != anonKey_)
    return {401, dumpJson(Json{{"message", "Invalid API key"}}), {}};
  if (request.method == "POST" && request.path() == "/functions/v1/correct") return correct(request);
  if (request.method == "POST" && request.path() == "/auth/v1/token") return token(request);
  if (request.method == "POST" && request.path() == "/auth/v1/signup") return signUp(request);
  return {404, authError(404, "not_found", "Not found"), {}};
}

ServiceDouble::Reply ServiceDouble::correct(const RecordedRequest& request) {
  std::string bearer = request.header("Authorization").value_or("");
  const std::string prefix = "Bearer ";
  bearer = bearer.rfind(prefix, 0) == 0 ? bearer.substr(prefix.size()) : std::string();
  std::lock_guard lock(mutex_);
  auto account = accessTokens_.find(bearer);
  if (account == accessTokens_.end())
    return {401, dumpJson(Json{{"code", "auth"}, {"error", "Session expirée"}}), {}};
  auto body = parseJson(request.body);
  auto text = body ? stringMember(*body, "text") : std::nullopt;
  auto mode = body ? stringMember(*body, "mode") : std::nullopt;
  if (!text || !mode || !stringMember(*body, "device_id") || body->size() != 3)
    return {400, dumpJson(Json{{"code", "bad_request"}, {"error", "Requête invalide"}}), {}};
  std::int64_t& used = usage_[account->second];
  Json usage = {{"used", used}, {"limit", kFreeDailyLimit}};
  if (used >= kFreeDailyLimit)
    return {429,
            dumpJson(Json{{"code", "quota"}, {"error", "Limite atteinte"}, {"plan", "free"}, {"usage", usage}}),
            {}};
  ++used;
  usage["used"] = used;
  return {200, dumpJson(Json{{"result", corrector_(*text, *mode)}, {"plan", "free"}, {"usage", usage}}), {}};
}

ServiceDouble::Reply ServiceDouble::token(const RecordedRequest& request) {
  auto body = parseJson(request.body);
  if (!body || !body->is_object())
    return {400, authError(400, "bad_json", "Could not parse request body as JSON"), {}};
  const auto grant = [&](const std::string& type) { return request.target.find("grant_type=" + type) != std::string::npos; };
  std::lock_guard lock(mutex_);
  std::string email;
  if (grant("password")) {
    email = stringMember(*body, "email").value_or("");
    auto known = passwords_.find(email);
    if (known == passwords_.end() || known->second != stringMember(*body, "password").value_or(""))
      return {400, authError(400, "invalid_credentials", "Invalid login credentials"), {}};
  } else if (grant("refresh_token")) {
    auto live = refreshTokens_.find(stringMember(*body, "refresh_token").value_or(""));
    if (live == refreshTokens_.end())
      return {400, authError(400, "refresh_token_not_found", "Invalid Refresh Token: Refresh Token Not Found"), {}};
    email = live->second;
    refreshTokens_.erase(live);  // refresh tokens are used once
  } else {
    return {400, authError(400, "unsupported_grant_type", "unsupported_grant_type"), {}};
  }
  auto [access, refresh] = issue(email);
  return {200, tokenResponse(access, refresh, email), {}};
}

ServiceDouble::Reply ServiceDouble::signUp(const RecordedRequest& request) {
  auto body = parseJson(request.body);
  if (!body || !body->is_object())
    return {400, authError(400, "bad_json", "Could not parse request body as JSON"), {}};
  const std::string email = stringMember(*body, "email").value_or("");
  const std::string password = stringMember(*body, "password").value_or("");
  if (email.find('@') == std::string::npos)
    return {400, authError(400, "validation_failed", "Unable to validate email address: invalid format"), {}};
  std::lock_guard lock(mutex_);
  if (passwords_.count(email))
    return {422, authError(422, "user_already_exists", "User already registered"), {}};
  if (password.size() < 8)
    return {422, authError(422, "weak_password", "Password should be at least 8 characters."), {}};
  passwords_[email] = password;
  auto [access, refresh] = issue(email);
  return {200, tokenResponse(access, refresh, email), {}};
}

}  // namespace mirlo::testing
