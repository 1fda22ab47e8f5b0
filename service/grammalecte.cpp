#include "service/grammalecte.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>

namespace mirlo::service {

namespace {

// ---------------------------------------------------------------------------------------------
// Characters

bool isLetter(char32_t c) {
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(c))) {
    case UTF8PROC_CATEGORY_LU: case UTF8PROC_CATEGORY_LL: case UTF8PROC_CATEGORY_LT: case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO: case UTF8PROC_CATEGORY_MN: case UTF8PROC_CATEGORY_MC:
      return true;
    default:
      return false;
  }
}
bool isUpper(char32_t c) { return utf8proc_category(static_cast<utf8proc_int32_t>(c)) == UTF8PROC_CATEGORY_LU; }
char32_t lower(char32_t c) { return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(c))); }
char32_t upper(char32_t c) { return static_cast<char32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(c))); }
bool isApostrophe(char32_t c) { return c == U'\'' || c == U'\u2019'; }
bool isSpace(char32_t c) {
  const auto cat = utf8proc_category(static_cast<utf8proc_int32_t>(c));
  return c == U'\t' || c == U'\n' || c == U'\r' || c == U'\v' || c == U'\f' || cat == UTF8PROC_CATEGORY_ZS ||
         cat == UTF8PROC_CATEGORY_ZL || cat == UTF8PROC_CATEGORY_ZP;
}

// The letter without its accents: "é" is "e", "Ç" is "C".
char32_t base(char32_t c) {
  if (c < 0x80) return c;
  utf8proc_int32_t out[4];
  utf8proc_int32_t last = 0;
  const auto n = utf8proc_decompose_char(static_cast<utf8proc_int32_t>(c), out, 4,
                                         static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE), &last);
  return n >= 1 && n <= 4 ? static_cast<char32_t>(out[0]) : c;
}

std::u32string decode(std::string_view s) {
  std::u32string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    utf8proc_int32_t cp = 0;
    auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                              static_cast<utf8proc_ssize_t>(s.size() - i), &cp);
    if (n <= 0) n = 1, cp = 0xFFFD;
    out.push_back(static_cast<char32_t>(cp));
    i += static_cast<std::size_t>(n);
  }
  return out;
}

std::string encode(std::u32string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char32_t c : s) {
    utf8proc_uint8_t buf[4];
    const auto n = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), buf);
    out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
  }
  return out;
}

std::u32string lowered(std::u32string s) {
  for (auto& c : s) c = isApostrophe(c) ? U'\'' : lower(c);
  return s;
}

std::size_t letterCount(std::u32string_view s) {
  return static_cast<std::size_t>(std::count_if(s.begin(), s.end(), isLetter));
}

// ---------------------------------------------------------------------------------------------
// What is not prose: addresses, paths, numbers, identifiers. A chunk between spaces with any of
// these marks is left exactly as typed, whatever the checker says about it.

bool isProse(std::u32string_view chunk) {
  for (std::size_t i = 0; i < chunk.size(); ++i) {
    const char32_t c = chunk[i];
    if ((c >= U'0' && c <= U'9') || std::u32string_view(U"@/\\_#=<>{}|~`^*[]$%&+").find(c) != std::u32string_view::npos)
      return false;
    // "exemple.fr", "config.json": a dot between two letters.
    if (c == U'.' && i > 0 && i + 1 < chunk.size() && isLetter(chunk[i - 1]) && isLetter(chunk[i + 1])) return false;
    // "iPhone", "getUser": a capital right after a small letter.
    if (i > 0 && isUpper(c) && isLetter(chunk[i - 1]) && !isUpper(chunk[i - 1])) return false;
  }
  return true;
}

using Span = std::pair<std::size_t, std::size_t>;  // bytes

std::vector<Span> protectedSpans(std::string_view text) {
  std::vector<Span> out;
  const auto cps = decode(text);
  std::size_t byte = 0, i = 0;
  while (i < cps.size()) {
    if (isSpace(cps[i])) {
      byte += encode(std::u32string_view(&cps[i], 1)).size();
      ++i;
      continue;
    }
    std::size_t j = i;
    while (j < cps.size() && !isSpace(cps[j])) ++j;
    const std::u32string_view chunk(&cps[i], j - i);
    const std::size_t bytes = encode(chunk).size();
    if (!isProse(chunk)) out.emplace_back(byte, byte + bytes);
    byte += bytes;
    i = j;
  }
  return out;
}

bool overlaps(const std::vector<Span>& spans, std::size_t start, std::size_t end) {
  return std::any_of(spans.begin(), spans.end(), [&](const Span& s) { return start < s.second && s.first < end; });
}

// ---------------------------------------------------------------------------------------------
// How far a suggestion is from what was typed: an edit distance where the slips people make in
// French cost less than replacing a letter by an unrelated one.

double insertionCost(std::u32string_view s, std::size_t at) {
  const char32_t c = s[at];
  if (isApostrophe(c) || c == U'-') return 0.3;  // "jai" → "j'ai", "peutetre" → "peut-être"
  if (c == U' ') return 1.1;                      // a split: "biensur" → "bien sur"
  if ((at > 0 && s[at - 1] == c) || (at + 1 < s.size() && s[at + 1] == c)) return 0.4;  // a doubled letter
  return 1.0;
}

// Accents are often left out, seldom typed by mistake: someone who typed one meant one.
double accentCost(char32_t typed, char32_t suggested) {
  if (typed == base(typed)) return 0.2;        // "e" → "é"
  if (suggested == base(suggested)) return 0.5;  // "é" → "e"
  return 0.3;                                    // "é" → "è"
}

double editCost(std::u32string_view a, std::u32string_view b) {
  const std::size_t n = a.size(), m = b.size();
  std::vector<double> d((n + 1) * (m + 1));
  auto at = [&](std::size_t i, std::size_t j) -> double& { return d[i * (m + 1) + j]; };
  for (std::size_t i = 1; i <= n; ++i) at(i, 0) = at(i - 1, 0) + insertionCost(a, i - 1);
  for (std::size_t j = 1; j <= m; ++j) at(0, j) = at(0, j - 1) + insertionCost(b, j - 1);
  for (std::size_t i = 1; i <= n; ++i) {
    for (std::size_t j = 1; j <= m; ++j) {
      const char32_t x = a[i - 1], y = b[j - 1];
      const double substitution = x == y ? 0.0 : base(x) != base(y) ? 1.0 : accentCost(x, y);
      double best = std::min({at(i - 1, j - 1) + substitution, at(i - 1, j) + insertionCost(a, i - 1),
                              at(i, j - 1) + insertionCost(b, j - 1)});
      if (i > 1 && j > 1 && x == b[j - 2] && a[i - 2] == y) best = std::min(best, at(i - 2, j - 2) + 0.7);
      at(i, j) = best;
    }
  }
  return at(n, m);
}

// ---------------------------------------------------------------------------------------------
// The person's own style

// The capitals of what was typed carried over to a suggestion: nothing when a word typed in small
// letters would become a name.
std::optional<std::u32string> matchCase(std::u32string_view typed, std::u32string candidate) {
  std::size_t letters = 0, capitals = 0;
  for (char32_t c : typed)
    if (isLetter(c)) ++letters, capitals += isUpper(c) ? 1 : 0;
  if (capitals == 0) {
    if (std::any_of(candidate.begin(), candidate.end(), isUpper)) return std::nullopt;
    return candidate;
  }
  const bool allCaps = letters > 1 && capitals == letters;
  bool first = true;
  for (auto& c : candidate) {
    if (!isLetter(c)) continue;
    if (allCaps || first) c = upper(c);
    first = false;
  }
  return candidate;
}

// The apostrophe the person types: the one in the words being replaced, else the first one in
// the sentence, else in the whole text, else the one on every keyboard.
char32_t apostropheOf(std::u32string_view span, std::u32string_view sentence, std::u32string_view text) {
  for (auto s : {span, sentence, text})
    for (char32_t c : s)
      if (isApostrophe(c)) return c;
  return U'\'';
}

std::u32string withApostrophe(std::u32string s, char32_t apostrophe) {
  for (auto& c : s)
    if (isApostrophe(c)) c = apostrophe;
  return s;
}

// A change of apostrophes, capitals or the spacing around punctuation alone is a matter of style,
// not an error: "demain?" stays as typed. Spaces between words are not style: "quel que" is not
// "quelque".
bool onlyStyleDiffers(std::u32string_view a, std::u32string_view b) {
  auto plain = [](std::u32string_view s) {
    std::u32string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
      const char32_t c = s[i];
      if (isSpace(c)) {
        const bool beforeWord = i + 1 < s.size() && (isLetter(s[i + 1]) || (s[i + 1] >= U'0' && s[i + 1] <= U'9'));
        const bool afterWord = !out.empty() && (isLetter(out.back()) || (out.back() >= U'0' && out.back() <= U'9'));
        if (beforeWord && afterWord) out.push_back(U' ');
        continue;
      }
      out.push_back(isApostrophe(c) ? U'\'' : lower(c));
    }
    return out;
  };
  return plain(a) == plain(b);
}

// Grammalecte writes the non-breaking spaces of French typography; a person who typed plain
// spaces keeps them.
std::u32string withTypedSpaces(std::u32string s, std::u32string_view typed) {
  const bool typedNarrow = typed.find(U'\u00a0') != std::u32string_view::npos ||
                           typed.find(U'\u202f') != std::u32string_view::npos;
  if (!typedNarrow)
    for (auto& c : s)
      if (c == U'\u00a0' || c == U'\u202f') c = U' ';
  return s;
}

// ---------------------------------------------------------------------------------------------
// Sentences

struct Sentence {
  std::size_t paragraph = 0;
  std::size_t start = 0, end = 0;  // in the paragraph as sent
  std::string text;                // as corrected so far
  std::vector<CheckReport::Issue> issues;  // found in `text`
  bool stale = false;                      // `text` changed after `issues` were found
  bool done = false;
  // The last grammar fix applied on trust, undone when it did not lower the count of errors.
  bool fixPending = false;
  std::string beforeFix;
  std::vector<CheckReport::Issue> issuesBeforeFix;
};

std::string replaced(const std::string& text, std::size_t start, std::size_t end, const std::string& with) {
  return text.substr(0, start) + with + text.substr(end);
}

// Where the first word of a sentence starts, in bytes.
std::size_t firstWordAt(std::string_view text) {
  const auto cps = decode(text);
  std::size_t byte = 0;
  for (char32_t c : cps) {
    if (isLetter(c)) return byte;
    byte += encode(std::u32string_view(&c, 1)).size();
  }
  return text.size();
}

// Too many unknown words: another language, a list of names, code. Such a sentence is left alone.
bool looksForeign(const Sentence& s) {
  std::size_t unknown = 0;
  for (const auto& issue : s.issues) unknown += issue.spelling ? 1 : 0;
  if (unknown < 3) return false;
  const auto cps = decode(s.text);
  std::size_t words = 0;
  for (std::size_t i = 0; i < cps.size(); ++i)
    if (isLetter(cps[i]) && (i == 0 || !isLetter(cps[i - 1]))) ++words;
  return unknown * 2 > words;
}

struct Candidate {
  std::string word;
  double cost = 0;
};

// The suggestions worth trying for a word, closest first.
std::vector<Candidate> rank(const std::string& typed, const WordSuggestions& found) {
  if (found.valid) return {};
  const auto typedCps = decode(typed);
  const auto typedLower = lowered(typedCps);
  const std::size_t letters = letterCount(typedCps);
  struct Ranked {
    Candidate c;
    std::size_t prefix;
    std::size_t order;
  };
  std::vector<Ranked> ranked;
  std::set<std::string> seen;
  std::size_t order = 0;
  const std::array<const std::vector<std::string>*, 3> sources = {&found.near, &found.edits, &found.far};
  for (std::size_t source = 0; source < sources.size(); ++source) {
    // Short words only get their accents, doubled letters or apostrophes fixed: "ca" is "ça",
    // but "bcp" is not "bip".
    const double limit = letters <= 3   ? 0.45
                         : source == 0 ? std::max(1.5, 0.5 * static_cast<double>(letters))
                         : source == 1 ? 1.1
                                       : std::max(1.0, 0.34 * static_cast<double>(letters));
    for (const auto& suggestion : *sources[source]) {
      ++order;
      auto cps = decode(suggestion);
      if (cps.empty() || letterCount(cps) == 0) continue;
      // A split must leave two real words: "bien sur", not "tr es".
      if (const auto space = cps.find(U' '); space != std::u32string::npos) {
        const auto left = std::u32string_view(cps).substr(0, space), right = std::u32string_view(cps).substr(space + 1);
        auto shortWord = [](std::u32string_view w) {
          return letterCount(w) < 2 && w != U"a" && w != U"à" && w != U"y";
        };
        if (right.find(U' ') != std::u32string_view::npos || shortWord(left) || shortWord(right)) continue;
      }
      const auto cased = matchCase(typedCps, cps);
      if (!cased) continue;
      const double cost = editCost(typedLower, lowered(*cased));
      if (cost > limit || cost == 0) continue;
      const std::string word = encode(*cased);
      if (!seen.insert(word).second) continue;
      const auto lc = lowered(*cased);
      std::size_t prefix = 0;
      while (prefix < lc.size() && prefix < typedLower.size() && lc[prefix] == typedLower[prefix]) ++prefix;
      ranked.push_back({{word, cost}, prefix, order});
    }
  }
  std::sort(ranked.begin(), ranked.end(), [](const Ranked& a, const Ranked& b) {
    if (a.c.cost != b.c.cost) return a.c.cost < b.c.cost;
    if (a.prefix != b.prefix) return a.prefix > b.prefix;
    return a.order < b.order;
  });
  std::vector<Candidate> out;
  for (auto& r : ranked) out.push_back(std::move(r.c));
  return out;
}

// Several ways to fix one sentence, to be told apart by how many errors the checker still finds.
struct Choice {
  Sentence* sentence;
  std::vector<std::string> texts;  // the whole sentence with each candidate in place, best guess first
  std::vector<double> costs;
  std::size_t start = 0, end = 0;  // the part replaced (spelling: one word)
  std::vector<std::string> replacements;
  std::vector<std::optional<CheckReport>> reports;  // one per text once checked; empty if time ran out
};

constexpr std::size_t kSuggestionsPerRequest = 16;
constexpr std::size_t kCandidatesPerRequest = 32;
constexpr std::size_t kMaxSpellingCandidates = 4;
constexpr std::size_t kMaxGrammarCandidates = 8;
constexpr int kMaxGrammarRounds = 6;

}  // namespace

std::optional<std::string> correctFrench(std::string_view text, FrenchChecker& checker,
                                         EngineClock::time_point refineUntil) {
  const std::u32string wholeText = decode(text);
  // Paragraphs are lines: a line break always ends a sentence, and each line is checked alone.
  std::vector<Span> paragraphs;
  std::vector<std::string> paragraphTexts;
  for (std::size_t at = 0; at <= text.size();) {
    auto newline = text.find('\n', at);
    if (newline == std::string_view::npos) newline = text.size();
    std::size_t end = newline;
    if (end > at && text[end - 1] == '\r') --end;
    const auto line = text.substr(at, end - at);
    if (letterCount(decode(line)) > 0) {
      paragraphs.emplace_back(at, end);
      paragraphTexts.emplace_back(line);
    }
    at = newline + 1;
  }
  if (paragraphs.empty()) return std::string(text);

  auto reports = checker.check(paragraphTexts);
  if (!reports || reports->size() != paragraphTexts.size()) return std::nullopt;

  // Sentences as the checker cut them, each holding the errors found inside it.
  std::vector<Sentence> sentences;
  for (std::size_t p = 0; p < paragraphs.size(); ++p) {
    const std::string& para = paragraphTexts[p];
    const auto& report = (*reports)[p];
    std::vector<Span> cuts;
    std::size_t covered = 0;
    if (report)
      for (auto [s, e] : report->sentences)
        if (s == covered && e > s && e <= para.size()) cuts.emplace_back(s, e), covered = e;
    if (covered < para.size()) cuts.emplace_back(covered, para.size());
    for (auto [s, e] : cuts) {
      Sentence sentence;
      sentence.paragraph = p;
      sentence.start = s;
      sentence.end = e;
      sentence.text = para.substr(s, e - s);
      sentence.done = !report;
      if (report)
        for (const auto& issue : report->issues)
          if (issue.start >= s && issue.end <= e) {
            auto local = issue;
            local.start -= s;
            local.end -= s;
            sentence.issues.push_back(std::move(local));
          }
      if (looksForeign(sentence)) sentence.done = true;
      sentences.push_back(std::move(sentence));
    }
  }
  auto refining = [&] { return EngineClock::now() < refineUntil; };
  auto errorCount = [](const std::vector<CheckReport::Issue>& issues) { return issues.size(); };

  // Checks the candidates of as many choices as time allows, a few choices per request. False
  // when the checker failed.
  auto checkCandidates = [&](std::vector<Choice>& choices) {
    for (std::size_t i = 0; i < choices.size() && refining();) {
      std::vector<std::string> texts;
      std::size_t j = i;
      for (; j < choices.size() && (texts.empty() || texts.size() + choices[j].texts.size() <= kCandidatesPerRequest); ++j)
        texts.insert(texts.end(), choices[j].texts.begin(), choices[j].texts.end());
      auto found = checker.check(texts);
      if (!found || found->size() != texts.size()) return false;
      auto next = found->begin();
      for (; i < j; ++i)
        for (std::size_t k = 0; k < choices[i].texts.size(); ++k) choices[i].reports.push_back(std::move(*next++));
    }
    return true;
  };
  // The candidate the checker finds fewest errors in, the closest to what was typed among equals;
  // nothing when none was checked.
  auto best = [&](const Choice& c) -> std::optional<std::size_t> {
    std::optional<std::size_t> chosen;
    for (std::size_t i = 0; i < c.reports.size(); ++i) {
      if (!c.reports[i]) continue;
      const auto errors = errorCount(c.reports[i]->issues), least = chosen ? errorCount(c.reports[*chosen]->issues) : 0;
      if (!chosen || errors < least || (errors == least && c.costs[i] < c.costs[*chosen])) chosen = i;
    }
    return chosen;
  };

  // Spelling first, so that agreement is then checked on real words.
  if (refining()) {
    struct Misspelling {
      Sentence* sentence;
      std::size_t start, end;
      std::string word;
      // "pensez-vuos": the parts of a hyphenated word are looked up alone, which is quicker and
      // keeps the known parts as typed.
      std::vector<std::string> parts;
    };
    std::vector<Misspelling> misspellings;
    std::vector<std::string> words;
    std::map<std::string, std::size_t> wordIndex;
    for (auto& s : sentences) {
      if (s.done) continue;
      const auto shielded = protectedSpans(s.text);
      const std::size_t first = firstWordAt(s.text);
      for (const auto& issue : s.issues) {
        if (!issue.spelling || overlaps(shielded, issue.start, issue.end)) continue;
        const std::string word = s.text.substr(issue.start, issue.end - issue.start);
        const auto cps = decode(word);
        const std::size_t letters = letterCount(cps);
        if (letters < 2) continue;
        // A capital inside a sentence is a name; capitals throughout, an acronym.
        const bool capital = isUpper(cps.front());
        if (capital && issue.start != first) continue;
        if (capital && letters > 1 && static_cast<std::size_t>(std::count_if(cps.begin(), cps.end(), isUpper)) == letters)
          continue;
        std::vector<std::string> parts;
        for (std::size_t from = 0;;) {
          const auto hyphen = word.find('-', from);
          parts.push_back(word.substr(from, hyphen == std::string::npos ? std::string::npos : hyphen - from));
          if (hyphen == std::string::npos) break;
          from = hyphen + 1;
        }
        if (std::any_of(parts.begin(), parts.end(), [](const std::string& p) { return p.empty(); })) parts = {word};
        for (const auto& part : parts)
          if (wordIndex.emplace(part, words.size()).second) words.push_back(part);
        misspellings.push_back({&s, issue.start, issue.end, word, std::move(parts)});
      }
    }
    if (!words.empty()) {
      // A few words per request, so that a text full of unknown words stops looking when its
      // time is up instead of asking for everything at once.
      std::vector<WordSuggestions> suggestions;
      for (std::size_t from = 0; from < words.size() && refining(); from += kSuggestionsPerRequest) {
        const std::vector<std::string> some(words.begin() + static_cast<std::ptrdiff_t>(from),
                                            words.begin() + static_cast<std::ptrdiff_t>(std::min(words.size(), from + kSuggestionsPerRequest)));
        auto found = checker.suggest(some);
        if (!found || found->size() != some.size()) return std::nullopt;
        suggestions.insert(suggestions.end(), found->begin(), found->end());
      }
      std::vector<Choice> choices;
      std::map<Sentence*, std::vector<std::tuple<std::size_t, std::size_t, std::string>>> fixes;
      for (const auto& m : misspellings) {
        std::vector<Candidate> candidates;
        if (m.parts.size() == 1) {
          if (wordIndex[m.word] >= suggestions.size()) continue;  // not reached in time
          candidates = rank(m.word, suggestions[wordIndex[m.word]]);
        } else {
          // Each unknown part takes its closest word; agreement is settled by the grammar after.
          Candidate whole{"", 0};
          bool complete = true;
          for (const auto& part : m.parts) {
            const std::size_t at = wordIndex[part];
            if (at >= suggestions.size()) complete = false;
            if (!complete) break;
            const auto ranked = suggestions[at].valid ? std::vector<Candidate>{} : rank(part, suggestions[at]);
            if (!suggestions[at].valid && ranked.empty()) complete = false;
            whole.word += (whole.word.empty() ? "" : "-") + (ranked.empty() ? part : ranked.front().word);
            whole.cost += ranked.empty() ? 0 : ranked.front().cost;
          }
          if (complete && whole.word != m.word) candidates.push_back(std::move(whole));
        }
        if (candidates.empty()) continue;
        std::vector<Candidate> band;
        for (const auto& c : candidates)
          if (band.size() < kMaxSpellingCandidates && c.cost <= candidates.front().cost + 0.5) band.push_back(c);
        const auto sentenceCps = decode(m.sentence->text);
        const char32_t apostrophe = apostropheOf(decode(m.word), sentenceCps, wholeText);
        for (auto& c : band) c.word = encode(withApostrophe(decode(c.word), apostrophe));
        if (band.size() == 1 || !refining()) {
          fixes[m.sentence].emplace_back(m.start, m.end, band.front().word);
          continue;
        }
        Choice choice{m.sentence, {}, {}, m.start, m.end, {}, {}};
        for (const auto& c : band) {
          choice.texts.push_back(replaced(m.sentence->text, m.start, m.end, c.word));
          choice.costs.push_back(c.cost);
          choice.replacements.push_back(c.word);
        }
        choices.push_back(std::move(choice));
      }
      if (!checkCandidates(choices)) return std::nullopt;
      std::map<Sentence*, CheckReport> checked;  // the report of the candidate chosen, when it was checked
      for (auto& c : choices) {
        const auto chosen = best(c);
        fixes[c.sentence].emplace_back(c.start, c.end, c.replacements[chosen.value_or(0)]);
        if (chosen) checked[c.sentence] = std::move(*c.reports[*chosen]);
      }
      for (auto& [sentence, list] : fixes) {
        std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return std::get<0>(a) > std::get<0>(b); });
        for (const auto& [start, end, word] : list) sentence->text = replaced(sentence->text, start, end, word);
        // A sentence with one fix, chosen by checking it, needs no checking again.
        const auto known = checked.find(sentence);
        sentence->stale = list.size() > 1 || known == checked.end();
        if (!sentence->stale) sentence->issues = std::move(known->second.issues);
      }
    }
  }

  // Then grammar, one fix at a time per sentence, each checked again, until nothing is left to
  // fix. Each round starts by checking what the last one changed, the last round included.
  for (int round = 0;; ++round) {
    std::vector<Sentence*> stale;
    for (auto& s : sentences)
      if (!s.done && s.stale) stale.push_back(&s);
    if (!stale.empty()) {
      std::vector<std::string> texts;
      for (auto* s : stale) texts.push_back(s->text);
      auto found = checker.check(texts);
      if (!found || found->size() != texts.size()) return std::nullopt;
      for (std::size_t i = 0; i < stale.size(); ++i) {
        Sentence& s = *stale[i];
        s.stale = false;
        if ((*found)[i]) s.issues = std::move((*found)[i]->issues);
        if (s.fixPending && (!(*found)[i] || errorCount(s.issues) >= errorCount(s.issuesBeforeFix))) {
          s.text = s.beforeFix;  // the fix made nothing better: the sentence stays as it was
          s.issues = s.issuesBeforeFix;
          s.done = true;
        }
        if (!(*found)[i]) s.done = true;
        s.fixPending = false;
      }
    }
    if (round == kMaxGrammarRounds || !refining()) break;

    std::vector<Choice> choices;
    bool changed = false;
    for (auto& s : sentences) {
      if (s.done) continue;
      const auto shielded = protectedSpans(s.text);
      const auto sentenceCps = decode(s.text);
      struct Fix {
        std::size_t start, end;
        std::string with;
        double cost;
      };
      std::vector<Fix> fixes;
      for (const auto& issue : s.issues) {
        if (issue.spelling || issue.suggestions.empty() || overlaps(shielded, issue.start, issue.end)) continue;
        const auto span = decode(std::string_view(s.text).substr(issue.start, issue.end - issue.start));
        for (std::size_t k = 0; k < issue.suggestions.size() && k < 4; ++k) {
          auto with = withTypedSpaces(withApostrophe(decode(issue.suggestions[k]), apostropheOf(span, sentenceCps, wholeText)), span);
          if (onlyStyleDiffers(span, with)) continue;
          fixes.push_back({issue.start, issue.end, encode(with), editCost(lowered(span), lowered(with))});
        }
      }
      if (fixes.empty()) {
        s.done = true;
        continue;
      }
      if (fixes.size() == 1) {
        s.fixPending = true;
        s.beforeFix = s.text;
        s.issuesBeforeFix = s.issues;
        s.text = replaced(s.text, fixes[0].start, fixes[0].end, fixes[0].with);
        s.stale = true;
        changed = true;
        continue;
      }
      if (fixes.size() > kMaxGrammarCandidates) fixes.resize(kMaxGrammarCandidates);
      Choice choice{&s, {}, {}, 0, 0, {}, {}};
      for (const auto& f : fixes) {
        choice.texts.push_back(replaced(s.text, f.start, f.end, f.with));
        choice.costs.push_back(f.cost);
      }
      choices.push_back(std::move(choice));
    }
    // Each candidate's report becomes its sentence's when it is chosen, with no request more.
    if (!checkCandidates(choices)) return std::nullopt;
    for (auto& c : choices) {
      Sentence& s = *c.sentence;
      const auto chosen = best(c);
      if (chosen && errorCount(c.reports[*chosen]->issues) < errorCount(s.issues)) {
        s.text = c.texts[*chosen];
        s.issues = std::move(c.reports[*chosen]->issues);
        changed = true;
      } else {
        s.done = true;  // nothing better, or no time left to tell
      }
    }
    if (!changed) break;
  }

  // The text again, with each sentence as corrected and everything between them as it was.
  std::string out;
  out.reserve(text.size() + 64);
  std::size_t at = 0;
  std::size_t next = 0;
  for (std::size_t p = 0; p < paragraphs.size(); ++p) {
    out.append(text.substr(at, paragraphs[p].first - at));
    const std::string& para = paragraphTexts[p];
    std::size_t inPara = 0;
    for (; next < sentences.size() && sentences[next].paragraph == p; ++next) {
      const Sentence& s = sentences[next];
      out.append(para, inPara, s.start - inPara);
      out.append(s.text);
      inPara = s.end;
    }
    out.append(para, inPara, std::string::npos);
    at = paragraphs[p].second;
  }
  out.append(text.substr(at));
  return out;
}

// ---------------------------------------------------------------------------------------------
// The worker's protocol

namespace {

// Byte offsets of each code point offset of `text`, and one past the end.
std::vector<std::size_t> byteOffsets(std::string_view text) {
  std::vector<std::size_t> out;
  out.reserve(text.size() + 1);
  std::size_t i = 0;
  while (i < text.size()) {
    out.push_back(i);
    utf8proc_int32_t cp = 0;
    auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                              static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
    i += n > 0 ? static_cast<std::size_t>(n) : 1;
  }
  out.push_back(text.size());
  return out;
}

// A span of the answer in bytes, when it is one of the text.
std::optional<Span> spanOf(const Json& start, const Json& end, const std::vector<std::size_t>& offsets) {
  if (!start.is_number_unsigned() || !end.is_number_unsigned()) return std::nullopt;
  const auto s = start.get<std::uint64_t>(), e = end.get<std::uint64_t>();
  if (s > e || e >= offsets.size()) return std::nullopt;
  return Span{offsets[s], offsets[e]};
}

std::vector<std::string> strings(const Json& j, std::size_t limit) {
  std::vector<std::string> out;
  if (!j.is_array()) return out;
  for (const auto& v : j)
    if (v.is_string() && out.size() < limit) out.push_back(v.get<std::string>());
  return out;
}

}  // namespace

std::optional<std::vector<std::optional<CheckReport>>> GrammalecteSession::check(const std::vector<std::string>& texts) {
  auto answer = lease_.call(Json{{"check", texts}}, deadline_);
  if (!answer || !answer->contains("results") || !(*answer)["results"].is_array() ||
      (*answer)["results"].size() != texts.size())
    return std::nullopt;
  std::vector<std::optional<CheckReport>> out;
  for (std::size_t t = 0; t < texts.size(); ++t) {
    const Json& r = (*answer)["results"][t];
    if (!r.is_object() || !r.contains("sentences") || !r.contains("grammar") || !r.contains("spelling")) {
      out.emplace_back();
      continue;
    }
    const auto offsets = byteOffsets(texts[t]);
    CheckReport report;
    for (const auto& s : r["sentences"])
      if (s.is_array() && s.size() == 2)
        if (auto span = spanOf(s[0], s[1], offsets)) report.sentences.push_back(*span);
    for (const auto& kind : {"grammar", "spelling"}) {
      if (!r[kind].is_array()) continue;
      for (const auto& e : r[kind]) {
        if (!e.is_object() || !e.contains("start") || !e.contains("end")) continue;
        const auto span = spanOf(e["start"], e["end"], offsets);
        if (!span) continue;
        CheckReport::Issue issue{span->first, span->second, std::string_view(kind) == "spelling", {}};
        if (!issue.spelling && e.contains("suggestions")) issue.suggestions = strings(e["suggestions"], 8);
        report.issues.push_back(std::move(issue));
      }
    }
    out.emplace_back(std::move(report));
  }
  return out;
}

std::optional<std::vector<WordSuggestions>> GrammalecteSession::suggest(const std::vector<std::string>& words) {
  auto answer = lease_.call(Json{{"suggest", words}}, deadline_);
  if (!answer || !answer->contains("suggestions") || !(*answer)["suggestions"].is_array() ||
      (*answer)["suggestions"].size() != words.size())
    return std::nullopt;
  std::vector<WordSuggestions> out;
  for (const auto& s : (*answer)["suggestions"]) {
    WordSuggestions w;
    if (s.is_object()) {
      w.valid = s.contains("valid") && s["valid"].is_boolean() && s["valid"].get<bool>();
      if (s.contains("near")) w.near = strings(s["near"], 40);
      if (s.contains("edits")) w.edits = strings(s["edits"], 60);
      if (s.contains("far")) w.far = strings(s["far"], 20);
    }
    out.push_back(std::move(w));
  }
  return out;
}

}  // namespace mirlo::service
