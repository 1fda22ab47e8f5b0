// The benchmark's client: signs in to a running mirlo-service and sends corrections from several
// threads, then prints the rate and the latency percentiles. Run by service/bench.sh.
//
// What people send is new text: with --texts, each request is a text never sent before, made of
// sentences of the file picked at random with slips of the finger in some words (a letter
// missing, doubled or swapped, an accent left out), so that no misspelling is ever cached.
// --score sends each text of the French test set once and prints how many came back right.
#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/json.h"
#include "mirlo/config.h"

namespace {

struct Sample {
  std::string text;
  std::string fixed;  // empty: the text is correct
};

std::vector<Sample> readSet(const std::string& path) {
  std::ifstream in(path);
  const auto set = mirlo::parseJson(std::string(std::istreambuf_iterator<char>(in), {}));
  std::vector<Sample> out;
  if (!set || !set->is_array()) return out;
  for (const auto& item : *set)
    if (item.is_object() && item.contains("text") && item["text"].is_string())
      out.push_back({item["text"], item.contains("fixed") && item["fixed"].is_string() ? item["fixed"].get<std::string>()
                                                                                        : std::string()});
  return out;
}

// A letter's accent left out, for the accented letters of French.
std::string withoutAccent(const std::string& letter) {
  static const std::pair<const char*, const char*> table[] = {
      {"é", "e"}, {"è", "e"}, {"ê", "e"}, {"ë", "e"}, {"à", "a"}, {"â", "a"}, {"ç", "c"},
      {"î", "i"}, {"ï", "i"}, {"ô", "o"}, {"û", "u"}, {"ù", "u"}};
  for (const auto& [with, without] : table)
    if (letter == with) return without;
  return letter;
}

bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// `text` with a slip in about `rate` of its words of four letters or more.
std::string withSlips(const std::string& text, double rate, std::mt19937& random) {
  std::string out;
  std::size_t i = 0;
  std::uniform_real_distribution<double> chance(0, 1);
  while (i < text.size()) {
    // A word: ASCII letters and the two-byte accented letters.
    std::vector<std::string> letters;
    std::size_t j = i;
    while (j < text.size()) {
      const auto c = static_cast<unsigned char>(text[j]);
      if (isAsciiLetter(text[j])) letters.emplace_back(1, text[j]), ++j;
      else if (c == 0xC3 && j + 1 < text.size()) letters.push_back(text.substr(j, 2)), j += 2;
      else break;
    }
    if (letters.empty()) {
      out += text[i++];
      continue;
    }
    if (letters.size() >= 4 && chance(random) < rate) {
      const std::size_t at = 1 + static_cast<std::size_t>(random() % (letters.size() - 2));
      switch (random() % 4) {
        case 0: letters.erase(letters.begin() + static_cast<std::ptrdiff_t>(at)); break;
        case 1: letters.insert(letters.begin() + static_cast<std::ptrdiff_t>(at), letters[at]); break;
        case 2: std::swap(letters[at], letters[at + 1]); break;
        default: {
          auto accented = std::find_if(letters.begin(), letters.end(), [](const std::string& l) { return l.size() == 2; });
          if (accented != letters.end()) *accented = withoutAccent(*accented);
          else std::swap(letters[at], letters[at + 1]);
        }
      }
    }
    for (const auto& l : letters) out += l;
    i = j;
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  std::string host = "127.0.0.1", email = "bench@example.fr", password = "banc-d-essai-2024", mode = "fix",
              text = "Bonjour, je voulais te dire que la réunion de demain est reportée a jeudi prochain.", textsPath,
              scorePath;
  int port = 54321, threads = 4, requests = 2000;
  std::size_t chars = 300;
  double slips = 0.1;
  unsigned seed = 1;
  bool signup = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--signup") {
      signup = true;
      continue;
    }
    if (i + 1 >= argc) return std::fprintf(stderr, "bench: %s needs a value\n", a.c_str()), 2;
    const std::string v = argv[++i];
    if (a == "--port") port = std::atoi(v.c_str());
    else if (a == "--host") host = v;
    else if (a == "--threads") threads = std::max(1, std::atoi(v.c_str()));
    else if (a == "--requests") requests = std::max(1, std::atoi(v.c_str()));
    else if (a == "--email") email = v;
    else if (a == "--mode") mode = v;
    else if (a == "--text") text = v;
    else if (a == "--texts") textsPath = v;
    else if (a == "--chars") chars = static_cast<std::size_t>(std::max(1, std::atoi(v.c_str())));
    else if (a == "--slips") slips = std::atof(v.c_str());
    else if (a == "--seed") seed = static_cast<unsigned>(std::atoi(v.c_str()));
    else if (a == "--score") scorePath = v;
    else return std::fprintf(stderr, "bench: unknown option %s\n", a.c_str()), 2;
  }
  const httplib::Headers keyHeader = {{"apikey", mirlo::config::kAnonKey}};
  httplib::Client auth(host, port);
  const std::string credentials = mirlo::dumpJson({{"email", email}, {"password", password}});
  auto res = auth.Post(signup ? "/auth/v1/signup" : "/auth/v1/token?grant_type=password", keyHeader, credentials,
                       "application/json");
  const auto body = res ? mirlo::parseJson(res->body) : std::nullopt;
  if (!body || !body->is_object() || !body->contains("access_token")) {
    std::fprintf(stderr, "bench: cannot sign in: %s\n", res ? res->body.c_str() : "no answer");
    return 1;
  }
  if (signup) return 0;
  const std::string token = (*body)["access_token"].get<std::string>();
  const httplib::Headers headers = {{"apikey", mirlo::config::kAnonKey}, {"Authorization", "Bearer " + token}};
  auto payloadOf = [&](const std::string& t) {
    return mirlo::dumpJson({{"text", t}, {"mode", mode}, {"device_id", "bench"}});
  };

  if (!scorePath.empty()) {
    const auto set = readSet(scorePath);
    if (set.empty()) return std::fprintf(stderr, "bench: no texts in %s\n", scorePath.c_str()), 1;
    httplib::Client client(host, port);
    client.set_read_timeout(30, 0);
    int withErrors = 0, fixed = 0, correct = 0, kept = 0;
    for (const auto& s : set) {
      auto r = client.Post("/functions/v1/correct", headers, payloadOf(s.text), "application/json");
      const auto answer = r ? mirlo::parseJson(r->body) : std::nullopt;
      const std::string result = answer && answer->is_object() ? answer->value("result", "") : "";
      if (!s.fixed.empty()) ++withErrors, fixed += result == s.fixed ? 1 : 0;
      else ++correct, kept += result == s.text ? 1 : 0;
    }
    std::printf("%d of %d texts with errors fixed exactly, %d of %d correct texts left as typed\n", fixed, withErrors,
                kept, correct);
    return 0;
  }

  std::vector<std::string> sentences;
  if (!textsPath.empty()) {
    for (const auto& s : readSet(textsPath)) sentences.push_back(s.fixed.empty() ? s.text : s.fixed);
    if (sentences.empty()) return std::fprintf(stderr, "bench: no texts in %s\n", textsPath.c_str()), 1;
  }
  // The request's text: the same one each time, or a new one made for request `n`.
  auto textFor = [&](int n) {
    if (sentences.empty()) return text;
    std::mt19937 random(seed * 1000003u + static_cast<unsigned>(n));
    // Up to `chars` bytes, fewer characters, with room for the letters the slips double.
    std::string made;
    const std::size_t most = chars - chars / 40;
    for (int tries = 0; tries < 1000 && made.size() + most / 25 < most; ++tries) {
      const std::string& s = sentences[random() % sentences.size()];
      if (!made.empty() && made.size() + 1 + s.size() > most) continue;
      made += (made.empty() ? "" : " ") + s;
    }
    return withSlips(made, slips, random);
  };

  std::atomic<int> next{0}, failures{0};
  std::atomic<std::size_t> sentBytes{0};
  std::mutex mutex;
  std::vector<double> latencies;
  latencies.reserve(static_cast<std::size_t>(requests));
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&] {
      httplib::Client client(host, port);
      client.set_keep_alive(true);
      client.set_tcp_nodelay(true);
      client.set_read_timeout(30, 0);
      std::vector<double> mine;
      for (int n; (n = next.fetch_add(1)) < requests;) {
        const std::string sent = textFor(n);
        sentBytes += sent.size();
        const std::string payload = payloadOf(sent);
        const auto t0 = std::chrono::steady_clock::now();
        auto r = client.Post("/functions/v1/correct", headers, payload, "application/json");
        const auto t1 = std::chrono::steady_clock::now();
        if (!r || r->status != 200) ++failures;
        mine.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
      }
      std::lock_guard lock(mutex);
      latencies.insert(latencies.end(), mine.begin(), mine.end());
    });
  }
  for (auto& th : pool) th.join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::sort(latencies.begin(), latencies.end());
  auto pct = [&](double p) {
    return latencies[std::min(latencies.size() - 1, static_cast<std::size_t>(p / 100.0 * static_cast<double>(latencies.size())))];
  };
  std::printf("%d corrections (%s, %s, %zu bytes on average), %d threads, %d failed\n", requests, mode.c_str(),
              sentences.empty() ? "the same text" : "new text each", sentBytes.load() / static_cast<std::size_t>(requests),
              threads, failures.load());
  std::printf("%.1f corrections/s; latency ms: p50 %.1f  p90 %.1f  p99 %.1f  max %.1f\n",
              static_cast<double>(requests) / seconds, pct(50), pct(90), pct(99), latencies.back());
  return failures.load() == 0 ? 0 : 1;
}
