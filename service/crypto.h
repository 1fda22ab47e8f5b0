// The service's cryptography, all on libsodium: random identifiers, base64url, HS256 JSON Web
// Tokens, Argon2id password hashes and the sealing of a refresh token kept for its reuse window.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/json.h"

namespace mirlo::service {

// Must be called once before anything else here; false when libsodium cannot start.
bool initCrypto();

std::string randomBytes(std::size_t n);
// A random identifier in the 8-4-4-4-12 form (version 4).
std::string randomUuid();
// An opaque token of `bytes` random bytes, base64url without padding (never contains '=').
std::string randomToken(std::size_t bytes = 32);

std::string base64UrlEncode(std::string_view bytes);
std::optional<std::string> base64UrlDecode(std::string_view text);

// Hex SHA-256: what the database keeps instead of a refresh token.
std::string sha256Hex(std::string_view bytes);

// Constant-time comparison of two byte strings of any lengths.
bool equalConstantTime(std::string_view a, std::string_view b);

// HS256 JWT over a JSON object payload.
std::string signJwt(const Json& payload, std::string_view secret);

enum class JwtError { malformed, badAlgorithm, badSignature, expired };
struct JwtCheck {
  std::optional<Json> payload;  // set when the token is genuine and not expired
  JwtError error = JwtError::malformed;
};
// Accepts only {"alg":"HS256"} tokens signed with `secret` whose "exp" (a number, required) is
// after `now`.
JwtCheck verifyJwt(std::string_view token, std::string_view secret, std::int64_t now);

// Argon2id. `fast` uses libsodium's minimum cost, for tests only.
struct PasswordCost {
  unsigned long long ops;
  std::size_t mem;
  static PasswordCost interactive();
  static PasswordCost minimum();
};
std::optional<std::string> hashPassword(std::string_view password, PasswordCost cost);
bool verifyPassword(std::string_view hash, std::string_view password);

// Authenticated encryption with a 32-byte key (XSalsa20-Poly1305); the nonce travels in front.
std::string seal(std::string_view plain, std::string_view key);
std::optional<std::string> unseal(std::string_view sealed, std::string_view key);

}  // namespace mirlo::service
