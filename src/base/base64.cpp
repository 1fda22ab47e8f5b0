#include "base/base64.h"

namespace mirlo {
namespace {
constexpr const char* kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int valueOf(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}
}  // namespace

std::optional<std::string> decodeBase64Strict(std::string_view in) {
  if (in.size() % 4 != 0) return std::nullopt;
  std::string out;
  out.reserve(in.size() / 4 * 3);
  for (std::size_t i = 0; i < in.size(); i += 4) {
    const bool last = i + 4 == in.size();
    int v[4];
    int padding = 0;
    for (int k = 0; k < 4; ++k) {
      char c = in[i + static_cast<std::size_t>(k)];
      if (c == '=') {
        if (!last || k < 2) return std::nullopt;
        v[k] = 0;
        ++padding;
      } else {
        if (padding > 0) return std::nullopt;  // data after padding
        v[k] = valueOf(c);
        if (v[k] < 0) return std::nullopt;
      }
    }
    unsigned triple = (unsigned(v[0]) << 18) | (unsigned(v[1]) << 12) | (unsigned(v[2]) << 6) | unsigned(v[3]);
    out.push_back(static_cast<char>((triple >> 16) & 0xFF));
    if (padding < 2) out.push_back(static_cast<char>((triple >> 8) & 0xFF));
    if (padding < 1) out.push_back(static_cast<char>(triple & 0xFF));
  }
  return out;
}

std::string encodeBase64(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned n = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) n |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) n |= static_cast<unsigned char>(bytes[i + 2]);
    out.push_back(kAlphabet[(n >> 18) & 63]);
    out.push_back(kAlphabet[(n >> 12) & 63]);
    out.push_back(i + 1 < bytes.size() ? kAlphabet[(n >> 6) & 63] : '=');
    out.push_back(i + 2 < bytes.size() ? kAlphabet[n & 63] : '=');
  }
  return out;
}

std::string encodeBase64Url(std::string_view bytes) {
  std::string s = encodeBase64(bytes);
  for (char& c : s) {
    if (c == '+') c = '-';
    else if (c == '/') c = '_';
  }
  while (!s.empty() && s.back() == '=') s.pop_back();
  return s;
}

}  // namespace mirlo
