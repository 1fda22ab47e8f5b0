// The correction engine shared by the service's request threads: Grammalecte's helper processes
// and the thread that keeps them running.
#ifdef MIRLO_HAVE_ENGINE

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "service/engine.h"

namespace mirlo::service {
namespace {

const std::pair<const char*, const char*> kTexts[] = {
    {"Tu a raison", "Tu as raison"},
    {"Je vais a Lyon demain.", "Je vais à Lyon demain."},
    {"Il fait tres froid.", "Il fait très froid."},
    {"Mes amis sont arrivé hier.", "Mes amis sont arrivés hier."},
};

// Corrections from several threads at once, each checked against what its own text should give.
std::vector<std::string> correctFromThreads(CorrectionEngine& engine, int threads, int each) {
  std::mutex mutex;
  std::vector<std::string> wrong;
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t)
    pool.emplace_back([&, t] {
      for (int i = 0; i < each; ++i) {
        const auto& [typed, fixed] = kTexts[static_cast<std::size_t>(t + i) % std::size(kTexts)];
        const auto answer = engine.correct(typed, EngineClock::now() + std::chrono::seconds(60));
        if (answer.outcome != EngineAnswer::Outcome::corrected || answer.text != fixed) {
          std::lock_guard lock(mutex);
          wrong.push_back(std::string(typed) + " → " + answer.text);
        }
      }
    });
  for (auto& t : pool) t.join();
  return wrong;
}

// The helper processes this test started.
std::vector<pid_t> helpers() {
  std::vector<pid_t> out;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    std::getline(stat, line);
    const auto close = line.rfind(')');
    if (close == std::string::npos) continue;
    char state = 0;
    int parent = 0;
    if (std::sscanf(line.c_str() + close + 1, " %c %d", &state, &parent) != 2 || parent != ::getpid()) continue;
    std::ifstream cmdline(entry.path() / "cmdline");
    const std::string args(std::istreambuf_iterator<char>(cmdline), {});
    if (args.find("mirlo-grammalecte") != std::string::npos && state != 'Z') out.push_back(std::stoi(name));
  }
  return out;
}

TEST(FrenchEngine, CorrectionsFromManyThreadsGetEachTheirOwnAnswer) {
  auto engine = openFrenchEngine(EngineConfig{});
  ASSERT_TRUE(engine->waitUntilSettled(std::chrono::seconds(60)));
  ASSERT_NE(engine->describe().find("Grammalecte"), std::string::npos) << engine->describe();
  const auto wrong = correctFromThreads(*engine, 6, 6);
  EXPECT_TRUE(wrong.empty()) << wrong.size() << " wrong, the first: " << wrong.front();
}

TEST(FrenchEngine, HelpersKilledWhileIdleAreReplacedWithoutAnAnswerLost) {
  std::vector<std::string> lines;
  std::mutex mutex;
  EngineConfig config;
  config.log = [&](const std::string& line) {
    std::lock_guard lock(mutex);
    lines.push_back(line);
  };
  auto engine = openFrenchEngine(config);
  ASSERT_TRUE(engine->waitUntilSettled(std::chrono::seconds(60)));
  ASSERT_TRUE(correctFromThreads(*engine, 2, 2).empty());  // both processes have started
  const auto before = helpers();
  ASSERT_EQ(before.size(), 2u);
  for (pid_t pid : before) ::kill(pid, SIGKILL);

  const auto wrong = correctFromThreads(*engine, 4, 3);
  EXPECT_TRUE(wrong.empty()) << wrong.size() << " wrong, the first: " << wrong.front();
  for (pid_t pid : helpers()) EXPECT_EQ(std::count(before.begin(), before.end(), pid), 0);
  std::lock_guard lock(mutex);
  EXPECT_FALSE(lines.empty());  // the service's log says what happened
}

}  // namespace
}  // namespace mirlo::service

#endif
