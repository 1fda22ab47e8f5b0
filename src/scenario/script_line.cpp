#include "scenario/script_line.h"

#include <cctype>
#include <cmath>
#include <cstdio>

namespace mirlo::scenario {

namespace {

void appendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::optional<double> parseNumber(const std::string& s) {
  if (s.empty()) return std::nullopt;
  std::size_t used = 0;
  double value = 0;
  try {
    value = std::stod(s, &used);
  } catch (const std::exception&) {
    return std::nullopt;
  }
  if (used != s.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace

ScriptLine::ScriptLine(std::string raw) : raw_(std::move(raw)) {}

bool ScriptLine::cut(std::size_t index) const {
  const std::size_t n = raw_.size();
  std::size_t& i = scanned_;
  while (tokens_.size() <= index) {
    while (i < n && isSpace(raw_[i])) ++i;
    if (i >= n) return false;
    // A comment runs to the end of the line, but only where the first token would begin.
    if (raw_[i] == '#' && tokens_.empty()) {
      i = n;
      return false;
    }
    Token token;
    token.start = i;
    if (raw_[i] == '"') {
      token.quoted = true;
      ++i;
      bool closed = false;
      while (i < n) {
        char c = raw_[i];
        if (c == '"') {
          closed = true;
          ++i;
          break;
        }
        if (c != '\\') {
          token.text += c;
          ++i;
          continue;
        }
        if (i + 1 >= n) throw ScriptFault("a backslash ends the line inside a quoted string");
        char e = raw_[i + 1];
        i += 2;
        switch (e) {
          case '"': token.text += '"'; break;
          case '\\': token.text += '\\'; break;
          case 'n': token.text += '\n'; break;
          case 't': token.text += '\t'; break;
          case 'r': token.text += '\r'; break;
          case 'u': {
            if (i >= n || raw_[i] != '{') throw ScriptFault("\\u must be followed by {hex digits}");
            auto close = raw_.find('}', i);
            if (close == std::string::npos) throw ScriptFault("\\u{ is never closed");
            std::string hex = raw_.substr(i + 1, close - i - 1);
            if (hex.empty() || hex.size() > 6) throw ScriptFault("\\u{" + hex + "} is not a code point");
            for (char h : hex)
              if (!std::isxdigit(static_cast<unsigned char>(h))) throw ScriptFault("\\u{" + hex + "} is not a code point");
            auto cp = static_cast<std::uint32_t>(std::stoul(hex, nullptr, 16));
            if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) throw ScriptFault("\\u{" + hex + "} is not a code point");
            appendUtf8(token.text, cp);
            i = close + 1;
            break;
          }
          default: throw ScriptFault(std::string("unknown escape \\") + e + " in a quoted string");
        }
      }
      if (!closed) throw ScriptFault("a quoted string is never closed");
      if (i < n && !isSpace(raw_[i])) throw ScriptFault("a quoted string must be followed by a space");
    } else {
      while (i < n && !isSpace(raw_[i])) token.text += raw_[i++];
    }
    tokens_.push_back(std::move(token));
  }
  return true;
}

std::string ScriptLine::peek() const { return atEnd() ? std::string() : tokens_[pos_].text; }

bool ScriptLine::peekIs(const std::string& word) const {
  return !atEnd() && !tokens_[pos_].quoted && tokens_[pos_].text == word;
}

std::string ScriptLine::word(const std::string& what) {
  if (atEnd()) throw ScriptFault("missing " + what);
  if (tokens_[pos_].quoted) throw ScriptFault("expected " + what + ", found the quoted " + quote(tokens_[pos_].text));
  return tokens_[pos_++].text;
}

bool ScriptLine::accept(const std::string& word) {
  if (!peekIs(word)) return false;
  ++pos_;
  return true;
}

void ScriptLine::expect(const std::string& word) {
  if (atEnd()) throw ScriptFault("missing '" + word + "'");
  if (!accept(word)) throw ScriptFault("expected '" + word + "', found '" + tokens_[pos_].text + "'");
}

std::string ScriptLine::quoted(const std::string& what) {
  if (atEnd()) throw ScriptFault("missing " + what + " (a quoted string)");
  if (!tokens_[pos_].quoted)
    throw ScriptFault(what + " must be a quoted string, found '" + tokens_[pos_].text + "'");
  return tokens_[pos_++].text;
}

std::string ScriptLine::text(const std::string& what) {
  if (atEnd()) throw ScriptFault("missing " + what);
  return tokens_[pos_++].text;
}

double ScriptLine::number(const std::string& what) {
  std::string w = word(what);
  auto value = parseNumber(w);
  if (!value) throw ScriptFault(what + " must be a number, found '" + w + "'");
  return *value;
}

std::int64_t ScriptLine::integer(const std::string& what) {
  std::string w = word(what);
  auto value = parseNumber(w);
  if (!value || std::floor(*value) != *value || std::fabs(*value) > 9e15)
    throw ScriptFault(what + " must be a whole number, found '" + w + "'");
  return static_cast<std::int64_t>(*value);
}

bool ScriptLine::yesNo(const std::string& what) {
  std::string w = word(what + " (yes or no)");
  if (w == "yes" || w == "on" || w == "true") return true;
  if (w == "no" || w == "off" || w == "false") return false;
  throw ScriptFault(what + " must be yes or no, found '" + w + "'");
}

double ScriptLine::duration(const std::string& what) {
  std::string w = word(what);
  double scale = 1;
  std::string digits = w;
  auto strip = [&](const std::string& suffix, double factor) {
    if (digits.size() > suffix.size() && digits.compare(digits.size() - suffix.size(), suffix.size(), suffix) == 0) {
      digits.resize(digits.size() - suffix.size());
      scale = factor;
      return true;
    }
    return false;
  };
  if (!strip("ms", 0.001) && !strip("min", 60)) strip("s", 1);
  auto value = parseNumber(digits);
  if (!value || *value < 0) throw ScriptFault(what + " must be a duration such as 2s, 0.05s or 250ms, found '" + w + "'");
  return *value * scale;
}

std::string ScriptLine::rest() {
  // The text from where the next token would begin, never cut into tokens itself.
  std::size_t from = scanned_;
  if (pos_ < tokens_.size()) from = tokens_[pos_].start;
  while (from < raw_.size() && isSpace(raw_[from])) ++from;
  if (from >= raw_.size()) return {};
  std::string out = raw_.substr(from);
  while (!out.empty() && isSpace(out.back())) out.pop_back();
  tokens_.resize(pos_);
  scanned_ = raw_.size();
  return out;
}

void ScriptLine::end() {
  if (!atEnd()) throw ScriptFault("unexpected '" + tokens_[pos_].text + "' at the end of the line");
}

std::string quote(const std::string& value) {
  std::string out = "\"";
  for (unsigned char c : value) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char buf[16];
          std::snprintf(buf, sizeof buf, "\\u{%X}", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string formatNumber(double value) {
  if (std::fabs(value) < 0.0005) return "0";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.3f", value);
  std::string s = buf;
  while (s.back() == '0') s.pop_back();
  if (s.back() == '.') s.pop_back();
  return s;
}

}  // namespace mirlo::scenario
