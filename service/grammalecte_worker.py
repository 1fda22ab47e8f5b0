"""The French checker of mirlo-service: Grammalecte, loaded once, answering on a private channel.

mirlo-service starts this program with Debian's own interpreter and hands it one end of a socket
pair as descriptor 3. Every message is one line of JSON. The first line written says whether
Grammalecte loaded: {"ready": true, "version": "…"} or {"error": "…"}. Then each request line
gets exactly one answer line, in order:

  {"check": [text, …]}    → {"results": [{"sentences": [[start, end], …],
                                         "grammar": [{"start", "end", "rule", "type", "suggestions"}],
                                         "spelling": [{"start", "end"}]}
                                        or {"error": "…"}, …]}
  {"suggest": [word, …]}  → {"suggestions": [{"near": […], "edits": […], "far": […]}
                                             or {"valid": true}, …]}

"near" are Grammalecte's look-alikes (accents, sounds, doubled letters, apostrophes), "edits" the
words one slip of the finger away, "far" its full search, made only when the others found nothing.
Words are looked up in small letters and with typographic apostrophes.

Offsets count Unicode code points. The service decides what to change; this program only reports
what Grammalecte sees. It ends when the service closes its end of the channel.
"""

import json
import socket
import sys

# What a correction must never touch: typography and the person's own style (their apostrophes,
# spacing, commas, capitals), and the checks Grammalecte itself marks as prone to false alarms.
OPTIONS_OFF = (
    "typo", "apos", "eepi", "esp", "tab", "nbsp", "unit", "num", "nf", "liga", "mapos", "chim",
    "ocr", "maj", "minis", "virg", "poncfin", "date", "bs", "pleo", "neg", "redon1", "redon2",
    "mc", "idrule", "html", "latex", "md",
)

# Words that take an apostrophe before a vowel: "jai" is "j’ai", "cest" is "c’est".
ELIDED = {"l", "d", "j", "m", "t", "s", "c", "n", "qu", "jusqu", "lorsqu", "puisqu", "quoiqu", "quelqu"}
VOWELS = set("aàâäeéèêëiîïoôöuùûüyœæh")
LETTERS = "abcdefghijklmnopqrstuvwxyzàâäçéèêëîïôöùûüÿœæ"


class Checker:
    def __init__(self):
        import grammalecte
        from grammalecte import text as grammalecte_text

        self.checker = grammalecte.GrammarChecker("fr")
        self.engine = self.checker.getGCEngine()
        self.speller = self.checker.getSpellChecker()
        self.boundaries = grammalecte_text.getSentenceBoundaries
        options = self.engine.getOptions()
        for name in OPTIONS_OFF:
            if name in options:
                options[name] = False
        self.engine.setOptions(options)
        self.version = getattr(self.engine, "version", "")
        # The rules are compiled on first use: do it now rather than in someone's first correction.
        self.check("Ils sont allé a la plage et on a mangés des glace.")
        self.suggest("maision")

    def check(self, text):
        grammar, spelling = self.checker.getParagraphErrors(text, bSpellSugg=False)
        # Sentence ends are found on the text as Grammalecte cleans it (typographic apostrophes).
        clean = text.replace("'", "’")
        return {
            "sentences": [[start, end] for start, end in self.boundaries(clean)],
            "grammar": [{
                "start": e["nStart"], "end": e["nEnd"], "rule": e.get("sRuleId", ""),
                "type": e.get("sType", ""), "suggestions": list(e.get("aSuggestions", ())),
            } for e in grammar],
            "spelling": [{"start": e["nStart"], "end": e["nEnd"]} for e in spelling],
        }

    def valid(self, word):
        if self.speller.isValid(word):
            return True
        head, apostrophe, tail = word.partition("’")
        return bool(apostrophe) and head in ELIDED and tail[:1] in VOWELS and self.speller.isValid(tail)

    def suggest(self, word):
        lower = word.lower().replace("'", "’")
        if self.valid(lower):
            return {"valid": True}
        near = []
        # Grammalecte's own first pass, quick, where accents, sounds, doubled letters and missing
        # apostrophes cost nothing; its full search is much slower and only runs when nothing is
        # close.
        try:
            from grammalecte.graphspell.ibdawg import SuggResult
            found = SuggResult(lower)
            self.speller.oMainDic._suggest(found, lower)
            near = found.getSuggestions()
        except (ImportError, AttributeError, TypeError):
            pass
        # Every word one slip of the finger away: a letter missing, added, swapped or replaced.
        try:
            edits = sorted(self.one_edit_away(lower))
        except AttributeError:  # a Grammalecte whose word graph is laid out otherwise
            edits = [candidate for candidate in sorted(one_edit_away(lower)) if self.valid(candidate)]
        far = []
        if not near and not edits:
            for group in self.speller.suggest(lower):
                far.extend(group)
        return {"near": near[:20], "edits": edits[:40], "far": list(dict.fromkeys(far))[:12]}


    def one_edit_away(self, word):
        """The known words one edit away from <word>, found by walking Grammalecte's word graph
        once along the word instead of looking up every possible edit."""
        graph = self.speller.oMainDic
        nodes, final, codes, follow = graph.lByDic, graph._finalNodeMask, graph.dChar, graph._lookupArcNode

        def known(address, tail):
            for c in tail:
                code = codes.get(c)
                address = None if code is None else follow(code, address)
                if address is None:
                    return False
            return bool(nodes[address] & final)

        found = set()
        address = 0
        for i in range(len(word) + 1):
            head, tail = word[:i], word[i:]
            arcs = [(c, a) for c, a in graph._getCharArcs(address) if c in LETTERS or c in "’-"]
            found.update(head + c + tail for c, a in arcs if known(a, tail))  # a letter added
            if not tail:
                break
            if known(address, tail[1:]):
                found.add(head + tail[1:])  # a letter missing
            found.update(head + c + tail[1:] for c, a in arcs if c != tail[0] and known(a, tail[1:]))
            if len(tail) > 1 and tail[0] != tail[1] and known(address, tail[1] + tail[0] + tail[2:]):
                found.add(head + tail[1] + tail[0] + tail[2:])  # two letters swapped
            code = codes.get(tail[0])
            address = None if code is None else follow(code, address)
            if address is None:
                break
        # "jai" is "j’ai": the elided words are not entries of their own.
        for i in range(1, min(len(word), 6)):
            head, tail = word[:i], word[i:]
            if head in ELIDED and tail[:1] in VOWELS and self.speller.isValid(tail):
                found.add(head + "’" + tail)
        found.discard(word)
        return found


def one_edit_away(word):
    out = set()
    for i in range(len(word) + 1):
        head, tail = word[:i], word[i:]
        if tail:
            out.add(head + tail[1:])
            for c in LETTERS:
                out.add(head + c + tail[1:])
        if len(tail) > 1:
            out.add(head + tail[1] + tail[0] + tail[2:])
        for c in LETTERS + "’-":
            out.add(head + c + tail)
    out.discard(word)
    return out


def main():
    channel = socket.socket(fileno=3)
    incoming = channel.makefile("rb")
    outgoing = channel.makefile("wb")

    def send(message):
        outgoing.write(json.dumps(message, ensure_ascii=False).encode("utf-8") + b"\n")
        outgoing.flush()

    try:
        checker = Checker()
    except Exception as error:  # anything at all: the service falls back and says why
        send({"error": "%s: %s" % (type(error).__name__, error)})
        return 1
    send({"ready": True, "version": checker.version})

    for line in incoming:
        try:
            request = json.loads(line)
            if "check" in request:
                results = []
                for text in request["check"]:
                    try:
                        results.append(checker.check(text))
                    except Exception as error:
                        results.append({"error": "%s: %s" % (type(error).__name__, error)})
                send({"results": results})
            elif "suggest" in request:
                send({"suggestions": [checker.suggest(word) for word in request["suggest"]]})
            else:
                send({"error": "unknown request"})
        except Exception as error:
            send({"error": "%s: %s" % (type(error).__name__, error)})
    return 0


if __name__ == "__main__":
    sys.exit(main())
