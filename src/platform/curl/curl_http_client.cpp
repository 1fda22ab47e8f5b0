#include "platform/curl/curl_http_client.h"

#include <curl/curl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <strings.h>
#include <thread>
#include <vector>

namespace mirlo {

namespace {

// curl's process-wide set-up; it is never undone, the process ends with it.
void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool hasHeader(const HttpRequest& request, const char* name) {
  return std::any_of(request.headers.begin(), request.headers.end(),
                     [name](const auto& header) { return strcasecmp(header.first.c_str(), name) == 0; });
}

// Whether any interface other than loopback is up with an address: without one, a name that
// does not resolve means no network rather than an unknown host.
bool hasNetwork() {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return true;  // cannot tell: do not claim there is none
  bool found = false;
  for (ifaddrs* entry = list; entry && !found; entry = entry->ifa_next) {
    if (!entry->ifa_addr || !(entry->ifa_flags & IFF_UP) || (entry->ifa_flags & IFF_LOOPBACK)) continue;
    const int family = entry->ifa_addr->sa_family;
    found = family == AF_INET || family == AF_INET6;
  }
  ::freeifaddrs(list);
  return found;
}

// The kind of failure behind a curl code; `osError` is the system's error of the last connect.
TransportFailure kindOf(CURLcode code, long osError) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return TransportFailure::timedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return hasNetwork() ? TransportFailure::hostNotFound : TransportFailure::noConnection;
    case CURLE_COULDNT_CONNECT:
      if (osError == ENETUNREACH || osError == ENETDOWN || osError == EHOSTUNREACH) return TransportFailure::noConnection;
      if (osError == ETIMEDOUT) return TransportFailure::timedOut;
      return TransportFailure::refused;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_USE_SSL_FAILED:
      return TransportFailure::tls;
    default:
      return TransportFailure::other;
  }
}

// Scheme, host and port of an address (the port even when it is the scheme's default), with the
// user information if it has any; nothing when curl cannot parse it.
struct Origin {
  std::string scheme, host, port;
  bool userInfo = false;
  friend bool operator==(const Origin& a, const Origin& b) {
    return a.scheme == b.scheme && a.host == b.host && a.port == b.port;
  }
};

std::optional<Origin> originOf(const std::string& address) {
  CURLU* url = curl_url();
  if (!url) return std::nullopt;
  std::optional<Origin> origin;
  if (curl_url_set(url, CURLUPART_URL, address.c_str(), 0) == CURLUE_OK) {
    auto part = [url](CURLUPart what, unsigned flags) -> std::optional<std::string> {
      char* value = nullptr;
      if (curl_url_get(url, what, &value, flags) != CURLUE_OK || !value) return std::nullopt;
      std::string text = value;
      curl_free(value);
      return text;
    };
    auto scheme = part(CURLUPART_SCHEME, 0);
    auto host = part(CURLUPART_HOST, 0);
    auto port = part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (scheme && host && port) {
      origin = Origin{*scheme, *host, *port, part(CURLUPART_USER, 0) || part(CURLUPART_PASSWORD, 0)};
      for (auto* text : {&origin->scheme, &origin->host})
        for (char& c : *text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  curl_url_cleanup(url);
  return origin;
}

struct Transfer {
  HttpRequest request;
  std::function<void(HttpResult)> done;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  CURLcode setupError = CURLE_OK;
  std::size_t limit = 0;
  bool tooLarge = false;
  std::string address;  // where the request goes now: its own URL, or where it was redirected
  long redirects = 0;
  std::optional<std::chrono::steady_clock::time_point> deadline;
  std::string received;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  ~Transfer() {
    if (easy) curl_easy_cleanup(easy);
    if (headers) curl_slist_free_all(headers);
  }

  static std::size_t write(char* data, std::size_t size, std::size_t count, void* self) {
    auto* transfer = static_cast<Transfer*>(self);
    const std::size_t bytes = size * count;
    if (transfer->received.size() + bytes > transfer->limit) {
      transfer->tooLarge = true;
      return 0;  // anything short of `bytes` makes curl abandon the transfer
    }
    transfer->received.append(data, bytes);
    return bytes;
  }

  void addHeader(const std::string& line) {
    if (setupError != CURLE_OK) return;
    curl_slist* grown = curl_slist_append(headers, line.c_str());
    if (!grown) {
      setupError = CURLE_OUT_OF_MEMORY;
      return;
    }
    headers = grown;
  }

  // Prepares the easy handle; a failure is kept and reported by the worker like any other.
  void configure(const CurlHttpClient::Options& options) {
    limit = options.maxBodyBytes;
    easy = curl_easy_init();
    if (!easy) {
      setupError = CURLE_FAILED_INIT;
      return;
    }
    for (const auto& [name, value] : request.headers) {
      // A line break would end the header and start another one: nothing the caller meant.
      if ((name + value).find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
        setupError = CURLE_BAD_FUNCTION_ARGUMENT;
        std::snprintf(errorBuffer, sizeof errorBuffer, "a header holds a line break");
        return;
      }
      addHeader(value.empty() ? name + ";" : name + ": " + value);  // "Name;" sends an empty value
    }
    // curl adds a few headers of its own; only the ones HTTP needs (Host, Content-Length) stay.
    if (!hasHeader(request, "Expect")) addHeader("Expect:");
    if (!hasHeader(request, "Accept")) addHeader("Accept:");
    if ((request.body || request.method == "POST") && !hasHeader(request, "Content-Type")) addHeader("Content-Type:");

    auto set = [this](CURLoption option, auto value) {
      if (setupError == CURLE_OK) setupError = curl_easy_setopt(easy, option, value);
    };
    address = request.url;
    set(CURLOPT_URL, address.c_str());
    set(CURLOPT_PRIVATE, static_cast<void*>(this));
    set(CURLOPT_ERRORBUFFER, errorBuffer);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    // Redirects are followed by the worker, which judges each one first (see redirectTarget).
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limit));
    set(CURLOPT_WRITEFUNCTION, &Transfer::write);
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    if (request.timeoutSeconds > 0) {
      const long ms = std::max(1L, std::lround(request.timeoutSeconds * 1000));
      deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
      set(CURLOPT_TIMEOUT_MS, ms);
    }

    if (request.body) {
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
      set(CURLOPT_POSTFIELDS, request.body->c_str());
      if (request.method != "POST") set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
    } else if (request.method == "GET") {
      set(CURLOPT_HTTPGET, 1L);
    } else if (request.method == "HEAD") {
      set(CURLOPT_NOBODY, 1L);
    } else if (request.method == "POST") {
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
      set(CURLOPT_POSTFIELDS, "");
    } else {
      set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    set(CURLOPT_HTTPHEADER, headers);
  }

  // Where an answer redirects to, when the redirect may be followed: only a request without a
  // body (GET, HEAD) and only to the origin it was sent to, so that neither a password, a token
  // nor a text goes to a host that was never asked for, and no other host's answer is trusted.
  // Anything else is handed back as the answer it is.
  std::optional<std::string> redirectTarget() {
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    if (status != 301 && status != 302 && status != 303 && status != 307 && status != 308) return std::nullopt;
    if (request.body || (request.method != "GET" && request.method != "HEAD")) return std::nullopt;
    char* location = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location) != CURLE_OK || !location) return std::nullopt;
    const std::string target = location;
    auto from = originOf(request.url);
    auto to = originOf(target);
    if (!from || !to || to->userInfo || !(*from == *to)) return std::nullopt;
    return target;
  }

  // Points the handle at the redirect's target; the time-out keeps counting from the first send.
  CURLcode redirect(const std::string& target) {
    address = target;
    received.clear();
    tooLarge = false;
    ++redirects;
    CURLcode code = curl_easy_setopt(easy, CURLOPT_URL, address.c_str());
    if (code == CURLE_OK && deadline) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return CURLE_OPERATION_TIMEDOUT;
      code = curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(left.count()));
    }
    return code;
  }

  HttpResult result(CURLcode code) {
    if (code == CURLE_OK) {
      long status = 0;
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      return HttpResponse{status, std::move(received)};
    }
    if (tooLarge) {
      code = CURLE_FILESIZE_EXCEEDED;
      errorBuffer[0] = '\0';
    }
    std::string description = curl_easy_strerror(code);
    std::string detail = errorBuffer;
    while (!detail.empty() && (detail.back() == '\n' || detail.back() == '\r')) detail.pop_back();
    if (!detail.empty() && detail != description) description += ": " + detail;
    long osError = 0;
    if (easy) curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &osError);
    return TransportError{kindOf(code, osError), std::move(description)};
  }
};

}  // namespace

struct CurlHttpClient::Worker {
  explicit Worker(Options opts) : options(opts) {
    multi = curl_multi_init();
    thread = std::thread([this] { run(); });
  }

  ~Worker() {
    {
      // Waits for a completion that is running; none starts afterwards.
      std::lock_guard completing(completionMutex);
      stopping = true;
    }
    wake();
    thread.join();
    for (auto& [easy, transfer] : active) curl_multi_remove_handle(multi, easy);
    active.clear();
    incoming.clear();
    if (multi) curl_multi_cleanup(multi);
  }

  void enqueue(std::unique_ptr<Transfer> transfer) {
    {
      std::lock_guard lock(mutex);
      incoming.push_back(std::move(transfer));
    }
    wake();
  }

  void wake() {
    if (multi) {
      curl_multi_wakeup(multi);
    } else {
      std::lock_guard lock(mutex);
      woken.notify_all();
    }
  }

  void finish(std::unique_ptr<Transfer> transfer, HttpResult result) {
    auto done = std::move(transfer->done);
    transfer.reset();
    std::lock_guard completing(completionMutex);
    if (stopping) return;
    done(std::move(result));
  }

  void run() {
    while (!stopping) {
      std::vector<std::unique_ptr<Transfer>> fresh;
      {
        std::lock_guard lock(mutex);
        fresh.swap(incoming);
      }
      for (auto& transfer : fresh) {
        CURLcode failure = transfer->setupError;
        if (failure == CURLE_OK && !multi) failure = CURLE_FAILED_INIT;
        if (failure == CURLE_OK && curl_multi_add_handle(multi, transfer->easy) != CURLM_OK)
          failure = CURLE_FAILED_INIT;
        if (failure != CURLE_OK) {
          auto result = transfer->result(failure);
          finish(std::move(transfer), std::move(result));
          continue;
        }
        CURL* easy = transfer->easy;
        active.emplace(easy, std::move(transfer));
      }
      if (!multi) {
        // Without a multi handle every transfer fails at once; wait for the next one.
        std::unique_lock lock(mutex);
        woken.wait(lock, [this] { return stopping || !incoming.empty(); });
        continue;
      }

      int running = 0;
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        CURLcode code = message->data.result;
        curl_multi_remove_handle(multi, easy);
        auto found = active.find(easy);
        if (found == active.end()) continue;
        if (code == CURLE_OK) {
          if (auto target = found->second->redirectTarget()) {
            Transfer& transfer = *found->second;
            CURLcode again = transfer.redirects >= options.maxRedirects ? CURLE_TOO_MANY_REDIRECTS
                                                                        : transfer.redirect(*target);
            if (again == CURLE_OK && curl_multi_add_handle(multi, easy) == CURLM_OK) continue;
            code = again == CURLE_OK ? CURLE_FAILED_INIT : again;
          }
        }
        auto transfer = std::move(found->second);
        active.erase(found);
        auto result = transfer->result(code);
        finish(std::move(transfer), std::move(result));
      }
      curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
  }

  const Options options;
  CURLM* multi = nullptr;
  std::atomic<bool> stopping{false};
  std::mutex mutex;
  std::vector<std::unique_ptr<Transfer>> incoming;  // guarded by `mutex`
  std::condition_variable woken;
  std::mutex completionMutex;
  std::map<CURL*, std::unique_ptr<Transfer>> active;  // the worker thread's own
  std::thread thread;
};

CurlHttpClient::CurlHttpClient() : CurlHttpClient(Options{}) {}

CurlHttpClient::CurlHttpClient(Options options) {
  initialiseCurlOnce();
  worker_ = std::make_unique<Worker>(options);
}

CurlHttpClient::~CurlHttpClient() = default;

void CurlHttpClient::send(HttpRequest request, std::function<void(HttpResult)> done) {
  auto transfer = std::make_unique<Transfer>();
  transfer->request = std::move(request);
  transfer->done = std::move(done);
  transfer->configure(worker_->options);
  worker_->enqueue(std::move(transfer));
}

}  // namespace mirlo
