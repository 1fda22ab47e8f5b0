#include "base/url.h"

#include "base/text.h"

namespace mirlo::url {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool isUnreserved(char c) { return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~'; }
bool isSubDelim(char c) {
  switch (c) {
    case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+': case ',': case ';': case '=':
      return true;
    default:
      return false;
  }
}

// Every character is allowed in a URL component or is a well-formed escape.
bool validComponent(std::string_view s, std::string_view extra) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == '%') {
      if (i + 2 >= s.size() || !isHex(s[i + 1]) || !isHex(s[i + 2])) return false;
      i += 2;
      continue;
    }
    if (isUnreserved(c) || isSubDelim(c) || extra.find(c) != std::string_view::npos) continue;
    return false;
  }
  return true;
}

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c - 'A' + 10;
}

}  // namespace

std::optional<Url> parse(std::string_view text) {
  Url url;
  auto colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isAlpha(text[0])) return std::nullopt;
  for (std::size_t i = 0; i < colon; ++i) {
    char c = text[i];
    if (!(isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.')) return std::nullopt;
  }
  url.scheme = std::string(text.substr(0, colon));
  std::string_view rest = text.substr(colon + 1);

  if (auto hash = rest.find('#'); hash != std::string_view::npos) {
    std::string_view fragment = rest.substr(hash + 1);
    if (!validComponent(fragment, ":@/?")) return std::nullopt;
    url.fragment = std::string(fragment);
    rest = rest.substr(0, hash);
  }
  if (auto question = rest.find('?'); question != std::string_view::npos) {
    std::string_view query = rest.substr(question + 1);
    if (!validComponent(query, ":@/?")) return std::nullopt;
    url.query = std::string(query);
    rest = rest.substr(0, question);
  }
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    auto slash = rest.find('/');
    std::string_view authority = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    if (auto at = authority.rfind('@'); at != std::string_view::npos) {
      if (!validComponent(authority.substr(0, at), ":")) return std::nullopt;
      authority.remove_prefix(at + 1);
    }
    std::string_view host = authority;
    if (!authority.empty() && authority.front() == '[') {
      auto close = authority.find(']');
      if (close == std::string_view::npos) return std::nullopt;
      host = authority.substr(0, close + 1);
      authority.remove_prefix(close + 1);
      if (!authority.empty() && authority.front() != ':') return std::nullopt;
    } else {
      auto portColon = authority.find(':');
      host = authority.substr(0, portColon);
      authority = portColon == std::string_view::npos ? std::string_view() : authority.substr(portColon);
      if (!validComponent(host, "")) return std::nullopt;
    }
    if (!authority.empty()) {  // ":port"
      std::string_view digits = authority.substr(1);
      if (digits.size() > 5) return std::nullopt;
      int port = 0;
      for (char c : digits) {
        if (!isDigit(c)) return std::nullopt;
        port = port * 10 + (c - '0');
      }
      if (port > 65535) return std::nullopt;
      if (!digits.empty()) url.port = port;
    }
    url.host = std::string(host);
  }
  if (!validComponent(rest, ":@/")) return std::nullopt;
  url.path = std::string(rest);
  return url;
}

std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return std::nullopt;
    out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
    i += 2;
  }
  if (!text::isValidUtf8(out)) return std::nullopt;
  return out;
}

std::string encodeQueryValue(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (char ch : text) {
    auto c = static_cast<unsigned char>(ch);
    bool keep = isUnreserved(ch) || ch == ':' || ch == '@' || ch == '/' || ch == '?' || ch == '!' || ch == '$' ||
                ch == '\'' || ch == '(' || ch == ')' || ch == '*' || ch == ',' || ch == ';';
    if (keep) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0x0F]);
    }
  }
  return out;
}

}  // namespace mirlo::url
