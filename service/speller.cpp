#include "service/speller.h"

#include <hunspell.hxx>
#include <sys/stat.h>
#include <utf8proc.h>

#include <vector>

namespace mirlo::service {

namespace {

constexpr std::size_t kCacheLimit = 20000;

struct CodePoint {
  std::size_t at;
  std::size_t size;
  utf8proc_int32_t cp;
};

std::vector<CodePoint> decode(std::string_view s) {
  std::vector<CodePoint> out;
  std::size_t i = 0;
  while (i < s.size()) {
    utf8proc_int32_t cp = 0;
    auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                              static_cast<utf8proc_ssize_t>(s.size() - i), &cp);
    if (n <= 0) {  // invalid byte: keep it as an opaque non-letter
      n = 1;
      cp = -1;
    }
    out.push_back({i, static_cast<std::size_t>(n), cp});
    i += static_cast<std::size_t>(n);
  }
  return out;
}

bool isLetter(utf8proc_int32_t cp) {
  if (cp < 0) return false;
  switch (utf8proc_category(cp)) {
    case UTF8PROC_CATEGORY_LU: case UTF8PROC_CATEGORY_LL: case UTF8PROC_CATEGORY_LT: case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO: case UTF8PROC_CATEGORY_MN: case UTF8PROC_CATEGORY_MC:
      return true;
    default:
      return false;
  }
}

bool isApostrophe(utf8proc_int32_t cp) { return cp == '\'' || cp == 0x2019; }

bool isSpace(utf8proc_int32_t cp) {
  if (cp < 0) return false;
  const auto cat = utf8proc_category(cp);
  return cp == '\t' || cp == '\n' || cp == '\r' || cp == '\v' || cp == '\f' || cat == UTF8PROC_CATEGORY_ZS ||
         cat == UTF8PROC_CATEGORY_ZL || cat == UTF8PROC_CATEGORY_ZP;
}

bool endsSentence(utf8proc_int32_t cp) { return cp == '.' || cp == '!' || cp == '?' || cp == 0x2026; }

// Chunks that are not prose (addresses, paths, identifiers, anything with a digit) are left alone.
bool isProse(std::string_view chunk) {
  for (char c : chunk)
    if ((c >= '0' && c <= '9') || c == '@' || c == '/' || c == '\\' || c == '_' || c == '#' || c == '=' || c == '<' ||
        c == '>' || c == '{' || c == '}' || c == '|' || c == '~')
      return false;
  return chunk.find("www.") == std::string_view::npos && chunk.find("://") == std::string_view::npos;
}

std::string encode(utf8proc_int32_t cp) {
  utf8proc_uint8_t buf[4];
  const auto n = utf8proc_encode_char(cp, buf);
  return std::string(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
}

bool isUpper(utf8proc_int32_t cp) { return cp >= 0 && utf8proc_category(cp) == UTF8PROC_CATEGORY_LU; }

// Carries the original's capitals over to the suggestion: ALL CAPS, or an initial capital.
std::string matchCase(const std::string& original, const std::string& suggestion) {
  const auto o = decode(original);
  int letters = 0, upper = 0;
  for (const auto& c : o)
    if (isLetter(c.cp)) ++letters, upper += isUpper(c.cp) ? 1 : 0;
  const bool allCaps = letters > 1 && upper == letters;
  const bool initial = !o.empty() && isUpper(o.front().cp);
  if (!allCaps && !initial) return suggestion;
  std::string out;
  bool first = true;
  for (const auto& c : decode(suggestion)) {
    if (c.cp >= 0 && (allCaps || first) && isLetter(c.cp)) out += encode(utf8proc_toupper(c.cp));
    else out.append(suggestion, c.at, c.size);
    if (isLetter(c.cp)) first = false;
  }
  return out;
}

// The dictionary writes the typographic apostrophe; the user's own choice of apostrophe stays.
std::string keepApostrophes(const std::string& original, std::string suggestion) {
  const bool typographic = original.find("\u2019") != std::string::npos;
  const std::string from = typographic ? "'" : "\u2019", to = typographic ? "\u2019" : "'";
  for (auto at = suggestion.find(from); at != std::string::npos; at = suggestion.find(from, at + to.size()))
    suggestion.replace(at, from.size(), to);
  return suggestion;
}

bool readable(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

Speller::Speller(std::unique_ptr<Hunspell> h) : hunspell_(std::move(h)) {}
Speller::~Speller() = default;

std::unique_ptr<Speller> Speller::open(const std::string& affPath, const std::string& dicPath) {
  if (!readable(affPath) || !readable(dicPath)) return nullptr;
  auto h = std::make_unique<Hunspell>(affPath.c_str(), dicPath.c_str());
  if (!h->spell(std::string("bonjour"))) return nullptr;  // not a French dictionary, or unreadable
  return std::unique_ptr<Speller>(new Speller(std::move(h)));
}

std::unique_ptr<Speller> Speller::openDefaultFrench() {
  for (const char* base : {"/usr/share/hunspell/fr_FR", "/usr/share/hunspell/fr", "/usr/share/myspell/fr_FR",
                           "/opt/homebrew/share/hunspell/fr_FR", "/usr/local/share/hunspell/fr_FR"}) {
    if (auto s = open(std::string(base) + ".aff", std::string(base) + ".dic")) return s;
  }
  return nullptr;
}

std::string Speller::fixWord(const std::string& word, bool sentenceStart) {
  const auto cps = decode(word);
  std::size_t letters = 0;
  for (const auto& c : cps) letters += isLetter(c.cp) ? 1 : 0;
  // A lone letter is an elision or an initial; a capitalised word inside a sentence is a name.
  if (letters < 2) return word;
  if (!sentenceStart && isUpper(cps.front().cp)) return word;

  std::lock_guard lock(mutex_);
  if (auto it = cache_.find(word); it != cache_.end()) return it->second;
  std::string result = word;
  if (!hunspell_->spell(word)) {
    // Hunspell's order, except that a lower-case word is not turned into a name and a single word
    // is preferred to a split one.
    const bool lower = !isUpper(cps.front().cp);
    const std::string* best = nullptr;
    const auto suggestions = hunspell_->suggest(word);
    for (const auto& s : suggestions) {
      if (s.empty() || (lower && isUpper(decode(s).front().cp))) continue;
      const bool split = s.find(' ') != std::string::npos;
      if (!best || (best->find(' ') != std::string::npos && !split)) best = &s;
      if (!split) break;
    }
    if (best) result = keepApostrophes(word, matchCase(word, *best));
  }
  if (cache_.size() >= kCacheLimit) cache_.clear();
  cache_.emplace(word, result);
  return result;
}

std::optional<std::string> Speller::correct(std::string_view text, std::chrono::steady_clock::time_point deadline) {
  const auto cps = decode(text);
  std::string out;
  out.reserve(text.size() + 16);
  bool sentenceStart = true;
  std::size_t i = 0;
  while (i < cps.size()) {
    if (isSpace(cps[i].cp)) {
      out.append(text.substr(cps[i].at, cps[i].size));
      ++i;
      continue;
    }
    // One chunk of non-space characters.
    std::size_t end = i;
    while (end < cps.size() && !isSpace(cps[end].cp)) ++end;
    const std::size_t from = cps[i].at;
    const std::size_t to = end < cps.size() ? cps[end].at : text.size();
    const std::string_view chunk = text.substr(from, to - from);
    if (!isProse(chunk)) {
      out.append(chunk);
    } else {
      // Words are runs of letters, with apostrophes kept inside (l'arbre, aujourd'hui).
      std::size_t j = i;
      while (j < end) {
        if (!isLetter(cps[j].cp)) {
          out.append(text.substr(cps[j].at, cps[j].size));
          if (endsSentence(cps[j].cp)) sentenceStart = true;
          ++j;
          continue;
        }
        std::size_t k = j;
        while (k < end && (isLetter(cps[k].cp) ||
                           (isApostrophe(cps[k].cp) && k + 1 < end && isLetter(cps[k + 1].cp) && k > j)))
          ++k;
        const std::size_t wFrom = cps[j].at;
        const std::size_t wTo = k < cps.size() ? cps[k].at : text.size();
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        out += fixWord(std::string(text.substr(wFrom, wTo - wFrom)), sentenceStart);
        sentenceStart = false;
        j = k;
      }
    }
    if (!isProse(chunk)) sentenceStart = false;
    i = end;
  }
  return out;
}

}  // namespace mirlo::service
