#include "service/rephraser.h"

#include <curl/curl.h>

#include "base/json.h"

namespace mirlo::service {

namespace {

constexpr std::size_t kMaxAnswer = 1 << 20;

const char* const kInstruction =
    "Tu reformules des textes en français. Réécris le texte de l'utilisateur de façon plus claire et plus "
    "naturelle, sans en changer le sens, le ton ni la langue, en corrigeant les fautes. Réponds uniquement par le "
    "texte reformulé, sans guillemets ni commentaire.";

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
  auto* body = static_cast<std::string*>(user);
  const std::size_t n = size * count;
  if (body->size() + n > kMaxAnswer) return 0;  // aborts the transfer
  body->append(data, n);
  return n;
}

}  // namespace

std::optional<std::string> Rephraser::rephrase(std::string_view text, bool* overBudget) const {
  if (!configured()) return std::nullopt;
  std::string url = config_.baseUrl;
  while (!url.empty() && url.back() == '/') url.pop_back();
  url += "/chat/completions";
  const Json request = {{"model", config_.model},
                        {"temperature", 0.3},
                        {"messages", Json::array({{{"role", "system"}, {"content", kInstruction}},
                                                  {{"role", "user"}, {"content", std::string(text)}}})}};
  const std::string body = dumpJson(request);

  CURL* curl = curl_easy_init();
  if (!curl) return std::nullopt;
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  std::string auth;
  if (!config_.apiKey.empty()) {
    auth = "Authorization: Bearer " + config_.apiKey;
    headers = curl_slist_append(headers, auth.c_str());
  }
  std::string answer;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, config_.timeoutSeconds);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  const CURLcode rc = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  if (overBudget) *overBudget = rc == CURLE_OPERATION_TIMEDOUT;
  if (rc != CURLE_OK || status < 200 || status >= 300) return std::nullopt;

  const auto parsed = parseJson(answer);
  if (!parsed || !parsed->is_object()) return std::nullopt;
  const auto choices = parsed->find("choices");
  if (choices == parsed->end() || !choices->is_array() || choices->empty() || !(*choices)[0].is_object())
    return std::nullopt;
  const auto& first = (*choices)[0];
  const auto message = first.find("message");
  if (message == first.end() || !message->is_object()) return std::nullopt;
  const auto content = message->find("content");
  if (content == message->end() || !content->is_string()) return std::nullopt;
  std::string result = content->get<std::string>();
  // Models like to wrap their answer in white space; the user's selection did not have it.
  const auto b = result.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::nullopt;
  result = result.substr(b, result.find_last_not_of(" \t\r\n") - b + 1);
  return result;
}

}  // namespace mirlo::service
