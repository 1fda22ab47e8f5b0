// The service's HTTP server with handlers of its own: requests read on the I/O thread, answered
// by workers, written back in order; what it does to clients that trickle, linger or vanish.
#ifdef MIRLO_HAVE_HTTP_SERVER

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "service/http_server.h"
#include "service/raw_http.h"

namespace mirlo::service::http {
namespace {

using testing::RawConnection;

class HttpServerTest : public ::testing::Test {
 protected:
  void start(Limits limits) {
    server = std::make_unique<Server>(limits);
    server->route("GET", "/echo", [](const Request& req, Response& res) {
      res.set_content(req.get_param_value("n"), "text/plain");
    });
    server->route("GET", "/held", [this](const Request&, Response& res) {
      gate.pass();
      res.set_content("enfin", "text/plain");
      res.undelivered = [this] { ++undelivered; };
    });
    std::string error;
    port = server->bind("127.0.0.1", 0, &error);
    ASSERT_GT(port, 0) << error;
    thread = std::thread([this] { server->run(); });
  }
  void TearDown() override {
    gate.open();
    if (server) server->stop();
    if (thread.joinable()) thread.join();
    server.reset();
  }

  testing::Gate gate;
  std::unique_ptr<Server> server;
  std::thread thread;
  int port = 0;
  std::atomic<int> undelivered{0};
};

TEST_F(HttpServerTest, ManyClientsPipeliningAreEachAnsweredInOrder) {
  Limits limits;
  limits.workers = 4;
  start(limits);
  std::vector<std::thread> clients;
  std::atomic<int> inOrder{0};
  for (int c = 0; c < 8; ++c) {
    clients.emplace_back([&, c] {
      RawConnection conn(port);
      std::string burst;
      for (int i = 0; i < 20; ++i) burst += "GET /echo?n=" + std::to_string(c * 100 + i) + " HTTP/1.1\r\nHost: x\r\n\r\n";
      conn.send(burst);
      int good = 0;
      for (int i = 0; i < 20; ++i) {
        const std::string answer = conn.readAnswer();
        good += testing::statusOf(answer) == 200 && testing::bodyOf(answer) == std::to_string(c * 100 + i) ? 1 : 0;
      }
      if (good == 20) ++inOrder;
    });
  }
  for (auto& t : clients) t.join();
  EXPECT_EQ(inOrder, 8);
}

TEST_F(HttpServerTest, ATricklingRequestIsCutAtItsDeadlineWhateverItSends) {
  Limits limits;
  limits.requestDeadline = std::chrono::milliseconds(300);
  start(limits);
  RawConnection slow(port);
  const std::string request = "GET /echo?n=1 HTTP/1.1\r\nHost: x\r\nX-Long: " + std::string(400, 'x') + "\r\n\r\n";
  const auto began = std::chrono::steady_clock::now();
  std::size_t sent = 0;
  // A byte every 20 ms: each one arrives well within any per-byte time-out.
  while (sent < request.size() && !slow.readable(20) && slow.send(request.substr(sent, 1))) ++sent;
  EXPECT_TRUE(slow.waitForClose(std::chrono::seconds(5)));
  EXPECT_LT(sent, request.size());
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
}

TEST_F(HttpServerTest, WhenFullTheLongestWaitingConnectionMakesRoom) {
  Limits limits;
  limits.maxConnections = 4;
  start(limits);
  RawConnection idle(port);
  ASSERT_TRUE(idle.connected());
  std::vector<std::unique_ptr<RawConnection>> others;
  for (int i = 0; i < 3; ++i) {
    others.push_back(std::make_unique<RawConnection>(port));
    others.back()->send("GET /echo?n=" + std::to_string(i) + " HTTP/1.1\r\nHost: x\r\n\r\n");
    ASSERT_EQ(testing::statusOf(others.back()->readAnswer()), 200);  // each is in before the next
  }
  RawConnection newcomer(port);
  newcomer.send("GET /echo?n=9 HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_EQ(testing::bodyOf(newcomer.readAnswer()), "9");
  EXPECT_TRUE(idle.waitForClose(std::chrono::seconds(5)));
}

TEST_F(HttpServerTest, AnAnswerIsReportedUndeliveredOnlyWhenTheClientHasGone) {
  start(Limits{});
  RawConnection gone(port);
  gone.send("GET /held HTTP/1.1\r\nHost: x\r\n\r\n");
  ASSERT_TRUE(gate.waitForArrivals(1));
  gone.close();
  RawConnection stays(port);
  stays.send("GET /held HTTP/1.1\r\nHost: x\r\n\r\n");
  ASSERT_TRUE(gate.waitForArrivals(2));
  gate.open();
  EXPECT_EQ(testing::bodyOf(stays.readAnswer()), "enfin");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (undelivered == 0 && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(undelivered, 1);
}

}  // namespace
}  // namespace mirlo::service::http

#endif
