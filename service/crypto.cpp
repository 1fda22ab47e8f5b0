#include "service/crypto.h"

#include <sodium.h>

#include <cstdio>

namespace mirlo::service {

bool initCrypto() { return sodium_init() >= 0; }

std::string randomBytes(std::size_t n) {
  std::string out(n, '\0');
  randombytes_buf(out.data(), n);
  return out;
}

std::string randomUuid() {
  auto b = randomBytes(16);
  auto u = [&](int i) { return static_cast<unsigned>(static_cast<unsigned char>(b[static_cast<std::size_t>(i)])); };
  b[6] = static_cast<char>((u(6) & 0x0f) | 0x40);
  b[8] = static_cast<char>((u(8) & 0x3f) | 0x80);
  char buf[37];
  std::snprintf(buf, sizeof buf, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", u(0), u(1), u(2),
                u(3), u(4), u(5), u(6), u(7), u(8), u(9), u(10), u(11), u(12), u(13), u(14), u(15));
  return buf;
}

std::string randomToken(std::size_t bytes) { return base64UrlEncode(randomBytes(bytes)); }

std::string base64UrlEncode(std::string_view bytes) {
  const int variant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
  std::string out(sodium_base64_ENCODED_LEN(bytes.size(), variant), '\0');
  sodium_bin2base64(out.data(), out.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    variant);
  out.resize(out.size() - 1);  // the terminating NUL
  return out;
}

std::optional<std::string> base64UrlDecode(std::string_view text) {
  std::string out(text.size(), '\0');
  std::size_t len = 0;
  const char* end = nullptr;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(out.data()), out.size(), text.data(), text.size(), nullptr,
                        &len, &end, sodium_base64_VARIANT_URLSAFE_NO_PADDING) != 0 ||
      end != text.data() + text.size())
    return std::nullopt;
  out.resize(len);
  return out;
}

std::string sha256Hex(std::string_view bytes) {
  unsigned char digest[crypto_hash_sha256_BYTES];
  crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  char hex[2 * sizeof digest + 1];
  sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
  return hex;
}

bool equalConstantTime(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  return a.empty() || sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

namespace {

std::string hmacSha256(std::string_view data, std::string_view key) {
  crypto_auth_hmacsha256_state st;
  crypto_auth_hmacsha256_init(&st, reinterpret_cast<const unsigned char*>(key.data()), key.size());
  crypto_auth_hmacsha256_update(&st, reinterpret_cast<const unsigned char*>(data.data()), data.size());
  std::string mac(crypto_auth_hmacsha256_BYTES, '\0');
  crypto_auth_hmacsha256_final(&st, reinterpret_cast<unsigned char*>(mac.data()));
  return mac;
}

}  // namespace

std::string signJwt(const Json& payload, std::string_view secret) {
  const std::string input = base64UrlEncode(R"({"alg":"HS256","typ":"JWT"})") + "." + base64UrlEncode(dumpJson(payload));
  return input + "." + base64UrlEncode(hmacSha256(input, secret));
}

JwtCheck verifyJwt(std::string_view token, std::string_view secret, std::int64_t now) {
  JwtCheck check;
  const auto dot1 = token.find('.');
  const auto dot2 = dot1 == std::string_view::npos ? dot1 : token.find('.', dot1 + 1);
  if (dot2 == std::string_view::npos || token.find('.', dot2 + 1) != std::string_view::npos) return check;
  const auto headerText = base64UrlDecode(token.substr(0, dot1));
  const auto payloadText = base64UrlDecode(token.substr(dot1 + 1, dot2 - dot1 - 1));
  const auto signature = base64UrlDecode(token.substr(dot2 + 1));
  if (!headerText || !payloadText || !signature) return check;
  const auto header = parseJson(*headerText, 8);
  auto payload = parseJson(*payloadText, 16);
  if (!header || !header->is_object() || !payload || !payload->is_object()) return check;
  // The algorithm is fixed here, never taken from the token: "none" or RS256 cannot slip in.
  const auto alg = header->find("alg");
  if (alg == header->end() || !alg->is_string() || alg->get<std::string>() != "HS256") {
    check.error = JwtError::badAlgorithm;
    return check;
  }
  if (!equalConstantTime(*signature, hmacSha256(token.substr(0, dot2), secret))) {
    check.error = JwtError::badSignature;
    return check;
  }
  const auto exp = payload->find("exp");
  if (exp == payload->end() || !exp->is_number() || exp->get<double>() <= static_cast<double>(now)) {
    check.error = JwtError::expired;
    return check;
  }
  check.payload = std::move(payload);
  return check;
}

PasswordCost PasswordCost::interactive() {
  return {crypto_pwhash_OPSLIMIT_INTERACTIVE, crypto_pwhash_MEMLIMIT_INTERACTIVE};
}
PasswordCost PasswordCost::minimum() { return {crypto_pwhash_OPSLIMIT_MIN, crypto_pwhash_MEMLIMIT_MIN}; }

std::optional<std::string> hashPassword(std::string_view password, PasswordCost cost) {
  char out[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str_alg(out, password.data(), password.size(), cost.ops, cost.mem, crypto_pwhash_ALG_ARGON2ID13) !=
      0)
    return std::nullopt;
  return std::string(out);
}

bool verifyPassword(std::string_view hash, std::string_view password) {
  const std::string h(hash);  // needs its terminating NUL
  return crypto_pwhash_str_verify(h.c_str(), password.data(), password.size()) == 0;
}

std::string seal(std::string_view plain, std::string_view key) {
  std::string out = randomBytes(crypto_secretbox_NONCEBYTES);
  out.resize(out.size() + crypto_secretbox_MACBYTES + plain.size());
  auto* dst = reinterpret_cast<unsigned char*>(out.data());
  crypto_secretbox_easy(dst + crypto_secretbox_NONCEBYTES, reinterpret_cast<const unsigned char*>(plain.data()),
                        plain.size(), dst, reinterpret_cast<const unsigned char*>(key.data()));
  return out;
}

std::optional<std::string> unseal(std::string_view sealed, std::string_view key) {
  if (key.size() != crypto_secretbox_KEYBYTES || sealed.size() < crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES)
    return std::nullopt;
  const auto* src = reinterpret_cast<const unsigned char*>(sealed.data());
  std::string plain(sealed.size() - crypto_secretbox_NONCEBYTES - crypto_secretbox_MACBYTES, '\0');
  if (crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(plain.data()), src + crypto_secretbox_NONCEBYTES,
                                 sealed.size() - crypto_secretbox_NONCEBYTES, src,
                                 reinterpret_cast<const unsigned char*>(key.data())) != 0)
    return std::nullopt;
  return plain;
}

}  // namespace mirlo::service
