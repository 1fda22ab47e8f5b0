#include <curl/curl.h>
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

#include "platform/curl/curl_http_client.h"
#include "support/loopback_ports.h"
#include "support/service_double.h"
#include "threads/loopback.h"

namespace mirlo::testing {
namespace {

using namespace std::chrono_literals;

class CurlClientTest : public ::testing::Test {
 protected:
  void SetUp() override { service.start(); }

  HttpResult fetch(HttpRequest request, CurlHttpClient& via) {
    Handover<HttpResult> result;
    via.send(std::move(request), [&](HttpResult r) { result.deliver(std::move(r)); });
    EXPECT_TRUE(result.wait()) << "no completion";
    EXPECT_NE(result.thread(), std::this_thread::get_id());
    return result.has() ? result.value() : HttpResult{TransportError{TransportFailure::other, "none"}};
  }
  HttpResult fetch(HttpRequest request) { return fetch(std::move(request), client); }

  HttpRequest post(std::string path, std::string body) {
    HttpRequest request;
    request.method = "POST";
    request.url = service.baseUrl() + path;
    request.body = std::move(body);
    request.timeoutSeconds = 10;
    return request;
  }

  ServiceDouble service;
  CurlHttpClient client;
};

TEST_F(CurlClientTest, SendsMethodHeadersInOrderAndBodyExactly) {
  service.enqueue("/echo", ScriptedAnswer::json(200, R"({"ok":true})"));
  HttpRequest request = post("/echo?x=1&y=%C3%A9", "{\"text\":\"café\"}");
  request.method = "PUT";
  request.headers = {{"Zeta", "1"}, {"Content-Type", "application/json"}, {"apikey", "k"}, {"Authorization", "Bearer t"}, {"Alpha", ""}};
  auto result = fetch(request);

  ASSERT_TRUE(std::holds_alternative<HttpResponse>(result));
  EXPECT_EQ(std::get<HttpResponse>(result).status, 200);
  EXPECT_EQ(std::get<HttpResponse>(result).body, R"({"ok":true})");
  auto seen = service.requests().at(0);
  EXPECT_EQ(seen.method, "PUT");
  EXPECT_EQ(seen.target, "/echo?x=1&y=%C3%A9");
  EXPECT_EQ(seen.body, "{\"text\":\"café\"}");
  // Only what the caller asked for, in its order: no Accept, Expect or default Content-Type.
  EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"Zeta", "Content-Type", "apikey", "Authorization", "Alpha"}));
  EXPECT_EQ(seen.header("Alpha"), "");
  EXPECT_EQ(seen.header("Content-Length"), std::to_string(request.body->size()));

  // A large body goes at once, without asking the server first.
  std::string big(3 * 1024 * 1024, 'a');
  request = post("/big", big);
  request.headers = {{"Content-Type", "text/plain"}};
  ASSERT_TRUE(std::holds_alternative<HttpResponse>(fetch(request)));
  EXPECT_FALSE(service.requests().back().header("Expect"));
  EXPECT_EQ(service.requests().back().body.size(), big.size());

  // A POST without a body and a GET carry nothing the caller did not ask for.
  HttpRequest empty = post("/a", "");
  empty.body.reset();
  fetch(empty);
  EXPECT_EQ(service.requests().back().header("Content-Length"), "0");
  EXPECT_TRUE(service.requests().back().headerNames().empty());
  HttpRequest get;
  get.url = service.baseUrl() + "/b";
  fetch(get);
  EXPECT_EQ(service.requests().back().method, "GET");
  EXPECT_TRUE(service.requests().back().headerNames().empty());
}

TEST_F(CurlClientTest, AHeaderWithALineBreakIsNeverSent) {
  for (const std::string& value : {std::string("t\r\nX-Injected: 1"), std::string("t\nX", 3), std::string("t\0x", 3)}) {
    HttpRequest request = post("/x", "{}");
    request.headers = {{"Authorization", "Bearer " + value}};
    auto result = fetch(request);
    ASSERT_TRUE(std::holds_alternative<TransportError>(result));
  }
  EXPECT_EQ(service.requestCount(), 0u);
}

TEST_F(CurlClientTest, SlowAnswerEndsInATimeOutWithCurlsWords) {
  service.enqueue("/slow", ScriptedAnswer::json(200, "{}", 30));
  HttpRequest request = post("/slow", "{}");
  request.timeoutSeconds = 0.3;
  const auto started = std::chrono::steady_clock::now();
  auto result = fetch(request);
  ASSERT_TRUE(std::holds_alternative<TransportError>(result));
  const auto& description = std::get<TransportError>(result).description;
  EXPECT_EQ(std::get<TransportError>(result).kind, TransportFailure::timedOut);
  EXPECT_EQ(description.rfind(curl_easy_strerror(CURLE_OPERATION_TIMEDOUT), 0), 0u) << description;
  EXPECT_NE(description.find("milliseconds"), std::string::npos) << "the detail is missing: " << description;
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

TEST_F(CurlClientTest, UnreachableServersDroppedConnectionsAndOtherSchemesAreTransportErrors) {
  HttpRequest request = post("/x", "{}");
  request.url = "http://127.0.0.1:" + std::to_string(freeLoopbackPort()) + "/functions/v1/correct";
  auto refused = fetch(request);
  ASSERT_TRUE(std::holds_alternative<TransportError>(refused));
  EXPECT_EQ(std::get<TransportError>(refused).kind, TransportFailure::refused);
  EXPECT_EQ(std::get<TransportError>(refused).description.rfind(curl_easy_strerror(CURLE_COULDNT_CONNECT), 0), 0u)
      << std::get<TransportError>(refused).description;

  // ".invalid" never resolves: an unknown host, or no network at all on a machine without one.
  HttpRequest unknown = post("/x", "{}");
  unknown.url = "http://mirlo.invalid/x";
  auto notFound = fetch(unknown);
  ASSERT_TRUE(std::holds_alternative<TransportError>(notFound));
  const auto kind = std::get<TransportError>(notFound).kind;
  EXPECT_TRUE(kind == TransportFailure::hostNotFound || kind == TransportFailure::noConnection);

  ScriptedAnswer drop;
  drop.dropConnection = true;
  service.enqueue("/drop", drop);
  auto dropped = fetch(post("/drop", "{}"));
  ASSERT_TRUE(std::holds_alternative<TransportError>(dropped));
  EXPECT_FALSE(std::get<TransportError>(dropped).description.empty());

  // Only HTTP and HTTPS are spoken.
  HttpRequest file;
  file.url = "file:///etc/hostname";
  auto local = fetch(file);
  ASSERT_TRUE(std::holds_alternative<TransportError>(local));
  EXPECT_EQ(std::get<TransportError>(local).description.rfind(curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL), 0), 0u);
}

TEST_F(CurlClientTest, TlsIsNeverSkipped) {
  // A server that does not speak TLS.
  HttpRequest plain = post("/x", "{}");
  plain.url = "https://127.0.0.1:" + std::to_string(service.port()) + "/x";
  plain.timeoutSeconds = 1;  // the server waits for a request line that never comes
  auto handshake = fetch(plain);
  ASSERT_TRUE(std::holds_alternative<TransportError>(handshake));
  EXPECT_EQ(service.requestCount("/x"), 0u) << "the request went out in clear";

  // A server that answers in clear at once: the handshake fails, and says it was the TLS.
  int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  socklen_t length = sizeof address;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  std::thread clear([listener] {
    int connection = ::accept(listener, nullptr, nullptr);
    if (connection < 0) return;
    const char answer[] = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
    [[maybe_unused]] auto sent = ::write(connection, answer, sizeof answer - 1);
    ::close(connection);
  });
  HttpRequest clearText = plain;
  clearText.url = "https://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/x";
  clearText.timeoutSeconds = 5;
  auto refusedHandshake = fetch(clearText);
  clear.join();
  ::close(listener);
  ASSERT_TRUE(std::holds_alternative<TransportError>(refusedHandshake));
  EXPECT_EQ(std::get<TransportError>(refusedHandshake).kind, TransportFailure::tls)
      << std::get<TransportError>(refusedHandshake).description;
}

// A hostile or hijacked service answers with a redirect: the password, the refresh token or the
// text must not reach another host, and no other host's answer may be taken for the service's.
TEST_F(CurlClientTest, RedirectsAreFollowedOnlyWithoutABodyAndWithinTheOrigin) {
  ServiceDouble elsewhere;
  elsewhere.start();
  const std::string here = service.baseUrl();
  auto redirect = [](int status, const std::string& to) {
    ScriptedAnswer answer = ScriptedAnswer::json(status, "moved");
    answer.headers = {{"Location", to}};
    return answer;
  };
  auto get = [&](const std::string& path) {
    HttpRequest request;
    request.url = here + path;
    return request;
  };
  struct Case {
    ScriptedAnswer answer;
    HttpRequest request;
  };
  const Case refused[] = {
      {redirect(307, elsewhere.baseUrl() + "/steal"), post("/hop", R"({"password":"secret"})")},
      {redirect(308, here + "/landing"), post("/hop", R"({"refresh_token":"r"})")},
      {redirect(302, elsewhere.baseUrl() + "/steal"), get("/hop")},
      {redirect(302, "http://localhost:" + std::to_string(service.port()) + "/landing"), get("/hop")},
      {redirect(302, "http://user@127.0.0.1:" + std::to_string(service.port()) + "/landing"), get("/hop")},
      {redirect(302, "file:///etc/hostname"), get("/hop")},
  };
  for (const auto& c : refused) {
    service.enqueue("/hop", c.answer);
    auto result = fetch(c.request);
    ASSERT_TRUE(std::holds_alternative<HttpResponse>(result)) << c.answer.headers[0].second;
    EXPECT_EQ(std::get<HttpResponse>(result).status, c.answer.status) << "the redirect itself is the answer";
  }
  EXPECT_EQ(elsewhere.requestCount(), 0u);
  EXPECT_EQ(service.requestCount("/landing"), 0u);

  // Within the origin, a request without a body follows, with the same headers.
  service.enqueue("/hop", redirect(302, "/landing"));
  service.enqueue("/landing", ScriptedAnswer::json(200, "arrived"));
  HttpRequest followed = get("/hop");
  followed.headers = {{"apikey", "k"}};
  auto landed = fetch(followed);
  ASSERT_TRUE(std::holds_alternative<HttpResponse>(landed));
  EXPECT_EQ(std::get<HttpResponse>(landed).body, "arrived");
  EXPECT_EQ(service.requests().back().header("apikey"), "k");

  for (int i = 0; i < 10; ++i) service.enqueue("/loop", redirect(302, "/loop"));
  EXPECT_TRUE(std::holds_alternative<TransportError>(fetch(get("/loop"))));
  EXPECT_LE(service.requestCount("/loop"), 6u);
}

TEST_F(CurlClientTest, HugeAnswerIsCutOffAsATransportError) {
  CurlHttpClient small(CurlHttpClient::Options{4096, 5});
  service.enqueue("/huge", ScriptedAnswer::json(200, std::string(100000, 'x')));
  service.enqueue("/fits", ScriptedAnswer::json(200, std::string(4096, 'y')));
  auto huge = fetch(post("/huge", "{}"), small);
  ASSERT_TRUE(std::holds_alternative<TransportError>(huge));
  EXPECT_EQ(std::get<TransportError>(huge).description.rfind(curl_easy_strerror(CURLE_FILESIZE_EXCEEDED), 0), 0u)
      << std::get<TransportError>(huge).description;
  auto fits = fetch(post("/fits", "{}"), small);
  ASSERT_TRUE(std::holds_alternative<HttpResponse>(fits));
  EXPECT_EQ(std::get<HttpResponse>(fits).body.size(), 4096u);
}

TEST_F(CurlClientTest, ManyThreadsSendAtOnceAndEachCompletionComesOnce) {
  constexpr int kThreads = 4, kEach = 8;
  std::atomic<int> completions{0};
  std::mutex mutex;
  std::condition_variable allDone;
  std::vector<std::thread> senders;
  for (int t = 0; t < kThreads; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        HttpRequest request = post("/functions/v1/correct", "{}");
        request.url += "?n=" + std::to_string(t * kEach + i);
        client.send(request, [&](HttpResult) {
          std::lock_guard lock(mutex);
          ++completions;
          allDone.notify_all();
        });
      }
    });
  }
  for (auto& s : senders) s.join();
  std::unique_lock lock(mutex);
  EXPECT_TRUE(allDone.wait_for(lock, 20s, [&] { return completions == kThreads * kEach; }));
  lock.unlock();
  EXPECT_EQ(service.requestCount("/functions/v1/correct"), static_cast<std::size_t>(kThreads * kEach));
  EXPECT_EQ(completions.load(), kThreads * kEach);
}

TEST_F(CurlClientTest, DestroyingTheClientAbandonsRequestsInFlight) {
  service.enqueue("/slow", ScriptedAnswer::json(200, "{}", 30));
  std::atomic<bool> called{false};
  auto doomed = std::make_unique<CurlHttpClient>();
  doomed->send(post("/slow", "{}"), [&](HttpResult) { called = true; });
  ASSERT_TRUE(service.waitForRequests(1, 10s));
  const auto started = std::chrono::steady_clock::now();
  doomed.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace mirlo::testing
