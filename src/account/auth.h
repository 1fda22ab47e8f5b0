// Who the user is: the session's tokens (kept in the keychain), the e-mail taken from the access
// token, and the plan and daily quota last reported by the correction service. The sign-in
// protocol that fills it talks to Supabase Auth.
//
// The token refresh writes the session from the network thread while the main queue reads it, so
// every field is guarded by one mutex and read as a whole value.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http.h"

namespace mirlo {

class App;

// Whether a token from the service can be kept and sent back in a header: printable ASCII only
// (a line break would add headers of the service's choosing to every later request) and no longer
// than any real token (one of megabytes would break every later request). Tokens that are not are
// an invalid answer, never stored.
bool usableToken(std::string_view token);

// How a refresh of the session ended.
struct RefreshOutcome {
  enum class Kind {
    refreshed,  // a new token pair is in use
    refused,    // the server refused the refresh token (or there was none): signed out
    failed,     // nothing was learnt about the session: it is kept
  };
  Kind kind = Kind::failed;
  // Why it failed: the transport's failure, or nothing when the answer could not be used.
  std::optional<TransportError> transport;
};

class Auth {
 public:
  static constexpr const char* changed = "mirlo.auth.changed";

  explicit Auth(App& app);

  std::string accessToken() const;
  std::string refreshToken() const;
  std::string email() const;
  std::string plan() const;
  std::int64_t quotaUsed() const;
  std::int64_t quotaLimit() const;

  void setPlan(const std::string& plan);
  void setQuotaUsed(std::int64_t used);
  void setQuotaLimit(std::int64_t limit);

  // A refresh token is present (an expired access token can still be refreshed).
  bool isSignedIn() const;
  std::string planLabel() const;

  // Purely local: forgets the tokens, the e-mail and the plan, deletes the keychain item and
  // announces the change. The last reported allowance is kept on purpose.
  void signOut();

  // False once the keychain refused to store the session (or to delete it), until a later save
  // succeeds: the session in use here then differs from the stored one, which the next start
  // will find. The tokens in memory are kept all the same: after a sign-in or a refresh they are
  // the only ones the service still honours.
  bool sessionSaved() const { return saved_; }

  // --- The sign-in protocol.

  // The address to open in the browser for Google sign-in.
  std::string signInURL() const;
  // The `mirlo://auth#…` address the browser came back with; true when it carried a session.
  bool handleCallback(const std::string& url);
  // Completions receive no message on success, else a French sentence; always on the main queue.
  void signIn(const std::string& email, const std::string& password,
              std::function<void(std::optional<std::string>)> done);
  void signUp(const std::string& email, const std::string& password,
              std::function<void(std::optional<std::string>)> done);
  // Obtains a new token pair. `done` runs on the network thread (or at once, on the caller's
  // thread, when there is no refresh token). Only a refusal of the refresh token by the
  // authentication server (a 4xx answer without tokens) signs out, through the main queue.
  //
  // The original design signed out after any failed refresh. A connection reset, a time-out, a
  // server error or a garbled answer says nothing about the session, and someone on a train
  // would have had to sign in again after every tunnel: those keep the session, and the
  // correction that needed the refresh shows its own error.
  void refresh(std::function<void(RefreshOutcome)> done);

  // Test and tooling access: stores a token pair as a successful sign-in would, without a
  // notification.
  void setTokens(const std::string& access, const std::string& refresh);

 private:
  void load();
  bool persist();
  void decodeEmail();
  bool storeTokensAndPersist(const std::string& access, const std::string& refresh);
  void passwordRequest(const std::string& path, const std::map<std::string, std::string>& body,
                       std::function<void(std::optional<std::string>)> done);

  App& app_;
  const std::string service_ = "io.mirlo.app.session";
  mutable std::mutex mutex_;
  // Held while a save reads the tokens and writes them, so that of two overlapping saves the
  // last one writes the newest tokens.
  std::mutex persistMutex_;
  std::atomic<bool> saved_{true};
  std::string accessToken_;
  std::string refreshToken_;
  std::string email_;
  std::string plan_;
  std::int64_t quotaUsed_ = -1;
  std::int64_t quotaLimit_ = 3;
};

}  // namespace mirlo
