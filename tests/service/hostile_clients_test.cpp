// What an attacker on the same machine can send the service without an account: slow, idle,
// pipelined, oversized, compressed and malformed requests. The service must keep answering
// others and keep its memory.
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include "raw_http.h"
#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using HostileClientsTest = ServiceTest;

std::string head(const std::string& method, const std::string& path, const std::string& extra) {
  return method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\napikey: " + config::kAnonKey + "\r\n" + extra + "\r\n";
}

// The peak resident memory of this process since the last call, in MiB.
long peakMiBSinceLastCall() {
  long kib = -1;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) kib = std::stol(line.substr(6));
  std::ofstream("/proc/self/clear_refs") << "5";  // resets the peak to the present size
  return kib / 1024;
}
long residentMiB() {
  long kib = -1;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmRSS:", 0) == 0) kib = std::stol(line.substr(6));
  return kib / 1024;
}

std::string gzip(const std::string& data) {
  z_stream zs{};
  deflateInit2(&zs, 9, Z_DEFLATED, 16 + MAX_WBITS, 9, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&zs, data.size()), '\0');
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  zs.avail_in = static_cast<uInt>(data.size());
  zs.next_out = reinterpret_cast<Bytef*>(out.data());
  zs.avail_out = static_cast<uInt>(out.size());
  deflate(&zs, Z_FINISH);
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

// Sends a 64 MB chunked body unless the service answers first; the answer.
std::string sendChunked(RawConnection& c, const std::string& path) {
  c.send(head("POST", path, "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n"));
  const std::string chunk = "10000\r\n" + std::string(0x10000, 'a') + "\r\n";
  for (int i = 0; i < 1024 && !c.readable(); ++i)
    if (!c.send(chunk)) break;
  return c.readAnswer();
}

TEST_F(HostileClientsTest, SlowIdleAndOversizedClientsLeaveOthersServed) {
  // Eight clients trickle a request that never ends, fifty keep a connection without a word.
  std::vector<std::unique_ptr<RawConnection>> hostile;
  for (int i = 0; i < 8; ++i) {
    hostile.push_back(std::make_unique<RawConnection>(port));
    ASSERT_TRUE(hostile.back()->connected());
    hostile.back()->send("POST /functions/v1/correct HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Le");
  }
  for (int i = 0; i < 50; ++i) hostile.push_back(std::make_unique<RawConnection>(port));

  // A body without a length, and one that inflates to 64 MB from 64 KB.
  const std::string bomb = gzip(std::string(64 << 20, ' '));
  const long before = residentMiB();
  peakMiBSinceLastCall();
  RawConnection chunked(port);
  const std::string chunkedAnswer = sendChunked(chunked, "/functions/v1/correct");
  EXPECT_EQ(statusOf(chunkedAnswer), 413) << chunkedAnswer.substr(0, 300);
  EXPECT_EQ(parseJson(bodyOf(chunkedAnswer)).value_or(Json())["code"], "too_large");

  RawConnection bomber(port);
  bomber.send(head("POST", "/functions/v1/correct",
                   "Content-Type: application/json\r\nContent-Encoding: gzip\r\nContent-Length: " +
                       std::to_string(bomb.size()) + "\r\n") +
              bomb);
  const std::string bombAnswer = bomber.readAnswer();
  EXPECT_EQ(statusOf(bombAnswer), 413) << bombAnswer.substr(0, 300);
  EXPECT_EQ(parseJson(bodyOf(bombAnswer)).value_or(Json())["code"], "too_large");
  // Neither was held in memory (the compressed bomb is, once, by this test).
  EXPECT_LT(peakMiBSinceLastCall() - before, 32);

  // Someone else is answered meanwhile, promptly.
  httplib::Client other("127.0.0.1", port);
  other.set_connection_timeout(3, 0);
  other.set_read_timeout(3, 0);
  auto version = reply(other.Get("/version.json"));
  EXPECT_EQ(version.status, 200);
  EXPECT_EQ(version.body, (Json{{"version", "9.8.7"}}));
  const std::string token = accountToken("lea@example.fr");
  EXPECT_EQ(correct(token, "Bonjour").status, 200);
}

TEST_F(HostileClientsTest, ACompressedBodyWithinTheLimitIsRead) {
  const std::string token = accountToken("lea@example.fr");
  const std::string body = gzip(R"({"text":"Merci bocoup","mode":"fix","device_id":"d"})");
  RawConnection c(port);
  c.send(head("POST", "/functions/v1/correct",
              "Authorization: Bearer " + token +
                  "\r\nContent-Type: application/json\r\nContent-Encoding: gzip\r\nContent-Length: " +
                  std::to_string(body.size()) + "\r\n") +
         body);
  const std::string answer = c.readAnswer();
  ASSERT_EQ(statusOf(answer), 200) << answer;
  EXPECT_EQ(parseJson(bodyOf(answer)).value_or(Json())["result"], "Merci beaucoup");
}

TEST_F(HostileClientsTest, MalformedFramingIsRefusedAtOnce) {
  struct Case {
    std::string request;
    int status;
    std::string code;
  };
  const std::vector<Case> cases = {
      {head("POST", "/functions/v1/correct", "Content-Length: -5\r\n"), 400, "bad_request"},
      {head("POST", "/functions/v1/correct", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n") + "0\r\n\r\n", 400,
       "bad_request"},
      {head("POST", "/functions/v1/correct", "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n") + "0\r\n\r\n", 400,
       "bad_request"},
      {head("POST", "/functions/v1/correct", "Transfer-Encoding: gzip\r\n"), 400, "bad_request"},
      {head("POST", "/functions/v1/correct", "Content-Encoding: br\r\nContent-Length: 2\r\n") + "{}", 415,
       "bad_request"},
      {head("POST", "/functions/v1/correct", "Content-Length: 104857600\r\n"), 413, "too_large"},
      {head("GET", "/functions/v1/account", "X-Filler: " + std::string(64 * 1024, 'x') + "\r\n"), 431, "bad_request"},
  };
  for (const auto& c : cases) {
    RawConnection conn(port);
    conn.send(c.request);
    // No waiting for a body or a time-out: the answer comes while the client still waits.
    const std::string answer = conn.readAnswer(std::chrono::seconds(3));
    EXPECT_EQ(statusOf(answer), c.status) << c.request.substr(0, 120);
    EXPECT_EQ(parseJson(bodyOf(answer)).value_or(Json())["code"], c.code) << c.request.substr(0, 120);
  }
}

TEST_F(HostileClientsTest, PipelinedRequestsAreAllAnsweredInOrder) {
  RawConnection c(port);
  c.send("GET /version.json HTTP/1.1\r\nHost: x\r\n\r\n"
         "GET /nulle-part HTTP/1.1\r\nHost: x\r\n\r\n"
         "POST /functions/v1/correct HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}"
         "GET /version.json HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(statusOf(c.readAnswer()), 200);
  EXPECT_EQ(statusOf(c.readAnswer()), 404);
  const std::string noKey = c.readAnswer();
  EXPECT_EQ(statusOf(noKey), 401);
  EXPECT_EQ(parseJson(bodyOf(noKey)).value_or(Json())["message"], "No API key found in request");
  const std::string last = c.readAnswer();
  EXPECT_EQ(statusOf(last), 200);
  EXPECT_NE(last.find("9.8.7"), std::string::npos);
  EXPECT_TRUE(c.waitForClose(std::chrono::seconds(5)));
}

TEST_F(HostileClientsTest, ASecondServiceCannotShareThePort) {
  ServiceConfig c;
  c.dataDir = root + "/autre";
  c.port = port;
  c.passwordCost = PasswordCost::minimum();
  c.accessLog = false;
  std::string error;
  auto second = Service::create(c, &error);
  ASSERT_TRUE(second) << error;
  EXPECT_EQ(second->bind(), -1);
  // The first one keeps every connection.
  for (int i = 0; i < 10; ++i) EXPECT_EQ(reply(httplib::Client("127.0.0.1", port).Get("/version.json")).status, 200);
}

}  // namespace
}  // namespace mirlo::service::testing
