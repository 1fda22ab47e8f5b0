#!/usr/bin/python3
"""Mirlo's speed and weight on a private X11 desktop (run by tools/bench-desktop).

Measures, on the accessibility path, with the local service (which corrects in a few
milliseconds):
  - start-up: from starting the program to its hot key being held;
  - hot key to text replaced: from Control+Shift+A pressed and let go (sent through XTest) until
    the editor's text has changed, read through AT-SPI every millisecond (median and spread of 20
    rounds, each on a freshly selected sentence);
  - the idle program's resident memory and CPU time over 60 seconds.

    bench_desktop.py SERVICE TWIN HOTKEY_PROBE [IDLE_SECONDS]
"""
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "e2e"))
from desktop_e2e import E2E, run, wait_for  # noqa: E402

ROUNDS = 20
SENTENCE = "Il fait tres beau et je voudrais un cafe."
CORRECTED = "Il fait très beau et je voudrais un café."


class HotKey:
    """Control+Shift+A pressed and let go through XTest, as one burst: the time of a round starts
    when the burst is flushed, with no helper process to start."""

    def __init__(self):
        import ctypes
        self.x11 = ctypes.CDLL("libX11.so.6")
        self.xtst = ctypes.CDLL("libXtst.so.6")
        self.x11.XOpenDisplay.restype = ctypes.c_void_p
        self.x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
        self.x11.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
        self.x11.XKeysymToKeycode.restype = ctypes.c_ubyte
        self.x11.XFlush.argtypes = [ctypes.c_void_p]
        self.xtst.XTestFakeKeyEvent.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int, ctypes.c_ulong]
        self.display = self.x11.XOpenDisplay(None)
        if not self.display:
            raise RuntimeError("cannot open the display")
        # Control_L, Shift_L, a
        self.codes = [self.x11.XKeysymToKeycode(self.display, sym) for sym in (0xFFE3, 0xFFE1, 0x61)]

    def press(self):
        for code in self.codes:
            self.xtst.XTestFakeKeyEvent(self.display, code, True, 0)
        for code in reversed(self.codes):
            self.xtst.XTestFakeKeyEvent(self.display, code, False, 0)
        self.x11.XFlush(self.display)


def reaches(text, expected, limit):
    """Polls the editor's text every millisecond until it reads `expected`; the time it did."""
    deadline = time.monotonic() + limit
    while text.getText(0, -1) != expected:
        if time.monotonic() > deadline:
            raise RuntimeError("no correction arrived")
        time.sleep(0.001)
    return time.monotonic()


def process_figures(pid):
    """(resident kB, CPU seconds used so far) of a process, from /proc."""
    with open(f"/proc/{pid}/status") as f:
        rss = next(int(line.split()[1]) for line in f if line.startswith("VmRSS:"))
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    ticks = int(fields[11]) + int(fields[12])  # utime + stime
    return rss, ticks / os.sysconf("SC_CLK_TCK")


def main():
    if len(sys.argv) not in (4, 5):
        print(__doc__, file=sys.stderr)
        return 2
    idle_seconds = float(sys.argv[4]) if len(sys.argv) == 5 else 60.0
    bench = E2E(*sys.argv[1:4], os.path.join(os.getcwd(), "bench-artifacts"))
    try:
        bench.start_service()
        bench.sign_in()

        started = time.monotonic()
        mirlo = bench.start("mirlo", [bench.twin])
        probe = bench.probe  # exits 0 once another client holds Control+Shift+A
        while run(probe, check=False).returncode != 0:
            if mirlo.poll() is not None or time.monotonic() - started > 30:
                raise RuntimeError("the program did not take its hot key")
            time.sleep(0.002)
        startup = time.monotonic() - started

        editor, _, _ = bench.open_editor("editor", accessible=True)
        bench.type_text("x")
        accessible = wait_for(lambda: bench.text_accessible(editor.pid), 20, "the editor's text view")
        text, editable = accessible.queryText(), accessible.queryEditableText()

        hot_key = HotKey()
        rounds = []
        for _ in range(ROUNDS):
            editable.setTextContents(SENTENCE)
            wait_for(lambda: text.getText(0, -1) == SENTENCE, 5, "the sentence in the editor")
            if text.getNSelections() > 0:
                text.setSelection(0, 0, len(SENTENCE))
            else:
                text.addSelection(0, len(SENTENCE))
            wait_for(lambda: text.getNSelections() == 1 and text.getSelection(0) == (0, len(SENTENCE)), 5,
                     "the selection")
            begin = time.monotonic()
            hot_key.press()
            rounds.append((reaches(text, CORRECTED, 10) - begin) * 1000)
            time.sleep(0.3)  # the program settles (card closed, watcher idle) before the next round

        rss_before, cpu_before = process_figures(mirlo.pid)
        time.sleep(idle_seconds)
        rss_after, cpu_after = process_figures(mirlo.pid)

        rounds.sort()
        print(f"start-up to ready (hot key held): {startup * 1000:.0f} ms")
        print(f"hot key to text replaced, {ROUNDS} rounds: median {statistics.median(rounds):.1f} ms, "
              f"fastest {rounds[0]:.1f} ms, slowest {rounds[-1]:.1f} ms")
        print(f"idle for {idle_seconds:.0f} s: resident memory {rss_before / 1024:.1f} MB then "
              f"{rss_after / 1024:.1f} MB, CPU {cpu_after - cpu_before:.2f} s "
              f"({(cpu_after - cpu_before) / idle_seconds * 100:.2f} %)")
        return 0
    except Exception as failure:
        print(f"FAILED: {failure!r}", file=sys.stderr)
        bench.keep_evidence()
        return 1
    finally:
        bench.stop_all()


if __name__ == "__main__":
    sys.exit(main())
